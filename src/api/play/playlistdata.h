#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

#include "httpclient.h"
#include "model/cmrequest.h"

class HttpClientResult;

// One playlist job: the parse request that asked for it, the download of the
// playlist body from its URL, the body and its content type once fetched,
// and the resolution of relative entry paths against the playlist's location.
//
// Thread: lives on the host's event-loop thread, which must run an event loop
// while a fetch runs; every function is called there and the HTTP client's
// completion arrives there.
//
// Ownership: has no QObject parent; its creator owns it. It owns its
// HttpClient (a child), so deleting the job ends any transfer still running
// and no completion arrives afterwards.
//
// States: idle (no fetch id) -> fetching (fetch()) -> done (requestDone()
// stored the body and emitted fetchDone()), or back to idle by cancelFetch().
// The HTTP status and code are not examined: a failed, timed-out, truncated
// or non-2xx answer completes like a good one, with whatever body arrived.
class PlayListData : public QObject {
    Q_OBJECT
public:
    // Total time a fetch may take, and most body bytes kept.
    static constexpr int FetchTimeoutMs = 30000;
    static constexpr qint64 FetchReadSizeLimit = 5242880;

    PlayListData(const QString& url, const CMSetDataRequest& request);
    // Forgets a running fetch without cancelling it; the owned HttpClient's
    // destruction ends the transfer.
    ~PlayListData() override;
    Q_DISABLE_COPY(PlayListData)

    // Starts the download of url(). Returns false (and logs why) when a fetch
    // is already running or the URL is empty; otherwise fetchDone() follows
    // exactly once, from the event loop, unless cancelFetch() comes first.
    bool fetch();
    // Whether fetch() reads file: URLs (off by default: only http and https).
    // Set before fetch().
    void setAllowLocalFiles(bool allow) { m_allowLocalFiles = allow; }
    bool allowLocalFiles() const { return m_allowLocalFiles; }
    // Cancels the running download; no fetchDone() is emitted for it. Returns
    // false when none runs or the client refused to cancel it.
    bool cancelFetch();
    // Completion handler of the download: stores the body and the
    // "Content-Type" header, then emits fetchDone().
    void requestDone(const HttpClientResult& result);
    // Hands the job a document obtained otherwise (a local file, a body under
    // test) as if it had been fetched from url() with success: the body and,
    // unless contentType is null, that "Content-Type"; emits fetchDone().
    void setDocument(const QByteArray& body, const QString& contentType = QString());

    // path unchanged when it begins with a scheme ("mms://x"), otherwise
    // baseUrl() + path without any normalisation or escaping ("a b.mp3" and
    // "/a.mp3" are appended as they are); empty for an empty path.
    // Thread-safe.
    QString pathToURI(const QString& path) const;

    CMSetDataRequest request() const { return m_request; }
    QString url() const { return m_url; }
    // url() up to and including its last "/"; empty when it holds none.
    QString baseUrl() const { return m_baseUrl; }
    // The body; empty until requestDone().
    QByteArray data() const { return m_data; }
    // The response's "Content-Type" value; empty when absent.
    QString contentType() const { return m_contentType; }
    bool isFetching() const { return m_fetcherId != nullptr; }

    // Test seam, for tests only: fetches started afterwards use timeoutMs
    // instead of FetchTimeoutMs (0 restores FetchTimeoutMs). Process-wide.
    static void setFetchTimeoutForTesting(int timeoutMs);

Q_SIGNALS:
    // The download finished (in any way); data() and contentType() are set.
    void fetchDone();

private:
    CMSetDataRequest m_request;
    QString m_url;
    QString m_baseUrl;
    QByteArray m_data;
    QString m_contentType;
    HttpClient::RequestId m_fetcherId = nullptr;
    bool m_allowLocalFiles = false;
    HttpClient* m_httpClient; // child of this
};
