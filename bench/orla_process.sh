#!/usr/bin/env bash
# Times `orla list`, `orla validate` and `orla run CommandShortcut` of `true`
# as whole processes (start-up, argument parsing, JSON, registry, the action,
# output, exit), side by side with /bin/true as the floor of starting any
# process on this machine, and with `zsh -c true` and `sh -c true`, the
# shells' own way of running `true`. Run it on the desktop (DISPLAY set) to
# count the connections a run makes there; the load average is printed.
#
# Usage: bench/orla_process.sh [path/to/orla]
#        (default: build/release/tools/orla/orla)
# Needs hyperfine and python3. Takes a few seconds.
set -euo pipefail

orla="${1:-build/release/tools/orla/orla}"
if [[ ! -x "$orla" ]]; then
  echo "orla_process.sh: no orla binary at $orla; build it or pass its path" >&2
  exit 2
fi
command -v hyperfine >/dev/null || { echo "orla_process.sh: hyperfine is not installed" >&2; exit 2; }

export_file="$(mktemp)"
trap 'rm -f "$export_file"' EXIT

# -N runs each command without a shell, so the shell's own start-up is not
# counted; hyperfine splits the command lines below the way a shell would.
hyperfine -N --warmup 20 --runs 300 --style basic --export-json "$export_file" \
  -n 'true (floor)' '/bin/true' \
  -n 'orla list' "$orla list" \
  -n 'orla validate OrlaShortcut' "$orla validate OrlaShortcut '{}'" \
  -n 'orla run CommandShortcut true' "$orla run CommandShortcut '{\"command\":\"true\"}'" \
  -n 'zsh -c true' "zsh -c true" \
  -n 'sh -c true' "sh -c true" \
  -n 'orla --sim validate ConditionalAction (regex)' \
     "$orla --sim validate ConditionalAction '{\"conditionType\":1,\"pattern\":\"a+b\"}'"

# A process of a millisecond or two is easily delayed by anything else the
# machine is doing, so the median and minimum are printed beside the mean.
echo
echo "Load average: $(cut -d' ' -f1-3 /proc/loadavg)"
echo "Means:"
python3 - "$export_file" <<'PY'
import json, sys
results = json.load(open(sys.argv[1]))["results"]
floor = results[0]["median"]
ms = lambda seconds: f"{seconds * 1e3:5.2f} ms"
for r in results:
    extra = "" if r is results[0] else f"  (median {(r['median'] - floor) * 1e3:+.2f} ms over the floor)"
    # CPU time (user + system, means) moves less than the wall clock when
    # other work shares the machine.
    print(f"  {r['command']:<46} mean {ms(r['mean'])} ± {r['stddev'] * 1e3:4.2f}"
          f"  median {ms(r['median'])}  min {ms(r['min'])}  CPU {ms(r['user'] + r['system'])}{extra}")
PY
echo "Shared libraries at the start (ldd | wc -l): $(ldd "$orla" | wc -l)"
