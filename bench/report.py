#!/usr/bin/env python3
"""Summarises Google Benchmark JSON results of zuvo_bench and zuvo_bench_memory.

report.py [--library-size BYTES] RESULT.json...

Every figure is the median over the repetitions (or processes) found in the
files, taken per counter from the individual runs; the aggregates Google
Benchmark computes itself are not used. Prints Markdown tables with each
target and whether the median meets it.
"""

import argparse
import json
import re
import statistics
import sys
from collections import defaultdict


def load_runs(paths):
    """Counters of every individual run, keyed by benchmark name."""
    runs = defaultdict(list)
    for path in paths:
        with open(path, encoding="utf-8") as handle:
            document = json.load(handle)
        for entry in document.get("benchmarks", []):
            if entry.get("run_type", "iteration") != "iteration" or entry.get("error_occurred"):
                continue
            name = re.sub(r"(/iterations:\d+|/repeats:\d+|/manual_time)+$", "", entry["run_name"])
            runs[name].append(entry)
    return runs


def median(runs, name, counter):
    values = [run[counter] for run in runs.get(name, []) if counter in run]
    return statistics.median(values) if values else None


def label(runs, name):
    labels = [run.get("label", "") for run in runs.get(name, [])]
    return labels[0] if labels else ""


def fmt(value, digits=2):
    if value is None:
        return "n/a"
    if abs(value) >= 1000:
        return f"{value:,.0f}"
    return f"{value:.{digits}f}"


def verdict(value, limit, at_most=True):
    if value is None:
        return "not measured"
    met = value <= limit if at_most else value >= limit
    return "met" if met else "**missed**"


def table(header, rows):
    lines = ["| " + " | ".join(header) + " |", "|" + "---|" * len(header)]
    lines += ["| " + " | ".join(str(cell) for cell in row) + " |" for row in rows]
    return "\n".join(lines)


def repetitions(runs, name):
    return len(runs.get(name, []))


def control_section(runs):
    rows = []
    for control in ("ping", "pause"):
        name = f"ControlRoundTrip/{control}"
        ratio = median(runs, name, "ratio")
        rows.append([control, fmt(median(runs, name, "hop_ns"), 0), fmt(median(runs, name, "roundtrip_ns"), 0),
                     fmt(ratio), "<= 3x", verdict(ratio, 3.0), repetitions(runs, name)])
    return "### Control round trip\n\n" + table(
        ["control", "bare hop (ns)", "round trip (ns)", "ratio", "target", "", "runs"], rows)


def hops_section(runs):
    name = "PlayToStreamer/hops"
    most = median(runs, name, "hops_max")
    rows = [[fmt(median(runs, name, "hops_min"), 0), fmt(most, 0),
             fmt(median(runs, name, "queued_calls_max"), 0), "<= 3", verdict(most, 3), label(runs, name)]]
    return "### Play command to the streamer's play node\n\n" + table(
        ["hops (min)", "hops (max)", "queued calls delivered", "target", "", "receivers per generation"], rows)


FORMATS = ("M3U", "PLS", "URL", "INI", "ASX", "WPL")
SIZES = ("5MiB", "rowLimit")


def truncated(runs, name):
    """A note when our parser made fewer rows than the document has entries."""
    rows, entries = median(runs, name, "rows"), median(runs, name, "entries")
    if rows is not None and entries is not None and rows < entries:
        return " (rows cut at the limit)"
    return ""


def parse_section(runs):
    rows = []
    for fmt_name in FORMATS:
        for size in SIZES:
            name = f"Parse/{fmt_name}/{size}"
            ratio = median(runs, name, "ratio")
            rows.append([fmt_name, size, fmt(median(runs, name, "bytes"), 0), fmt(median(runs, name, "entries"), 0),
                         fmt(median(runs, name, "rows"), 0), fmt(median(runs, name, "floor_ms")),
                         fmt(median(runs, name, "parse_ms")), fmt(ratio), "<= 2x",
                         verdict(ratio, 2.0) + truncated(runs, name), repetitions(runs, name)])
    return "### Parse throughput against the bare read\n\n" + table(
        ["format", "document", "bytes", "entries", "rows", "floor (ms)", "parse (ms)", "ratio", "target", "",
         "runs"], rows)


