#pragma once

#include <QList>

#include "zuvo.h"

// The items of a track list and the order in which they play.
//
// A value type without state beyond the items: which item plays is the
// caller's (TrackListPlayLogic keeps the index). Every index argument may be
// out of range; the functions then answer -1 (no such item). Any thread, as
// any value type.
class TrackList {
public:
    TrackList() = default;
    // Items that name resources but no active one get their first resource
    // as the active one, so that a failed resource can fall back to the next
    // (the play logic looks the active resource up in the list).
    explicit TrackList(const QList<ZuvoRoles>& items);

    const QList<ZuvoRoles>& items() const { return m_items; }
    int size() const { return m_items.size(); }
    bool isEmpty() const { return m_items.isEmpty(); }
    bool contains(int index) const { return index >= 0 && index < m_items.size(); }
    // The item at index; an empty record when there is none.
    ZuvoRoles at(int index) const { return m_items.value(index); }

    // Where a user's "next" leads from index: the following item; past the
    // last one only in the repeat-all modes (back to the first), else -1.
    int next(int index, ZuvoPlayerPlayMode::Enum mode) const;
    // What follows index when it ends by itself: like next(), except that
    // the repeat-one modes play index again.
    int following(int index, ZuvoPlayerPlayMode::Enum mode) const;
    // Where a user's "previous" leads from index: the preceding item; from
    // the first one the last in the repeat-all modes, else the first again.
    int previous(int index, ZuvoPlayerPlayMode::Enum mode) const;

    // Whether a and b are the same entry of a list: same title and same
    // resources. The active resource is not compared, since falling back to
    // another resource changes it.
    static bool sameItem(const ZuvoRoles& a, const ZuvoRoles& b);

    // Folds playlist rows into items. Playlist formats give every entry one
    // resource, so alternates of one item (mirrors of a radio station) are
    // written as consecutive entries with the same non-empty title: such a
    // run becomes one item whose resources are those of the run in order,
    // the first one active, marked live (a station reachable at several
    // addresses is a stream). Every other row stays an item of its own.
    static QList<ZuvoRoles> groupAlternates(const QList<ZuvoRoles>& rows);

private:
    QList<ZuvoRoles> m_items;
};
