#!/usr/bin/env python3
"""Times the text transforms against the standard tools on the same files.

Each transform runs as a whole process (orla_transform_run: read the file,
transform it as the action does, write the result), beside the tool that
does the same work, on the same 64 MiB files, in the same run. Every command
runs several times; the table shows the median wall time, the throughput
over the input, the tool's time divided by ours (above 1: we are faster),
and the peak memory of each process over the input size.

    bench/transforms_vs_tools.py [--build build/release] [--size MiB] [--runs N]

With --process, every transform runs instead through `orla --sim run
TextTransformAction` as a user would start it, the text handed over two
ways: inside the parameters as a JSON string (`@params.json`, escaped), and
as `{"$file": PATH}` (read as it is). The simulated desktop takes the result
(its clipboard is memory), so the figures are those of the parameters, the
transform and the output, not of a window system. The parameters file may
hold at most 64 MB, so each text is cut to the longest whole-line prefix
whose escaped form fits; the tool, @params and $file all get that same text.
Each row carries the load average at its end.
"""
import argparse
import base64
import json
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
    """Wall seconds and peak resident kilobytes of one run, output discarded.

    The peak comes from /usr/bin/time: a child's own peak counts the memory
    of the process it was forked from (this script, which may hold a whole
    input) until it starts the command, and the small `time` is that process
    instead. Its start adds a millisecond or so to every command alike."""
    start = time.perf_counter()
    with open(os.devnull, "wb") as devnull, tempfile.NamedTemporaryFile("r") as peak:
        process = subprocess.run(["/usr/bin/time", "-f", "%M", "-o", peak.name, *command],
                                 stdout=devnull, stderr=subprocess.PIPE)
        elapsed = time.perf_counter() - start
        error = process.stderr.decode(errors="replace")
        kilobytes = int(peak.read().split()[-1]) if process.returncode == 0 else 0
    if process.returncode != 0:
        raise SystemExit(f"{' '.join(command)} failed: {error.strip()}")
    return elapsed, kilobytes


def measure(command, runs):
    run_once(command)  # warm the page cache and the binary
    results = [run_once(command) for _ in range(runs)]
    return statistics.median(r[0] for r in results), max(r[1] for r in results)


# The transform names the action takes, by the runner's names.
ACTION_NAMES = {
    "base64Encode": "base64encode", "base64Decode": "base64decode", "countLines": "countlines",
    "countWords": "countwords", "countCharacters": "countcharacters", "removeDuplicates": "removeduplicates",
    "sortLines": "sortlines", "prettifyJSON": "prettifyjson", "regexReplace": "regexreplace",
}
PARAMS_LIMIT = 64 << 20


def fitting_text(path, folder):
    """The input cut to the longest whole-line prefix whose JSON string, in
    the parameters, stays under the parameters file's limit."""
    data = open(path, "rb").read()
    if path.endswith(".b64"):
        # Cut what it encodes, at a line end, so that it still decodes to
        # UTF-8; wrapped at 76 columns again, as `base64` writes it.
        decoded = base64.b64decode(data)
        cut = decoded.rfind(b"\n", 0, (PARAMS_LIMIT - 4096) * 3 // 4 * 97 // 100) + 1
        if cut == 0 or len(decoded) <= cut:
            return path
        fitted = os.path.join(folder, "fit-" + os.path.basename(path))
        with open(fitted, "wb") as out:
            out.write(base64.encodebytes(decoded[:cut]))
        return fitted
    cut = len(data)
    while len(json.dumps(data[:cut].decode("utf-8", errors="strict"), ensure_ascii=False).encode()) > PARAMS_LIMIT - 4096:
        cut = data.rfind(b"\n", 0, int(cut * 0.97)) + 1
    if cut == len(data):
        return path
    fitted = os.path.join(folder, "fit-" + os.path.basename(path))
    with open(fitted, "wb") as out:
        out.write(data[:cut])
    return fitted


def process_rows(args, orla, folder):
    print(f"orla --sim run TextTransformAction, median of {args.runs} runs, LC_ALL=C.UTF-8; "
          "ratio = tool time ÷ orla time (above 1: orla is faster); peak = peak resident memory ÷ input\n")
    print("| Transform | Input | MiB | Tool | Tool time | @params | ratio | peak | $file | ratio | peak | load |")
    print("|---|---|---:|---|---:|---:|---:|---:|---:|---:|---:|---:|")
    for transform, name, extra, tool, command in PAIRS:
        path = fitting_text(os.path.join(folder, name), folder)
        size = os.path.getsize(path)
        params = {"transform": ACTION_NAMES[transform], "useClipboard": False}
        if extra:
            params["pattern"], params["replacement"] = extra
        escaped = os.path.join(folder, "params.json")
        with open(escaped, "w", encoding="utf-8") as out:
            json.dump(dict(params, input=open(path, encoding="utf-8").read()), out, ensure_ascii=False)
        by_file = json.dumps(dict(params, input={"$file": path}))
        theirs, _ = measure([part.replace("{f}", path) for part in command], args.runs)
        inline, inline_rss = measure([orla, "--sim", "run", "TextTransformAction", "@" + escaped], args.runs)
        filed, filed_rss = measure([orla, "--sim", "run", "TextTransformAction", by_file], args.runs)
        load = os.getloadavg()[0]
        print(f"| {transform} | {name} | {size / 2**20:.1f} | `{tool}` | {theirs * 1000:.0f} ms "
              f"| {inline * 1000:.0f} ms | {theirs / inline:.2f} | {inline_rss * 1024 / size:.1f} "
              f"| {filed * 1000:.0f} ms | {theirs / filed:.2f} | {filed_rss * 1024 / size:.1f} | {load:.1f} |",
              flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", default="build/release", help="build folder holding bench/orla_transform_run")
    parser.add_argument("--size", type=int, default=64, help="MiB of each text (default 64)")
    parser.add_argument("--runs", type=int, default=5, help="runs of each command (default 5)")
    parser.add_argument("--process", action="store_true",
                        help="time `orla --sim run TextTransformAction` whole, through @params and $file")
    parser.add_argument("--only", default="", help="comma-separated transforms to time (default all)")
    args = parser.parse_args()

    runner = os.path.join(args.build, "bench", "orla_transform_run")
    if not os.access(runner, os.X_OK):
        raise SystemExit(f"no {runner}; build it: cmake --build {args.build} --target orla_transform_run")
    env = dict(os.environ, LC_ALL="C.UTF-8")  # a UTF-8 locale for wc -m, wc -w and sort -f
    os.environ.update(env)

    with tempfile.TemporaryDirectory(prefix="orla-bench-") as folder:
        subprocess.run([runner, "--corpus", folder, str(args.size << 20)], check=True)
        if args.process:
            orla = os.path.join(args.build, "tools", "orla", "orla")
            if not os.access(orla, os.X_OK):
                raise SystemExit(f"no {orla}; build it: cmake --build {args.build} --target orla")
            process_rows(args, orla, folder)
            return
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
