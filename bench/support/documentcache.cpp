#include "documentcache.h"

#include <QHash>

#include "playlistparser.h"

namespace zuvobench {

const PlaylistDocument& cachedDocument(PlaylistFormat format, DocumentSize size) {
    static QHash<int, PlaylistDocument> cache;
    const int key = int(format) * 2 + int(size);
    auto it = cache.find(key);
    if (it == cache.end()) {
        const int maxEntries = size == DocumentSize::rowLimit ? PlayListParser::MaxRows : 2000000000;
        it = cache.insert(key, makePlaylistDocument(format, FiveMiB, maxEntries));
    }
    return *it;
}

const char* documentSizeName(DocumentSize size) {
    return size == DocumentSize::fiveMiB ? "5MiB" : "rowLimit";
}

} // namespace zuvobench
