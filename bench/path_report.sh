#!/bin/sh
# Path report against imposed truth: in a chain of namespaces (client, three
# routers, server; 198.18.0.0/15) with one fault each, the extended step's
# verdict beside mtr's per-hop loss (mtr -n -r -c 10) from the same chain in
# the same run, mtr after our step so the two never share the routers' ICMP
# budget.
#
# usage: path_report.sh [build dir]     (needs root, nftables and mtr)
set -eu
SRC=$(cd "$(dirname "$0")/.." && pwd)
. "$SRC/bench/bench_common.sh"
BUILD=$(cd "${1:-build/release}" && pwd)
SERVER=$(need_bin "$BUILD/tools" rig_test_server)
CLI=$(need_bin "$BUILD/RigInspectorApp" rig_inspector_cli)
need_cmd mtr nft python3
WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT
export SERVER CLI WORK

# One scenario inside its chain: our step, then mtr.
cat >"$WORK/inside.sh" <<'INSIDE'
#!/bin/sh
set -eu
dir=$WORK/$SCENARIO
mkdir -p "$dir/patcher"
: >"$dir/server.log"
ip netns exec "$CHAIN_SERVER" "$SERVER" -a "$CHAIN_SERVER_ADDR" >"$dir/server.log" 2>&1 &
server=$!
trap 'kill $server 2>/dev/null || true' EXIT
for _ in $(seq 100); do grep -q listening "$dir/server.log" && break; sleep 0.1; done
printf '[tcp]\nhost=%s\n[udp]\nhost=%s\n' "$CHAIN_SERVER_ADDR" "$CHAIN_SERVER_ADDR" >"$dir/patcher/rig_inspector.ini"
(cd "$dir/patcher" && ip netns exec "$CHAIN_CLIENT" timeout -k 5 150 "$CLI" --extended --quiet --no-progress \
    --json result.json </dev/null >/dev/null 2>&1) || true
ip netns exec "$CHAIN_CLIENT" mtr -n -r -c 10 "$CHAIN_SERVER_ADDR" >"$dir/mtr.txt" 2>&1 || true
echo "$CHAIN_HOPS" >"$dir/hops.txt"
INSIDE
chmod +x "$WORK/inside.sh"

printf '%-12s | %-44s | %-46s | %s\n' scenario "imposed truth" "our verdict (loss starts at; limited hops)" \
    "mtr -n -r -c 10 loss per hop"
run() {
    name=$1 truth=$2 start=$3
    shift 3
    SCENARIO=$name "$SRC/tests/netns_chain.sh" "$@" -- "$WORK/inside.sh"
    /usr/bin/python3 - "$WORK/$name" "$name" "$truth" "$start" <<'PY'
import json, re, sys
d, name, truth, start = sys.argv[1:]
try:
    x = json.load(open(f"{d}/patcher/result.json"))["extended"]
    p = x["path"]
    limited = ",".join(str(h["ttl"]) for h in p["hops"] if h["rate_limited"]) or "none"
    got = p["loss_starts_at_hop"]
    ours = f"hop {'null' if got is None else got} ({p['verdict']['code']}); limited: {limited}; {x['duration_ms']} ms"
except Exception as e:
    ours, got = f"no result ({e})", "?"
mtr = []
for line in open(f"{d}/mtr.txt"):
    m = re.match(r"\s*(\d+)\.\|--\s+(\S+)\s+([\d.]+)%?", line)
    if m:
        mtr.append(f"{m.group(1)}:{m.group(3)}%")
print(f"{name:<12} | {truth:<44} | {ours:<46} | {' '.join(mtr)}")
want = None if start == "null" else int(start)
print(f"RESULT|path_report|{name} loss_starts_at_hop|{'null' if got is None else got}|{start}|"
      f"{'yes' if got == want else 'no'}")
PY
}
run clean "no fault" null
run middle "40 % lost router 2 -> 3: starts at hop 3" 3 --loss 2:40
run home "40 % lost client -> router 1: hop 1 (home)" 1 --home-loss 40
run back "40 % lost router 2 -> 1 (way back): hop 3" 3 --loss-back 2:40
run ratelimited "router 2: 12 answers/min, burst 1: no loss" null --rate-limit 2:12:1
run silent "router 2 never answers: no loss" null --silent 2
