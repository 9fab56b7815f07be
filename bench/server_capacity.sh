#!/bin/sh
# Server capacity: N concurrent TCP speed tests (N = 1, 10, 100, 500) from
# many 127.0.0.x sources, then a UDP ping flood, against one rig_test_server.
# Goals: 500 concurrent tests each at least 32 KB/s both ways; at least
# 100,000 pongs/s on one core; the server's peak RSS 64 MB or less.
#
# usage: server_capacity.sh [build dir]
#
# Runs in a private network namespace (loopback only). The load comes from
# bench_load_client, one event-driven process; the analyzer's own checker
# busy-polls its download and would measure the client, not the server. The
# flood's sources each listen on their port 20000, so every pong lands.
#
# The server runs with --rate-limit 0 (the per-source pong limit would
# measure itself) and room for every test (--max-connections 1024). Its CPU
# seconds come from /proc/<pid>/stat around each load, its peak RSS (VmHWM)
# from /proc/<pid>/status at the end. The server has one thread, so its
# pongs per CPU second are its pongs per second on one core.
set -eu
SRC=$(cd "$(dirname "$0")/.." && pwd)
. "$SRC/bench/bench_common.sh"
BUILD=${1:-build/release}
COUNTS=${RIG_BENCH_CLIENTS:-1 10 100 500}
enter_netns "$0" "$@"

SERVER=$(need_bin "$BUILD/tools" rig_test_server)
LOAD=$(need_bin "$BUILD/bench" bench_load_client)

WORK=$(mktemp -d)
trap 'stop_server; rm -rf "$WORK"' EXIT

start_server "$SERVER" "$WORK" --rate-limit 0 --max-connections 1024
TICKS=$(getconf CLK_TCK)

# cpu_s: the server's user + system CPU seconds so far.
cpu_s() {
    awk -v t="$TICKS" '{ sub(/.*\) /, ""); printf "%.3f\n", ($12 + $13) / t }' "/proc/$SERVER_PID/stat"
}

# sub <a> <b> [format]
sub() {
    awk -v a="$1" -v b="$2" -v f="${3:-%.2f}" 'BEGIN { printf f "\n", a - b }'
}

echo "== server capacity (load average: $(cut -d' ' -f1-3 /proc/loadavg))"
printf '%7s  %9s  %12s  %12s  %12s  %12s  %8s  %8s\n' tests completed "up min" "up median" "down min" \
    "down median" "wall s" "cpu s"
for n in $COUNTS; do
    before=$(cpu_s)
    timeout 120 "$LOAD" tcp --clients "$n" --sources 250 --interval-ms 1 --limit-ms 60000 >"$WORK/tcp.$n"
    cpu=$(sub "$(cpu_s)" "$before")
    t() { kv "$WORK/tcp.$n" "$1"; }
    printf '%7s  %9s  %12s  %12s  %12s  %12s  %8s  %8s\n' "$n" "$(t completed)/$n" "$(t up_min_kbs)" \
        "$(t up_median_kbs)" "$(t down_min_kbs)" "$(t down_median_kbs)" \
        "$(awk -v m="$(t wall_ms)" 'BEGIN { printf "%.1f", m / 1000 }')" "$cpu"
    result server_capacity "completed tests of $n" "$(t completed)" "$n" \
        "$([ "$(t completed)" = "$n" ] && echo yes || echo no)"
    if [ "$n" = 500 ]; then
        met=$(awk -v w="$(t worst_kbs)" 'BEGIN { print (w >= 32) ? "yes" : "no" }')
        result server_capacity "slowest of 500 tests (KB/s)" "$(t worst_kbs)" ">= 32" "$met"
    else
        result server_capacity "slowest of $n tests (KB/s)" "$(t worst_kbs)" - -
    fi
    result server_capacity "median upload of $n tests (KB/s)" "$(t up_median_kbs)" - -
    result server_capacity "median download of $n tests (KB/s)" "$(t down_median_kbs)" - -
    result server_capacity "server CPU for $n tests (s)" "$cpu" - -
done

# The ping flood: 64 sources, 4 pings in flight each (the server's receive
# buffer holds about 270 small datagrams).
before=$(cpu_s)
timeout 60 "$LOAD" udp --sources 64 --window 4 --duration-ms 3000 >"$WORK/udp"
cpu=$(sub "$(cpu_s)" "$before")
u() { kv "$WORK/udp" "$1"; }
# The client's count covers the 3 s measured span; the server's CPU covers
# the warm-up too, so the per-core figure uses all pongs.
per_core=$(awk -v p="$(u pongs)" -v c="$cpu" 'BEGIN { printf "%.0f", (c > 0) ? p / c : 0 }')
share=$(awk -v c="$cpu" -v d="$(u wall_ms)" 'BEGIN { printf "%.0f", (d > 0) ? c / (d / 1000) * 100 : 0 }')
echo "udp flood: pings $(u pings), pongs $(u pongs) (bad $(u bad)); $(u pongs_per_s) pongs/s of wall time" \
    "with the server on $share % of a core; $per_core pongs per server CPU second"
# On a shared machine the wall-clock rate is whatever CPU the server was
# given; its pongs per CPU second are what one core of its own would do.
met=$(awk -v p="$per_core" 'BEGIN { print (p >= 100000) ? "yes" : "no" }')
result server_capacity "pongs per second on one core (per server CPU s)" "$per_core" ">= 100000" "$met"
result server_capacity "pongs per second of wall time" "$(u pongs_per_s)" - -
result server_capacity "server CPU share during the flood (%)" "$share" - -

rss_kb=$(sed -n 's/^VmHWM:[[:space:]]*\([0-9]*\) kB/\1/p' "/proc/$SERVER_PID/status")
rss_mb=$(awk -v k="$rss_kb" 'BEGIN { printf "%.1f", k / 1024 }')
echo "server peak RSS: $rss_mb MB, CPU in all: $(cpu_s) s"
result server_capacity "server peak RSS (MB)" "$rss_mb" "<= 64" \
    "$(awk -v m="$rss_mb" 'BEGIN { print (m <= 64) ? "yes" : "no" }')"
stop_server
