#!/usr/bin/env python3
"""Times the text transforms against the standard tools on the same files.

Each transform runs as a whole process (orla_transform_run: read the file,
transform it as the action does, write the result), beside the tool that
does the same work, on the same 64 MiB files, in the same run. Every command
runs several times; the table shows the median wall time, the throughput
over the input, the tool's time divided by ours (above 1: we are faster),
and the peak memory of each process over the input size.

    bench/transforms_vs_tools.py [--build build/release] [--size MiB] [--runs N]
"""
import argparse
import os
import statistics
import subprocess
import sys
import tempfile
import time

REGEX = r"\b(the|and|of|Grace)\b"

# (transform, input file, extra arguments, tool name, tool command)
PAIRS = [
    ("base64Encode", "english.txt", [], "base64", ["base64", "{f}"]),
    ("base64Decode", "english.b64", [], "base64 -d", ["base64", "-d", "{f}"]),
    ("base64Decode", "nonascii.b64", [], "base64 -d", ["base64", "-d", "{f}"]),
    ("countLines", "english.txt", [], "wc -l", ["wc", "-l", "{f}"]),
    ("countWords", "english.txt", [], "wc -w", ["wc", "-w", "{f}"]),
    ("countWords", "nonascii.txt", [], "wc -w", ["wc", "-w", "{f}"]),
    ("countCharacters", "english.txt", [], "wc -m", ["wc", "-m", "{f}"]),
    ("countCharacters", "nonascii.txt", [], "wc -m", ["wc", "-m", "{f}"]),
    ("removeDuplicates", "lines.txt", [], "awk '!seen[$0]++'", ["awk", "!seen[$0]++", "{f}"]),
    ("removeDuplicates", "english.txt", [], "awk '!seen[$0]++'", ["awk", "!seen[$0]++", "{f}"]),
    ("sortLines", "lines.txt", [], "sort -f", ["sort", "-f", "{f}"]),
    ("sortLines", "english.txt", [], "sort -f", ["sort", "-f", "{f}"]),
    ("prettifyJSON", "json.txt", [], "jq .", ["jq", ".", "{f}"]),
    ("prettifyJSON", "json.txt", [], "python3 -m json.tool", [sys.executable, "-m", "json.tool", "{f}"]),
    ("regexReplace", "english.txt", [REGEX, "<$1>"], "sed -E", ["sed", "-E", r"s/\b(the|and|of|Grace)\b/<\1>/g", "{f}"]),
    ("regexReplace", "nonascii.txt", [REGEX, "<$1>"], "sed -E", ["sed", "-E", r"s/\b(the|and|of|Grace)\b/<\1>/g", "{f}"]),
]


def run_once(command):
    """Wall seconds and peak resident kilobytes of one run, output discarded."""
    start = time.perf_counter()
    with open(os.devnull, "wb") as devnull:
        process = subprocess.Popen(command, stdout=devnull, stderr=subprocess.PIPE)
        _, status, usage = os.wait4(process.pid, 0)
        elapsed = time.perf_counter() - start
        error = process.stderr.read().decode(errors="replace")
        process.stderr.close()
    if os.waitstatus_to_exitcode(status) != 0:
        raise SystemExit(f"{' '.join(command)} failed: {error.strip()}")
    return elapsed, usage.ru_maxrss


def measure(command, runs):
    run_once(command)  # warm the page cache and the binary
    results = [run_once(command) for _ in range(runs)]
    return statistics.median(r[0] for r in results), max(r[1] for r in results)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", default="build/release", help="build folder holding bench/orla_transform_run")
    parser.add_argument("--size", type=int, default=64, help="MiB of each text (default 64)")
    parser.add_argument("--runs", type=int, default=5, help="runs of each command (default 5)")
    parser.add_argument("--only", default="", help="comma-separated transforms to time (default all)")
    args = parser.parse_args()

    runner = os.path.join(args.build, "bench", "orla_transform_run")
    if not os.access(runner, os.X_OK):
        raise SystemExit(f"no {runner}; build it: cmake --build {args.build} --target orla_transform_run")
    env = dict(os.environ, LC_ALL="C.UTF-8")  # a UTF-8 locale for wc -m, wc -w and sort -f
    os.environ.update(env)

    with tempfile.TemporaryDirectory(prefix="orla-bench-") as folder:
        subprocess.run([runner, "--corpus", folder, str(args.size << 20)], check=True)
        print(f"{args.size} MiB inputs, median of {args.runs} runs, LC_ALL=C.UTF-8, "
              f"load average {os.getloadavg()[0]:.2f} at the start\n")
        print("| Transform | Input | Orla | Tool | Tool time | Tool ÷ Orla | Orla MB/s | Orla peak memory ÷ input |")
        print("|---|---|---:|---|---:|---:|---:|---:|")
        only = set(filter(None, args.only.split(",")))
        for transform, name, extra, tool, command in PAIRS:
            if only and transform not in only:
                continue
            path = os.path.join(folder, name)
            size = os.path.getsize(path)
            ours, ours_rss = measure([runner, transform, path, *extra], args.runs)
            theirs, _ = measure([part.replace("{f}", path) for part in command], args.runs)
            print(f"| {transform} | {name} | {ours * 1000:.0f} ms | `{tool}` | {theirs * 1000:.0f} ms "
                  f"| {theirs / ours:.2f} | {size / ours / 1e6:.0f} | {ours_rss * 1024 / size:.1f} |", flush=True)


if __name__ == "__main__":
    main()
