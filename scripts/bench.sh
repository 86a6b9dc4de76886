#!/usr/bin/env bash
# bench.sh [REPETITIONS]: installs what the benchmarks need, builds them in
# Release in build-bench/ and runs them; every figure of BENCHMARKS.md comes
# from here. Results (Google Benchmark JSON and console output, stderr logs
# and summary.md) land in build-bench/bench-results/. REPETITIONS (default
# 10) is the number of repetitions of each timing benchmark and of processes
# per memory figure.
#
# The machine should be otherwise idle; the figures are medians, and ratios
# are measured side by side in one process, but a loaded machine still
# widens them.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
repetitions=${1:-10}
dir=build-bench
out=$dir/bench-results

# Beyond the project's packages: the peer playlist parser the benchmarks
# compare against, the curl tool (the floor of the playlist fetch), strip
# for the library's size, and gst-launch-1.0 (the GStreamer comparison's
# peer and its MP3 encoder).
bash scripts/deps.sh libtotem-plparser-dev curl binutils gstreamer1.0-tools

# As scripts/build.sh configures, but only the targets the figures need are
# built (the benchmarks link the test helpers, so tests stay configured;
# zuvo-play is the subject of the GStreamer CPU comparison).
launcher=()
command -v ccache >/dev/null 2>&1 && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake -S "$root" -B "$dir" "${launcher[@]}" -DCMAKE_BUILD_TYPE=Release -DZUVO_BUILD_BENCHMARKS=ON \
  -DZUVO_BUILD_TESTS=ON -DZUVO_BUILD_TOOLS=ON >/dev/null
cmake --build "$dir" -j "$(nproc 2>/dev/null || echo 2)" --target zuvo_api_play zuvo_bench zuvo_bench_memory
# The GStreamer streamer's benchmarks, when it is built.
gst=0
# (The target list is read first: grep -q ending the pipe early would fail it.)
targets=$(cmake --build "$dir" --target help 2>/dev/null || true)
if grep -qw zuvo_bench_gst <<<"$targets"; then
  gst=1
  cmake --build "$dir" -j "$(nproc 2>/dev/null || echo 2)" --target zuvo_bench_gst zuvo-play
fi

rm -rf "$out"
mkdir -p "$out"

echo "== timing benchmarks ($repetitions repetitions, interleaved)"
"$dir/bench/zuvo_bench" --benchmark_repetitions="$repetitions" \
  --benchmark_enable_random_interleaving=true \
  --benchmark_out="$out/timing.json" --benchmark_out_format=json >"$out/timing.txt" 2>"$out/timing.stderr"

echo "== memory benchmarks ($repetitions processes each)"
for name in 'Memory/M3U/5MiB' 'Memory/M3U/5MiB/allEntries' 'Memory/FetchAndParse/M3U/5MiB' \
  'Memory/FetchAndParse/M3U/5MiB/floor' 'Memory/IdleStreamerPlayLogic'; do
  file=$(echo "$name" | tr '/' '-')
  for i in $(seq 1 "$repetitions"); do
    "$dir/bench/zuvo_bench_memory" --benchmark_filter="^${name}/iterations:" \
      --benchmark_out="$out/$file-$i.json" --benchmark_out_format=json >/dev/null 2>>"$out/memory.stderr"
  done
done

if [ "$gst" = 1 ]; then
  echo "== GStreamer streamer: play latency ($repetitions repetitions, interleaved) and gaps"
  "$dir/bench/zuvo_bench_gst" --benchmark_filter='^GstPlayLatency/' --benchmark_repetitions="$repetitions" \
    --benchmark_out="$out/gst-latency.json" --benchmark_out_format=json >"$out/gst-latency.txt" \
    2>"$out/gst-latency.stderr"
  "$dir/bench/zuvo_bench_gst" --benchmark_filter='^GstGap/' \
    --benchmark_out="$out/gst-gap.json" --benchmark_out_format=json >"$out/gst-gap.txt" 2>"$out/gst-gap.stderr"
fi

library=$(find "$dir/src/api/play" -name 'libzuvo_api_play.so.*.*.*' -type f | head -n 1)
strip -o "$out/libzuvo_api_play.stripped.so" "$library"
size=$(stat -c %s "$out/libzuvo_api_play.stripped.so")

python3 bench/report.py --library-size "$size" "$out"/*.json | tee "$out/summary.md"

gst_cpu_runs=${GST_CPU_RUNS:-3}
if [ "$gst" = 1 ] && [ "$gst_cpu_runs" -gt 0 ]; then
  echo "== GStreamer streamer: CPU time, $gst_cpu_runs runs of 60 s in real time"
  echo | tee -a "$out/summary.md"
  python3 bench/gst_cpu.py --zuvo-play "$dir/tools/zuvo-play/zuvo-play" --runs "$gst_cpu_runs" --work "$out" \
    --json "$out/gst-cpu-runs.json" 2>"$out/gst-cpu.stderr" | tee -a "$out/summary.md"
fi
