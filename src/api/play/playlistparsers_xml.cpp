// The XML playlist formats: ASX and WPL.

#include <QXmlStreamReader>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include "logging.h"
#include "playlistdata.h"
#include "playlistparsers.h"
#include "playlistxmlguard.h"

static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("PlayListParser"));

namespace {

// Reads tokens until the first one of type wanted; returns whether one came
// before the end of the document.
bool readUntil(QXmlStreamReader& reader, PlayListXmlGuard& guard, QXmlStreamReader::TokenType wanted) {
    while (!reader.atEnd() && guard.readNext(reader) != wanted) {
    }
    return reader.tokenType() == wanted;
}

void appendRows(PlayListParser::Result& result, const ZuvoList<ZuvoRoles>& entries) {
    for (const ZuvoRoles& entry : entries)
        result.rows.append(entry.__variant());
}

bool nameIs(const QXmlStreamReader& reader, const QString& lowerName) {
    return reader.name().toString().toLower() == lowerName;
}

} // namespace

PlayListParser::Result PlayListParserASX::parse(const PlayListData& data) {
    static const QString asx = QStringLiteral("asx");

    Result result;
    QXmlStreamReader reader;
    m_guard.start(reader, data.data());
    if (!readUntil(reader, m_guard, QXmlStreamReader::StartElement))
        return result;
    LOG4CPLUS_TRACE(logger, "First element: " << reader.name().toString());
    if (!nameIs(reader, asx))
        return result;
    result.ok = true;

    appendRows(result, parseEntries(data, reader));
    m_guard.finish(reader);
    if (reader.hasError())
        LOG4CPLUS_ERROR(logger, "Parser error: " << reader.errorString());
    return result;
}

ZuvoList<ZuvoRoles> PlayListParserASX::parseEntries(const PlayListData& data, QXmlStreamReader& reader) {
    static const QString entry = QStringLiteral("entry");

    ZuvoList<ZuvoRoles> entries;
    while (!reader.atEnd()) {
        if (m_guard.readNext(reader) != QXmlStreamReader::StartElement || !nameIs(reader, entry))
            continue;
        if (rowLimitReached(entries.size()))
            break;
        const ZuvoRoles row = parseEntry(data, reader);
        if (!row.isEmpty())
            entries.append(row);
    }
    return entries;
}

ZuvoRoles PlayListParserASX::parseEntry(const PlayListData& data, QXmlStreamReader& reader) {
    static const QString entry = QStringLiteral("entry");
    static const QString title = QStringLiteral("title");
    static const QString ref = QStringLiteral("ref");
    static const QString href = QStringLiteral("href");
    static const QString hrefUpper = QStringLiteral("HREF");

    ZuvoRoles roles;
    ZuvoMetaData metaData;
    ZuvoResource resource; // the last "ref" wins: an entry has one resource
    while (!reader.atEnd()) {
        const QXmlStreamReader::TokenType token = m_guard.readNext(reader);
        if (token == QXmlStreamReader::StartElement) {
            if (nameIs(reader, title)) {
                roles.setTitle(reader.readElementText(QXmlStreamReader::ErrorOnUnexpectedElement));
                if (reader.isEndElement())
                    m_guard.elementEnded(); // the title's end, read by readElementText()
            } else if (nameIs(reader, ref)) {
                const QXmlStreamAttributes attributes = reader.attributes();
                QString target = attributes.value(href).toString();
                if (target.isEmpty())
                    target = attributes.value(hrefUpper).toString();
                resource = entryResource(data.pathToURI(target));
            }
        } else if (token == QXmlStreamReader::EndElement && nameIs(reader, entry)) {
            return createMediaRow(roles, metaData, resource);
        }
    }
    return ZuvoRoles();
}

PlayListParser::Result PlayListParserWPL::parse(const PlayListData& data) {
    static const QString wpl = QStringLiteral("wpl");
    static const QString version = QStringLiteral("version=\"1.0\"");

    Result result;
    QXmlStreamReader reader;
    m_guard.start(reader, data.data());
    if (!readUntil(reader, m_guard, QXmlStreamReader::ProcessingInstruction) ||
        reader.processingInstructionTarget() != wpl || reader.processingInstructionData() != version)
        return result;
    result.ok = true;

    appendRows(result, parseEntries(data, reader));
    m_guard.finish(reader);
    if (reader.hasError())
        LOG4CPLUS_DEBUG(logger, "Parser error: " << reader.errorString());
    return result;
}

ZuvoList<ZuvoRoles> PlayListParserWPL::parseEntries(const PlayListData& data, QXmlStreamReader& reader) {
    static const QString media = QStringLiteral("media");
    static const QString src = QStringLiteral("src");

    ZuvoList<ZuvoRoles> entries;
    while (!reader.atEnd()) {
        if (m_guard.readNext(reader) != QXmlStreamReader::StartElement || !nameIs(reader, media))
            continue;
        if (rowLimitReached(entries.size()))
            break;
        const QString path =
            reader.attributes().value(src).toString().replace(QLatin1Char('\\'), QLatin1Char('/'));
        entries.append(createMediaRow(ZuvoRoles(), ZuvoMetaData(), entryResource(data.pathToURI(path))));
    }
    return entries;
}
