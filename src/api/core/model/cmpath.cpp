#include "cmpath.h"

#include <QDebug>
#include <QHash>

namespace {

bool mustEscape(QChar c, bool inQuery) {
    const ushort u = c.unicode();
    if (u < 0x20 || u == 0x7f)
        return true;
    switch (u) {
    case '%':
    case '?':
    case '#':
    case '&':
    case '=':
        return true;
    case '/':
        return !inQuery;
    default:
        return false;
    }
}

QString escape(const QString& text, bool inQuery) {
    QString out;
    out.reserve(text.size());
    for (const QChar c : text) {
        if (mustEscape(c, inQuery)) {
            const QByteArray utf8 = QString(c).toUtf8();
            for (const char byte : utf8)
                out += QLatin1Char('%') + QString::number(static_cast<uchar>(byte), 16)
                                              .toUpper()
                                              .rightJustified(2, QLatin1Char('0'));
        } else {
            out += c;
        }
    }
    return out;
}

int hexValue(QChar c) {
    const ushort u = c.unicode();
    if (u >= '0' && u <= '9')
        return u - '0';
    if (u >= 'a' && u <= 'f')
        return u - 'a' + 10;
    if (u >= 'A' && u <= 'F')
        return u - 'A' + 10;
    return -1;
}

// The UTF-8 bytes as text, every byte accounted for: QString::fromUtf8()
// drops a leading byte-order mark and, given a QByteArray, stops at the first
// NUL, while "%EF%BB%BF" and "%00" name characters like any other.
QString decodeUtf8(const QByteArray& bytes) {
    static const QByteArray byteOrderMark("\xEF\xBB\xBF");
    QString out;
    int from = 0;
    while (bytes.mid(from, byteOrderMark.size()) == byteOrderMark) {
        out += QChar(0xFEFF);
        from += byteOrderMark.size();
    }
    return out + QString::fromUtf8(bytes.constData() + from, bytes.size() - from);
}

// Decodes %XX sequences; a '%' not followed by two hex digits stays as it is.
QString unescape(const QString& text) {
    if (!text.contains(QLatin1Char('%')))
        return text;
    QByteArray bytes;
    bytes.reserve(text.size());
    QString out;
    auto flush = [&] {
        if (!bytes.isEmpty()) {
            out += decodeUtf8(bytes);
            bytes.clear();
        }
    };
    for (int i = 0; i < text.size(); ++i) {
        if (text.at(i) == QLatin1Char('%') && i + 2 < text.size()) {
            const int hi = hexValue(text.at(i + 1));
            const int lo = hexValue(text.at(i + 2));
            if (hi >= 0 && lo >= 0) {
                bytes.append(static_cast<char>(hi * 16 + lo));
                i += 2;
                continue;
            }
        }
        flush();
        out += text.at(i);
    }
    flush();
    return out;
}

void appendSegments(QStringList& segments, const QString& path) {
    const QStringList parts = path.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    for (const QString& part : parts)
        segments.append(unescape(part));
}

void appendParams(QList<CMPath::Param>& params, const QString& query) {
    const QStringList items = query.split(QLatin1Char('&'), Qt::SkipEmptyParts);
    for (const QString& item : items) {
        const int eq = item.indexOf(QLatin1Char('='));
        if (eq < 0)
            params.append({unescape(item), QString()});
        else
            params.append({unescape(item.left(eq)), unescape(item.mid(eq + 1))});
    }
}

} // namespace

CMPath::CMPath(const QString& encoded)
    : CMPath(fromEncoded(encoded)) {}

CMPath::CMPath(const char* encoded)
    : CMPath(fromEncoded(QString::fromUtf8(encoded))) {}

CMPath CMPath::fromEncoded(const QString& encoded) {
    CMPath path;
    if (encoded.isEmpty())
        return path;
    // A fragment has no meaning for a node path; everything after '#' is dropped.
    const int hash = encoded.indexOf(QLatin1Char('#'));
    const QString text = hash < 0 ? encoded : encoded.left(hash);
    const int question = text.indexOf(QLatin1Char('?'));
    const QString pathPart = question < 0 ? text : text.left(question);
    appendSegments(path.m_segments, pathPart);
    if (question >= 0)
        appendParams(path.m_params, text.mid(question + 1));
    path.m_root = !text.isEmpty();
    return path;
}

QString CMPath::toEncoded() const {
    if (isEmpty())
        return QString();
    QString out;
    if (m_segments.isEmpty()) {
        out = QStringLiteral("/");
    } else {
        for (const QString& segment : m_segments)
            out += QLatin1Char('/') + escape(segment, false);
    }
    if (!m_params.isEmpty()) {
        out += QLatin1Char('?');
        for (int i = 0; i < m_params.size(); ++i) {
            if (i > 0)
                out += QLatin1Char('&');
            out +=
                escape(m_params.at(i).first, true) + QLatin1Char('=') + escape(m_params.at(i).second, true);
        }
    }
    return out;
}

QString CMPath::param(const QString& key) const {
    for (const Param& p : m_params) {
        if (p.first == key)
            return p.second;
    }
    return QString();
}

CMPath& CMPath::addParam(const QString& key, const QString& value) {
    m_params.append({key, value});
    m_root = true;
    return *this;
}

CMPath CMPath::withoutParams() const {
    CMPath path(*this);
    path.m_params.clear();
    return path;
}

CMPath CMPath::parent() const {
    CMPath path;
    path.m_root = m_root;
    path.m_segments = m_segments;
    if (!path.m_segments.isEmpty())
        path.m_segments.removeLast();
    return path;
}

bool CMPath::startsWith(const CMPath& prefix) const {
    if (prefix.m_segments.size() > m_segments.size())
        return false;
    for (int i = 0; i < prefix.m_segments.size(); ++i) {
        if (prefix.m_segments.at(i) != m_segments.at(i))
            return false;
    }
    return prefix.isEmpty() == isEmpty();
}

bool CMPath::equals(const CMPath& other, Compare mode) const {
    if (m_root != other.m_root || m_segments != other.m_segments)
        return false;
    return mode == CompareWithoutParams || m_params == other.m_params;
}

CMPath CMPath::operator+(const QString& relative) const {
    return *this + fromEncoded(relative);
}

CMPath CMPath::operator+(const CMPath& relative) const {
    CMPath path(*this);
    path.m_segments += relative.m_segments;
    path.m_params += relative.m_params;
    path.m_root = path.m_root || relative.m_root;
    return path;
}

uint qHash(const CMPath& path, uint seed) {
    return qHash(path.segments(), seed) ^ qHash(path.params(), seed) ^ uint(path.isEmpty());
}

std::ostream& operator<<(std::ostream& stream, const CMPath& path) {
    return stream << path.toEncoded().toUtf8().constData();
}

QDebug operator<<(QDebug debug, const CMPath& path) {
    QDebugStateSaver saver(debug);
    debug.noquote() << path.toEncoded();
    return debug;
}
