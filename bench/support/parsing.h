#pragma once

#include <QByteArray>
#include <memory>

#include "playlistdocuments.h"
#include "playlistparser.h"
#include "zuvo.h"

class PlayListData;

namespace zuvobench {

// The library's parser for one document's format with a playlist job that
// already holds the document (as if fetched from document.url with its
// content type), ready to be parsed again and again.
//
// Thread: the event-loop thread; the job owns an idle HTTP client.
class ParseSubject {
public:
    explicit ParseSubject(const PlaylistDocument& document);
    ~ParseSubject();
    Q_DISABLE_COPY(ParseSubject)

    PlayListParser::Result parse();

private:
    std::unique_ptr<PlayListParser> m_parser;
    std::unique_ptr<PlayListData> m_data;
    ZuvoRoles m_requestRoles;
};

std::unique_ptr<PlayListParser> makeParser(PlaylistFormat format);

// The floors of parsing: reading the same bytes with nothing done per line or
// token. Lines: a QTextStream over the bytes (UTF-8, as the parsers read
// them) and readLine() until the end; returns the number of lines. Tokens: a
// QXmlStreamReader and readNext() until the end; returns the number of
// tokens.
int readAllLines(const QByteArray& body);
int readAllXmlTokens(const QByteArray& body);

} // namespace zuvobench
