# Shared pieces of the benchmark scripts (sourced, not run).
#
# Every script prints human-readable lines and, for each figure, one line
#   RESULT|<benchmark>|<figure>|<value>|<goal>|<met: yes/no/->
# that run_all.sh gathers into its table.

# The runs measured here keep their history apart from the user's own.
export RIG_INSPECTOR_STATE_DIR="${RIG_INSPECTOR_STATE_DIR:-${TMPDIR:-/tmp}/rig-bench-state}"

# result <benchmark> <figure> <value> <goal> <met>
result() {
    printf 'RESULT|%s|%s|%s|%s|%s\n' "$1" "$2" "$3" "$4" "$5"
}

# Runs the calling script again inside a private network namespace with only
# loopback up, unless it already is in one: the server's fixed ports (9998,
# 9999, 20000) then never meet anything else on the machine.
enter_netns() {
    if [ "${RIG_BENCH_NETNS:-}" = 1 ]; then
        return 0
    fi
    export RIG_BENCH_NETNS=1
    exec unshare --net sh -c 'ip link set lo up && exec "$@"' bench_netns "$@"
}

# kv <file> <key>: the value of key=value in file (empty when missing).
kv() {
    sed -n "s/^$2=//p" "$1" | head -n 1
}

# start_server <server binary> <log dir> [server args...]: starts
# rig_test_server on loopback and waits (at most 10 s) for its ready line.
# Sets SERVER_PID.
start_server() {
    _bin=$1
    _dir=$2
    shift 2
    "$_bin" --address 127.0.0.1 "$@" >"$_dir/server.out" 2>"$_dir/server.err" &
    SERVER_PID=$!
    _n=0
    while ! grep -q 'rig_test_server listening' "$_dir/server.out" 2>/dev/null; do
        _n=$((_n + 1))
        if [ "$_n" -gt 200 ] || ! kill -0 "$SERVER_PID" 2>/dev/null; then
            echo "the reference server did not start:" >&2
            cat "$_dir/server.err" >&2
            return 1
        fi
        sleep 0.05
    done
}

stop_server() {
    if [ -n "${SERVER_PID:-}" ]; then
        kill -TERM "$SERVER_PID" 2>/dev/null || true
        wait "$SERVER_PID" 2>/dev/null || true
        SERVER_PID=
    fi
}

# make_demo_root <dir>: the folders the analyzer expects (patcher/ beside
# game/), with the demo settings that point at the server on loopback.
make_demo_root() {
    mkdir -p "$1/patcher" "$1/game"
    cp "$SRC/scripts/demo/rig_inspector.ini" "$1/patcher/"
}

# find_bin <build dir> <name>
find_bin() {
    find "$1" -type f -name "$2" -perm -u+x 2>/dev/null | head -n 1
}

# need_bin <build dir> <name>: like find_bin, but a program the benchmark
# cannot do without; missing, it says so and fails (ending the script
# under set -e).
need_bin() {
    _p=$(find_bin "$1" "$2")
    [ -n "$_p" ] || { echo "$(basename "$0" .sh): build $2 first" >&2; return 1; }
    echo "$_p"
}

# need_cmd <command>...: ends the script when a tool is not installed.
need_cmd() {
    for _c; do
        command -v "$_c" >/dev/null || { echo "$(basename "$0" .sh): $_c is not installed" >&2; exit 1; }
    done
}

# Shaped-link benchmarks (tc tbf on lo, iperf3 beside our figure). Sets
# WORK, a clean-up of it, the reference server and iperf3 at exit, and one
# MSS per packet: with TSO, lo hands tbf 64 KB packets that no sensible
# queue limit holds, and every one of them is dropped.
prepare_shaped_lo() {
    WORK=$(mktemp -d)
    IPERF_PID=
    trap cleanup_shaped_lo EXIT
    ip link set lo mtu 1500 gso_max_segs 1 up
}

cleanup_shaped_lo() {
    stop_server
    [ -n "$IPERF_PID" ] && kill "$IPERF_PID" 2>/dev/null
    rm -rf "$WORK"
}

start_iperf() {
    iperf3 -s -B 127.0.0.1 -p 5201 >"$WORK/iperf.log" 2>&1 &
    IPERF_PID=$!
}

# iperf3_kbs <extra args>: the receiver's figure in KB/s (1024 bytes), 0
# when iperf3 never answered.
iperf3_kbs() {
    _n=0
    while ! timeout 20 iperf3 -c 127.0.0.1 -p 5201 -t 5 -J "$@" >"$WORK/iperf.json" 2>/dev/null; do
        # The server may still be starting: bounded retries.
        _n=$((_n + 1))
        [ "$_n" -lt 5 ] || { echo 0; return; }
        sleep 0.2
    done
    jq '.end.sum_received.bits_per_second / 8 / 1024 * 100 | round / 100' "$WORK/iperf.json"
}
