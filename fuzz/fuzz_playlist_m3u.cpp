// Fuzzes the parser of extended M3U documents.
#include "fuzzsupport.h"
#include "playlistparsers.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return zuvofuzz::fuzzParser<PlayListParserM3U>(data, size, zuvofuzz::UriForm::Resolved);
}
