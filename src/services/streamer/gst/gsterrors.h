#pragma once

#include <QList>
#include <QString>

typedef struct _GstMessage GstMessage;

// How GStreamer's errors become the streamer's error codes (streamererrors.h).
//
// One failure usually posts several ERROR messages within milliseconds, from
// different threads and in no fixed order (the element that failed, then the
// source's streaming loop with a generic "Internal data stream error", then a
// type finder that got no data). GstEngine collects the errors of one play
// for a moment and publishes the one of the highest rank below.
//
// Measured with Debian 12's GStreamer 1.22 (playbin, souphttpsrc on
// libsoup 3), what each case posts and the code it gets:
//
//   case                          GStreamer error (the strongest)       code
//   ----------------------------  ------------------------------------  ----
//   missing file                  RESOURCE NOT_FOUND (filesrc)          -19
//   HTTP 404                      RESOURCE NOT_FOUND (souphttpsrc)      -19
//   HTTP 401, 403                 RESOURCE NOT_AUTHORIZED               -17
//   HTTP 500 and other statuses   RESOURCE OPEN_READ                    -16
//   connection refused            only STREAM FAILED from the source    -16
//                                 (+ TYPE_NOT_FOUND "not enough data")
//   server breaks off mid-stream  RESOURCE SEEK (the source's resume    -18
//                                 request is refused) or RESOURCE READ
//   m3u / HTML / text document    CORE MISSING_PLUGIN (text/uri-list,   -14
//                                 text/html: no decoder)
//   pls document, random bytes    STREAM TYPE_NOT_FOUND (typefind)      -15
//   image (PNG), video only       no error: prerolls with no audio      -22
//                                 stream (GstEngine checks n-audio)
//   corrupt FLAC                  STREAM DECODE (no valid frames)       -22
//   truncated WAV / FLAC          no error: plays what is there, EOS    -13
//   server never answers          STREAM FAILED from the source after   -16
//                                 souphttpsrc's 15 s time-out
//   server trickles (slower than  no error: loading while it buffers,   -13
//   real time)                    then plays to its end
//   format change mid-stream:     no error: playbin's conversion feeds  -13
//   an Ogg chain whose second     the sink in the first stream's rate
//   stream has another rate and   and channels; both streams play
//   channel count
//   a WAV file followed by        no error: wavparse ends with the      -13
//   another one                   first data chunk, the rest is skipped
//   a format change the output    CORE NEGOTIATION, STREAM FAILED       -22
//   cannot take                   "not-negotiated" (not produced by the
//                                 cases above: the sink converts)
//
// The whole mapping, by domain and code:
//   CORE      MISSING_PLUGIN -14; NEGOTIATION, CAPS -22; others -18
//   LIBRARY   any -14 (a decoder library that does not work)
//   RESOURCE  NOT_FOUND -19; NOT_AUTHORIZED -17; OPEN_READ, OPEN_WRITE,
//             OPEN_READ_WRITE, BUSY, FAILED, SETTINGS -16; READ, SEEK, SYNC,
//             CLOSE, WRITE, NO_SPACE_LEFT and others -18
//   STREAM    TYPE_NOT_FOUND -15; WRONG_TYPE, DECODE, DEMUX, FORMAT -22;
//             CODEC_NOT_FOUND -14; DECRYPT -20; DECRYPT_NOKEY -21;
//             FAILED from the source element: -16 before any data arrived,
//             else -18; FAILED elsewhere: -22 when the flow was
//             "not-negotiated", else -18; others -18
//   (a missing-plugin element message adds its description to the detail
//   of the CORE MISSING_PLUGIN error that follows it)
//
// Ranks: 4 a specific error (every one not named below), 3 STREAM FAILED of
// the source, 2 STREAM TYPE_NOT_FOUND, 1 other STREAM FAILED (0 is left for
// the engine's own stand-in). Equal ranks: the first posted wins.
struct GstStreamerError {
    int code = 0;
    int rank = -1;
    QString detail; // "domain code: message (debug)"

    // Maps an ERROR message. fromSource: posted by the pipeline's source
    // element; dataSeen: the running track has delivered data before.
    static GstStreamerError fromMessage(GstMessage* message, bool fromSource, bool dataSeen);
    // The error of the highest rank of errors (the first of them on a tie);
    // an empty list gives rank -1.
    static GstStreamerError strongest(const QList<GstStreamerError>& errors);
};
