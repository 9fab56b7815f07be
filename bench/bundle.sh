#!/bin/sh
# Bundle size and speed: one real run against the reference server on
# loopback (with the extended step) gives the results document and the
# report; bench_bundle then keeps 100 runs like it and times what a run with
# --bundle adds (its history line, reading the history back, rendering and
# writing the bundle). Goals: under 300 KB, under 50 ms.
#
# usage: bundle.sh <build dir> [repeats]
set -eu
SRC=$(cd "$(dirname "$0")/.." && pwd)
. "$SRC/bench/bench_common.sh"
BUILD=${1:?usage: bundle.sh <build dir> [repeats]}
BUILD=$(cd "$BUILD" && pwd)
REPEATS=${2:-20}
enter_netns "$0" "$@"

SERVER=$(need_bin "$BUILD/tools" rig_test_server)
CLI=$(need_bin "$BUILD/RigInspectorApp" rig_inspector_cli)
BENCH=$(need_bin "$BUILD/bench" bench_bundle)

WORK=$(mktemp -d)
trap 'stop_server; rm -rf "$WORK"' EXIT
make_demo_root "$WORK/demo"
start_server "$SERVER" "$WORK" --pong-delay 2
(cd "$WORK/demo/patcher" && RIG_INSPECTOR_STATE_DIR="$WORK/run-state" timeout -k 5 120 "$CLI" --quiet --extended \
    --report "$WORK/report.html" --json "$WORK/results.json" >/dev/null 2>&1) || true
stop_server
[ -s "$WORK/results.json" ] || { echo "bundle.sh: the run wrote no results" >&2; exit 1; }
"$BENCH" "$WORK/results.json" "$WORK/report.html" "$WORK" "$REPEATS"
