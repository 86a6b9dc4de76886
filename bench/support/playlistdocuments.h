#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <limits>

namespace zuvobench {

enum class PlaylistFormat { m3u, pls, url, ini, asx, wpl };

// A playlist document made up by the benchmarks: the same arguments always
// give the same bytes. Entries look like those of real playlists (titles with
// artists, relative and absolute paths, Windows separators where the format
// has them) so that every parser takes its usual paths per entry.
struct PlaylistDocument {
    PlaylistFormat format = PlaylistFormat::m3u;
    QByteArray body;
    int entries = 0;
    // Where the document is served from (relative entries resolve against it)
    // and the content type it is served with.
    QString url;
    QString contentType;
    // File name suffix under which other programs recognise the format.
    QString fileSuffix;
};

inline constexpr int FiveMiB = 5 * 1024 * 1024;

// Entries are appended while the whole document (with its closing part)
// stays within maxBytes and there are fewer than maxEntries.
PlaylistDocument makePlaylistDocument(PlaylistFormat format, int maxBytes,
                                      int maxEntries = std::numeric_limits<int>::max());

QList<PlaylistFormat> allPlaylistFormats();
QString playlistFormatName(PlaylistFormat format);
// ASX and WPL; the others are read line by line.
bool isXmlFormat(PlaylistFormat format);

} // namespace zuvobench
