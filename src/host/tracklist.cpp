#include "tracklist.h"

namespace {

bool repeatsAll(ZuvoPlayerPlayMode::Enum mode) {
    return mode == ZuvoPlayerPlayMode::repeatAll || mode == ZuvoPlayerPlayMode::shuffleRepeatAll;
}

bool repeatsOne(ZuvoPlayerPlayMode::Enum mode) {
    return mode == ZuvoPlayerPlayMode::repeatOne || mode == ZuvoPlayerPlayMode::shuffleRepeatOne;
}

ZuvoRoles withActiveResource(ZuvoRoles item) {
    ZuvoMediaData mediaData = item.mediaData();
    const ZuvoList<ZuvoResource> resources = mediaData.resources();
    if (resources.isEmpty() || !mediaData.activeResource().isEmpty())
        return item;
    mediaData.setActiveResource(resources.first());
    item.setMediaData(mediaData);
    return item;
}

} // namespace

TrackList::TrackList(const QList<ZuvoRoles>& items) {
    m_items.reserve(items.size());
    for (const ZuvoRoles& item : items)
        m_items.append(withActiveResource(item));
}

int TrackList::next(int index, ZuvoPlayerPlayMode::Enum mode) const {
    if (!contains(index))
        return -1;
    if (index + 1 < size())
        return index + 1;
    return repeatsAll(mode) ? 0 : -1;
}

int TrackList::following(int index, ZuvoPlayerPlayMode::Enum mode) const {
    if (repeatsOne(mode) && contains(index))
        return index;
    return next(index, mode);
}

int TrackList::previous(int index, ZuvoPlayerPlayMode::Enum mode) const {
    if (!contains(index))
        return -1;
    if (index > 0)
        return index - 1;
    return repeatsAll(mode) ? size() - 1 : 0;
}

bool TrackList::sameItem(const ZuvoRoles& a, const ZuvoRoles& b) {
    return a.title() == b.title() && a.mediaData().resources() == b.mediaData().resources();
}

QList<ZuvoRoles> TrackList::groupAlternates(const QList<ZuvoRoles>& rows) {
    QList<ZuvoRoles> items;
    for (const ZuvoRoles& row : rows) {
        const bool alternate =
            !items.isEmpty() && !row.title().isEmpty() && row.title() == items.last().title();
        if (!alternate) {
            items.append(row);
            continue;
        }
        ZuvoRoles& item = items.last();
        ZuvoMediaData mediaData = item.mediaData();
        ZuvoList<ZuvoResource> resources = mediaData.resources();
        resources.append(row.mediaData().resources());
        mediaData.setResources(resources);
        mediaData.setActiveResource(resources.value(0));
        ZuvoMetaData metaData = mediaData.metaData();
        metaData.setLive(true);
        mediaData.setMetaData(metaData);
        item.setMediaData(mediaData);
    }
    return items;
}
