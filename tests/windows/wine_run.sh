#!/bin/sh
# Runs a Windows program of the build under Wine:  wine_run.sh PREFIX PROGRAM [ARG...]
#   wine_run.sh PREFIX --start   creates the prefix once, starts a persistent
#                                wineserver and warms it (the CTest fixture)
#   wine_run.sh PREFIX --stop    stops that wineserver
#   wine_run.sh PREFIX --prepare only creates the prefix
# The prefix lives in the build folder and is made once: 9 s the first time,
# then about 0.1 s a run while the server stays up. No Mono or Gecko prompts,
# no crash dialog that would hold a failing test until its time-out.
set -eu
export WINEPREFIX="$1"
shift
export WINEDEBUG="${WINEDEBUG:--all}"
export WINEDLLOVERRIDES="${WINEDLLOVERRIDES:-mscoree,mshtml=}"

make_prefix() {
    mkdir -p "$WINEPREFIX.lock.d"
    (
        flock 9
        if [ ! -f "$WINEPREFIX/.rig_ready" ]; then
            wine wineboot --init </dev/null >/dev/null 2>&1
            wine reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f \
                </dev/null >/dev/null 2>&1
            wineserver -w
            touch "$WINEPREFIX/.rig_ready"
        fi
    ) 9>"$WINEPREFIX.lock.d/lock"
}

case "${1:-}" in
--prepare)
    make_prefix
    ;;
--start)
    make_prefix
    # Wine's server and services outlive this script: they must not hold the
    # test runner's output pipes. A server already up for the prefix is kept.
    wineserver -p </dev/null >/dev/null 2>&1 || true
    # A first program start brings up Wine's services; without it the first
    # test can wait on them holding its standard output.
    wine cmd /c exit </dev/null >/dev/null 2>&1
    ;;
--stop)
    wineserver -k 2>/dev/null || true
    ;;
*)
    make_prefix
    exec wine "$@"
    ;;
esac
