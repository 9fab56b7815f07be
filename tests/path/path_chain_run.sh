#!/bin/sh
# One run inside a chain built by netns_chain.sh (see path_chain_test.sh):
# the server in the server's namespace, the CLI with --extended in the
# client's, then the JSON held to the imposed truth.
set -eu
dir=$PATH_TEST_WORK/run$PATH_TEST_RUN
mkdir -p "$dir/patcher" "$dir/game"
: >"$dir/server.log"
ip netns exec "$CHAIN_SERVER" "$PATH_TEST_SERVER" -a "$CHAIN_SERVER_ADDR" >"$dir/server.log" 2>&1 &
server=$!
trap 'kill $server 2>/dev/null || true' EXIT
for _ in $(seq 100); do
    grep -q listening "$dir/server.log" && break
    sleep 0.1
done
grep -q listening "$dir/server.log" || { cat "$dir/server.log"; exit 1; }
printf '[tcp]\nhost=%s\n[udp]\nhost=%s\n[extended]\nenable=1\n' "$CHAIN_SERVER_ADDR" "$CHAIN_SERVER_ADDR" \
    >"$dir/patcher/rig_inspector.ini"

cd "$dir/patcher"
status=0
if [ -n "$PATH_TEST_PREFIX" ]; then
    ip netns exec "$CHAIN_CLIENT" unshare --mount sh -c '
        . "$0"
        export WINEPREFIX=$1 WINEDEBUG=-all WINEDLLOVERRIDES=mscoree,mshtml=
        wine_private_server || exit 1
        status=0
        timeout -k 5 150 wine "$2" --extended --quiet --no-progress --json result.json </dev/null >../out.txt 2>../err.txt || status=$?
        wineserver -k 2>/dev/null || true
        exit $status' "$PATH_TEST_HERE/../windows/wine_private_server.sh" "$PATH_TEST_PREFIX" "$PATH_TEST_CLI" || status=$?
else
    ip netns exec "$CHAIN_CLIENT" timeout -k 5 150 "$PATH_TEST_CLI" --extended --quiet --no-progress --json result.json \
        </dev/null >../out.txt 2>../err.txt || status=$?
fi
if [ ! -s result.json ]; then
    echo "run $PATH_TEST_RUN: no JSON (status $status)"
    tail -n 5 ../out.txt ../err.txt
    exit 1
fi

/usr/bin/python3 - "$PATH_TEST_SCENARIO" "$PATH_TEST_RUN" "$PATH_TEST_START" "$PATH_TEST_SILENT" "$CHAIN_HOPS" <<'PY'
import json, sys
scenario, run, start, silent, hops = sys.argv[1:]
x = json.load(open("result.json"))["extended"]
p = x["path"]
want_start = None if start == "null" else int(start)
silent = [int(s) for s in silent.split()]
expected = [None if i + 1 in silent else a for i, a in enumerate(hops.split())]
got = [h["address"] for h in p["hops"]]
problems = []
if p["loss_starts_at_hop"] != want_start:
    problems.append(f"loss_starts_at_hop {p['loss_starts_at_hop']}, wanted {want_start}")
if got != expected:
    problems.append(f"hops {got}, wanted {expected}")
if not p["reached"]:
    problems.append("the server was not reached")
for h in p["hops"]:
    if h["ttl"] in silent and not h["rate_limited"]:
        problems.append(f"hop {h['ttl']} is silent but not marked")
if scenario == "ratelimited" and not p["hops"][1]["rate_limited"]:
    problems.append("hop 2 limits its answers but is not marked")
if want_start is not None and any(h["rate_limited"] and h["ttl"] == want_start for h in p["hops"]):
    problems.append("the hop where loss begins is marked as limited")
if x["duration_ms"] > 15000:
    problems.append(f"the extended step took {x['duration_ms']} ms")
table = " | ".join(f"{h['ttl']} {h['address']} {h['answered']}/{h['sent']}" + (" L" if h["rate_limited"] else "")
                   for h in p["hops"])
print(f"{scenario} run {run}: start {p['loss_starts_at_hop']} ({p['verdict']['code']}), "
      f"{x['duration_ms']} ms, echo loss up {x['udp']['loss_up_percent']} down {x['udp']['loss_down_percent']}: {table}")
for problem in problems:
    print(f"  FAIL: {problem}")
sys.exit(1 if problems else 0)
PY
