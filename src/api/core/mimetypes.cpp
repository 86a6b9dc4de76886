#include "mimetypes.h"

#include <QStringView>

namespace {

struct Mapping {
    const char* key;
    const char* mimeType;
};

const Mapping kSchemes[] = {
    {"mms", "video/x-ms-asf"},   {"mmsh", "video/x-ms-asf"},   {"mmst", "video/x-ms-asf"},
    {"rtsp", "application/sdp"}, {"rtspt", "application/sdp"}, {"rtspu", "application/sdp"},
};

const Mapping kSuffixes[] = {
    {"mp3", "audio/mpeg"}, {"aac", "audio/aac"},      {"m4a", "audio/mp4"},      {"mp4", "audio/mp4"},
    {"ogg", "audio/ogg"},  {"oga", "audio/ogg"},      {"opus", "audio/ogg"},     {"flac", "audio/flac"},
    {"wav", "audio/wav"},  {"wma", "audio/x-ms-wma"}, {"asf", "video/x-ms-asf"},
};

template <size_t N> const char* lookUp(const Mapping (&table)[N], QStringView key) {
    if (key.isEmpty())
        return nullptr;
    for (const Mapping& mapping : table) {
        if (key.compare(QLatin1String(mapping.key), Qt::CaseInsensitive) == 0)
            return mapping.mimeType;
    }
    return nullptr;
}

// RFC 3986 scheme: a letter, then letters, digits, '+', '-' or '.', ended by
// ':'. Empty when the URI has none (a plain path).
QStringView schemeOf(QStringView uri) {
    const auto isAsciiLetter = [](QChar c) {
        return (c >= QLatin1Char('a') && c <= QLatin1Char('z')) ||
               (c >= QLatin1Char('A') && c <= QLatin1Char('Z'));
    };
    for (int i = 0; i < uri.size(); ++i) {
        const QChar c = uri.at(i);
        if (c == QLatin1Char(':'))
            return uri.left(i);
        const bool allowed = isAsciiLetter(c) || (i > 0 && (c.isDigit() || c == QLatin1Char('+') ||
                                                            c == QLatin1Char('-') || c == QLatin1Char('.')));
        if (!allowed || c.unicode() > 0x7f)
            return QStringView();
    }
    return QStringView();
}

// The suffix of the last path segment, without query and fragment; empty
// when that segment has no dot. The authority of "scheme://host:port/..."
// is no path: "http://radio.example.com" has no suffix.
QStringView pathSuffixOf(QStringView uri, QStringView scheme) {
    int end = uri.size();
    for (int i = 0; i < uri.size(); ++i) {
        if (uri.at(i) == QLatin1Char('?') || uri.at(i) == QLatin1Char('#')) {
            end = i;
            break;
        }
    }
    QStringView path = uri.left(end);
    if (!scheme.isEmpty()) {
        path = path.mid(scheme.size() + 1);
        if (path.startsWith(QLatin1String("//"))) {
            const int slash = path.indexOf(QLatin1Char('/'), 2);
            path = slash < 0 ? QStringView() : path.mid(slash);
        }
    }
    for (int i = path.size() - 1; i >= 0; --i) {
        const QChar c = path.at(i);
        if (c == QLatin1Char('.'))
            return path.mid(i + 1);
        if (c == QLatin1Char('/') || c == QLatin1Char('\\'))
            break;
    }
    return QStringView();
}

} // namespace

namespace MimeTypes {

QString URIToMimeType(const QString& uri, const QString& defaultType) {
    const QStringView text = QStringView(uri).trimmed();
    const QStringView scheme = schemeOf(text);
    if (const char* type = lookUp(kSchemes, scheme))
        return QString::fromLatin1(type);
    if (const char* type = lookUp(kSuffixes, pathSuffixOf(text, scheme)))
        return QString::fromLatin1(type);
    return defaultType;
}

namespace Audio {
QString unknown() {
    return QStringLiteral("audio/unknown");
}
} // namespace Audio

} // namespace MimeTypes
