// Fuzzes the parser of a plain URL list.
#include "fuzzsupport.h"
#include "playlistparsers.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return zuvofuzz::fuzzParser<PlayListParserURL>(data, size, zuvofuzz::UriForm::Line);
}
