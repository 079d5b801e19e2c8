#!/usr/bin/env bash
# The shell-command action as a whole process, side by side with the shell
# itself in the same run:
#   1. `orla run CommandShortcut` of a trivial command against `zsh -c` of the
#      same command (start-up, JSON, registry, the child, the result);
#   2. 1 GiB of output captured by `orla run CommandShortcut` against the same
#      command with its output thrown away by zsh, with the elapsed time and
#      the peak resident memory of each (GNU time).
#
# Usage: bench/shell_process.sh [path/to/orla]
#        (default: build/release/tools/orla/orla)
# Needs hyperfine, GNU time, python3 and zsh. Takes about half a minute.
set -euo pipefail

orla="${1:-build/release/tools/orla/orla}"
if [[ ! -x "$orla" ]]; then
  echo "shell_process.sh: no orla binary at $orla; build it or pass its path" >&2
  exit 2
fi
for tool in hyperfine /usr/bin/time python3 zsh; do
  command -v "$tool" >/dev/null || { echo "shell_process.sh: $tool is not installed" >&2; exit 2; }
done

export_file="$(mktemp)"
trap 'rm -f "$export_file"' EXIT

echo "1. A trivial command"
hyperfine -N --warmup 20 --runs 300 --style basic --export-json "$export_file" \
  -n 'zsh -c true' 'zsh -c true' \
  -n 'orla run CommandShortcut true' "$orla run CommandShortcut '{\"command\": \"true\"}'" \
  -n 'orla run CommandShortcut echo' "$orla run CommandShortcut '{\"command\": \"echo hello\"}'"
python3 - "$export_file" <<'PY'
import json, sys
results = json.load(open(sys.argv[1]))["results"]
floor = results[0]["median"]
ms = lambda seconds: f"{seconds * 1e3:5.2f} ms"
for r in results:
    extra = "" if r is results[0] else f"  (median {(r['median'] - floor) * 1e3:+.2f} ms over zsh alone)"
    print(f"  {r['command']:<34} mean {ms(r['mean'])} ± {r['stddev'] * 1e3:4.2f}"
          f"  median {ms(r['median'])}  min {ms(r['min'])}{extra}")
PY

echo
echo "2. 1 GiB of output (dd from /dev/zero in 1 MiB blocks)"
command='dd if=/dev/zero bs=1M count=1024 status=none'
for run in 1 2 3; do
  /usr/bin/time -f "  zsh, output to /dev/null      %e s  peak %M KiB" zsh -c "$command > /dev/null"
  /usr/bin/time -f "  orla run CommandShortcut       %e s  peak %M KiB" \
    "$orla" run CommandShortcut "{\"command\": \"$command\"}" > /dev/null || true
done

echo
echo "3. 1 GiB of text (cat of a 64 MiB file 16 times): English and non-ASCII prose,"
echo "   orla run CommandShortcut next to zsh -c '… | wc -c' (which counts bytes only)"
runner="$(dirname "$orla")/../../bench/orla_transform_run"
if [[ ! -x "$runner" ]]; then
  echo "  skipped: no $runner to write the texts with; build the orla_transform_run target" >&2
  exit 0
fi
texts="$(mktemp -d)"
trap 'rm -f "$export_file"; rm -rf "$texts"' EXIT
"$runner" --corpus "$texts" > /dev/null
for corpus in english nonascii; do
  files="$(printf "'$texts/$corpus.txt' %.0s" $(seq 16))"
  for run in 1 2 3; do
    load="$(cut -d' ' -f1 /proc/loadavg)"
    /usr/bin/time -f "  $corpus  zsh … | wc -c              %e s  user %U s  sys %S s  peak %M KiB  load $load" \
      zsh -c "cat $files | wc -c" > /dev/null
    load="$(cut -d' ' -f1 /proc/loadavg)"
    /usr/bin/time -f "  $corpus  orla run CommandShortcut   %e s  user %U s  sys %S s  peak %M KiB  load $load" \
      "$orla" run CommandShortcut "{\"command\": \"cat $files\"}" > /dev/null || true
  done
done
