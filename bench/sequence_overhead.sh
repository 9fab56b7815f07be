#!/bin/sh
# Sequence overhead: the wall time of a full headless run against the
# reference server on loopback, beside the floor that the sequence's own
# pacing sets, as the ratio run / floor. Goal: 1.05 or less.
#
# usage: sequence_overhead.sh <build dir> [runs]
#
# Runs in a private network namespace of its own (loopback only). The floor is
# worked out from this machine's real waits, measured by bench_pacing_probe
# (medians: what a wait takes when no other program takes the core meanwhile):
#   2 CPU measurements   (each busy-waits a fresh tick plus more than 500 ms)
#   4 pauses between steps of 100 ms, each ending at the first 10 ms poll
#     that finds it over: ceil(100 / real 10 ms sleep) x real 10 ms sleep
#   2 TCP phases x 512 pauses of m_Interval (1 ms) at the real sleep length
#   11 UDP turns of 50 ms (the tenth pong is read in the turn after the
#     tenth ping; the loop ends at the top of the next turn)
#   the probes of the 31 local UDP ports
# Everything else (start-up, the video probe, report rendering, the data on
# the wire, leaving) is overhead.
set -eu
SRC=$(cd "$(dirname "$0")/.." && pwd)
. "$SRC/bench/bench_common.sh"
BUILD=${1:?usage: sequence_overhead.sh <build dir> [runs]}
BUILD=$(cd "$BUILD" && pwd)
RUNS=${2:-5}
enter_netns "$0" "$@"

SERVER=$(need_bin "$BUILD/tools" rig_test_server)
CLI=$(need_bin "$BUILD/RigInspectorApp" rig_inspector_cli)
PROBE=$(need_bin "$BUILD/bench" bench_pacing_probe)
METER=$(need_bin "$BUILD/bench" bench_proc_meter)

WORK=$(mktemp -d)
trap 'stop_server; rm -rf "$WORK"' EXIT
make_demo_root "$WORK/demo"
# A 2 ms pong delay keeps every pong out of its ping's own millisecond (a
# 0 ms round trip is refused and would cost the run a 5 s time-out).
start_server "$SERVER" "$WORK" --pong-delay 2

echo "== sequence overhead (load average: $(cut -d' ' -f1-3 /proc/loadavg))"
"$PROBE" >"$WORK/probe"
p() { kv "$WORK/probe" "$1"; }

# Full runs: the median is the figure, the spread is printed.
i=0
: >"$WORK/walls"
while [ "$i" -lt "$RUNS" ]; do
    i=$((i + 1))
    (cd "$WORK/demo/patcher" &&
        "$METER" --limit-ms 60000 --first-line "Rig Inspector" --line-times "$WORK/lines.$i" \
            -- "$CLI" --no-progress --no-color --json "$WORK/run.$i.json") >"$WORK/meter.$i"
    if [ "$(kv "$WORK/meter.$i" timed_out)" != 0 ]; then
        echo "run $i: did not finish within 60 s" >&2
        exit 1
    fi
    # A run that lost a UDP ping waits out the echo test's 5 s limit: that is
    # a network event, not the sequence's overhead, so it is shown and kept
    # out of the figure.
    if ! grep -q '"lost": 0' "$WORK/run.$i.json"; then
        echo "run $i: $(kv "$WORK/meter.$i" wall_ms) ms, a UDP ping was lost (left out)"
        continue
    fi
    kv "$WORK/meter.$i" wall_ms >>"$WORK/walls"
    echo "run $i: $(kv "$WORK/meter.$i" wall_ms) ms (first report line after $(kv "$WORK/meter.$i" first_line_ms) ms)"
done
[ -s "$WORK/walls" ] || { echo "sequence_overhead: no run without UDP loss" >&2; exit 1; }

median=$(sort -n "$WORK/walls" | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }')
spread=$(sort -n "$WORK/walls" | awk 'NR == 1 { lo = $1 } { hi = $1 } END { printf "%s..%s", lo, hi }')

awk -v cpu="$(p cpu_ms_median)" -v s1="$(p sleep1_ms_median)" -v s10="$(p sleep10_ms_median)" -v s50="$(p sleep50_ms_median)" \
    -v ports="$(p ports_ms_median)" -v video="$(p video_ms_median)" -v run="$median" -v spread="$spread" '
function ceil(x) { return (x == int(x)) ? x : int(x) + 1 }
BEGIN {
    cpuT = 2 * cpu
    gap = ceil(100 / s10) * s10
    gapsT = 4 * gap
    tcpT = 2 * 512 * s1
    udpT = 11 * s50
    floor = cpuT + gapsT + tcpT + udpT + ports
    printf "floor, from the pacing and this machine'"'"'s real waits:\n"
    printf "  CPU clock        2 x %7.1f ms (nominal at least 503)      = %7.1f ms\n", cpu, cpuT
    printf "  step pauses      4 x %7.1f ms (100 ms, polled every %.2f ms) = %7.1f ms\n", gap, s10, gapsT
    printf "  TCP phases   2 x 512 x %6.3f ms (a 1 ms sleep really takes this) = %7.1f ms\n", s1, tcpT
    printf "  UDP turns       11 x %7.2f ms (a 50 ms sleep really takes this)  = %7.1f ms\n", s50, udpT
    printf "  port probes      31 ports                                    = %7.1f ms\n", ports
    printf "  floor                                                        = %7.1f ms\n", floor
    printf "run (median of the runs, %s ms): %.1f ms; overhead %.1f ms\n", spread, run, run - floor
    printf "  of which the video memory probe alone takes %.1f ms here\n", video
    ratio = run / floor
    printf "ratio run / floor: %.3f (goal 1.05 or less)\n", ratio
    printf "RESULT|sequence_overhead|full headless run (ms)|%.0f|-|-\n", run
    printf "RESULT|sequence_overhead|pacing floor (ms)|%.0f|-|-\n", floor
    printf "RESULT|sequence_overhead|run / floor|%.3f|<= 1.05|%s\n", ratio, (ratio <= 1.05) ? "yes" : "no"
}'

# Where the time goes in the last run: each report line with the time it was
# read, relative to the previous one.
last=$(ls "$WORK"/lines.* | sort -t. -k2 -n | tail -n 1)
echo "timeline of the last run (ms since start, + since the previous line):"
awk '{ t = $1; $1 = ""; printf "  %8.1f %+8.1f %s\n", t, t - prev, substr($0, 2, 70); prev = t }' "$last"