def peer_section(runs):
    rows = []
    for fmt_name in FORMATS:
        for size in SIZES:
            name = f"PeerParse/{fmt_name}/{size}"
            if name not in runs:
                continue
            speedup = median(runs, name, "speedup")
            entries, peer_entries = median(runs, name, "entries"), median(runs, name, "peer_entries")
            note = truncated(runs, name)
            if peer_entries is not None and entries is not None and peer_entries < entries:
                note += " (peer made fewer entries)"
            rows.append([fmt_name, size, fmt(entries, 0), fmt(peer_entries, 0), fmt(median(runs, name, "rows"), 0),
                         fmt(median(runs, name, "peer_ms")), fmt(median(runs, name, "parse_ms")), fmt(speedup),
                         ">= 100x", verdict(speedup, 100.0, at_most=False) + note,
                         label(runs, name).replace("peer result: ", ""), repetitions(runs, name)])
    if not rows:
        return "### Peer parser\n\nNot measured (totem-pl-parser not found at build time)."
    return "### Peer parser (totem-pl-parser) against ours\n\n" + table(
        ["format", "document", "entries", "peer entries", "our rows", "peer (ms)", "ours (ms)", "speed-up",
         "target", "", "peer result", "runs"], rows)


def memory_section(runs):
    rows = []
    for name, what in (("Memory/M3U/5MiB", "5 MiB M3U, parser as shipped"),
                       ("Memory/M3U/5MiB/allEntries", "5 MiB M3U, every entry as a row")):
        peak = median(runs, name, "peak_above_MiB")
        rows.append([what, fmt(median(runs, name, "rows"), 0), fmt(median(runs, name, "resident_before_MiB")),
                     fmt(peak), fmt(median(runs, name, "held_above_MiB")), fmt(median(runs, name, "heap_held_MiB")),
                     fmt(median(runs, name, "heap_bytes_per_row"), 0), "<= 64 MiB",
                     verdict(peak, 64.0) + truncated(runs, name), repetitions(runs, name)])
    text = "### Peak memory of parsing and holding the rows\n\n" + table(
        ["document", "rows", "resident before (MiB)", "peak above (MiB)", "held above (MiB)", "heap held (MiB)",
         "heap per row (B)", "target", "", "processes"], rows)
    name = "Memory/IdleStreamerPlayLogic"
    first = median(runs, name, "first_bytes")
    average = median(runs, name, "average_bytes")
    largest = None if first is None or average is None else max(first, average)
    text += "\n\n### Idle StreamerPlayLogic\n\n" + table(
        ["first (bytes)", "average of the next 99 (bytes)", "target", "", "processes"],
        [[fmt(first, 0), fmt(average, 0), "<= 65,536", verdict(largest, 65536), repetitions(runs, name)]])
    return text


def fetch_section(runs):
    name, memory, floor = "FetchAndParse/M3U/5MiB", "Memory/FetchAndParse/M3U/5MiB", "Memory/FetchAndParse/M3U/5MiB/floor"
    ratio = median(runs, name, "ratio")
    ours_peak, floor_peak = median(runs, memory, "peak_above_MiB"), median(runs, floor, "floor_MiB")
    memory_ratio = None if ours_peak is None or not floor_peak else ours_peak / floor_peak
    rows = [["wall time", fmt(median(runs, name, "floor_ms")) + " ms (curl " + fmt(median(runs, name, "curl_ms"))
             + " ms)", fmt(median(runs, name, "ours_ms")) + " ms", fmt(ratio), "<= 1.5x", verdict(ratio, 1.5),
             repetitions(runs, name)],
            ["peak memory", fmt(median(runs, floor, "curl_peak_MiB")) + " MiB curl + "
             + fmt(median(runs, floor, "peak_above_MiB")) + " MiB parse", fmt(ours_peak) + " MiB",
             fmt(memory_ratio), "<= 1.5x", verdict(memory_ratio, 1.5), repetitions(runs, memory)]]
    return "### Fetch and parse of the 5 MiB M3U from loopback against curl plus the parse of its file\n\n" + table(
        ["what", "floor", "parse node", "ratio", "target", "", "runs"], rows)


