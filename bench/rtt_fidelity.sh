#!/bin/sh
# Round-trip fidelity: the UDP echo test's reported min, avg and max against a
# reference server that holds every pong back by 0, 20 and 80 ms, and how
# often a pong that comes back at once is lost to the rule that a round trip
# of 0 ms is no round trip.
#
# usage: rtt_fidelity.sh <build dir> [runs at 0 ms] [runs at 20 and 80 ms]
#
# Runs the real UdpChecker (bench_rtt_fidelity) with its defaults, in a
# private network namespace of its own (loopback only).
set -eu
SRC=$(cd "$(dirname "$0")/.." && pwd)
. "$SRC/bench/bench_common.sh"
BUILD=${1:?usage: rtt_fidelity.sh <build dir> [runs at 0 ms] [runs at 20 and 80 ms]}
BUILD=$(cd "$BUILD" && pwd)
RUNS0=${2:-20}
RUNS=${3:-8}
enter_netns "$0" "$@"

SERVER=$(need_bin "$BUILD/tools" rig_test_server)
RTT=$(need_bin "$BUILD/bench" bench_rtt_fidelity)

WORK=$(mktemp -d)
trap 'stop_server; rm -rf "$WORK"' EXIT
echo "== round-trip fidelity (load average: $(cut -d' ' -f1-3 /proc/loadavg))"

# 1 ms is the control: it keeps every pong out of its ping's millisecond.
for delay in 0 1 20 80; do
    runs=$RUNS
    [ "$delay" = 0 ] && runs=$RUNS0
    start_server "$SERVER" "$WORK" --pong-delay "$delay"
    "$RTT" --runs "$runs" >"$WORK/rtt.$delay"
    stop_server
    f=$WORK/rtt.$delay
    echo "pong delay $delay ms, $runs runs of 10 pings:"
    grep '^run ' "$f" | sed 's/^/  /'
    printf '  reported: min %s..%s, avg %s (mean), max %s..%s ms; %s of %s pings unanswered\n' \
        "$(kv "$f" min_lo)" "$(kv "$f" min_hi)" "$(kv "$f" avg_mean)" "$(kv "$f" max_lo)" "$(kv "$f" max_hi)" \
        "$(kv "$f" pings_lost)" "$(kv "$f" pings_sent)"
    result rtt_fidelity "delay $delay ms: min / avg / max (ms)" \
        "$(kv "$f" min_lo)-$(kv "$f" min_hi) / $(kv "$f" avg_mean) / $(kv "$f" max_lo)-$(kv "$f" max_hi)" "-" "-"
done

f=$WORK/rtt.0
lost=$(kv "$f" pings_lost)
sent=$(kv "$f" pings_sent)
refused=$(kv "$f" pongs_refused)
lost1=$(kv "$WORK/rtt.1" pings_lost)
sent1=$(kv "$WORK/rtt.1" pings_sent)
result rtt_fidelity "pongs refused as 0 ms round trips (delay 0)" "$refused of $sent" "-" "-"
cat <<EOF
Why the figures are what they are: the test takes at most one pong per turn,
and a turn is a send, one look at the pong socket, then a 50 ms sleep
(m_Interval). Normally a turn's look finds the previous turn's pong. A pong is
therefore timed when the turn that first looks after
its arrival comes round, not when it arrives: the reported round trip is the
number of whole turns between ping and read, times the turn's real length
(50 ms plus the sleep's overshoot), whatever the delay within that turn. A
pong held back 0 or 20 ms is read one turn later (about 50 ms); 80 ms is read
two turns later (about 100 ms). The real delay is invisible below one turn and
can only be told apart in 50 ms steps. The average is the total over the pings
sent, not answered, so each lost ping lowers it by a tenth (40 ms with two
lost).
A pong that comes back within the very turn of its ping, before that turn's
look at the socket, is read at once: within the same millisecond tick its
round trip is 0 ms, which is refused, so that ping counts as lost, the test
fails and waits out its 5 s limit (in the next tick it shows as 1 ms, the
"min 1" runs). Here $lost of $sent pings went unanswered with no delay, and the
test refused $refused pongs it took; with the 1 ms delay, $lost1 of $sent1 were
lost, so nothing else loses pongs.
EOF
