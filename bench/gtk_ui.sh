#!/usr/bin/env bash
# Messages and pop-up menus on the X11 desktop, as whole `orla` processes on
# the headless desktop of scripts/desktop-harness:
#   - the time from starting `orla run MessageShortcut` to its dialog having
#     the focus, and from starting the running-applications menu to the menu
#     showing (GTK start-up included: each run is a fresh process);
#   - the peak memory of `orla` with a message shown, next to `orla validate`
#     and a shell command, which do not load GTK.
#
# Usage: eval "$(scripts/desktop-harness start)"; bench/gtk_ui.sh [build dir]
#        (default: build/release)
set -euo pipefail
build="${1:-build/release}"
orla="$build/tools/orla/orla"
driver="$build/tests/orla_desktop_driver"
[[ -x "$orla" && -x "$driver" ]] || { echo "gtk_ui.sh: build orla and orla_desktop_driver in $build" >&2; exit 2; }
[[ -n "${DISPLAY:-}" ]] || { echo "gtk_ui.sh: needs the headless desktop (DISPLAY)" >&2; exit 2; }
runs="${RUNS:-10}"
now() { date +%s%N; }

median() { sort -n | awk '{a[NR]=$1} END {print (NR%2 ? a[(NR+1)/2] : (a[NR/2]+a[NR/2+1])/2)}'; }

message_ms=()
for ((i = 0; i < runs; i++)); do
  start=$(now)
  "$orla" run MessageShortcut '{"title":"Benchmark"}' >/dev/null 2>&1 &
  pid=$!
  "$driver" focus "$pid" >/dev/null
  message_ms+=($(( ($(now) - start) / 1000000 )))
  "$driver" keys "$pid" OK Return
  wait "$pid"
done

# One running application with a window, so that the menu has an entry,
# named by a desktop entry of its own.
export XDG_DATA_HOME="$(mktemp -d)"
mkdir -p "$XDG_DATA_HOME/applications"
printf '[Desktop Entry]\nType=Application\nName=Bench Application\nExec=%s\nStartupWMClass=OrlaTestApp\n' \
  "$build/tests/orla_test_app" >"$XDG_DATA_HOME/applications/org.orla.Bench.desktop"
"$build/tests/orla_test_app" &
app=$!
trap 'kill $app 2>/dev/null || true; rm -rf "$XDG_DATA_HOME"' EXIT
sleep 0.5
menu_ms=()
for ((i = 0; i < runs; i++)); do
  start=$(now)
  "$orla" run ApplicationShortcut '{"actionType":2}' >/dev/null 2>&1 &
  pid=$!
  "$driver" showing "$pid" "Bench Application" >/dev/null 2>&1 || true
  menu_ms+=($(( ($(now) - start) / 1000000 )))
  "$driver" keys "$pid" "Bench Application" Escape >/dev/null 2>&1 || kill "$pid"
  wait "$pid" || true
done

# A folder menu of a folder of 50,000 files: listed, sorted, cut to its first
# 200 items and popped up.
big="$(mktemp -d)"
trap 'kill $app 2>/dev/null || true; rm -rf "$XDG_DATA_HOME" "$big"' EXIT
(cd "$big" && seq -f 'File %g.txt' 1 50000 | xargs -d '\n' touch)
folder_ms=()
for ((i = 0; i < runs; i++)); do
  start=$(now)
  "$orla" run FolderShortcut "{\"folderPath\":\"$big\"}" >/dev/null 2>&1 &
  pid=$!
  "$driver" showing "$pid" "File 1.txt" >/dev/null 2>&1 || true
  folder_ms+=($(( ($(now) - start) / 1000000 )))
  "$driver" keys "$pid" "File 1.txt" Escape >/dev/null 2>&1 || kill "$pid"
  wait "$pid" || true
done

peak() { /usr/bin/time -f %M "$@" 2>&1 >/dev/null | tail -1; }
validate_kb=$(peak "$orla" validate OrlaShortcut '{}')
shell_kb=$(peak "$orla" run CommandShortcut '{"command":"true"}')
( sleep 1; "$driver" keys "$(pgrep -n -f 'MessageShortcut .*Memory')" OK Return ) &
presser=$!
message_kb=$(peak "$orla" run MessageShortcut '{"title":"Memory"}')
wait "$presser" || true

echo "execute → message focused (ms, $runs fresh processes): median $(printf '%s\n' "${message_ms[@]}" | median), all: ${message_ms[*]}"
echo "execute → menu showing (ms, $runs fresh processes):     median $(printf '%s\n' "${menu_ms[@]}" | median), all: ${menu_ms[*]}"
echo "execute → menu of 50,000 files showing (ms):            median $(printf '%s\n' "${folder_ms[@]}" | median), all: ${folder_ms[*]}"
echo "peak resident memory: orla validate ${validate_kb} KiB, shell command ${shell_kb} KiB, message ${message_kb} KiB (GTK adds $((message_kb - shell_kb)) KiB)"
