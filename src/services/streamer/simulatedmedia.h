#pragma once

#include <QString>

#include "zuvoroles.h"

// What the simulated streamer makes of the media it is asked to play: the
// URI it opens, how long the track lasts and how (and when) it fails. All of
// it is decided by the URI and the resource it comes from, so that example
// playlists, process tests and unit tests can ask for any behaviour.
//
// The URI is the active resource's URI when it has one, else the URI of the
// first resource that has one. The conventions (query parameters are read
// fully decoded; "MS" is a number of milliseconds of the simulated clock):
//
//   zuvo-duration=MS       the track lasts MS (MS > 0).
//   zuvo-duration=live     a live stream: it never ends by itself and cannot
//                          be sought.
//   (neither)              a resource duration of -1 means live; a resource
//                          duration > 0 is the track's length; anything
//                          else gives the streamer's default duration.
//   zuvo-error=CODE        the stream fails with CODE, one of -14 ... -22
//                          (see streamererrors.h), while it is being opened.
//   zuvo-error-after=MS    the failure happens after MS of playing instead;
//                          without zuvo-error the code is -18 (the source
//                          could not be read: a stream that breaks off).
//   zuvo-crash[=MS]        the streamer crashes while opening the stream, or
//                          after MS of playing.
//   playlist               a URI whose path ends in .m3u .m3u8 .pls .asx .wax
//                          .wvx .wpl .xspf .ini or .txt (any case), or whose
//                          resource MIME type is a playlist type (see
//                          isPlaylistMimeType), fails with -15 (stream type
//                          not found) while being opened: a decoder cannot
//                          play a playlist document, so the play logic hands
//                          it to its playlist parser. HLS (.m3u8) is not
//                          simulated as a stream. An explicit zuvo-error or
//                          zuvo-error-after wins.
//
// A zuvo-* parameter that is not listed, and a listed one with a value it
// cannot use, is ignored with a warning line (logger "SimulatedStreamer").
// Parameters that do not begin with "zuvo-" are left alone.
struct SimulatedMedia {
    // Failure code that a playlist URI gets.
    static constexpr int PlaylistFailureCode = -15;
    // Failure code of zuvo-error-after without zuvo-error.
    static constexpr int DefaultMidStreamFailureCode = -18;

    QString uri;
    // Length of the track in ms; -1 for a live stream.
    qint64 durationMs = 0;
    // Failure code (-14 ... -22), 0 when the stream does not fail.
    int failureCode = 0;
    // Playing position (ms) at which the failure happens; 0: while opening.
    qint64 failureAtMs = 0;
    bool crashes = false;
    // Playing position (ms) at which the crash happens; 0: while opening.
    qint64 crashAtMs = 0;

    bool isLive() const { return durationMs < 0; }
    bool fails() const { return failureCode != 0; }

    // The media described by roles; defaultDurationMs is the length of a
    // track that names none. A roles record without any resource URI gives
    // an empty uri (nothing to play).
    static SimulatedMedia fromRoles(const ZuvoRoles& roles, qint64 defaultDurationMs);

    // Whether the path of uri ends in one of the playlist suffixes.
    static bool hasPlaylistSuffix(const QString& uri);
    // Whether mimeType (parameters after ';' ignored, any case) is a playlist
    // type: audio/x-mpegurl, audio/mpegurl, application/x-mpegurl,
    // application/vnd.apple.mpegurl, audio/x-scpls, application/pls+xml,
    // video/x-ms-asf, video/x-ms-asx, audio/x-ms-wax, video/x-ms-wvx,
    // application/vnd.ms-wpl, application/xspf+xml.
    static bool isPlaylistMimeType(const QString& mimeType);
};
