#include "httptransfer.h"

#include "httpcurlmulti.h"

#include <QTimer>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

namespace {

log4cplus::Logger& logger() {
    static log4cplus::Logger instance = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("HttpClient.Transfer"));
    return instance;
}

// The encodings asked for; libcurl decodes them before the body reaches us,
// so the body limit counts decoded bytes.
const char AcceptEncoding[] = "gzip, deflate";

// Most body bytes taken in one turn of the event loop; past them the transfer
// pauses until the next turn, so that neither a fast peer nor a compressed
// body holds up the thread.
constexpr qint64 TurnBytes = 256 * 1024;
// libcurl's receive buffer, its smallest. libcurl decodes a whole buffer's
// worth of compressed input at once, whatever the receiver says, and deflate
// expands at most about a thousandfold: this bounds the work of one turn.
constexpr long ReceiveBufferBytes = 1024;

std::string text(const QString& value) {
    return value.toStdString();
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

HttpClientStatus::Enum statusFor(CURLcode code, long httpCode) {
    switch (code) {
    case CURLE_OPERATION_TIMEDOUT:
        return HttpClientStatus::timeout;
    case CURLE_COULDNT_CONNECT:
        return HttpClientStatus::connectionRefused;
    case CURLE_COULDNT_RESOLVE_HOST:
        return HttpClientStatus::hostNotFound;
    case CURLE_URL_MALFORMAT:
        return HttpClientStatus::invalidUrl;
    case CURLE_UNSUPPORTED_PROTOCOL:
        // A redirect to a refused scheme (the first URL's scheme is checked
        // before), or an answer that is no HTTP/1.x or HTTP/2 at all.
        return httpCode >= 300 && httpCode < 400 ? HttpClientStatus::unsupportedScheme
                                                 : HttpClientStatus::protocolError;
    case CURLE_TOO_MANY_REDIRECTS:
        return HttpClientStatus::tooManyRedirects;
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
    case CURLE_HTTP3:
        return HttpClientStatus::protocolError;
    default:
        return HttpClientStatus::networkError;
    }
}

QByteArray trimmedLine(const char* data, size_t size) {
    return QByteArray::fromRawData(data, int(size)).trimmed();
}

} // namespace

HttpTransfer::HttpTransfer(HttpCurlMulti* multi, const ZuvoUrl& url, const HttpClientOptions& options,
                           Protocol protocol, QObject* parent)
    : QObject(parent)
    , m_multi(multi)
    , m_options(options)
    , m_protocol(protocol)
    , m_bodyLimit(options.effectiveReadSizeLimit())
    , m_headerLimit(options.effectiveHeaderSizeLimit()) {
    m_result.setUrl(url);
    m_result.setFinalUrl(url);
}

HttpTransfer::~HttpTransfer() {
    if (m_added)
        m_multi->remove(m_easy.get());
}

