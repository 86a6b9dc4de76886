// Fuzzes the parser of "[reference]" documents, with the content type chosen by the input's first byte.
#include "fuzzsupport.h"
#include "playlistparsers.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return zuvofuzz::fuzzParser<PlayListParserINI>(data, size, zuvofuzz::UriForm::Resolved);
}
