#!/usr/bin/env bash
# build.sh DIR [cmake options...]: configures (once) and builds the project in DIR.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dir=$1; shift
jobs=$(nproc 2>/dev/null || echo 2)
# A compiler cache, when the machine has one, makes rebuilds in several build
# directories cheap; nothing requires it.
if command -v ccache >/dev/null 2>&1; then
  set -- -DCMAKE_CXX_COMPILER_LAUNCHER=ccache "$@"
fi
if [ ! -f "$dir/CMakeCache.txt" ]; then
  cmake -S "$root" -B "$dir" "$@" >/dev/null
else
  cmake "$dir" "$@" >/dev/null
fi
cmake --build "$dir" -j "$jobs"
