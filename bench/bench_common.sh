# Shared pieces of the benchmark scripts (sourced, not run).
#
# Every script prints human-readable lines and, for each figure, one line
#   RESULT|<benchmark>|<figure>|<value>|<goal>|<met: yes/no/->
# that run_all.sh gathers into its table.

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
