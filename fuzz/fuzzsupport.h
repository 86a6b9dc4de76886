#pragma once

#include <QByteArray>
#include <QString>
#include <cstddef>
#include <cstdint>

#include "playlistparser.h"

class PlayListData;

// What the fuzz targets share. Every function runs on the fuzzer's one thread.
namespace zuvofuzz {

// The playlist URL every fuzzed document is fetched from; relative entries
// resolve against its folder.
inline constexpr char PlaylistUrl[] = "http://fuzz.example/lists/playlist";
// The service id of the item whose resource is the fuzzed playlist.
inline constexpr char ServiceId[] = "fuzzService";

// Creates the process's QCoreApplication and sends every log line, at every
// level, through a sink that formats and drops it (so the logging code runs
// on hostile text too, without flooding the fuzzer's output). Idempotent.
void setUp();

// Reports a broken invariant and aborts, which libFuzzer records as a crash
// together with the input.
[[noreturn]] void fail(const char* what, const QString& detail = QString());

// A fuzz input read as a fetched playlist. A first byte 0x01..0x04 selects
// the response's content type (none, "video/x-ms-asf", the same with a
// charset parameter, "audio/x-mpegurl") and is not part of the body; any
// other input is the body as it stands, without a content type, so sample
// playlist files serve as seeds unchanged.
struct Document {
    QByteArray body;
    QString contentType;
};
Document documentFrom(const uint8_t* data, std::size_t size);

// The one playlist job of the process, holding document as if its download
// had just finished.
PlayListData& jobHolding(const Document& document);

// The roles of the item whose resource is the playlist.
ZuvoRoles requestRoles();

// How the URIs of a parser's entries look.
enum class UriForm {
    Resolved, // empty, or absolute: begins with a scheme, or is resolved against the playlist's folder
    Line,     // a trimmed, non-empty line taken as it stands (URL lists)
    Any       // either (the first accepting parser is not known)
};

// Checks what every parse result guarantees: rows only when ok, at most
// PlayListParser::MaxRows of them, each a playable item with the request's
// service id and exactly one resource, whose MIME type is set when it has a
// URI, and whose URI has the given form.
void checkResult(const PlayListParser::Result& result, UriForm form);

// A second parse of the same document by the same parser must give the same
// answer: a parser keeps nothing of one document for the next.
void checkSameResult(const PlayListParser::Result& first, const PlayListParser::Result& second);

// The body of a single-parser target: parses the input twice with one
// instance of Parser and checks both results.
template <class Parser> int fuzzParser(const uint8_t* data, std::size_t size, UriForm form) {
    setUp();
    static Parser parser;
    PlayListData& job = jobHolding(documentFrom(data, size));
    const PlayListParser::Result first = parser.parse(requestRoles(), job);
    checkResult(first, form);
    checkSameResult(first, parser.parse(requestRoles(), job));
    return 0;
}

} // namespace zuvofuzz
