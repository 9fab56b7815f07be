#!/bin/sh
# Footprint: peak resident memory and start-up time of rig_inspector_cli and of
# rig_inspector (Qt, offscreen), each over a full check run against the
# reference server on loopback. Goals: CLI 10 MB or less, desktop 80 MB or less.
#
# usage: footprint.sh <build dir> [runs]
#
# Definitions (all measured from outside the process by bench_proc_meter):
#   peak RSS     the process's own high-water mark (VmHWM), sampled from /proc
#                every 2 ms until it ends; the kernel's ru_maxrss over it and
#                its reaped children (the video memory probe's short-lived
#                child, on a machine with a GPU) is shown beside it
#   start-up     from just before exec until the process shows its first
#                output: for the CLI, the report header line on stdout; for the
#                desktop, the main dialog visible with its event loop turning
#                (reported by bench_desktop_harness, the desktop's own start-up
#                with a mark on stdout and an unattended "Cancel" at the end)
# The real rig_inspector runs too, for as long as the harness's run took plus
# one second, and is then killed: its peak must match the harness's.
set -eu
SRC=$(cd "$(dirname "$0")/.." && pwd)
. "$SRC/bench/bench_common.sh"
BUILD=${1:?usage: footprint.sh <build dir> [runs]}
BUILD=$(cd "$BUILD" && pwd)
RUNS=${2:-3}
enter_netns "$0" "$@"

SERVER=$(need_bin "$BUILD/tools" rig_test_server)
CLI=$(need_bin "$BUILD/RigInspectorApp" rig_inspector_cli)
DESKTOP=$(find_bin "$BUILD/RigInspectorApp" rig_inspector)
HARNESS=$(find_bin "$BUILD/bench" bench_desktop_harness)
METER=$(need_bin "$BUILD/bench" bench_proc_meter)

WORK=$(mktemp -d)
trap 'stop_server; rm -rf "$WORK"' EXIT
make_demo_root "$WORK/demo"
start_server "$SERVER" "$WORK" --pong-delay 2
echo "== footprint (load average: $(cut -d' ' -f1-3 /proc/loadavg))"

# measure <name> <first line> <limit ms> <command...>: runs it RUNS times in the
# demo root; prints one line per run and leaves the worst peak, the worst peak
# with the child, and the median start-up in $WORK/<name>.{peak,tree,startup}.
measure() {
    name=$1
    first=$2
    limit=$3
    shift 3
    i=0
    : >"$WORK/$name.peaks"
    : >"$WORK/$name.trees"
    : >"$WORK/$name.starts"
    : >"$WORK/$name.walls"
    while [ "$i" -lt "$RUNS" ]; do
        i=$((i + 1))
        m=$WORK/$name.meter.$i
        (cd "$WORK/demo/patcher" && "$METER" --limit-ms "$limit" --first-line "$first" -- "$@") >"$m"
        if [ "$(kv "$m" timed_out)" != 0 ] || [ "$(kv "$m" first_line_ms)" = "-1.0" ]; then
            echo "$name run $i: did not finish, or never showed \"$first\"" >&2
            cat "$m" >&2
            return 1
        fi
        echo "$name run $i: start-up $(kv "$m" first_line_ms) ms, peak RSS $(kv "$m" peak_rss_kb) KB" \
            "(ru_maxrss over it and its children $(kv "$m" tree_rss_kb) KB), run $(kv "$m" wall_ms) ms," \
            "CPU $(kv "$m" user_ms) + $(kv "$m" sys_ms) ms"
        kv "$m" peak_rss_kb >>"$WORK/$name.peaks"
        kv "$m" tree_rss_kb >>"$WORK/$name.trees"
        kv "$m" first_line_ms >>"$WORK/$name.starts"
        kv "$m" wall_ms >>"$WORK/$name.walls"
    done
    sort -n "$WORK/$name.peaks" | tail -n 1 >"$WORK/$name.peak"
    sort -n "$WORK/$name.trees" | tail -n 1 >"$WORK/$name.tree"
    sort -n "$WORK/$name.starts" | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }' >"$WORK/$name.startup"
    sort -n "$WORK/$name.walls" | tail -n 1 >"$WORK/$name.wall"
}

# verdict <value MB> <goal MB>
verdict() {
    awk -v v="$1" -v g="$2" 'BEGIN { print (v <= g) ? "yes" : "no" }'
}
mb() {
    awk -v kb="$(cat "$1")" 'BEGIN { printf "%.1f", kb / 1024 }'
}

measure cli "Rig Inspector v1.1" 60000 "$CLI" --no-progress --no-color
cli_mb=$(mb "$WORK/cli.peak")
echo "rig_inspector_cli: peak RSS $cli_mb MB (ru_maxrss with children $(mb "$WORK/cli.tree") MB)," \
    "start-up $(cat "$WORK/cli.startup") ms to the report header"
result footprint "rig_inspector_cli peak RSS (MB)" "$cli_mb" "<= 10" "$(verdict "$cli_mb" 10)"
result footprint "rig_inspector_cli start-up (ms)" "$(cat "$WORK/cli.startup")" "-" "-"

if [ -z "$HARNESS" ] || [ -z "$DESKTOP" ]; then
    echo "footprint: the desktop was not built (RIG_BUILD_GUI off?): skipped"
    result footprint "rig_inspector peak RSS (MB)" "not built" "<= 80" "-"
    exit 0
fi
export QT_QPA_PLATFORM=offscreen
# Qt wants a private runtime folder; the benchmark's own keeps its warning away.
export XDG_RUNTIME_DIR=$WORK/xdg
mkdir -m 700 "$XDG_RUNTIME_DIR"
measure desktop "main dialog shown" 60000 "$HARNESS"
desk_mb=$(mb "$WORK/desktop.peak")
echo "rig_inspector (harness, offscreen): peak RSS $desk_mb MB (ru_maxrss with children $(mb "$WORK/desktop.tree") MB)," \
    "start-up $(cat "$WORK/desktop.startup") ms to the main dialog"

# The real binary for the same time, then killed: it cannot leave by itself.
limit=$(awk -v w="$(cat "$WORK/desktop.wall")" 'BEGIN { printf "%d", w + 1000 }')
(cd "$WORK/demo/patcher" && "$METER" --limit-ms "$limit" -- "$DESKTOP") >"$WORK/real.meter"
real_kb=$(kv "$WORK/real.meter" peak_rss_kb)
echo "rig_inspector itself, killed after $limit ms: peak RSS $(awk -v kb="$real_kb" 'BEGIN { printf "%.1f", kb / 1024 }') MB"
if [ "$real_kb" -gt "$(cat "$WORK/desktop.peak")" ]; then
    echo "$real_kb" >"$WORK/desktop.peak"
    desk_mb=$(mb "$WORK/desktop.peak")
fi
result footprint "rig_inspector peak RSS (MB)" "$desk_mb" "<= 80" "$(verdict "$desk_mb" 80)"
result footprint "rig_inspector start-up (ms)" "$(cat "$WORK/desktop.startup")" "-" "-"
