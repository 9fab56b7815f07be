#!/usr/bin/env bash
# The reference server at the scale of a patch night: 10,000 concurrent
# speed tests from 2,000 loopback source addresses (5 each, under the
# default per-source cap of 8) against one rig_test_server with its default
# threads. Goals: every test completes, the slowest at 32 KB/s or more; the
# server's memory per connection is stated.
#
# usage: server_scale.sh [build dir]   (RIG_BENCH_SCALE sets the test count)
#
# Runs in a private network namespace (loopback only). The load comes from
# bench_load_client, event-driven, in RIG_BENCH_PROCS processes (2) sharing
# the machine's cores with the server; each test keeps the analyzer's pace
# and byte stream. Memory per connection is the server's peak resident size
# (VmHWM) less its size before the load, over the connections; the kernel's
# socket buffers, sampled from /proc/net/sockstat, are stated beside it for
# both ends together. The metrics endpoint is scraped after the run: its
# counters must match the load.
set -eu
SRC=$(cd "$(dirname "$0")/.." && pwd)
. "$SRC/bench/bench_common.sh"
BUILD=${1:-build/release}
N=${RIG_BENCH_SCALE:-10000}
enter_netns "$0" "$@"

SERVER=$(need_bin "$BUILD/tools" rig_test_server)
LOAD=$(need_bin "$BUILD/bench" bench_load_client)
WORK=$(mktemp -d)
trap 'stop_server; rm -rf "$WORK"' EXIT

# Both ends hold N descriptors; the server raises its own soft limit, the
# shell's hard limit is what it may raise it to.
ulimit -n "$(ulimit -Hn)" 2>/dev/null || true
start_server "$SERVER" "$WORK" --max-connections $((N + 256)) --metrics 127.0.0.1:9100 --log-format json
TICKS=$(getconf CLK_TCK)
rss_kb() { sed -n "s/^$1:[[:space:]]*\([0-9]*\) kB/\1/p" "/proc/$SERVER_PID/status"; }
cpu_s() { awk -v t="$TICKS" '{ sub(/.*\) /, ""); printf "%.2f\n", ($12 + $13) / t }' "/proc/$SERVER_PID/stat"; }
base=$(rss_kb VmRSS)

echo "== $N concurrent speed tests (load average: $(cut -d' ' -f1-3 /proc/loadavg), descriptors: $(ulimit -n))"
# The kernel's TCP memory in pages, the highest of samples taken every 0.2 s.
( peak=0; while :; do
    m=$(awk '/^TCP:/ { for (i = 1; i < NF; i++) if ($i == "mem") print $(i + 1) }' /proc/net/sockstat)
    [ "${m:-0}" -gt "$peak" ] && peak=$m && echo "$peak" >"$WORK/tcp_mem"
    sleep 0.2
  done ) &
SAMPLER=$!
timeout 300 "$LOAD" tcp --clients "$N" --sources 2000 --interval-ms 1 --limit-ms 240000 --procs "${RIG_BENCH_PROCS:-2}" >"$WORK/tcp"
kill "$SAMPLER" 2>/dev/null || true
t() { kv "$WORK/tcp" "$1"; }
kernel_mb=$(awk -v p="$(cat "$WORK/tcp_mem" 2>/dev/null || echo 0)" -v s="$(getconf PAGESIZE)" \
    'BEGIN { printf "%.0f", p * s / 1048576 }')
peak=$(rss_kb VmHWM)
per_conn=$(awk -v p="$peak" -v b="$base" -v n="$N" 'BEGIN { printf "%.1f", (p - b) * 1024 / n / 1024 }')
echo "completed $(t completed)/$N (failed $(t failed)); upload min $(t up_min_kbs) median $(t up_median_kbs) KB/s;" \
    "download min $(t down_min_kbs) median $(t down_median_kbs) KB/s; $(t wall_ms) ms; server CPU $(cpu_s) s"
echo "at most $(t peak_concurrent) tests at once; $(t within_limit) of $N with both phases inside the analyzer's 10 s"
echo "server RSS before $base kB, peak $peak kB: $per_conn KB per connection; kernel TCP memory at peak $kernel_mb MB (both ends)"
echo "how the tests ended (server log):" $(grep -o '"end":"[a-z-]*"' "$WORK/server.out" | sort | uniq -c | tr -s ' ')
# bash's own /dev/tcp: no HTTP client the set-up does not install.
scrape() {
    exec 3<>/dev/tcp/127.0.0.1/9100 && printf 'GET /metrics HTTP/1.1\r\nHost: x\r\n\r\n' >&3 && timeout 5 cat <&3
    exec 3<&-
}
scrape >"$WORK/metrics" 2>/dev/null || true
grep -E '^rig_tcp_(tests_completed_total|connections_refused_total|connections_evicted_total|test_duration_seconds_count)' \
    "$WORK/metrics" || true

result server_scale "completed tests of $N" "$(t completed)" "$N" "$([ "$(t completed)" = "$N" ] && echo yes || echo no)"
result server_scale "slowest of $N tests (KB/s)" "$(t worst_kbs)" ">= 32" \
    "$(awk -v w="$(t worst_kbs)" 'BEGIN { print (w >= 32) ? "yes" : "no" }')"
result server_scale "tests running at once (peak)" "$(t peak_concurrent)" - -
result server_scale "tests with both phases inside 10 s" "$(t within_limit)" - -
result server_scale "median upload of $N tests (KB/s)" "$(t up_median_kbs)" - -
result server_scale "median download of $N tests (KB/s)" "$(t down_median_kbs)" - -
result server_scale "server CPU for $N tests (s)" "$(cpu_s)" - -
result server_scale "server memory per connection (KB, peak RSS)" "$per_conn" - -
result server_scale "kernel TCP memory at peak, both ends (MB)" "$kernel_mb" - -
result server_scale "tests completed per the metrics endpoint" \
    "$(sed -n 's/^rig_tcp_tests_completed_total //p' "$WORK/metrics")" "$N" \
    "$([ "$(sed -n 's/^rig_tcp_tests_completed_total //p' "$WORK/metrics")" = "$N" ] && echo yes || echo no)"
stop_server
