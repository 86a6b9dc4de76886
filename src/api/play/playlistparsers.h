#pragma once

#include <QRegExp>

#include "playlistparser.h"
#include "playlistxmlguard.h"

// The six playlist formats. Every parser resolves relative entry paths with
// PlayListData::pathToURI() unless stated otherwise, and all text formats
// read the body as UTF-8 text unless it starts with a Unicode byte-order mark;
// "\n" and "\r\n" end a line, a lone "\r" does not.

// A plain list of URLs: the first line (at most 10000 characters) begins with
// "http://" or "https://". Every non-empty line, trimmed, is an entry URI as
// it stands (comments included).
class PlayListParserURL : public PlayListParser {
public:
    PlayListParserURL() = default;
    using PlayListParser::parse;
    Result parse(const PlayListData& data) override;
};

// "[playlist]" files (any case, surrounding blanks allowed; leading empty
// lines skipped) with case-sensitive "FileN=" and "TitleN=" lines; "\" reads
// as "/" in both. Rows come in the iteration order of a hash keyed by N, not
// sorted by N; a later line for the same N replaces an earlier one.
class PlayListParserPLS : public PlayListParser {
public:
    PlayListParserPLS();
    using PlayListParser::parse;
    Result parse(const PlayListData& data) override;

private:
    QRegExp m_fileRegExp;  // holds match state: one parse at a time
    QRegExp m_titleRegExp; // likewise
};

// Extended M3U: the first line is "#EXTM3U" in any case, nothing else on it.
// "#EXTINF:<length>,<artist> - <title>" describes the next entry only. Entry
// lines have "\" read as "/" and every "./" removed before resolution.
class PlayListParserM3U : public PlayListParser {
public:
    PlayListParserM3U() = default;
    using PlayListParser::parse;
    Result parse(const PlayListData& data) override;
};

// "[reference]" files: every line whose first three characters are "ref" in
// any case and that holds "=" gives the entry after the first "=". Served as
// exactly "video/x-ms-asf", "http://" entries are MMSH streams and become
// "mmsh://".
class PlayListParserINI : public PlayListParser {
public:
    PlayListParserINI() = default;
    using PlayListParser::parse;
    Result parse(const PlayListData& data) override;
};

// ASX: the first element is "asx" in any case. Every "entry" element at any
// depth gives one row titled by its last "title" child and resolved from its
// last "ref" element's "href" (or "HREF") attribute.
//
// A document type declaration before the first element changes nothing about
// recognition. Untrusted XML is read under PlayListXmlGuard: entity expansion
// and nesting depth are bounded, and a document cut short there keeps the
// rows parsed before the cut, like any XML error after acceptance.
class PlayListParserASX : public PlayListParser {
public:
    PlayListParserASX() = default;
    using PlayListParser::parse;
    Result parse(const PlayListData& data) override;

    // The rows of the entries from the reader's position to the document's end.
    ZuvoList<ZuvoRoles> parseEntries(const PlayListData& data, QXmlStreamReader& reader);
    // One entry, the reader just past its start element; empty roles when the
    // document ends before the entry does.
    ZuvoRoles parseEntry(const PlayListData& data, QXmlStreamReader& reader);

private:
    PlayListXmlGuard m_guard; // of the document being parsed
};

// WPL: recognised by a leading processing instruction <?wpl version="1.0"?>
// (exactly so). Every "media" element at any depth gives one untitled row
// resolved from its "src" attribute, "\" read as "/". Read under
// PlayListXmlGuard, like ASX.
class PlayListParserWPL : public PlayListParser {
public:
    PlayListParserWPL() = default;
    using PlayListParser::parse;
    Result parse(const PlayListData& data) override;

    ZuvoList<ZuvoRoles> parseEntries(const PlayListData& data, QXmlStreamReader& reader);

private:
    PlayListXmlGuard m_guard; // of the document being parsed
};
