// Fuzzes the parser of "[playlist]" (PLS) documents.
#include "fuzzsupport.h"
#include "playlistparsers.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return zuvofuzz::fuzzParser<PlayListParserPLS>(data, size, zuvofuzz::UriForm::Resolved);
}
