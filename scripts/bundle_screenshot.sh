#!/bin/sh
# Makes docs/bundle.png: a history of real runs against the reference server
# on loopback (in a network namespace of its own), each with the server
# answering later or dropping pings and lo's rate capped by tbf, then a run
# with the extended step that writes the bundle, which headless Chromium
# photographs offline.
#
# usage: scripts/bundle_screenshot.sh <build dir> [out.png]
set -eu
SRC=$(cd "$(dirname "$0")/.." && pwd)
. "$SRC/bench/bench_common.sh"
BUILD=$(cd "${1:?usage: bundle_screenshot.sh <build dir> [out.png]}" && pwd)
OUT=$(readlink -f "${2:-$SRC/docs/bundle.png}")
enter_netns "$0" "$@"

SERVER=$(need_bin "$BUILD/tools" rig_test_server)
CLI=$(need_bin "$BUILD/RigInspectorApp" rig_inspector_cli)
WORK=$(mktemp -d)
trap 'stop_server; rm -rf "$WORK"' EXIT
make_demo_root "$WORK/demo"
export RIG_INSPECTOR_STATE_DIR="$WORK/state" HOME="$WORK"
ip link set lo mtu 1500 gso_max_segs 1 up

cd "$WORK/demo/patcher"
# Each earlier run: the server's pong delay (ms), every how many pings it
# drops one (0: none), and lo's rate: an evening that gets worse, then better.
for shape in "12 0 24mbit" "15 0 20mbit" "13 0 22mbit" "24 0 12mbit" "41 5 6mbit" "58 3 4mbit" "33 0 9mbit" \
    "16 0 18mbit"; do
    set -- $shape
    if [ "$2" = 0 ]; then drop=; else drop="--drop-every $2"; fi
    tc qdisc replace dev lo root tbf rate "$3" burst 64kb latency 400ms
    # shellcheck disable=SC2086
    start_server "$SERVER" "$WORK" --pong-delay "$1" $drop
    timeout -k 5 120 "$CLI" --quiet >/dev/null 2>&1 || true
    stop_server
done
tc qdisc replace dev lo root tbf rate 20mbit burst 64kb latency 400ms
start_server "$SERVER" "$WORK" --pong-delay 14
timeout -k 5 120 "$CLI" --quiet --extended --bundle "$WORK/bundle.html" >/dev/null 2>&1 || true
stop_server
tc qdisc del dev lo root

timeout -k 5 60 chromium --headless=new --no-sandbox --disable-gpu --disable-background-networking \
    --disable-component-update --disable-sync --no-first-run --user-data-dir="$WORK/profile" --hide-scrollbars \
    --window-size=1100,5200 --screenshot="$OUT" "file://$WORK/bundle.html" >/dev/null 2>&1
cp "$WORK/bundle.html" "${OUT%.png}.html"
echo "bundle_screenshot: $OUT ($(wc -c <"$WORK/bundle.html") bytes of bundle)"
