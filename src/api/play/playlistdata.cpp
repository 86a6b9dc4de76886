#include "playlistdata.h"

#include <atomic>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include "httpclientoptions.h"
#include "httpclientresult.h"
#include "logging.h"
#include "zuvourl.h"

static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("PlayListParser"));

namespace {
std::atomic<int> testFetchTimeoutMs{0};

// Whether text begins with "<word characters>://", the word characters being
// those of a regular expression's \w (letters, digits, marks and '_').
bool startsWithScheme(const QString& text) {
    int i = 0;
    while (i < text.size() &&
           (text.at(i).isLetterOrNumber() || text.at(i).isMark() || text.at(i) == QLatin1Char('_')))
        ++i;
    return i > 0 && text.midRef(i, 3) == QLatin1String("://");
}
} // namespace

PlayListData::PlayListData(const QString& url, const CMSetDataRequest& request)
    : m_request(request)
    , m_url(url)
    , m_baseUrl(url.left(url.lastIndexOf(QLatin1Char('/')) + 1))
    , m_httpClient(new HttpClient(this, HttpClient::HttpVersion(0), true)) {}

PlayListData::~PlayListData() {
    m_fetcherId = nullptr;
    delete m_httpClient;
}

void PlayListData::setFetchTimeoutForTesting(int timeoutMs) {
    testFetchTimeoutMs = timeoutMs;
}

bool PlayListData::fetch() {
    if (m_fetcherId) {
        LOG4CPLUS_ERROR(logger, "Fetch already in progress");
        return false;
    }
    if (m_url.isEmpty()) {
        LOG4CPLUS_ERROR(logger, "Can not fetch empty url!");
        return false;
    }
    LOG4CPLUS_TRACE(logger, "asynch fetch from url = " << m_url);

    HttpClientOptions options;
    const int testTimeoutMs = testFetchTimeoutMs;
    options.setTimeoutMs(testTimeoutMs > 0 ? testTimeoutMs : FetchTimeoutMs);
    options.setReadSizeLimit(FetchReadSizeLimit);
    options.setAllowLocalFiles(m_allowLocalFiles);
    // The client is our child: it never calls back once this job is gone.
    m_fetcherId = m_httpClient->get(ZuvoUrl(m_url), options,
                                    [this](const HttpClientResult& result) { requestDone(result); });
    return true;
}

void PlayListData::requestDone(const HttpClientResult& result) {
    LOG4CPLUS_TRACE(logger, "url: " << result.url().toString() << " status: " << result.status()
                                    << " code: " << result.httpCode());
    m_data = result.body();
    m_contentType = result.headers().value(QStringLiteral("Content-Type"), QString());
    LOG4CPLUS_TRACE(logger, "data transfered: " << m_data.size() << " bytes");
    m_fetcherId = nullptr;
    Q_EMIT fetchDone();
}

void PlayListData::setDocument(const QByteArray& body, const QString& contentType) {
    HttpClientResult result;
    result.setUrl(ZuvoUrl(m_url));
    result.setFinalUrl(ZuvoUrl(m_url));
    result.setStatus(HttpClientStatus::ok);
    result.setHttpCode(200);
    result.setBody(body);
    if (!contentType.isNull()) {
        HttpClientHeaders headers;
        headers.append(QStringLiteral("Content-Type"), contentType);
        result.setHeaders(headers);
    }
    requestDone(result);
}

bool PlayListData::cancelFetch() {
    if (!m_fetcherId) {
        LOG4CPLUS_ERROR(logger, "Error canceling HttpClient: fetcherId is NULL!");
        return false;
    }
    if (!m_httpClient->cancel(m_fetcherId)) {
        LOG4CPLUS_ERROR(logger, "Error canceling HttpClient!");
        return false;
    }
    LOG4CPLUS_TRACE(logger, "asynch fetch canceled");
    m_fetcherId = nullptr;
    return true;
}

QString PlayListData::pathToURI(const QString& path) const {
    if (path.isEmpty())
        return QString();
    return startsWithScheme(path) ? path : m_baseUrl + path;
}