void HttpTransfer::start() {
    HttpClientStatus::Enum refusal = HttpClientStatus::invalidUrl;
    const QString reason = checkUrl(&refusal);
    if (!reason.isEmpty()) {
        LOG4CPLUS_DEBUG(logger(), "Refusing " << text(m_result.url().toString()) << ": " << text(reason));
        finish(refusal, reason);
        return;
    }
    if (!configure() || !m_multi->add(m_easy.get(), [this](CURLcode code) { onDone(code); })) {
        finish(HttpClientStatus::networkError, QStringLiteral("The transfer cannot be set up"));
        return;
    }
    m_added = true;
    LOG4CPLUS_TRACE(logger(), "GET " << m_curlUrl.constData() << " (timeout " << m_options.timeoutMs()
                                     << " ms, limit " << m_bodyLimit << " bytes)");
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

bool HttpTransfer::configure() {
    m_easy.reset(curl_easy_init());
    CURL* const easy = m_easy.get();
    if (!easy)
        return false;
    for (const auto& header : m_options.requestHeaders()) {
        // "Name;" is libcurl's way of sending a field with an empty value.
        const QByteArray field =
            header.second.isEmpty() ? header.first + ';' : header.first + ": " + header.second;
        curl_slist* const list = curl_slist_append(m_requestHeaders.get(), field.constData());
        if (!list)
            return false;
        m_requestHeaders.release();
        m_requestHeaders.reset(list);
    }
    m_curlUrl = m_result.url().toQUrl().toEncoded();
    // A redirect never leads to a less safe scheme, nor to a local file.
    const bool secure = m_result.url().scheme() == QLatin1String("https");
    const char* const protocols = m_options.allowLocalFiles() ? "http,https,file" : "http,https";

    bool ok = true;
    const auto set = [&](CURLoption option, auto value) {
        ok = ok && curl_easy_setopt(easy, option, value) == CURLE_OK;
    };
    set(CURLOPT_URL, m_curlUrl.constData());
    set(CURLOPT_PROTOCOLS_STR, protocols);
    set(CURLOPT_REDIR_PROTOCOLS_STR, secure ? "https" : "http,https");
    set(CURLOPT_FOLLOWLOCATION, long(m_protocol.followRedirects));
    set(CURLOPT_MAXREDIRS, long(m_options.maxRedirects()));
    set(CURLOPT_TIMEOUT_MS, long(m_options.timeoutMs()));
    set(CURLOPT_HTTP_VERSION, long(m_protocol.http2 ? CURL_HTTP_VERSION_2TLS : CURL_HTTP_VERSION_1_1));
    set(CURLOPT_ACCEPT_ENCODING, AcceptEncoding);
    set(CURLOPT_SSL_VERIFYPEER, 1L);
    set(CURLOPT_SSL_VERIFYHOST, 2L);
    // Like before libcurl: no proxy from the environment, no cookies, no
    // signals (this is not the only thread of the process).
    set(CURLOPT_PROXY, "");
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_HTTPHEADER, m_requestHeaders.get());
    set(CURLOPT_ERRORBUFFER, m_errorBuffer);
    set(CURLOPT_BUFFERSIZE, ReceiveBufferBytes);
    set(CURLOPT_WRITEFUNCTION, &HttpTransfer::writeCallback);
    set(CURLOPT_WRITEDATA, static_cast<void*>(this));
    set(CURLOPT_HEADERFUNCTION, &HttpTransfer::headerCallback);
    set(CURLOPT_HEADERDATA, static_cast<void*>(this));
    return ok;
}

size_t HttpTransfer::writeCallback(char* data, size_t size, size_t count, void* self) {
    return static_cast<HttpTransfer*>(self)->onBody(data, size * count);
}

size_t HttpTransfer::headerCallback(char* data, size_t size, size_t count, void* self) {
    return static_cast<HttpTransfer*>(self)->onHeaderLine(data, size * count);
}

size_t HttpTransfer::onBody(const char* data, size_t size) {
    if (m_turnBytes >= TurnBytes) {
        // libcurl keeps these bytes (and what it decodes meanwhile) and hands
        // them over again once resumed.
        if (!m_resumeQueued) {
            m_resumeQueued = true;
            QTimer::singleShot(0, this, &HttpTransfer::resume);
        }
        return CURL_WRITEFUNC_PAUSE;
    }
    m_turnBytes += qint64(size);
    const qint64 taken = qMin(qint64(size), m_bodyLimit - m_body.size());
    reserveFor(m_body, m_body.size() + taken, m_bodyLimit);
    m_body.append(data, int(taken));
    // No need to wait for a byte past the limit when the server announced more.
    if (taken < qint64(size) || (m_declaredLength > m_bodyLimit && m_body.size() >= m_bodyLimit)) {
        m_stop = Stop::BodyLimit;
        return 0;
    }
    return size;
}

