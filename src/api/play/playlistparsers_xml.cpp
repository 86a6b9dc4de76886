// The XML playlist formats: ASX and WPL.

#include <QXmlStreamReader>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include "logging.h"
#include "playlistdata.h"
#include "playlistparsers.h"

static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("PlayListParser"));

namespace {

// Reads the next token, keeping depth (open elements) up to date. Ends the
// document with an error at a document type declaration with an internal
// subset, or at an element nested deeper than MaxXmlDepth: the reader expands
// internal entities and attribute defaults declared in the subset, which lets
// a few kilobytes become gigabytes of text (nested or merely repeated entity
// references), and it keeps every open element. Predefined entities and
// character references stay.
QXmlStreamReader::TokenType readNextToken(QXmlStreamReader& reader, int& depth) {
    switch (reader.readNext()) {
    case QXmlStreamReader::DTD:
        if (reader.text().contains(QLatin1Char('[')) || !reader.entityDeclarations().isEmpty())
            reader.raiseError(
                QStringLiteral("Document type declarations with an internal subset are not supported"));
        break;
    case QXmlStreamReader::StartElement:
        if (++depth > MaxXmlDepth)
            reader.raiseError(QStringLiteral("Elements nested deeper than %1 levels").arg(MaxXmlDepth));
        break;
    case QXmlStreamReader::EndElement:
        --depth;
        break;
    default:
        break;
    }
    return reader.tokenType();
}

// Reads tokens until the first one of type wanted; returns whether one came
// before the end of the document.
bool readUntil(QXmlStreamReader& reader, int& depth, QXmlStreamReader::TokenType wanted) {
    while (!reader.atEnd() && readNextToken(reader, depth) != wanted) {
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
    QXmlStreamReader reader(data.data());
    m_depth = 0;
    if (!readUntil(reader, m_depth, QXmlStreamReader::StartElement))
        return result;
    LOG4CPLUS_TRACE(logger, "First element: " << reader.name().toString());
    if (!nameIs(reader, asx))
        return result;
    result.ok = true;

    appendRows(result, parseEntries(data, reader));
    if (reader.hasError())
        LOG4CPLUS_ERROR(logger, "Parser error: " << reader.errorString());
    return result;
}

ZuvoList<ZuvoRoles> PlayListParserASX::parseEntries(const PlayListData& data, QXmlStreamReader& reader) {
    static const QString entry = QStringLiteral("entry");

    ZuvoList<ZuvoRoles> entries;
    while (!reader.atEnd()) {
        if (readNextToken(reader, m_depth) != QXmlStreamReader::StartElement || !nameIs(reader, entry))
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
        const QXmlStreamReader::TokenType token = readNextToken(reader, m_depth);
        if (token == QXmlStreamReader::StartElement) {
            if (nameIs(reader, title)) {
                roles.setTitle(reader.readElementText(QXmlStreamReader::ErrorOnUnexpectedElement));
                if (reader.isEndElement())
                    --m_depth; // the title's end, read by readElementText()
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
    QXmlStreamReader reader(data.data());
    m_depth = 0;
    if (!readUntil(reader, m_depth, QXmlStreamReader::ProcessingInstruction) ||
        reader.processingInstructionTarget() != wpl || reader.processingInstructionData() != version)
        return result;
    result.ok = true;

    appendRows(result, parseEntries(data, reader));
    if (reader.hasError())
        LOG4CPLUS_DEBUG(logger, "Parser error: " << reader.errorString());
    return result;
}

ZuvoList<ZuvoRoles> PlayListParserWPL::parseEntries(const PlayListData& data, QXmlStreamReader& reader) {
    static const QString media = QStringLiteral("media");
    static const QString src = QStringLiteral("src");

    ZuvoList<ZuvoRoles> entries;
    while (!reader.atEnd()) {
        if (readNextToken(reader, m_depth) != QXmlStreamReader::StartElement || !nameIs(reader, media))
            continue;
        if (rowLimitReached(entries.size()))
            break;
        const QString path =
            reader.attributes().value(src).toString().replace(QLatin1Char('\\'), QLatin1Char('/'));
        entries.append(createMediaRow(ZuvoRoles(), ZuvoMetaData(), entryResource(data.pathToURI(path))));
    }
    return entries;
}
