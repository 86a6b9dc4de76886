#!/usr/bin/env bash
# build.sh DIR [cmake options...]: configures (once) and builds the project in DIR.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dir=$1; shift
jobs=$(nproc 2>/dev/null || echo 2)
if [ ! -f "$dir/CMakeCache.txt" ]; then
  cmake -S "$root" -B "$dir" "$@" >/dev/null
else
  cmake "$dir" "$@" >/dev/null
fi
cmake --build "$dir" -j "$jobs"
