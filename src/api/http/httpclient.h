#pragma once

#include "httpclientoptions.h"
#include "httpclientresult.h"
#include "zuvourl.h"

#include <QObject>
#include <functional>
#include <memory>
#include <unordered_map>

class HttpCurlMulti;

// Never defined: a RequestId only names a request, it is never dereferenced.
struct HttpClientRequest;

// Fetches URLs with GET on libcurl, one callback per request.
//
// Thread: a client lives on the thread that created it, which must run an
// event loop; all its functions are called there and every callback arrives
// there. Do not move it to another thread. Transfers run in small steps from
// that event loop (socket notifiers and one timer drive libcurl's multi
// interface); the client starts no thread of its own (libcurl may run one
// for the duration of a host-name lookup).
//
// Completion: get() always returns a fresh non-null id and the callback is
// called exactly once, always from the event loop and never inside get() (not
// even for a URL refused at once), unless the request is cancelled or the
// client destroyed first. A callback may freely call get() or cancel() or
// delete the client.
//
// Limits: each request obeys its HttpClientOptions: a total time limit, a hard
// cap on the response header, a hard cap on the body kept (checked against an
// unencoded Content-Length and counted as bytes arrive; the transfer is
// aborted past it), a bounded number of redirects that never lead from https
// to http or to a scheme other than http and https. TLS peers are verified
// against the system's certificate store, host name included. Failures,
// including any malformed input, come back as an HttpClientStatus, never as
// an exception.
//
// A gzip or deflate body is decoded by libcurl (the client asks for those
// encodings), and the limit counts decoded bytes.
//
// Each client has its own connections (kept alive between its requests);
// requests neither send nor store cookies and use no proxy.
class HttpClient : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY(HttpClient)

public:
    enum HttpVersion {
        Http1_1 = 0, // plain HTTP/1.1
        Http2 = 1    // HTTP/2 where the server offers it (https, by ALPN), else HTTP/1.1
    };
    Q_ENUM(HttpVersion)

    // An opaque handle of one request; ids are never reused within a process.
    using RequestId = const HttpClientRequest*;
    using Callback = std::function<void(const HttpClientResult&)>;

    // followRedirects: whether 3xx answers are followed (up to the options'
    // maxRedirects) or delivered as they are (status httpError).
    explicit HttpClient(QObject* parent, HttpVersion version = Http1_1, bool followRedirects = true);
    // Aborts every running transfer; no callback is called afterwards.
    ~HttpClient() override;

    HttpVersion httpVersion() const { return m_version; }
    bool followsRedirects() const { return m_followRedirects; }

    // Starts fetching url; callback receives the result (see the class
    // comment). An empty callback is allowed (fire and forget).
    RequestId get(const ZuvoUrl& url, const HttpClientOptions& options, Callback callback);

    // Stops a request whose callback has not been called yet: returns true and
    // its callback is then never called. Returns false for an unknown id, one
    // already completed or cancelled, and a null id.
    bool cancel(RequestId id);

    // Requests whose callback is still due.
    int pendingCount() const { return int(m_requests.size()); }

private:
    struct Pending;

    void deliver(RequestId id);

    const HttpVersion m_version;
    const bool m_followRedirects;
    HttpCurlMulti* m_multi; // child of this
    std::unordered_map<RequestId, std::unique_ptr<Pending>> m_requests;
};
