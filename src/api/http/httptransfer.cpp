#include "httptransfer.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

namespace {

log4cplus::Logger& logger() {
    static log4cplus::Logger instance = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("HttpClient.Transfer"));
    return instance;
}

// Bytes moved from QtNetwork's buffer per read; also the bound of that buffer,
// so that QtNetwork stops reading the socket instead of buffering a body we may
// throw away.
constexpr qint64 ReadChunk = 64 * 1024;

// Encodings HttpContentDecoder handles. Sending the header ourselves also keeps
// QtNetwork from decompressing on its own, unbounded.
const char AcceptEncoding[] = "gzip, deflate";

std::string text(const QString& value) {
    return value.toStdString();
}

HttpClientStatus::Enum statusFor(QNetworkReply::NetworkError error, int httpCode) {
    switch (error) {
    case QNetworkReply::ConnectionRefusedError:
        return HttpClientStatus::connectionRefused;
    case QNetworkReply::HostNotFoundError:
        return HttpClientStatus::hostNotFound;
    case QNetworkReply::TooManyRedirectsError:
        return HttpClientStatus::tooManyRedirects;
    case QNetworkReply::ProtocolUnknownError:
        // Only a redirect can get here: the first URL's scheme is checked before.
        return HttpClientStatus::unsupportedScheme;
    default:
        break;
    }
    if (httpCode > 0 && (httpCode < 200 || httpCode > 299))
        return HttpClientStatus::httpError;
    return error == QNetworkReply::NoError ? HttpClientStatus::ok : HttpClientStatus::networkError;
}

bool isLocalHost(const QString& host) {
    return host.isEmpty() || host.compare(QLatin1String("localhost"), Qt::CaseInsensitive) == 0;
}

// Grows body so that it can hold `needed` bytes without its capacity ever
// passing `limit` (QByteArray's own growth could allocate far beyond it).
void reserveFor(QByteArray& body, qint64 needed, qint64 limit) {
    if (needed <= body.capacity())
        return;
    const qint64 grown = qMax(needed, 2 * qint64(body.capacity()));
    body.reserve(int(qMin(grown, limit)));
}

} // namespace

HttpTransfer::HttpTransfer(QNetworkAccessManager* network, const ZuvoUrl& url,
                           const HttpClientOptions& options, Protocol protocol, QObject* parent)
    : QObject(parent)
    , m_network(network)
    , m_options(options)
    , m_protocol(protocol)
    , m_sizeLimit(options.effectiveReadSizeLimit())
    , m_totalTimeoutTimer(this) {
    m_totalTimeoutTimer.setObjectName(QStringLiteral("totalTimeoutTimer"));
    m_totalTimeoutTimer.setSingleShot(true);
    connect(&m_totalTimeoutTimer, &QTimer::timeout, this, &HttpTransfer::on_totalTimeoutTimer_timeout);
    m_result.setUrl(url);
    m_result.setFinalUrl(url);
}

HttpTransfer::~HttpTransfer() {
    releaseReply();
}

void HttpTransfer::start() {
    HttpClientStatus::Enum refusal = HttpClientStatus::invalidUrl;
    const QString reason = checkUrl(&refusal);
    if (!reason.isEmpty()) {
        LOG4CPLUS_DEBUG(logger(), "Refusing " << text(m_result.url().toString()) << ": " << text(reason));
        finish(refusal, reason);
        return;
    }

    QNetworkRequest request(m_result.url().toQUrl());
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         m_protocol.followRedirects ? QNetworkRequest::NoLessSafeRedirectPolicy
                                                    : QNetworkRequest::ManualRedirectPolicy);
    request.setMaximumRedirectsAllowed(m_options.maxRedirects());
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, m_protocol.http2);
    // Every fetch stands alone: no cookies kept from or for other requests.
    request.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    request.setRawHeader("Accept-Encoding", AcceptEncoding);
    for (const auto& header : m_options.requestHeaders())
        request.setRawHeader(header.first, header.second);

    if (m_options.timeoutMs() > 0)
        m_totalTimeoutTimer.start(m_options.timeoutMs());

    m_reply = m_network->get(request);
    m_reply->setReadBufferSize(ReadChunk);
    connect(m_reply, &QNetworkReply::metaDataChanged, this, &HttpTransfer::on_reply_metaDataChanged);
    connect(m_reply, &QNetworkReply::readyRead, this, &HttpTransfer::on_reply_readyRead);
    connect(m_reply, &QNetworkReply::finished, this, &HttpTransfer::on_reply_finished);
    LOG4CPLUS_TRACE(logger(), "GET " << text(m_result.url().toString()) << " (timeout "
                                     << m_options.timeoutMs() << " ms, limit " << m_sizeLimit << " bytes)");
}

QString HttpTransfer::checkUrl(HttpClientStatus::Enum* status) const {
    const ZuvoUrl& url = m_result.url();
    if (!url.isValid()) {
        *status = HttpClientStatus::invalidUrl;
        return QStringLiteral("Malformed URL");
    }
    const QString scheme = url.scheme();
    if (scheme == QLatin1String("http") || scheme == QLatin1String("https")) {
        if (url.toQUrl().host().isEmpty()) {
            *status = HttpClientStatus::invalidUrl;
            return QStringLiteral("URL without a host");
        }
        return QString();
    }
    if (scheme == QLatin1String("file")) {
        if (!m_options.allowLocalFiles()) {
            *status = HttpClientStatus::unsupportedScheme;
            return QStringLiteral("Local files are not allowed");
        }
        if (!isLocalHost(url.toQUrl().host())) {
            *status = HttpClientStatus::invalidUrl;
            return QStringLiteral("file: URL naming a remote host");
        }
        return QString();
    }
    *status = HttpClientStatus::unsupportedScheme;
    return QStringLiteral("Unsupported URL scheme \"%1\"").arg(scheme);
}

