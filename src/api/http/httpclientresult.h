#pragma once

#include "httpclientheaders.h"
#include "httpclientstatus.h"
#include "zuvourl.h"

#include <QByteArray>
#include <QString>

// What one HttpClient::get delivered. Filled by the client; the setters exist
// for it (and for code that needs to fake a result). A default-constructed
// result has status networkError and is otherwise empty. A value type; the
// body is implicitly shared, so copies are cheap.
class HttpClientResult {
public:
    HttpClientResult() = default;

    // The URL that was asked for, exactly as given to get().
    const ZuvoUrl& url() const { return m_url; }
    void setUrl(const ZuvoUrl& url) { m_url = url; }

    // The URL the body came from after redirects; equals url() when there were
    // none or no request was made.
    const ZuvoUrl& finalUrl() const { return m_finalUrl; }
    void setFinalUrl(const ZuvoUrl& url) { m_finalUrl = url; }

    HttpClientStatus::Enum status() const { return m_status; }
    void setStatus(HttpClientStatus::Enum status) { m_status = status; }

    // The HTTP status code of the last answer; 0 when no answer came (and for
    // file: URLs).
    int httpCode() const { return m_httpCode; }
    void setHttpCode(int code) { m_httpCode = code; }

    // The body, never longer than the read-size limit. Also filled for
    // httpError, and partly for timeout and sizeLimitExceeded.
    const QByteArray& body() const { return m_body; }
    void setBody(const QByteArray& body) { m_body = body; }

    const HttpClientHeaders& headers() const { return m_headers; }
    void setHeaders(const HttpClientHeaders& headers) { m_headers = headers; }

    // A readable reason for any status but ok; empty for ok.
    const QString& errorString() const { return m_errorString; }
    void setErrorString(const QString& text) { m_errorString = text; }

private:
    ZuvoUrl m_url;
    ZuvoUrl m_finalUrl;
    HttpClientStatus::Enum m_status = HttpClientStatus::networkError;
    int m_httpCode = 0;
    QByteArray m_body;
    HttpClientHeaders m_headers;
    QString m_errorString;
};
