#!/usr/bin/env bash
# demo-media.sh DIR: makes the real-audio demo in DIR: short tones in five
# formats (WAV, FLAC, MP3, Opus, Ogg Vorbis; 44.1 kHz stereo (Opus 48 kHz),
# each its own pitch) made with GStreamer's own encoders, a playlist that one
# item refers to, and DIR/demo.m3u, the list zuvo-play plays. Nothing comes
# from the network. Needs gst-launch-1.0 (gstreamer1.0-tools) and the
# plugin packages that scripts/deps.sh installs.
set -euo pipefail
dir=$1
mkdir -p "$dir"
dir=$(cd "$dir" && pwd)

# tone NAME SECONDS FREQUENCY ENCODER...: one tone of SECONDS, encoded.
tone() {
  local name=$1 seconds=$2 freq=$3
  shift 3
  [ -s "$dir/$name" ] && return 0
  # 441 samples a buffer: exactly SECONDS * 100 buffers at 44.1 kHz.
  gst-launch-1.0 -q audiotestsrc wave=sine freq="$freq" volume=0.3 samplesperbuffer=441 \
    num-buffers=$((seconds * 100)) ! audio/x-raw,rate=44100,channels=2 ! audioconvert ! "$@" \
    ! filesink location="$dir/$name.tmp"
  mv "$dir/$name.tmp" "$dir/$name"
}

tone opening.wav 4 440 wavenc
tone interlude.flac 4 554 flacenc
tone station.opus 4 659 audioresample ! opusenc ! oggmux
tone zuvofm.mp3 4 740 lamemp3enc ! id3v2mux
tone closing.ogg 3 880 vorbisenc ! oggmux

# A playlist document as an item of its own (its entry resolves against its
# folder): the streamer cannot play it,
# so the library's playlist hand-off parses it and plays its first entry.
cat >"$dir/station.m3u" <<M3U
#EXTM3U
#EXTINF:-1,Radio Zuvo
station.opus
M3U

# Port 9 on loopback refuses connections: the first address of the live
# station fails, and the play logic falls back to the second.
cat >"$dir/demo.m3u" <<M3U
#EXTM3U
#EXTINF:4,Zuvo Demo - Opening (WAV)
opening.wav
#EXTINF:4,Zuvo Demo - Interlude (FLAC; gapless after the opening)
interlude.flac
#EXTINF:-1,Radio Zuvo (an M3U playlist document)
file://$dir/station.m3u
#EXTINF:-1,Zuvo FM (live)
http://127.0.0.1:9/zuvofm.mp3
#EXTINF:-1,Zuvo FM (live)
zuvofm.mp3
#EXTINF:3,Zuvo Demo - Closing (Ogg Vorbis)
closing.ogg
M3U
echo "$dir/demo.m3u"
