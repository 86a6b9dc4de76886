#pragma once

#include "httpclientoptions.h"
#include "httpclientresult.h"
#include "httpcontentdecoder.h"
#include "zuvourl.h"

#include <QObject>
#include <QPointer>
#include <QTimer>
#include <memory>

class QNetworkAccessManager;
class QNetworkReply;

// One GET of HttpClient (internal to the client library): checks the URL,
// drives the QNetworkReply, decodes a compressed body itself (QtNetwork's
// decompression is turned off by asking for the encodings explicitly), keeps
// at most the read-size limit of (decoded) body bytes and enforces the total
// time limit.
//
// finished() is emitted exactly once: from start() when the URL is refused
// before any network access, otherwise from the event loop. After it the
// transfer holds its result and no longer touches the network. Destroying a
// transfer that has not finished aborts it silently (no finished()).
class HttpTransfer : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY(HttpTransfer)

public:
    struct Protocol {
        bool http2 = false;
        bool followRedirects = true;
    };

    HttpTransfer(QNetworkAccessManager* network, const ZuvoUrl& url, const HttpClientOptions& options,
                 Protocol protocol, QObject* parent = nullptr);
    ~HttpTransfer() override;

    void start();

    bool isFinished() const { return m_finished; }
    // Valid once finished() was emitted.
    const HttpClientResult& result() const { return m_result; }

Q_SIGNALS:
    void finished();

private Q_SLOTS:
    void on_reply_metaDataChanged();
    void on_reply_readyRead();
    void on_reply_finished();
    void on_totalTimeoutTimer_timeout();

private:
    // Refusal reason for the URL, or an empty string when it may be fetched.
    QString checkUrl(HttpClientStatus::Enum* status) const;
    // The status code of the answer so far; 0 without one.
    int httpCode() const;
    // Moves what QtNetwork buffered into the body; finishes the transfer (and
    // returns false) once the body passes the limit or cannot be decoded.
    bool readAvailable();
    // Appends body bytes within the limit; false when they did not all fit.
    bool keep(const char* data, qint64 size);
    void finish(HttpClientStatus::Enum status, const QString& errorString);
    void releaseReply();

    QNetworkAccessManager* const m_network;
    const HttpClientOptions m_options;
    const Protocol m_protocol;
    const qint64 m_sizeLimit;
    QPointer<QNetworkReply> m_reply;
    QTimer m_totalTimeoutTimer;
    QByteArray m_body;
    std::unique_ptr<HttpContentDecoder> m_decoder; // for the current answer's encoding, if any
    bool m_declaredOverLimit = false;
    bool m_finished = false;
    HttpClientResult m_result;
};
