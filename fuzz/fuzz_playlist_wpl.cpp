// Fuzzes the parser of WPL (XML) documents.
#include "fuzzsupport.h"
#include "playlistparsers.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return zuvofuzz::fuzzParser<PlayListParserWPL>(data, size, zuvofuzz::UriForm::Resolved);
}
