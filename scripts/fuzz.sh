#!/usr/bin/env bash
# fuzz.sh [SECONDS]: builds the libFuzzer targets of fuzz/ with clang
# (AddressSanitizer + UndefinedBehaviorSanitizer) in build-fuzz/ and runs each
# for SECONDS (default 30), two at a time, on its seed corpus and dictionary.
# Fails when any target reports a finding (crash, sanitizer report, broken
# invariant, leak, time-out or memory blow-up of one input); the input is kept
# in build-fuzz/findings/. Prints executions per second and coverage per
# target at the end.
#
# Environment: FUZZ_TARGETS="fuzz_cmpath fuzz_playlist_m3u" runs only those;
# FUZZ_BUILD_DIR moves the build directory.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-30}
build=${FUZZ_BUILD_DIR:-$root/build-fuzz}
cd "$root"

# clang with libFuzzer; the sanitizer and libFuzzer runtimes come with
# libclang-rt-14-dev, which clang only recommends.
bash scripts/deps.sh clang libfuzzer-14-dev libclang-rt-14-dev

echo "== build fuzz targets ($build)"
start=$(date +%s)
launcher=()
command -v ccache >/dev/null 2>&1 && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
if [ ! -f "$build/CMakeCache.txt" ]; then
  cmake -S fuzz -B "$build" -DCMAKE_CXX_COMPILER=clang++ "${launcher[@]}" >/dev/null
fi
cmake --build "$build" -j 2 --target zuvo_fuzzers >/dev/null
echo "build: $(( $(date +%s) - start )) s"

targets=${FUZZ_TARGETS:-$(find "$build" -maxdepth 1 -type f -executable -name 'fuzz_*' -printf '%f\n' | sort)}
dicts="$build/dict"
mkdir -p "$dicts" "$build/findings" "$build/logs"
# The whole parse road meets every format's tokens.
cat fuzz/dict/{url,pls,m3u,ini,asx,wpl}.dict > "$dicts/road.dict"

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1:strict_string_checks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
export LSAN_OPTIONS=${LSAN_OPTIONS:-suppressions=$root/tests/lsan.supp}

# run_target NAME: fuzzes one target for $seconds; its log is kept.
run_target() {
  local name=$1 short=${1#fuzz_} seeds dict
  short=${short#playlist_}
  if [ "$name" = fuzz_cmpath ]; then
    seeds=(fuzz/corpus/cmpath)
    dict=fuzz/dict/cmpath.dict
  else
    seeds=(tests/data fuzz/corpus/playlist)
    dict=fuzz/dict/$short.dict
    [ "$short" = road ] && dict=$dicts/road.dict
  fi
  local corpus=$build/corpus/$name
  mkdir -p "$corpus"
  "$build/$name" "$corpus" "${seeds[@]}" -dict="$dict" -max_total_time="$seconds" \
    -timeout=10 -rss_limit_mb=2048 -max_len=65536 -print_final_stats=1 \
    -artifact_prefix="$build/findings/$name-" >"$build/logs/$name.log" 2>&1
}

echo "== fuzz for $seconds s per target, two at a time"
failed=()
set -- $targets
while [ $# -gt 0 ]; do
  pids=()
  names=()
  for _ in 1 2; do
    [ $# -gt 0 ] || break
    run_target "$1" &
    pids+=($!)
    names+=("$1")
    shift
  done
  for i in "${!pids[@]}"; do
    if ! wait "${pids[$i]}"; then
      failed+=("${names[$i]}")
    fi
  done
done

printf '%-22s %10s %8s %8s %8s\n' target exec/s cov ft corpus
for name in $targets; do
  log=$build/logs/$name.log
  execs=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -1)
  last=$(grep -E '^#[0-9]+.*cov: ' "$log" | tail -1 || true)
  cov=$(sed -n 's/.* cov: \([0-9]*\).*/\1/p' <<<"$last")
  ft=$(sed -n 's/.* ft: \([0-9]*\).*/\1/p' <<<"$last")
  corp=$(sed -n 's/.* corp: \([0-9]*\/[0-9a-zA-Z]*\).*/\1/p' <<<"$last")
  printf '%-22s %10s %8s %8s %8s\n' "$name" "${execs:-?}" "${cov:-?}" "${ft:-?}" "${corp:-?}"
done
echo "total: $(( $(date +%s) - start )) s"

if [ ${#failed[@]} -gt 0 ]; then
  for name in "${failed[@]}"; do
    echo "== FINDING in $name (log: $build/logs/$name.log)"
    grep -E 'ERROR|invariant|SUMMARY|Test unit written' "$build/logs/$name.log" | head -20 || true
  done
  exit 1
fi
echo "no findings"
