#!/usr/bin/env bash
# The main job: installs what is missing, builds, and runs the demo.
#
#   bash scripts/demo.sh         real audio on GStreamer: tones in five formats
#                                made here (scripts/demo-media.sh), played
#                                through zuvo-play to the audio device, or in
#                                real time to a null sink where there is none
#                                (about 25 s)
#   bash scripts/demo.sh --sim   the simulated streamer at 20x (about 10 s)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
# gst-launch-1.0 makes the demo's audio.
bash scripts/deps.sh gstreamer1.0-tools
bash scripts/build.sh build -DCMAKE_BUILD_TYPE=RelWithDebInfo
play=build/tools/zuvo-play/zuvo-play
if [ "${1:-}" = "--sim" ]; then
  exec "$play" --streamer sim --speed 20 examples/demo.m3u
fi
list=$(bash scripts/demo-media.sh build/demo)
exec "$play" "$list"
