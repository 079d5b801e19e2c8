#!/usr/bin/env bash
# The daemon's figures on a real X server: hotkey press to the shortcut's
# first event, wake-ups while idle, and the idle daemon's memory, with 1 and
# with 1,000 shortcuts.
#
#   eval "$(scripts/desktop-harness start)"
#   bench/daemon_figures.sh build/release
#   scripts/desktop-harness stop "$ORLA_DESKTOP_HARNESS"
set -euo pipefail
build="${1:-build/release}"
orla="$build/tools/orla/orla"
driver="$build/tests/orla_hotkey_driver"
[ -n "${DISPLAY:-}" ] || { echo "daemon_figures: no DISPLAY (start the headless desktop first)" >&2; exit 2; }
work="$(mktemp -d /tmp/orla-daemon-figures.XXXXXX)"
daemon=""
trap '[ -n "$daemon" ] && kill "$daemon" 2>/dev/null; rm -rf "$work"' EXIT

# Context switches of every thread of the process: each is one wake-up.
switches() {
  local total=0 n
  for status in /proc/"$1"/task/*/status; do
    n=$(awk '/ctxt_switches/ {s += $2} END {print s}' "$status")
    total=$((total + n))
  done
  echo "$total"
}

figures() {
  local label="$1"
  "$orla" daemon "$work/shortcuts" 2>"$work/log" &
  daemon=$!
  for _ in $(seq 100); do grep -q watching "$work/log" 2>/dev/null && break; sleep 0.05; done
  echo "== $label: $(grep -m1 watching "$work/log")"
  # The driver presses and lets go in one go, so the run's wait for the
  # keys to be let go of ends at once and is not counted.
  "$driver" latency 40 Control_L Alt_L j | sort -n | awk '
    $1 < 0 {lost++; next}
    {v[++n] = $1}
    END {printf "press to first event: median %.2f ms, p90 %.2f ms, max %.2f ms (%d presses, %d with nothing in 2 s)\n",
                v[int(n/2)+1]/1000, v[int(n*0.9)]/1000, v[n]/1000, n, lost}'
  sleep 2
  local before after
  before=$(switches "$daemon")
  sleep 10
  after=$(switches "$daemon")
  echo "idle wake-ups: $(( (after - before) )) in 10 s"
  awk '/^Pss:|^Rss:/ {printf "%s %d KiB  ", $1, $2} END {print ""}' /proc/"$daemon"/smaps_rollup
  echo "threads: $(ls /proc/"$daemon"/task | wc -l)"
  kill "$daemon"; wait "$daemon" || true
  daemon=""
}

mkdir -p "$work/shortcuts"
echo '{"name": "X", "hotkey": "ctrl+alt+j", "actions": [{"kind": "KeyShortcut", "data": {"keycode": 7}}]}' \
  > "$work/shortcuts/x.json"
figures "1 shortcut"
for i in $(seq 1 999); do
  printf '{"name": "S%d", "actions": [{"kind": "KeyboardShortcut", "data": {"text": "s%d"}}]}\n' "$i" "$i" \
    > "$work/shortcuts/s$i.json"
done
figures "1,000 shortcuts"
echo "load: $(cut -d' ' -f1-3 /proc/loadavg)"
