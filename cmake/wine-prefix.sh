#!/usr/bin/env bash
# Sets up (start) or stops (stop) the Wine prefix the Windows leg's tests run
# in. The server is started here, outside the test runner, so that no test
# inherits it on a pipe; it keeps the prefix's service manager and registry
# up between test executables.
#   cmake/wine-prefix.sh start build/mingw64/wineprefix
#   cmake/wine-prefix.sh stop  build/mingw64/wineprefix
set -euo pipefail
action=${1:?start or stop}
prefix=$(realpath -m "${2:?prefix folder}")
export WINEPREFIX=$prefix WINEDEBUG=-all
wine=$(command -v wine64 || echo /usr/lib/wine/wine64)
log=$prefix.log
case $action in
start)
  if [ ! -f "$prefix/system.reg" ]; then
    mkdir -p "$prefix"
    "$wine" wineboot -i >"$log" 2>&1 </dev/null
    wineserver -w
  fi
  wineserver -p >>"$log" 2>&1 </dev/null
  "$wine" wineboot >>"$log" 2>&1 </dev/null
  ;;
stop)
  wineserver -k 2>/dev/null || true
  ;;
*)
  echo "usage: $0 start|stop PREFIX" >&2; exit 2 ;;
esac
