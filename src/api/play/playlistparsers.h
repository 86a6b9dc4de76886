#pragma once

#include <QRegExp>

#include "playlistparser.h"

class QXmlStreamReader;

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
// Untrusted XML is cut short with an error where a document type declaration
// has an internal subset (internal entities and attribute defaults let a
// small document expand into gigabytes of text) or where elements nest deeper
// than MaxXmlDepth (each open element costs the reader memory); playlists
// need neither. What was parsed before the error stays.
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
    int m_depth = 0; // open elements of the document being parsed
};

// WPL: recognised by a leading processing instruction <?wpl version="1.0"?>
// (exactly so). Every "media" element at any depth gives one untitled row
// resolved from its "src" attribute, "\" read as "/". The internal-subset
// rule of PlayListParserASX applies.
class PlayListParserWPL : public PlayListParser {
public:
    PlayListParserWPL() = default;
    using PlayListParser::parse;
    Result parse(const PlayListData& data) override;

    ZuvoList<ZuvoRoles> parseEntries(const PlayListData& data, QXmlStreamReader& reader);

private:
    int m_depth = 0; // open elements of the document being parsed
};

// Deepest element nesting an XML playlist may have.
constexpr int MaxXmlDepth = 256;
