#include "zuvourl.h"

ZuvoUrl::ZuvoUrl(const QString& text)
    : m_text(text)
    , m_url(text.trimmed(), QUrl::TolerantMode) {}

ZuvoUrl::ZuvoUrl(const QUrl& url)
    : m_text(url.toString(QUrl::FullyEncoded))
    , m_url(url) {}

bool ZuvoUrl::isValid() const {
    return m_url.isValid() && !m_url.isRelative();
}

QString ZuvoUrl::scheme() const {
    return isValid() ? m_url.scheme().toLower() : QString();
}
