#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include "model/cmpath.h"
#include "zuvo.h"

// What the command line's items came to: the items to play, in order, or
// the reason none can be played.
struct LoadedItems {
    QList<ZuvoRoles> items;
    QString error;
};

// Turns the command line's ITEMs into playable items.
//
// - A URI (anything with a scheme, e.g. sim://..., http://..., file:///...)
//   is one item, titled with its file name; a URI naming a playlist stays
//   one item, which the play logic hands to its playlist parser when the
//   streamer cannot play it.
// - A local file whose name ends in a playlist suffix (.m3u .m3u8 .pls .asx
//   .wax .wvx .wpl .xspf .ini .txt) is parsed through the playlist parse node
//   at parserPath as its file: URL (the node must allow local files); every
//   entry becomes an item, relative entries resolved against the file's
//   folder, and consecutive entries with the same title become one item with
//   alternate resources (TrackList::groupAlternates).
// - A folder gives one item per audio file in it (.wav .flac .ogg .oga .opus
//   .mp3 .m4a .aac .mka .aif .aiff, any case; not its subfolders), by name.
// - Any other local file is one item with its file: URL.
// Runs the event loop while a playlist is parsed. Call on the main thread
// with the parse node in the current registry.
LoadedItems loadItems(const QStringList& arguments, const CMPath& parserPath);
