#pragma once

#include "httpclientoptions.h"
#include "httpclientresult.h"
#include "zuvourl.h"

#include <QByteArray>
#include <QHash>
#include <QObject>
#include <QPair>
#include <QVector>
#include <curl/curl.h>
#include <memory>

class HttpCurlMulti;

// One GET of HttpClient on a libcurl easy handle (internal to the client
// library): checks the URL, sets the limits of its options on the handle
// (total time, redirects, protocols of the request and of every redirect, TLS
// verification, content decoding), counts the response header bytes and the
// decoded body bytes as libcurl hands them over and ends the transfer at
// either cap, then builds the result. A transfer takes a bounded number of
// body bytes per turn of the event loop and pauses until the next.
//
// finished() is emitted exactly once: from start() when the URL is refused
// before any network access, otherwise from the event loop (from the
// multi handle's completion). After it the transfer holds its result and is no
// longer in the multi handle. Destroying a transfer that has not finished
// stops it silently (no finished()).
class HttpTransfer : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY(HttpTransfer)

public:
    struct Protocol {
        bool http2 = false;
        bool followRedirects = true;
    };

    HttpTransfer(HttpCurlMulti* multi, const ZuvoUrl& url, const HttpClientOptions& options,
                 Protocol protocol, QObject* parent = nullptr);
    ~HttpTransfer() override;

    void start();

    bool isFinished() const { return m_finished; }
    // Valid once finished() was emitted.
    const HttpClientResult& result() const { return m_result; }

Q_SIGNALS:
    void finished();

private:
    // Why the transfer ended itself from inside a libcurl callback.
    enum class Stop { None, BodyLimit, HeaderLimit };

    struct EasyDeleter {
        void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
    };
    struct ListDeleter {
        void operator()(curl_slist* list) const { curl_slist_free_all(list); }
    };

    static size_t writeCallback(char* data, size_t size, size_t count, void* self);
    static size_t headerCallback(char* data, size_t size, size_t count, void* self);

    // Refusal reason for the URL, or an empty string when it may be fetched.
    QString checkUrl(HttpClientStatus::Enum* status) const;
    bool configure();
    // Both return the bytes taken; anything else than `size` ends the transfer.
    size_t onBody(const char* data, size_t size);
    size_t onHeaderLine(const char* data, size_t size);
    // Continues a transfer paused for taking enough in one turn.
    void resume();
    void onDone(CURLcode code);
    void finish(HttpClientStatus::Enum status, const QString& errorString);

    HttpCurlMulti* const m_multi;
    const HttpClientOptions m_options;
    const Protocol m_protocol;
    const qint64 m_bodyLimit;
    const qint64 m_headerLimit;
    std::unique_ptr<CURL, EasyDeleter> m_easy;
    std::unique_ptr<curl_slist, ListDeleter> m_requestHeaders;
    QByteArray m_curlUrl;
    char m_errorBuffer[CURL_ERROR_SIZE] = {};
    bool m_added = false;
    Stop m_stop = Stop::None;
    qint64 m_turnBytes = 0; // body bytes taken since the last pause
    bool m_resumeQueued = false;

    // Of the answer being received (a followed redirect starts a new one).
    QVector<QPair<QByteArray, QByteArray>> m_fields; // repeated names joined with ", "
    QHash<QByteArray, int> m_fieldIndex;             // lower-case name -> index in m_fields
    qint64 m_declaredLength = -1;                    // Content-Length of an unencoded body
    qint64 m_headerBytes = 0;                        // over every answer of the transfer

    QByteArray m_body;
    bool m_finished = false;
    HttpClientResult m_result;
};