int HttpTransfer::httpCode() const {
    // QtNetwork gives file: replies a made-up code 200; only HTTP has codes.
    if (!m_reply || m_result.url().scheme() == QLatin1String("file"))
        return 0;
    return m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

void HttpTransfer::on_reply_metaDataChanged() {
    // Decided anew for every answer, as a followed redirect has its own.
    // A declared length says early whether the body will pass the limit. With
    // a content encoding it counts encoded bytes, while the limit counts the
    // decoded ones we keep, so only an unencoded length is trusted.
    const QByteArray encoding = m_reply->rawHeader("Content-Encoding");
    m_decoder = HttpContentDecoder::forEncoding(encoding);
    const QByteArray trimmed = encoding.trimmed().toLower();
    const QVariant length = m_reply->header(QNetworkRequest::ContentLengthHeader);
    m_declaredOverLimit =
        length.isValid() && (trimmed.isEmpty() || trimmed == "identity") && length.toLongLong() > m_sizeLimit;
    if (m_declaredOverLimit) {
        LOG4CPLUS_DEBUG(logger(), "Content-Length " << length.toLongLong() << " of "
                                                    << text(m_result.url().toString())
                                                    << " passes the limit of " << m_sizeLimit << " bytes");
    }
}

void HttpTransfer::on_reply_readyRead() {
    readAvailable();
}

bool HttpTransfer::readAvailable() {
    const QString overLimit =
        QStringLiteral("The body is larger than the limit of %1 bytes").arg(m_sizeLimit);
    const HttpContentDecoder::Sink sink = [this](const char* data, qint64 size) { return keep(data, size); };
    while (m_reply->bytesAvailable() > 0) {
        const QByteArray chunk = m_reply->read(ReadChunk);
        if (chunk.isEmpty())
            break;
        const HttpContentDecoder::Result result =
            m_decoder ? m_decoder->decode(chunk, sink)
                      : (keep(chunk.constData(), chunk.size()) ? HttpContentDecoder::Result::Ok
                                                               : HttpContentDecoder::Result::Stopped);
        if (result == HttpContentDecoder::Result::Stopped) {
            finish(HttpClientStatus::sizeLimitExceeded, overLimit);
            return false;
        }
        if (result == HttpContentDecoder::Result::Corrupt) {
            finish(HttpClientStatus::networkError, QStringLiteral("The compressed body cannot be decoded"));
            return false;
        }
    }
    if (m_declaredOverLimit && m_body.size() >= m_sizeLimit) {
        // No need to wait for a byte past the limit: the server announced more.
        finish(HttpClientStatus::sizeLimitExceeded, overLimit);
        return false;
    }
    return true;
}

bool HttpTransfer::keep(const char* data, qint64 size) {
    const qint64 taken = qMin(size, m_sizeLimit - m_body.size());
    reserveFor(m_body, m_body.size() + taken, m_sizeLimit);
    m_body.append(data, int(taken));
    return taken == size;
}

void HttpTransfer::on_reply_finished() {
    if (!readAvailable())
        return;
    const HttpClientStatus::Enum status = statusFor(m_reply->error(), httpCode());
    if (status == HttpClientStatus::ok && m_decoder && m_decoder->isIncomplete()) {
        finish(HttpClientStatus::networkError, QStringLiteral("The compressed body ends early"));
        return;
    }
    finish(status, m_reply->errorString());
}

void HttpTransfer::on_totalTimeoutTimer_timeout() {
    if (m_reply && !readAvailable())
        return;
    finish(HttpClientStatus::timeout,
           QStringLiteral("No complete answer within %1 ms").arg(m_options.timeoutMs()));
}

void HttpTransfer::finish(HttpClientStatus::Enum status, const QString& errorString) {
    if (m_finished)
        return;
    m_finished = true;
    m_totalTimeoutTimer.stop();
    m_result.setStatus(status);
    if (status != HttpClientStatus::ok)
        m_result.setErrorString(errorString);
    m_result.setBody(m_body);
    m_body.clear();
    if (m_reply) {
        m_result.setHttpCode(httpCode());
        if (m_reply->url() != m_result.url().toQUrl())
            m_result.setFinalUrl(ZuvoUrl(m_reply->url()));
        HttpClientHeaders headers;
        for (const auto& field : m_reply->rawHeaderPairs())
            headers.append(QString::fromLatin1(field.first), QString::fromLatin1(field.second));
        m_result.setHeaders(headers);
    }
    releaseReply();
    LOG4CPLUS_DEBUG(logger(), "Finished " << text(m_result.url().toString()) << ": " << status << ", code "
                                          << m_result.httpCode() << ", " << m_result.body().size() << " bytes"
                                          << (m_result.errorString().isEmpty() ? "" : ", ")
                                          << text(m_result.errorString()));
    Q_EMIT finished();
}

void HttpTransfer::releaseReply() {
    if (!m_reply)
        return;
    QNetworkReply* const reply = m_reply;
    m_reply = nullptr;
    // Disconnect first: abort() emits finished() at once, and nothing of this
    // transfer may run for it.
    disconnect(reply, nullptr, this, nullptr);
    // A reply that already carries an error (an answer such as 404) must not
    // go through QtNetwork's error path again, which abort() would do;
    // deleting the reply ends its transfer all the same.
    if (reply->isRunning() && reply->error() == QNetworkReply::NoError)
        reply->abort();
    reply->deleteLater();
}
