#include "parsing.h"

#include <QTextStream>
#include <QXmlStreamReader>

#include "playlistdata.h"
#include "playlistparsers.h"

namespace zuvobench {

ParseSubject::ParseSubject(const PlaylistDocument& document)
    : m_parser(makeParser(document.format))
    , m_data(std::make_unique<PlayListData>(document.url, CMSetDataRequest())) {
    m_data->setDocument(document.body, document.contentType);

    // The roles of the item whose resource is the playlist: parsers copy its
    // service id into every row.
    ZuvoMetaData metaData;
    metaData.setServiceID(QStringLiteral("benchService"));
    ZuvoMediaData mediaData;
    mediaData.setMetaData(metaData);
    m_requestRoles.setMediaData(mediaData);
}

ParseSubject::~ParseSubject() = default;

PlayListParser::Result ParseSubject::parse() {
    return m_parser->parse(m_requestRoles, *m_data);
}

std::unique_ptr<PlayListParser> makeParser(PlaylistFormat format) {
    switch (format) {
    case PlaylistFormat::m3u:
        return std::make_unique<PlayListParserM3U>();
    case PlaylistFormat::pls:
        return std::make_unique<PlayListParserPLS>();
    case PlaylistFormat::url:
        return std::make_unique<PlayListParserURL>();
    case PlaylistFormat::ini:
        return std::make_unique<PlayListParserINI>();
    case PlaylistFormat::asx:
        return std::make_unique<PlayListParserASX>();
    case PlaylistFormat::wpl:
        return std::make_unique<PlayListParserWPL>();
    }
    return nullptr;
}

int readAllLines(const QByteArray& body) {
    QTextStream stream(body, QIODevice::ReadOnly);
    stream.setCodec("UTF-8");
    int lines = 0;
    while (!stream.readLine().isNull())
        ++lines;
    return lines;
}

int readAllXmlTokens(const QByteArray& body) {
    QXmlStreamReader reader(body);
    int tokens = 0;
    while (!reader.atEnd()) {
        reader.readNext();
        ++tokens;
    }
    return tokens;
}

} // namespace zuvobench
