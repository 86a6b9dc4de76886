#!/usr/bin/env bash
# The main job: installs what is missing, builds, and runs the demo.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
bash scripts/deps.sh
bash scripts/build.sh build -DCMAKE_BUILD_TYPE=RelWithDebInfo
if [ -x build/tools/zuvo-play/zuvo-play ]; then
  exec build/tools/zuvo-play/zuvo-play --streamer sim --speed 20 examples/demo.m3u
fi
echo "zuvo-play is not built yet; the libraries built are:"
find build/src -name '*.so*' -type f -printf '  %p (%s bytes)\n' | sort
