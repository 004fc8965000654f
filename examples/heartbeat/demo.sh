#!/usr/bin/env bash
# The heartbeat service at work on a console with a fresh machine root:
# started, paused and continued with Ctrl+\ (the console's Ctrl+Break),
# diagnostics switched on through the registry while it runs, stopped in
# good order with Ctrl+C; then the diagnostic file and the log it wrote.
# Every wait is bounded (30 s); any failure ends the script with 1.
#
#   examples/heartbeat/demo.sh [BIN]    BIN: the folder of heartbeat and tsreg
#                                       (default build/dev/bin)
set -euo pipefail
bin=$(cd "${1:-build/dev/bin}" && pwd)
TSUTIL_ROOT=$(mktemp -d)
export TSUTIL_ROOT
out=$TSUTIL_ROOT/console.txt
pid=
cleanup() {
  if [ -n "$pid" ] && kill -0 "$pid" 2>/dev/null; then kill -KILL "$pid"; fi
  rm -rf "$TSUTIL_ROOT"
}
trap cleanup EXIT

say() { printf '\n== %s\n' "$*"; }
shown=0
# Prints the service's complete lines not shown yet.
show_new() {
  local total
  total=$(wc -l <"$out")
  if [ "$total" -gt "$shown" ]; then
    head -n "$total" "$out" | tail -n +"$((shown + 1))" | sed 's/^/   /'
    shown=$total
  fi
}
# Shows the service's lines until one holds the text.
await() {
  for _ in $(seq 300); do
    show_new
    if grep -qF -- "$1" "$out"; then return 0; fi
    sleep 0.1
  done
  echo "demo: no \"$1\" from the service within 30 s" >&2
  exit 1
}
beats() { grep -c 'heartbeat: beat ' "$out" || true; }

say "A fresh machine root: TSUTIL_ROOT=$TSUTIL_ROOT"
say "heartbeat console: the service runs on this console"
: >"$out"
set -m # the service gets a process group of its own, and the console's signals
"$bin/heartbeat" console >>"$out" 2>&1 &
pid=$!
await "beat 2"

say "Ctrl+\\ (the console's Ctrl+Break): pause"
kill -QUIT "$pid"
await "pause request"
say "Two seconds pass without a beat"
sleep 2
show_new

say "Ctrl+\\ again: continue"
kill -QUIT "$pid"
await "continue request"

key='HKLM\SOFTWARE\TSUtil\Heartbeat\Diagnostics'
say "Diagnostics switched on while it runs: tsreg add \"$key\" /v AllowDiagnostics /t REG_DWORD /d 1 /f"
"$bin/tsreg" add "$key" /v AllowDiagnostics /t REG_DWORD /d 1 /f | sed 's/^/   /'
await "beat $(($(beats) + 2))"

say "Ctrl+C: stop"
kill -INT "$pid"
await "stopped in good order"
status=0
wait "$pid" || status=$?
pid=
if [ "$status" -ne 0 ]; then
  echo "demo: the service ended with exit code $status" >&2
  exit 1
fi
say "The service ended with exit code 0"

diag=$(find "$TSUTIL_ROOT/drive_c/TSDiag" -name heartbeat.txt)
say "What the diagnostics wrote, c:\\TSDiag\\Heartbeat\\heartbeat.txt (${diag#"$TSUTIL_ROOT"/}):"
tr -d '\r' <"$diag" | sed 's/^/   /'
log=$(find "$TSUTIL_ROOT/drive_c/TSData" -name 'heartbeat*.log')
say "The day-ring log, c:\\TSData\\Heartbeat\\$(basename "$log"):"
sed 's/^/   /' "$log"
say "Done; the machine root is removed"
