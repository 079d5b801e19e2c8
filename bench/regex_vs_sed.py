#!/usr/bin/env python3
"""Regex replace beside `sed -E` on the 64 MiB English and non-ASCII texts.

Three ways in the same run, each command taking turns with the others: the
transform alone as a process (orla_transform_run: map the file, replace,
write), `orla --sim run TextTransformAction` with the text as
`{"$file": PATH}`, and `sed -E` doing the same replacement. Each row gives
the median wall time, the median processor time (user + system), the peak
resident memory over the input, and the load average at the row's end.

    bench/regex_vs_sed.py [--build build/release] [--runs N]
"""
import argparse
import json
import os
import statistics
import subprocess
import tempfile

PATTERN = r"\b(the|and|of|Grace)\b"


def run_once(command):
    with open(os.devnull, "wb") as devnull, tempfile.NamedTemporaryFile("r") as report:
        subprocess.run(["/usr/bin/time", "-f", "%e %U %S %M", "-o", report.name, *command],
                       stdout=devnull, check=True)
        wall, user, system, kilobytes = report.read().split()[-4:]
    return float(wall), float(user) + float(system), int(kilobytes)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", default="build/release")
    parser.add_argument("--runs", type=int, default=3)
    args = parser.parse_args()
    runner = os.path.join(args.build, "bench", "orla_transform_run")
    orla = os.path.join(args.build, "tools", "orla", "orla")
    os.environ["LC_ALL"] = "C.UTF-8"
    with tempfile.TemporaryDirectory(prefix="orla-regex-") as folder:
        subprocess.run([runner, "--corpus", folder, str(64 << 20)], check=True, stdout=subprocess.DEVNULL)
        print("| Input | Command | Wall | CPU (user + system) | `sed` ÷ this, wall | `sed` ÷ this, CPU "
              "| Peak ÷ input | Load |")
        print("|---|---|---:|---:|---:|---:|---:|---:|")
        for name in ("english.txt", "nonascii.txt"):
            path = os.path.join(folder, name)
            size = os.path.getsize(path)
            params = json.dumps({"transform": "regexreplace", "useClipboard": False, "pattern": PATTERN,
                                 "replacement": "<$1>", "input": {"$file": path}})
            commands = {
                "`sed -E`": ["sed", "-E", r"s/\b(the|and|of|Grace)\b/<\1>/g", path],
                "transform alone": [runner, "regexReplace", path, PATTERN, "<$1>"],
                "`orla run` with `$file`": [orla, "--sim", "run", "TextTransformAction", params],
            }
            for command in commands.values():
                run_once(command)  # the page cache and the binaries warm
            results = {label: [] for label in commands}
            for _ in range(args.runs):
                for label, command in commands.items():
                    results[label].append(run_once(command))
            sed_wall = statistics.median(r[0] for r in results["`sed -E`"])
            sed_cpu = statistics.median(r[1] for r in results["`sed -E`"])
            for label, rows in results.items():
                wall = statistics.median(r[0] for r in rows)
                cpu = statistics.median(r[1] for r in rows)
                peak = max(r[2] for r in rows) * 1024 / size
                print(f"| {name} | {label} | {wall * 1000:.0f} ms | {cpu * 1000:.0f} ms | {sed_wall / wall:.2f} "
                      f"| {sed_cpu / cpu:.2f} | {peak:.2f} | {os.getloadavg()[0]:.1f} |", flush=True)


if __name__ == "__main__":
    main()
