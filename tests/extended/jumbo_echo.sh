#!/bin/bash
# rig_inspector_cli --extended against a server that answers every probe three
# times at 65,507 bytes (jumbo_echo_server), the other checks against the real
# rig_test_server, in a network namespace of their own. The run must end with
# its summary, its JSON and the exit status its verdicts call for.
#   jumbo_echo.sh SERVER JUMBO_SERVER CLI                    (Linux build)
#   jumbo_echo.sh SERVER JUMBO_SERVER CLI.exe WINE_RUN PREFIX (under Wine)
set -euo pipefail
server_bin=$1 jumbo_bin=$2 cli=$3 wine_run=${4:-} prefix=${5:-}

if [ "${RIG_JUMBO_INSIDE:-}" != 1 ]; then
    [ -z "$wine_run" ] || "$wine_run" "$prefix" --prepare
    RIG_JUMBO_INSIDE=1 exec unshare --net --mount "$0" "$@"
fi

work=$(mktemp -d)
pids=()
cleanup() {
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
    [ -z "$wine_run" ] || wineserver -k 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT
runner=()
if [ -n "$wine_run" ]; then
    . "$(dirname "$0")/../windows/wine_private_server.sh"
    export WINEPREFIX=$prefix WINEDEBUG=-all WINEDLLOVERRIDES=mscoree,mshtml=
    wine_private_server
    runner=(wine)
else
    ip link set lo up
fi

# wait_line FILE TEXT: at most 10 s for a program's ready line.
wait_line() {
    for _ in $(seq 100); do
        grep -q "$2" "$1" && return 0
        sleep 0.1
    done
    echo "no '$2' in $1:" >&2
    cat "$1" >&2
    return 1
}
"$server_bin" --extended-port 0 >"$work/server.log" 2>&1 &
pids+=($!)
"$jumbo_bin" 9996 100 >"$work/jumbo.log" 2>&1 &
pids+=($!)
wait_line "$work/server.log" listening
wait_line "$work/jumbo.log" ready

mkdir -p "$work/patcher" "$work/game"
printf '[extended]\nport=9996\n' >"$work/patcher/rig_inspector.ini"
status=0
(cd "$work/patcher" && timeout -k 5 120 "${runner[@]}" "$cli" --extended --no-progress --no-color \
    --json result.json </dev/null >"$work/out" 2>"$work/err") || status=$?

fail() {
    echo "jumbo_echo: $*" >&2
    echo "--- exit status $status; stdout:" >&2
    cat "$work/out" >&2
    echo "--- stderr:" >&2
    cat "$work/err" >&2
    exit 1
}
grep -q "Extended network test" "$work/out" || fail "no extended summary"
/usr/bin/python3 - "$work/patcher/result.json" "$status" <<'PY' || fail "JSON or exit status wrong"
import json, sys
result = json.load(open(sys.argv[1]))
status = int(sys.argv[2])
x = result["extended"]
# The echoes arrived whole, were decoded, and the triplicates counted once.
samples = x["latency_idle_ms"]["samples"]
assert samples and samples > 0, x
assert status == (0 if result["passed"] else 1), (status, result["passed"])
print("jumbo echoes: %s idle samples, exit status %d" % (samples, status))
PY
