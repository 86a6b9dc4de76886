#pragma once

#include "playlistdocuments.h"

namespace zuvobench {

// The two documents every parse benchmark reads, generated once per format
// and process: the 5 MiB document, and its first entries up to the parsers'
// row limit (the part of a longer document that a parser turns into rows).
enum class DocumentSize { fiveMiB, rowLimit };

const PlaylistDocument& cachedDocument(PlaylistFormat format, DocumentSize size);
const char* documentSizeName(DocumentSize size);

} // namespace zuvobench
