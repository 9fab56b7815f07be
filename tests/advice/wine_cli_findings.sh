#!/bin/sh
# rig_inspector_cli.exe --json under Wine with a display (wine_xvfb_run.sh):
# the connection to 127.0.0.1 is loopback, Wine's DXGI adapter is named with
# its full memory, and the advice is a list. No server answers: the network
# checks fail as they would, which is no concern here.
#   wine_cli_findings.sh CLI.EXE   (run inside wine_xvfb_run.sh)
set -eu
WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT
mkdir -p "$WORK/patcher" "$WORK/game"
cd "$WORK/patcher"
status=0
timeout 120 wine "$1" --quiet --json result.json >/dev/null 2>"$WORK/err" || status=$?
# 0 or 1: the checks ran (1: some failed); anything else is a crash or a hang.
if [ "$status" -gt 1 ]; then
    echo "rig_inspector_cli.exe exited with $status" >&2
    cat "$WORK/err" >&2
    exit 1
fi
/usr/bin/python3 - result.json <<'PY'
import json, sys
j = json.load(open(sys.argv[1], encoding="utf-8"))
c, g = j["connection"], j["gpu"]
print("connection:", c)
print("gpu:", g, "measured.video_memory_bytes:", j["measured"]["video_memory_bytes"])
assert c is not None and c["type"] == "loopback" and c["vpn_or_tunnel"] is False, c
assert c["link_mbps"] is None and c["wifi_signal_percent"] is None, c
assert g is not None and g["name"] and g["vendor"], g
assert g["memory_bytes"] == j["measured"]["video_memory_bytes"], (g, j["measured"])
assert isinstance(j["advice"], list), j["advice"]
for item in j["advice"]:
    assert set(item) == {"code", "severity", "text", "evidence"}, item
PY
