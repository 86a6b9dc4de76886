#!/usr/bin/env python3
"""CPU time and peak memory of zuvo-play against gst-launch-1.0 playing the same MP3.

gst_cpu.py --zuvo-play PATH [--seconds 60] [--runs 3] [--work DIR] [--json FILE]

Generates SECONDS of MP3 (44.1 kHz stereo, lamemp3enc defaults) with
gst-launch-1.0, then plays it RUNS times with each of

  zuvo-play --streamer gst --sink null FILE
  gst-launch-1.0 -q playbin uri=file://FILE audio-sink="fakesink sync=true"

both in real time into a null sink. Each run starts the two programs together
(so that both see the same machine load) and takes the user+system CPU time
and the peak resident size (max RSS) of each child from wait4(). Prints the
median of each figure and the ratio zuvo-play / gst-launch-1.0 as Markdown;
--json also writes every run.
"""

import argparse
import json
import os
import statistics
import subprocess
import sys
import time


def make_mp3(path, seconds):
    buffers = seconds * 10  # 4410 frames each: 0.1 s
    subprocess.run(["gst-launch-1.0", "-q", "audiotestsrc", "wave=sine", "freq=440", "samplesperbuffer=4410",
                    f"num-buffers={buffers}", "!", "audio/x-raw,rate=44100,channels=2", "!", "audioconvert", "!",
                    "lamemp3enc", "!", "filesink", f"location={path}"], check=True)


def start(command):
    # stdin stays an open pipe: zuvo-play reads commands from it and must not
    # see its end.
    return subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
                            stderr=subprocess.DEVNULL)


def reap(processes, began):
    """Waits for every process; the figures of each as it ends."""
    names = {process.pid: name for name, process in processes.items()}
    results = {}
    while names:
        pid, status, usage = os.wait4(-1, 0)
        if pid not in names:
            continue
        name = names.pop(pid)
        processes[name].returncode = os.waitstatus_to_exitcode(status)
        processes[name].stdin.close()
        results[name] = {"cpu_s": usage.ru_utime + usage.ru_stime, "user_s": usage.ru_utime,
                         "sys_s": usage.ru_stime, "max_rss_kib": usage.ru_maxrss,
                         "wall_s": time.monotonic() - began, "exit": processes[name].returncode}
    return results


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--zuvo-play", required=True)
    parser.add_argument("--seconds", type=int, default=60)
    parser.add_argument("--runs", type=int, default=3)
    parser.add_argument("--work", default="/tmp")
    parser.add_argument("--json")
    args = parser.parse_args()

    os.makedirs(args.work, exist_ok=True)
    mp3 = os.path.abspath(os.path.join(args.work, f"gst-cpu-{args.seconds}s.mp3"))
    make_mp3(mp3, args.seconds)
    commands = {
        "zuvo-play": [args.zuvo_play, "--streamer", "gst", "--sink", "null", mp3],
        "gst-launch-1.0": ["gst-launch-1.0", "-q", "playbin", f"uri=file://{mp3}",
                           "audio-sink=fakesink sync=true"],
    }
    runs = {name: [] for name in commands}
    for run in range(args.runs):
        began = time.monotonic()
        processes = {name: start(command) for name, command in commands.items()}
        for name, result in reap(processes, began).items():
            runs[name].append(result)
            print(f"run {run + 1}/{args.runs} {name}: cpu {result['cpu_s']:.2f} s, "
                  f"max RSS {result['max_rss_kib']} KiB, wall {result['wall_s']:.1f} s, exit {result['exit']}",
                  file=sys.stderr)

    def med(name, key):
        return statistics.median(r[key] for r in runs[name])

    failed = [name for name, results in runs.items() if any(r["exit"] != 0 for r in results)]
    zuvo_cpu, peer_cpu = med("zuvo-play", "cpu_s"), med("gst-launch-1.0", "cpu_s")
    ratio = zuvo_cpu / peer_cpu if peer_cpu > 0 else float("inf")
    print(f"### CPU time and peak memory, {args.seconds} s of MP3 in real time into a null sink\n")
    print("| program | CPU user+sys (s) | user (s) | sys (s) | max RSS (MiB) | wall (s) | runs |")
    print("|---|---|---|---|---|---|---|")
    for name in commands:
        print(f"| {name} | {med(name, 'cpu_s'):.2f} | {med(name, 'user_s'):.2f} | {med(name, 'sys_s'):.2f} | "
              f"{med(name, 'max_rss_kib') / 1024:.1f} | {med(name, 'wall_s'):.1f} | {len(runs[name])} |")
    verdict = "met" if ratio <= 1.1 else "**missed**"
    print(f"\nCPU ratio zuvo-play / gst-launch-1.0: {ratio:.2f}x (target <= 1.1x: {verdict})")
    if failed:
        print(f"\nNon-zero exit status: {', '.join(failed)}")
    if args.json:
        with open(args.json, "w", encoding="utf-8") as handle:
            json.dump({"seconds": args.seconds, "commands": commands, "runs": runs, "cpu_ratio": ratio}, handle,
                      indent=2)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
