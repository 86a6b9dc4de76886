#pragma once

#include <QString>
#include <QUrl>

// A URL as the host hands it to the HTTP client: the text it was made from plus
// its parsed form. Parsing is tolerant (surrounding white space is ignored,
// unescaped spaces are accepted), because URLs come from playlists and users.
// A value type; cheap to copy.
class ZuvoUrl {
public:
    ZuvoUrl() = default;
    explicit ZuvoUrl(const QString& text);
    explicit ZuvoUrl(const QUrl& url);

    // The text this URL was made from, unchanged (for a URL made from a QUrl,
    // its fully encoded form).
    QString toString() const { return m_text; }
    QUrl toQUrl() const { return m_url; }

    // True for an absolute URL (one with a scheme) that parses.
    bool isValid() const;
    // The scheme in lower case; empty for an invalid or relative URL.
    QString scheme() const;

    bool operator==(const ZuvoUrl& other) const { return m_text == other.m_text; }
    bool operator!=(const ZuvoUrl& other) const { return !(*this == other); }

private:
    QString m_text;
    QUrl m_url;
};
