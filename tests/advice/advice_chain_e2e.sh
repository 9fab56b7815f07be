#!/bin/sh
# rig_inspector_cli --extended across a namespace chain: client - home router
# - provider's router - server, with nftables losing 40 % of what the
# provider's router forwards to the server. Unsolicited datagrams still reach
# the game port, so the advice must say the loss is no port-forwarding matter,
# and the path report must place the loss at hop 3, beyond the home network.
# Needs root.
#   advice_chain_e2e.sh RIG_INSPECTOR_CLI RIG_TEST_SERVER
set -eu
CLI=$(realpath "$1")
SERVER=$(realpath "$2")
TAG=rigadv$$
C=${TAG}c H=${TAG}h P=${TAG}p S=${TAG}s
WORK=$(mktemp -d)
SERVER_PID=
cleanup() {
    [ -z "$SERVER_PID" ] || kill "$SERVER_PID" 2>/dev/null || true
    [ -z "$SERVER_PID" ] || wait "$SERVER_PID" 2>/dev/null || true
    for ns in $C $H $P $S; do ip netns del "$ns" 2>/dev/null || true; done
    rm -rf "$WORK"
}
trap cleanup EXIT INT TERM

for ns in $C $H $P $S; do
    ip netns add "$ns"
    ip -n "$ns" link set lo up
done
# link NS1 IF1 ADDR1 NS2 IF2 ADDR2: a veth pair between two namespaces, up.
link() {
    ip link add "$2" netns "$1" type veth peer name "$5" netns "$4"
    ip -n "$1" addr add "$3/24" dev "$2"
    ip -n "$4" addr add "$6/24" dev "$5"
    ip -n "$1" link set "$2" up
    ip -n "$4" link set "$5" up
}
link $C c0 198.18.0.2 $H h0 198.18.0.1
link $H h1 198.18.1.1 $P p0 198.18.1.2
link $P p1 198.18.2.1 $S s0 198.18.2.2
ip -n $C route add default via 198.18.0.1
ip -n $H route add default via 198.18.1.2
ip -n $P route add 198.18.0.0/24 via 198.18.1.1
ip -n $S route add default via 198.18.2.1
ip netns exec $H sysctl -qw net.ipv4.ip_forward=1
ip netns exec $P sysctl -qw net.ipv4.ip_forward=1
ip netns exec $P nft -f - <<'NFT'
table inet rigloss {
    chain forward {
        type filter hook forward priority 0; policy accept;
        oifname "p1" meta l4proto != tcp numgen random mod 100 < 40 drop
    }
}
NFT

# The server's ready line, waited for as it comes (10 s at most).
mkfifo "$WORK/server.out"
ip netns exec $S "$SERVER" --address 198.18.2.2 --pong-delay 2 >"$WORK/server.out" 2>"$WORK/server.err" &
SERVER_PID=$!
exec 3<"$WORK/server.out"
if ! timeout 10 sh -c 'while IFS= read -r l; do case "$l" in *"rig_test_server listening"*) exit 0 ;; esac; done; exit 1' <&3; then
    echo "the server did not start:" >&2
    cat "$WORK/server.err" >&2
    exit 1
fi
cat <&3 >/dev/null &

mkdir -p "$WORK/root/patcher" "$WORK/root/game"
cat >"$WORK/root/patcher/rig_inspector.ini" <<'INI'
[tcp]
host=198.18.2.2
[udp]
host=198.18.2.2
INI
status=0
(cd "$WORK/root/patcher" && timeout 120 ip netns exec $C "$CLI" --extended --quiet --json result.json \
    2>"$WORK/cli.err") || status=$?
if [ "$status" -gt 1 ] || [ ! -f "$WORK/root/patcher/result.json" ]; then
    echo "rig_inspector_cli exited with $status" >&2
    cat "$WORK/cli.err" >&2
    exit 1
fi

/usr/bin/python3 - "$WORK/root/patcher/result.json" <<'PY'
import json, sys
j = json.load(open(sys.argv[1], encoding="utf-8"))
advice = {a["code"]: a for a in j["advice"]}
print("udp:", j["checks"]["udp"]["lost"], "of", j["checks"]["udp"]["sent"], "lost;",
      "; connection:", j["connection"])
print("extended:", json.dumps(j["extended"]))
for a in j["advice"]:
    print(a["severity"], a["code"], "-", a["text"])
c = j["connection"]
assert c["interface"] == "c0" and c["type"] == "ethernet" and c["link_mbps"] == 10000, c
# The echo test's 10 pings may all pass; the extended step's 450 cannot. Its
# loss figure is null when the server's count itself was lost on the way.
up = j["extended"]["udp"]["loss_up_percent"]
assert up is None or up > 5, j["extended"]["udp"]
a = advice.get("udp_loss_not_port_forwarding")
assert a is not None, list(advice)
assert "port forwarding will not help" in a["text"], a["text"]
assert a["evidence"]["inbound_reached"] is True, a
severities = [x["severity"] for x in j["advice"]]
assert severities == sorted(severities, key=["problem", "warning", "info"].index), severities
# The path report: the provider's router forwards with loss towards the
# server, but its own answers (hop 2) never cross that link, so the loss
# begins at hop 3, the server, beyond the home network.
path = j["extended"]["path"]
assert path["reached"] and path["loss_starts_at_hop"] == 3, path
beyond = advice.get("loss_starts_beyond_home_network")
assert beyond is not None, (list(advice), path)
assert beyond["evidence"]["hop_address"] == "198.18.2.2", beyond
assert "beyond your home network" in a["text"], a["text"]
assert "loss_starts_in_home_network" not in advice, list(advice)
PY
