#pragma once

#include <QString>

// MIME types of media URIs, guessed from the URI's form alone (nothing is
// fetched). All functions are pure and callable from any thread.
namespace MimeTypes {

// The MIME type of the media a URI names, or defaultType when its form does
// not tell. The scheme decides first: "mms", "mmsh" and "mmst" stream
// Windows Media (video/x-ms-asf, whatever the path says); "rtsp", "rtspt"
// and "rtspu" give application/sdp, the session description an RTSP server
// answers with, since the media format is only known from that. Otherwise
// the suffix of the path's last segment decides, compared case-insensitively,
// with any query ("?...") and fragment ("#...") ignored:
//   mp3 audio/mpeg      aac audio/aac       m4a, mp4 audio/mp4
//   ogg, oga, opus audio/ogg (Opus is carried in Ogg; audio/ogg is its file type)
//   flac audio/flac     wav audio/wav
//   wma audio/x-ms-wma  asf video/x-ms-asf (ASF is a container, not only audio)
// Any other URI, an empty one or garbage gives defaultType.
QString URIToMimeType(const QString& uri, const QString& defaultType);

namespace Audio {
// The MIME type of audio whose format is not known: "audio/unknown".
QString unknown();
} // namespace Audio

} // namespace MimeTypes
