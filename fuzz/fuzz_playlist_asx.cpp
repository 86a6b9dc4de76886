// Fuzzes the parser of ASX (XML) documents.
#include "fuzzsupport.h"
#include "playlistparsers.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return zuvofuzz::fuzzParser<PlayListParserASX>(data, size, zuvofuzz::UriForm::Resolved);
}
