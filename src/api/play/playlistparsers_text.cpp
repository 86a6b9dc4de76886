// The line-based playlist formats: URL list, PLS, M3U and INI reference.

#include <QHash>
#include <QTextStream>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include "logging.h"
#include "playlistdata.h"
#include "playlistparsers.h"

static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("PlayListParser"));

namespace {

// The lines of a playlist body. The text is UTF-8 unless a byte-order mark
// says otherwise; the codec is fixed rather than taken from the locale so
// that a document reads alike on every host.
class BodyLines {
public:
    explicit BodyLines(const QByteArray& body)
        : m_stream(body, QIODevice::ReadOnly) {
        m_stream.setCodec("UTF-8");
    }
    Q_DISABLE_COPY(BodyLines)

    // The next line without its "\n" or "\r\n", at most limit characters (0:
    // no limit); the rest of a longer line comes as the next line. A null
    // string at the end of the body.
    QString next(qint64 limit = 0) { return m_stream.readLine(limit); }

private:
    QTextStream m_stream;
};

// Whether the upper-cased line begins with prefix (given in upper case). Only
// the first characters are converted: upper-casing never moves text from
// later characters to the front.
bool upperStartsWith(const QString& line, const QString& prefix) {
    return line.left(prefix.size()).toUpper().startsWith(prefix);
}

} // namespace

PlayListParser::Result PlayListParserURL::parse(const PlayListData& data) {
    static const QString http = QStringLiteral("http://");
    static const QString https = QStringLiteral("https://");

    Result result;
    BodyLines lines(data.data());
    QString line = lines.next(10000);
    if (!line.startsWith(http) && !line.startsWith(https))
        return result;
    result.ok = true;
    for (; !line.isNull(); line = lines.next()) {
        const QString uri = line.trimmed();
        if (uri.isEmpty())
            continue;
        if (rowLimitReached(result.rows.size()))
            break;
        result.rows.append(createMediaRowVariant(ZuvoRoles(), ZuvoMetaData(), uri));
    }
    return result;
}

PlayListParserPLS::PlayListParserPLS()
    : m_fileRegExp(QStringLiteral("^File([^=]*)=(.*)$"), Qt::CaseSensitive, QRegExp::RegExp)
    , m_titleRegExp(QStringLiteral("^Title([^=]*)=(.*)$"), Qt::CaseSensitive, QRegExp::RegExp) {}

PlayListParser::Result PlayListParserPLS::parse(const PlayListData& data) {
    static const QString header = QStringLiteral("[playlist]");

    Result result;
    BodyLines lines(data.data());
    QString line;
    do {
        line = lines.next();
    } while (!line.isNull() && line.isEmpty());
    if (line.toLower().trimmed() != header)
        return result;
    result.ok = true;

    // Keyed by the number after "File"/"Title"; a key that is no number is 0.
    // Each map holds at most MaxRows keys; known keys are still replaced.
    QHash<int, QString> files;
    QHash<int, QString> titles;
    bool limited = false;
    const auto store = [&limited](QHash<int, QString>& map, QRegExp& expression) {
        const int key = expression.cap(1).toInt(nullptr, 10);
        if (map.size() >= MaxRows && !map.contains(key)) {
            limited = true;
            return;
        }
        map.insert(key, expression.cap(2).replace(QLatin1Char('\\'), QLatin1Char('/')));
    };
    // Both expressions are anchored at the line's start: the literal prefix
    // test spares the expression on the lines that cannot match.
    static const QLatin1String filePrefix("File");
    static const QLatin1String titlePrefix("Title");
    while (!(line = lines.next()).isNull()) {
        if (line.startsWith(filePrefix) && m_fileRegExp.indexIn(line) != -1)
            store(files, m_fileRegExp);
        if (line.startsWith(titlePrefix) && m_titleRegExp.indexIn(line) != -1)
            store(titles, m_titleRegExp);
    }
    if (limited)
        rowLimitReached(MaxRows);

    const QList<int> keys = files.keys();
    for (const int key : keys) {
        const QString path = files.value(key);
        ZuvoRoles roles;
        const QString title = titles.value(key);
        roles.setTitle(title.isEmpty() ? path : title);
        result.rows.append(createMediaRowVariant(roles, ZuvoMetaData(), data.pathToURI(path)));
    }
    LOG4CPLUS_TRACE(logger, "files in pls: " << result.rows.size());
    return result;
}

PlayListParser::Result PlayListParserM3U::parse(const PlayListData& data) {
    static const QString header = QStringLiteral("#EXTM3U");
    static const QString extinfTag = QStringLiteral("#EXTINF:");

    Result result;
    BodyLines lines(data.data());
    const QString first = lines.next(100).toUpper();
    if (first != header) {
        LOG4CPLUS_DEBUG(logger, "M3U parser - no match - " << first);
        return result;
    }
    result.ok = true;

    QString extinf; // describes the next entry only
    QString line;
    while (!(line = lines.next()).isNull()) {
        line = line.trimmed();
        if (upperStartsWith(line, extinfTag)) {
            extinf = line.mid(extinfTag.size());
            continue;
        }
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
            continue;
        if (rowLimitReached(result.rows.size()))
            break;

        // Every "./" goes, also inside "../" and inside URLs: entries are
        // written relative to the playlist's own directory.
        line.replace(QLatin1Char('\\'), QLatin1Char('/'));
        line.remove(QStringLiteral("./"));
        const QString uri = data.pathToURI(line);

        // "#EXTINF:<length>,<description>": text after a second comma is dropped.
        const QStringList extinfParts = extinf.split(QLatin1Char(','), Qt::KeepEmptyParts);
        extinf.clear();
        const QString description = extinfParts.size() >= 2 ? extinfParts.at(1) : QString();
        const QStringList names = description.split(QLatin1Char('-'), Qt::SkipEmptyParts);
        ZuvoRoles roles;
        ZuvoMetaData metaData;
        if (names.size() >= 2) {
            metaData.setArtist(names.at(0).trimmed());
            roles.setTitle(names.at(1).trimmed());
        } else {
            roles.setTitle(description.trimmed());
        }
        result.rows.append(createMediaRowVariant(roles, metaData, uri));
    }
    return result;
}

PlayListParser::Result PlayListParserINI::parse(const PlayListData& data) {
    static const QString header = QStringLiteral("[reference]");
    static const QString refKey = QStringLiteral("ref");
    static const QString mmshContentType = QStringLiteral("video/x-ms-asf");
    static const QString http = QStringLiteral("http://");
    static const QString mmsh = QStringLiteral("mmsh://");

    Result result;
    BodyLines lines(data.data());
    if (lines.next(100).toLower() != header)
        return result;
    result.ok = true;

    const bool isMmsh = data.contentType() == mmshContentType;
    QString line;
    while (!(line = lines.next()).isNull()) {
        const int equals = line.indexOf(QLatin1Char('='));
        if (equals < 0 || line.left(refKey.size()).toLower() != refKey)
            continue;
        if (rowLimitReached(result.rows.size()))
            break;
        QString uri = data.pathToURI(line.mid(equals + 1));
        if (isMmsh && uri.left(http.size()) == http) {
            LOG4CPLUS_DEBUG(
                logger, "Media at " << uri << " is actually MMSH content - replacing http:// with mmsh://");
            uri.replace(0, http.size(), mmsh);
        }
        result.rows.append(createMediaRowVariant(ZuvoRoles(), ZuvoMetaData(), uri));
    }
    return result;
}
