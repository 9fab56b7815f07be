#!/bin/sh
# The UDP echo path's cost: rig_test_server's pongs per CPU second of its own
# against a minimal batched echo loop (bench_echo_loop: recvmmsg/sendmmsg,
# no parsing, no limits) under the same ping flood in the same run, and the
# server with 1 and 2 threads side by side. Goal: a ratio of 0.8 or more.
#
# usage: udp_efficiency.sh [build dir]
#
# Runs in a private network namespace (loopback only). The flood comes from
# bench_load_client (64 sources on 127.0.0.x:20000, 4 pings in flight each).
# The server keeps its limits on, set high enough to pass the flood (the
# per-source and global budgets are still consulted for every ping), and its
# 1 ms hold for pongs to this machine, since the flood is local. Each
# contender runs twice, interleaved, and keeps its better run: the machine is
# shared, and the worse run measures the neighbours.
set -eu
SRC=$(cd "$(dirname "$0")/.." && pwd)
. "$SRC/bench/bench_common.sh"
BUILD=${1:-build/release}
enter_netns "$0" "$@"

SERVER=$(need_bin "$BUILD/tools" rig_test_server)
LOAD=$(need_bin "$BUILD/bench" bench_load_client)
ECHO=$(need_bin "$BUILD/bench" bench_echo_loop)
WORK=$(mktemp -d)
PID=
trap '[ -n "$PID" ] && kill "$PID" 2>/dev/null; rm -rf "$WORK"' EXIT
TICKS=$(getconf CLK_TCK)

cpu_s() {
    awk -v t="$TICKS" '{ sub(/.*\) /, ""); printf "%.3f\n", ($12 + $13) / t }' "/proc/$PID/stat"
}

# flood <name> <ready text> <command...>: starts the command, floods it for
# 3 s and prints "<pongs per CPU s> <pongs per wall s>".
flood() {
    _name=$1
    _ready=$2
    shift 2
    "$@" >"$WORK/$_name.out" 2>&1 &
    PID=$!
    _n=0
    until grep -q "$_ready" "$WORK/$_name.out" 2>/dev/null; do
        _n=$((_n + 1))
        if [ "$_n" -gt 200 ] || ! kill -0 "$PID" 2>/dev/null; then
            cat "$WORK/$_name.out" >&2
            exit 1
        fi
        sleep 0.05
    done
    _before=$(cpu_s)
    timeout 60 "$LOAD" udp --sources 64 --window 4 --duration-ms 3000 >"$WORK/load"
    _cpu=$(awk -v a="$(cpu_s)" -v b="$_before" 'BEGIN { print a - b }')
    kill -TERM "$PID"
    wait "$PID" 2>/dev/null || true
    PID=
    awk -v p="$(kv "$WORK/load" pongs)" -v c="$_cpu" -v w="$(kv "$WORK/load" pongs_per_s)" \
        'BEGIN { printf "%.0f %.0f\n", (c > 0) ? p / c : 0, w }'
}

# best <old "cpu wall"> <new "cpu wall">: the pair with more pongs per CPU second.
best() {
    awk -v a="$1" -v b="$2" 'BEGIN { split(a, x, " "); split(b, y, " "); print (y[1] + 0 > x[1] + 0) ? b : a }'
}

LIMITS="--rate-limit 1000000 --rate-burst 1000000 --pong-budget 100000000"
echo_r="0 0"
one_r="0 0"
two_r="0 0"
for round in 1 2; do
    echo_r=$(best "$echo_r" "$(flood echo 'bench_echo_loop listening' "$ECHO")")
    # shellcheck disable=SC2086
    one_r=$(best "$one_r" "$(flood one 'rig_test_server listening' "$SERVER" --threads 1 $LIMITS)")
    # shellcheck disable=SC2086
    two_r=$(best "$two_r" "$(flood two 'rig_test_server listening' "$SERVER" --threads 2 $LIMITS)")
    echo "round $round (best so far, pongs per CPU s and per wall s): echo loop $echo_r;" \
        "server, 1 thread $one_r; 2 threads $two_r"
done

field() { echo "$1" | cut -d' ' -f"$2"; }
ratio=$(awk -v s="$(field "$one_r" 1)" -v e="$(field "$echo_r" 1)" 'BEGIN { printf "%.2f", (e > 0) ? s / e : 0 }')
result udp_efficiency "echo loop: pongs per CPU second" "$(field "$echo_r" 1)" - -
result udp_efficiency "server, 1 thread: pongs per CPU second" "$(field "$one_r" 1)" - -
result udp_efficiency "server / echo loop (pongs per CPU second)" "$ratio" ">= 0.8" \
    "$(awk -v r="$ratio" 'BEGIN { print (r >= 0.8) ? "yes" : "no" }')"
result udp_efficiency "server, 2 threads: pongs per CPU second" "$(field "$two_r" 1)" - -
result udp_efficiency "echo loop: pongs per second (wall)" "$(field "$echo_r" 2)" - -
result udp_efficiency "server, 1 thread: pongs per second (wall)" "$(field "$one_r" 2)" - -
result udp_efficiency "server, 2 threads: pongs per second (wall)" "$(field "$two_r" 2)" - -
