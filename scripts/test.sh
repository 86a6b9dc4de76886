#!/usr/bin/env bash
# The whole test suite: installs what is missing, then builds and runs every
# test twice, once plainly and once under AddressSanitizer + UBSan, then runs
# every fuzz target for 30 seconds, then cross-builds for AArch64 and runs
# one test per layer under qemu-aarch64 (scripts/cross-aarch64.sh --smoke).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
# The compiler cache (when there is one) serves every checkout of the project:
# paths below the checkout are hashed relative to it, and debug information
# does not depend on the folder.
export CCACHE_BASEDIR=$root CCACHE_NOHASHDIR=1
# stage NAME: announces a stage; the time each took is printed at the end.
stage_name=deps
stage_start=$SECONDS
stage_times=()
stage() {
  stage_times+=("$(printf '%5d s  %s' $((SECONDS - stage_start)) "$stage_name")")
  stage_name=$1
  stage_start=$SECONDS
  echo "== $1"
}
bash scripts/deps.sh

stage "format check"
if ! bash scripts/format.sh --check; then
  echo "clang-format: the files above need formatting (run scripts/format.sh)"
  exit 1
fi

stage "build and test (build/)"
bash scripts/build.sh build -DCMAKE_BUILD_TYPE=RelWithDebInfo
(cd build && ctest --output-on-failure -j 2)

stage "the README's main command (scripts/demo.sh, on the build above)"
bash scripts/demo.sh

stage "build and test under ASan + UBSan (build-asan/)"
# Instrumented code runs a few times slower: the tests' time budgets double.
bash scripts/build.sh build-asan -DCMAKE_BUILD_TYPE=Debug -DZUVO_SANITIZE=ON -DZUVO_BUILD_TOOLS=ON \
  -DZUVO_TEST_TIME_SCALE=2
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export LSAN_OPTIONS=suppressions=$root/tests/lsan.supp
(cd build-asan && ctest --output-on-failure -j 2 -E 'install_package')

stage "fuzz targets, 30 s each (build-fuzz/)"
bash scripts/fuzz.sh 30

stage "AArch64 cross build and smoke tests under qemu-aarch64 (build-aarch64/)"
# The whole suite under emulation (bash scripts/cross-aarch64.sh) takes longer
# than CI allows on a cold machine; CI builds what the smoke tests need.
bash scripts/cross-aarch64.sh --smoke
stage "done"
echo "== stage times"
printf '%s\n' "${stage_times[@]}"