def trace_section(runs):
    rows = []
    for control in ("ping", "pause"):
        name = f"DisabledTraceOverhead/{control}"
        overhead = median(runs, name, "overhead_pct")
        rows.append([control, fmt(median(runs, name, "trace_checks"), 0), fmt(median(runs, name, "disabled_line_ns")),
                     fmt(median(runs, name, "roundtrip_ns"), 0), fmt(overhead), "<= 10 %", verdict(overhead, 10.0),
                     repetitions(runs, name)])
    return "### Disabled TRACE lines in the control round trip\n\n" + table(
        ["control", "disabled trace checks", "one disabled scope logger (ns)", "round trip (ns)", "overhead (%)",
         "target", "", "runs"], rows)


def gst_latency_section(runs):
    name = "GstPlayLatency/wav"
    library, bare = median(runs, name, "library_ms"), median(runs, name, "bare_ms")
    added, allowed = median(runs, name, "added_ms"), median(runs, name, "allowed_ms")
    rows = [[fmt(bare), fmt(library), fmt(added), fmt(median(runs, name, "ratio")),
             "<= max(10 %, 5 ms)" + (f" = {fmt(allowed)} ms" if allowed is not None else ""),
             verdict(added, allowed) if allowed is not None else "not measured",
             fmt(median(runs, name, "bare_render_ms")), fmt(median(runs, name, "library_render_ms")),
             repetitions(runs, name)]]
    return "### GStreamer streamer: play control to the first buffer at the sink (WAV, null sink)\n\n" + table(
        ["bare playbin (ms)", "library (ms)", "added (ms)", "ratio", "target", "", "bare, rendered (ms)",
         "library, rendered (ms)", "runs"], rows)


GAP_FORMATS = (("wav", True), ("flac", True), ("vorbis", True), ("opus", True), ("mp3", False), ("aac", False))


def gst_gap_section(runs):
    rows = []
    for fmt_name, zero in GAP_FORMATS:
        name = f"GstGap/{fmt_name}"
        if name not in runs:
            continue
        gap = median(runs, name, "gap_frames")
        offset = median(runs, name, "offset_frames")
        met = "not measured" if gap is None else ("met" if gap == 0 and offset == 0 else "**missed**")
        rows.append([fmt_name, fmt(median(runs, name, "rate"), 0), fmt(median(runs, name, "track1_frames"), 0),
                     fmt(median(runs, name, "track2_frames"), 0), fmt(median(runs, name, "output_frames"), 0),
                     fmt(gap, 0), fmt(offset, 0), fmt(median(runs, name, "differing_samples_1"), 0) + " / " + fmt(median(runs, name, "differing_samples_2"), 0),
                     fmt(median(runs, name, "max_diff"), 0), fmt(median(runs, name, "padding_frames_1"), 0),
                     fmt(median(runs, name, "padding_frames_2"), 0), "0" if zero else "as measured",
                     met if zero else "reported"])
    if not rows:
        return "### GStreamer streamer: gap between tracks\n\nNot measured."
    return "### GStreamer streamer: gap between two gapless tracks (frames)\n\n" + table(
        ["format", "rate", "track 1 alone", "track 2 alone", "output", "gap", "track 2 offset",
         "differing samples (1 / 2)", "max diff", "padding 1", "padding 2", "target", ""], rows)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--library-size", type=int, help="stripped size of libzuvo_api_play.so in bytes")
    parser.add_argument("results", nargs="+")
    args = parser.parse_args()
    runs = load_runs(args.results)
    sections = [control_section(runs), hops_section(runs), parse_section(runs), peer_section(runs),
                memory_section(runs), fetch_section(runs), trace_section(runs)]
    if any(name.startswith("GstPlayLatency/") for name in runs):
        sections.append(gst_latency_section(runs))
    if any(name.startswith("GstGap/") for name in runs):
        sections.append(gst_gap_section(runs))
    if args.library_size is not None:
        sections.append(f"### Library size\n\nStripped libzuvo_api_play.so: {args.library_size:,} bytes "
                        f"({args.library_size / 1024:.0f} KiB)")
    print("\n\n".join(sections))
    return 0


if __name__ == "__main__":
    sys.exit(main())
