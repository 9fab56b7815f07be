#!/bin/sh
# Speed-test accuracy: the analyzer's TCP test on a loopback link shaped with
# tc tbf, its upload and download beside the shaped rate and beside iperf3's
# receiver figure on the same link. Goal: within +/-10 % of the shaped rate in
# both directions, for rates under the method's pacing ceiling.
#
# usage: speed_accuracy.sh [build dir] [runs per rate]
#
# Runs in a private network namespace (loopback only), with lo at MTU 1500.
# Both directions share lo's one qdisc, so the ACKs queue behind the data, and
# every figure (ours and iperf3's) carries the headers: a perfect measurement
# of the payload reads about 6 % under the shaped rate.
#
# The pacing ceiling: each phase moves 1024 bytes per (m_Interval pause +
# send time); measured on unshaped loopback with the real zul::Sleep(1).
set -eu
SRC=$(cd "$(dirname "$0")/.." && pwd)
. "$SRC/bench/bench_common.sh"
BUILD=${1:-build/release}
RUNS=${2:-3}
RATES=${RIG_BENCH_RATES:-64 256 768}
enter_netns "$0" "$@"

SERVER=$(need_bin "$BUILD/tools" rig_test_server)
PROBE=$(need_bin "$BUILD/bench" bench_speed_probe)
need_cmd iperf3 jq

prepare_shaped_lo

echo "== speed-test accuracy (load average: $(cut -d' ' -f1-3 /proc/loadavg))"
# The real sleep varies with the machine's load: the middle of three.
for i in 1 2 3; do
    "$PROBE" ceiling >"$WORK/ceiling.$i"
    printf '%s %s\n' "$(kv "$WORK/ceiling.$i" ceiling_kbs)" "$i" >>"$WORK/ceilings"
done
mid=$(sort -n "$WORK/ceilings" | sed -n 2p | cut -d' ' -f2)
CEILING=$(kv "$WORK/ceiling.$mid" ceiling_kbs)
printf 'pacing ceiling: 1024 B / (sleep %s ms + send %s ms) = %s KB/s (middle of %s)\n' \
    "$(kv "$WORK/ceiling.$mid" sleep_ms)" "$(kv "$WORK/ceiling.$mid" send_ms)" "$CEILING" \
    "$(cut -d' ' -f1 "$WORK/ceilings" | tr '\n' ' ' | sed 's/ $//')"
result speed_accuracy "pacing ceiling (KB/s)" "$CEILING" - -

start_server "$SERVER" "$WORK" --rate-limit 0
start_iperf

# median <file>: the median line of a file of numbers.
median() {
    sort -n "$1" | awk '{ v[NR] = $1 } END { if (NR) print v[int((NR + 1) / 2)]; else print 0 }'
}

# within <measured> <rate>: yes when measured is within 10 % of rate.
within() {
    awk -v m="$1" -v r="$2" 'BEGIN { d = (m - r) / r; print (d >= -0.10 && d <= 0.10) ? "yes" : "no" }'
}

pct() {
    awk -v m="$1" -v r="$2" 'BEGIN { printf "%+.1f%%", (m - r) / r * 100 }'
}

printf '%8s  %-4s  %10s  %8s  %10s  %8s  %s\n' "shaped" "dir" "ours(med)" "vs rate" "iperf3" "vs rate" "runs"
for rate in $RATES; do
    # Burst: a few packets; queue: 200 ms of the rate plus room for a burst,
    # enough that TCP is not cut back by local drops every few packets.
    bytes=$((rate * 1024))
    tc qdisc replace dev lo root tbf rate "${bytes}bps" burst 4500 limit $((bytes / 5 + 9000))
    : >"$WORK/up"
    : >"$WORK/down"
    up_runs=
    down_runs=
    i=0
    while [ "$i" -lt "$RUNS" ]; do
        i=$((i + 1))
        timeout 40 "$PROBE" run 127.0.0.1 9999 >"$WORK/run" || true
        if [ "$(kv "$WORK/run" connected)" != 1 ]; then
            echo "run $i at $rate KB/s: not connected" >&2
            continue
        fi
        up=$(kv "$WORK/run" up_kbs)
        down=$(kv "$WORK/run" down_kbs)
        [ "$(kv "$WORK/run" completed)" = 1 ] || up_runs="$up_runs(incomplete)"
        echo "$up" >>"$WORK/up"
        echo "$down" >>"$WORK/down"
        up_runs="$up_runs $up"
        down_runs="$down_runs $down"
    done
    up=$(median "$WORK/up")
    down=$(median "$WORK/down")
    iup=$(iperf3_kbs)
    idown=$(iperf3_kbs -R)
    printf '%8s  %-4s  %10s  %8s  %10s  %8s  %s\n' "$rate" up "$up" "$(pct "$up" "$rate")" "$iup" \
        "$(pct "$iup" "$rate")" "$up_runs"
    printf '%8s  %-4s  %10s  %8s  %10s  %8s  %s\n' "$rate" down "$down" "$(pct "$down" "$rate")" "$idown" \
        "$(pct "$idown" "$rate")" "$down_runs"
    tc -s qdisc show dev lo | sed -n 's/^ *Sent/    tbf: sent/p'

    under=$(awk -v r="$rate" -v c="$CEILING" 'BEGIN { print (r < c) ? 1 : 0 }')
    lo=$(awk -v r="$rate" 'BEGIN { print r * 0.9 }')
    hi=$(awk -v r="$rate" 'BEGIN { print r * 1.1 }')
    for dir in up down; do
        if [ "$dir" = up ]; then v=$up; iv=$iup; name=upload; else v=$down; iv=$idown; name=download; fi
        met=-
        [ "$under" = 1 ] && met=$(within "$v" "$rate")
        result speed_accuracy "$name at $rate KB/s (KB/s)" "$v" "$lo..$hi" "$met"
        result speed_accuracy "iperf3 $name at $rate KB/s (KB/s)" "$iv" - -
    done
done