size_t HttpTransfer::onHeaderLine(const char* data, size_t size) {
    m_headerBytes += qint64(size);
    if (m_headerBytes > m_headerLimit) {
        m_stop = Stop::HeaderLimit;
        return 0;
    }
    const QByteArray line = trimmedLine(data, size);
    if (line.startsWith("HTTP/")) {
        // The status line of a new answer (after a redirect or a 1xx).
        m_fields.clear();
        m_fieldIndex.clear();
        m_declaredLength = -1;
        return size;
    }
    if (line.isEmpty()) {
        // The end of the header block. A declared length says early whether
        // the body will pass the limit; with a content encoding it counts
        // encoded bytes while the limit counts decoded ones, so only an
        // unencoded length is trusted.
        const int encoding = m_fieldIndex.value("content-encoding", -1);
        const int length = m_fieldIndex.value("content-length", -1);
        const bool plain =
            encoding < 0 || m_fields.at(encoding).second.compare("identity", Qt::CaseInsensitive) == 0;
        bool valid = false;
        const qint64 declared = length < 0 ? -1 : m_fields.at(length).second.toLongLong(&valid);
        m_declaredLength = plain && valid ? declared : -1;
        if (m_declaredLength > 0)
            reserveFor(m_body, m_declaredLength, m_bodyLimit);
        return size;
    }
    const int colon = line.indexOf(':');
    if (colon <= 0) {
        // libcurl refuses a line without a colon, except a folded
        // continuation line (which it hands over without its leading blanks).
        if (!m_fields.isEmpty())
            m_fields.last().second += ' ' + line;
        return size;
    }
    const QByteArray name = line.left(colon).trimmed();
    const QByteArray value = line.mid(colon + 1).trimmed();
    const QByteArray key = name.toLower();
    const auto it = m_fieldIndex.constFind(key);
    if (it == m_fieldIndex.constEnd()) {
        m_fieldIndex.insert(key, m_fields.size());
        m_fields.append({name, value});
    } else {
        m_fields[*it].second += ", " + value;
    }
    return size;
}

void HttpTransfer::resume() {
    m_resumeQueued = false;
    m_turnBytes = 0;
    if (!m_added)
        return;
    // Hands the kept bytes over at once, so that a cap may be reached in here;
    // then the transfer no longer runs and ends here too.
    const CURLcode code = curl_easy_pause(m_easy.get(), CURLPAUSE_CONT);
    if (code != CURLE_OK) {
        m_multi->remove(m_easy.get());
        onDone(code);
    }
}

void HttpTransfer::onDone(CURLcode code) {
    m_added = false;
    HttpClientStatus::Enum status = HttpClientStatus::ok;
    QString error;
    long httpCode = 0;
    if (m_result.url().scheme() != QLatin1String("file"))
        curl_easy_getinfo(m_easy.get(), CURLINFO_RESPONSE_CODE, &httpCode);
    m_result.setHttpCode(int(httpCode));
    const char* effectiveUrl = nullptr;
    curl_easy_getinfo(m_easy.get(), CURLINFO_EFFECTIVE_URL, &effectiveUrl);
    if (effectiveUrl && m_curlUrl != effectiveUrl)
        m_result.setFinalUrl(ZuvoUrl(QUrl::fromEncoded(effectiveUrl)));
    HttpClientHeaders headers;
    for (const auto& field : qAsConst(m_fields))
        headers.append(QString::fromLatin1(field.first), QString::fromLatin1(field.second));
    m_result.setHeaders(headers);

    if (m_stop == Stop::BodyLimit) {
        status = HttpClientStatus::sizeLimitExceeded;
        error = QStringLiteral("The body is larger than the limit of %1 bytes").arg(m_bodyLimit);
    } else if (m_stop == Stop::HeaderLimit) {
        status = HttpClientStatus::headerSizeExceeded;
        error = QStringLiteral("The response header is larger than the limit of %1 bytes").arg(m_headerLimit);
    } else if (code != CURLE_OK) {
        status = statusFor(code, httpCode);
        error = QString::fromUtf8(m_errorBuffer[0] ? m_errorBuffer : curl_easy_strerror(code));
    } else if (httpCode != 0 && (httpCode < 200 || httpCode > 299)) {
        status = HttpClientStatus::httpError;
        error = QStringLiteral("HTTP status %1").arg(httpCode);
    }
    finish(status, error);
}

void HttpTransfer::finish(HttpClientStatus::Enum status, const QString& errorString) {
    if (m_finished)
        return;
    m_finished = true;
    m_result.setStatus(status);
    if (status != HttpClientStatus::ok)
        m_result.setErrorString(errorString);
    // A declared length may have reserved far more than arrived.
    if (m_body.capacity() - m_body.size() > 64 * 1024)
        m_body.squeeze();
    m_result.setBody(m_body);
    m_body.clear();
    m_fields.clear();
    m_fieldIndex.clear();
    LOG4CPLUS_DEBUG(logger(), "Finished " << text(m_result.url().toString()) << ": " << status << ", code "
                                          << m_result.httpCode() << ", " << m_result.body().size() << " bytes"
                                          << (m_result.errorString().isEmpty() ? "" : ", ")
                                          << text(m_result.errorString()));
    Q_EMIT finished();
}
