#!/bin/sh
# Extended-step accuracy: the extended network-quality step against imposed
# truth, each figure beside what was imposed.
#   - pong hold 20 ms (--pong-delay 20): idle latency reads 19..26 ms;
#   - every 10th echo dropped (--drop-every 10): 7..13 % loss on the way
#     back, about 0 % on the way out;
#   - lo shaped to 2 mbit with a deep queue (tbf, 500 ms), pong hold 20 ms:
#     latency under load at least 3x idle;
#   - lo shaped to 20 mbit: the download within 10 % of iperf3's (-R,
#     receiver figure) on the same link in the same run;
#   - unshaped loopback: throughput at least 10x the TCP speed test's
#     pacing ceiling (bench_speed_probe ceiling).
#
# usage: extended_accuracy.sh [build dir]
# Runs in a private network namespace (loopback only), lo at MTU 1500.
set -eu
SRC=$(cd "$(dirname "$0")/.." && pwd)
. "$SRC/bench/bench_common.sh"
BUILD=${1:-build/release}
enter_netns "$0" "$@"

SERVER=$(need_bin "$BUILD/tools" rig_test_server)
PROBE=$(need_bin "$BUILD/bench" bench_extended_probe)
SPEED=$(need_bin "$BUILD/bench" bench_speed_probe)
need_cmd iperf3 jq

prepare_shaped_lo

# run <name> [server args...]: one extended step against a fresh server;
# its figures in $WORK/<name>.
run() {
    name=$1
    shift
    start_server "$SERVER" "$WORK" --rate-limit 0 "$@"
    timeout 30 "$PROBE" 127.0.0.1 9997 >"$WORK/$name" || true
    stop_server
    printf '%-10s %s\n' "$name:" "$(tr '\n' ' ' <"$WORK/$name")"
}
between() {
    awk -v v="$1" -v lo="$2" -v hi="$3" 'BEGIN { print (v != "" && v + 0 >= lo && v + 0 <= hi) ? "yes" : "no" }'
}

echo "== extended-step accuracy (load average: $(cut -d' ' -f1-3 /proc/loadavg))"
CEILING=$("$SPEED" ceiling | sed -n 's/^ceiling_kbs=//p')

tc qdisc del dev lo root 2>/dev/null || true
run hold20 --pong-delay 20
v=$(kv "$WORK/hold20" idle_p50)
result extended_accuracy "idle p50 at 20 ms hold (ms)" "$v" "19..26" "$(between "$v" 19 26)"
result extended_accuracy "extended step time at 20 ms hold (ms)" "$(kv "$WORK/hold20" duration_ms)" "<= 12000" \
    "$(between "$(kv "$WORK/hold20" duration_ms)" 0 12000)"

run drop10 --drop-every 10
v=$(kv "$WORK/drop10" loss_down)
result extended_accuracy "downstream loss, every 10th echo dropped (%)" "$v" "7..13" "$(between "$v" 7 13)"
v=$(kv "$WORK/drop10" loss_up)
result extended_accuracy "upstream loss, every 10th echo dropped (%)" "$v" "<= 1" "$(between "$v" 0 1)"

v=$(kv "$WORK/drop10" download_kbs)
result extended_accuracy "speed test's pacing ceiling (KB/s)" "$CEILING" - -
goal=$(awk -v c="$CEILING" 'BEGIN { print c * 10 }')
result extended_accuracy "unshaped download (KB/s)" "$v" ">= $goal" "$(between "$v" "$goal" 1e12)"
v=$(kv "$WORK/drop10" upload_kbs)
result extended_accuracy "unshaped upload (KB/s)" "$v" ">= $goal" "$(between "$v" "$goal" 1e12)"

# 2 mbit = 250,000 bytes/s; 500 ms of it queued.
tc qdisc replace dev lo root tbf rate 2mbit burst 4500 limit 125000
run bloat --pong-delay 20
idle=$(kv "$WORK/bloat" idle_p50)
loaded=$(kv "$WORK/bloat" loaded_p50)
ratio=$(awk -v i="$idle" -v l="$loaded" 'BEGIN { if (i > 0) printf "%.1f", l / i; else print "" }')
result extended_accuracy "2 mbit deep queue: idle p50 (ms)" "$idle" - -
result extended_accuracy "2 mbit deep queue: loaded p50 (ms)" "$loaded" - -
result extended_accuracy "2 mbit deep queue: loaded / idle" "$ratio" ">= 3" "$(between "$ratio" 3 1e9)"
result extended_accuracy "2 mbit deep queue: grade" "$(kv "$WORK/bloat" grade)" - -

# 20 mbit, a queue of about 50 ms.
tc qdisc replace dev lo root tbf rate 20mbit burst 4500 limit 125000
run shaped20
start_iperf
idown=$(iperf3_kbs -R)
iup=$(iperf3_kbs)
tc qdisc del dev lo root
down=$(kv "$WORK/shaped20" download_kbs)
up=$(kv "$WORK/shaped20" upload_kbs)
lo=$(awk -v r="$idown" 'BEGIN { print r * 0.9 }')
hi=$(awk -v r="$idown" 'BEGIN { print r * 1.1 }')
result extended_accuracy "20 mbit: download (KB/s)" "$down" "$lo..$hi" "$(between "$down" "$lo" "$hi")"
result extended_accuracy "20 mbit: iperf3 download (KB/s)" "$idown" - -
result extended_accuracy "20 mbit: upload (KB/s)" "$up" - -
result extended_accuracy "20 mbit: iperf3 upload (KB/s)" "$iup" - -
