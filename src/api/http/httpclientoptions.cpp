#include "httpclientoptions.h"

namespace {

// RFC 7230 token characters.
bool isTokenChar(char c) {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'))
        return true;
    static const char specials[] = "!#$%&'*+-.^_`|~";
    for (const char* p = specials; *p; ++p) {
        if (*p == c)
            return true;
    }
    return false;
}

bool isToken(const QByteArray& name) {
    if (name.isEmpty())
        return false;
    for (const char c : name) {
        if (!isTokenChar(c))
            return false;
    }
    return true;
}

bool isSafeValue(const QByteArray& value) {
    return !value.contains('\r') && !value.contains('\n') && !value.contains('\0');
}

} // namespace

void HttpClientOptions::setTimeoutMs(int timeoutMs) {
    m_timeoutMs = qMax(0, timeoutMs);
}

void HttpClientOptions::setReadSizeLimit(qint64 bytes) {
    m_readSizeLimit = qMax<qint64>(0, bytes);
}

qint64 HttpClientOptions::effectiveReadSizeLimit() const {
    return (m_readSizeLimit == 0 || m_readSizeLimit > AbsoluteReadSizeLimit) ? AbsoluteReadSizeLimit
                                                                             : m_readSizeLimit;
}

void HttpClientOptions::setHeaderSizeLimit(qint64 bytes) {
    m_headerSizeLimit = qMax<qint64>(0, bytes);
}

qint64 HttpClientOptions::effectiveHeaderSizeLimit() const {
    return (m_headerSizeLimit == 0 || m_headerSizeLimit > AbsoluteHeaderSizeLimit) ? AbsoluteHeaderSizeLimit
                                                                                   : m_headerSizeLimit;
}

void HttpClientOptions::setMaxRedirects(int count) {
    m_maxRedirects = qMax(0, count);
}

bool HttpClientOptions::setRequestHeader(const QByteArray& name, const QByteArray& value) {
    if (!isToken(name) || !isSafeValue(value))
        return false;
    for (auto& header : m_requestHeaders) {
        if (header.first.compare(name, Qt::CaseInsensitive) == 0) {
            header.second = value;
            return true;
        }
    }
    m_requestHeaders.append({name, value});
    return true;
}
