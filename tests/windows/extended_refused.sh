#!/bin/bash
# rig_inspector_cli.exe --extended under Wine against extended services that
# refuse its streams (taken and never served, told busy, closed at once):
# each run ends in its time, with both throughput figures null, no grade, and
# the reason among the diagnostics. The stand-in server is the Linux
# bench_extended_attack in its serve mode.
#   extended_refused.sh WINE_RUN PREFIX ATTACK_TOOL WINDOWS_CLI
set -euo pipefail
wine_run=$1 prefix=$2 attack=$3 windows_cli=$4

. "$(dirname "$0")/wine_private_server.sh"
wine_namespace "$0" "$@"
work=$(mktemp -d)
server=
cleanup() {
    [ -z "$server" ] || kill "$server" 2>/dev/null || true
    wineserver -k 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT
wine_private_server
mkdir -p "$work/patcher" "$work/game"
cp "$(dirname "$0")/../../scripts/demo/rig_inspector.ini" "$work/patcher/"

failed=0
for how in silent busy close; do
    "$attack" serve "$how" 120 >"$work/server.log" 2>&1 &
    server=$!
    for _ in $(seq 100); do
        grep -q "serving" "$work/server.log" && break
        sleep 0.1
    done
    start=$(date +%s)
    (cd "$work/patcher" && timeout -k 5 90 wine "$windows_cli" --extended --quiet --json r.json \
        >/dev/null 2>&1 </dev/null) || true
    took=$(($(date +%s) - start))
    kill "$server" 2>/dev/null || true
    wait "$server" 2>/dev/null || true
    server=
    want=extended_streams_refused
    [ "$how" != busy ] || want=extended_busy
    verdict=$(jq -r --arg want "$want" '.extended |
        if .throughput.upload_kb_per_sec != null or .throughput.download_kb_per_sec != null then "a throughput figure"
        elif .latency_loaded_ms.grade != null then "a bufferbloat grade"
        elif .duration_ms > 12000 then "\(.duration_ms) ms"
        elif ([.diagnostics[].code] | index($want)) == null then "no \($want) diagnostic"
        else "ok" end' "$work/patcher/r.json" 2>/dev/null || echo "no JSON")
    # The whole run's standard checks take about 8 s here with nothing on
    # their ports; a wait on the peer would hold it until the server quits.
    [ "$took" -le 45 ] || verdict="$verdict; the run took $took s"
    echo "$how: $verdict ($took s)"
    [ "$verdict" = ok ] || failed=1
    rm -f "$work/patcher/r.json"
done
exit $failed
