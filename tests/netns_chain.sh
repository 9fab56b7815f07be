#!/bin/sh
# Builds a chain of network namespaces, client - routers - server, runs a
# command on the host beside it, and takes the chain down again. Needs root.
# Addresses come from 198.18.0.0/15 only: link i (0 = client's) is
# 198.18.i.0/24, its left end .1, its right end .2; router k answers from
# 198.18.(k-1).2 and the server is 198.18.N.2.
#
# Usage: netns_chain.sh [OPTIONS] -- COMMAND [ARGS...]
#   --routers N          routers between client and server (default 3)
#   --loss K:PCT         router K drops PCT % of what it forwards towards the server
#   --loss-back K:PCT    router K drops PCT % of what it forwards towards the client
#   --home-loss PCT      router 1 drops PCT % of everything the client sends it
#   --rate-limit K:R:B   router K sends at most R time-exceeded a minute, burst B
#   --silent K           router K sends no time-exceeded at all
#   --spare-tcp          the loss rules leave TCP alone
# COMMAND sees CHAIN_CLIENT and CHAIN_SERVER (namespace names, for
# `ip netns exec`), CHAIN_SERVER_ADDR and CHAIN_HOPS (each hop's address, in
# order, the server's last). The script exits with COMMAND's status.
set -eu

routers=3
rules=""
spare=""
while [ $# -gt 0 ]; do
    case "$1" in
    --routers) routers=$2; shift 2 ;;
    --loss | --loss-back | --rate-limit) rules="$rules ${1#--}=$2"; shift 2 ;;
    --home-loss) rules="$rules loss-home=1:$2"; shift 2 ;;
    --silent) rules="$rules silent=$2"; shift 2 ;;
    --spare-tcp) spare="meta l4proto != tcp"; shift ;;
    --) shift; break ;;
    *) echo "netns_chain.sh: unknown option $1" >&2; exit 2 ;;
    esac
done
[ $# -gt 0 ] || { echo "netns_chain.sh: no command" >&2; exit 2; }
if [ "$routers" -lt 1 ] || [ "$routers" -gt 8 ]; then echo "netns_chain.sh: 1 to 8 routers" >&2; exit 2; fi

tag="ch$$"
server=$((routers + 1))
node() { if [ "$1" -eq 0 ]; then echo "${tag}c"; elif [ "$1" -eq "$server" ]; then echo "${tag}s"; else echo "${tag}r$1"; fi; }
down() {
    for i in $(seq 0 "$server"); do ip netns del "$(node "$i")" 2>/dev/null || true; done
}
trap down EXIT
trap 'exit 130' INT TERM

for i in $(seq 0 "$server"); do
    ip netns add "$(node "$i")"
    ip -n "$(node "$i")" link set lo up
done
# Link i joins node i (its "r" end) and node i+1 (its "l" end).
for i in $(seq 0 "$routers"); do
    left=$(node "$i") right=$(node $((i + 1)))
    ip link add r$i netns "$left" type veth peer name l$i netns "$right"
    ip -n "$left" addr add 198.18.$i.1/24 dev r$i
    ip -n "$right" addr add 198.18.$i.2/24 dev l$i
    ip -n "$left" link set r$i up
    ip -n "$right" link set l$i up
done
ip -n "$(node 0)" route add default via 198.18.0.2
ip -n "$(node "$server")" route add default via 198.18.$routers.1
hops=""
for k in $(seq 1 "$routers"); do
    ns=$(node "$k")
    ip netns exec "$ns" sysctl -qw net.ipv4.ip_forward=1
    for j in $(seq 0 "$routers"); do
        if [ "$j" -lt $((k - 1)) ]; then ip -n "$ns" route add 198.18.$j.0/24 via 198.18.$((k - 1)).1; fi
        if [ "$j" -gt "$k" ]; then ip -n "$ns" route add 198.18.$j.0/24 via 198.18.$k.2; fi
    done
    hops="$hops 198.18.$((k - 1)).2"
done
hops="$hops 198.18.$routers.2"

# Each router's faults, in one table of its own.
for rule in $rules; do
    kind=${rule%%=*} value=${rule#*=}
    k=${value%%:*} rest=${value#*:}
    [ "$k" -ge 1 ] && [ "$k" -le "$routers" ] || { echo "netns_chain.sh: no router $k" >&2; exit 2; }
    ns=$(node "$k")
    prev=$((k - 1))
    case "$kind" in
    loss) chain="type filter hook forward priority 0;" rule="oifname r$k $spare numgen random mod 100 lt $rest drop" ;;
    loss-back) chain="type filter hook forward priority 0;" rule="oifname l$prev $spare numgen random mod 100 lt $rest drop" ;;
    loss-home) chain="type filter hook prerouting priority 0;" rule="iifname l0 $spare numgen random mod 100 lt $rest drop" ;;
    rate-limit) chain="type filter hook output priority 0;"
        rule="icmp type time-exceeded limit rate over ${rest%%:*}/minute burst ${rest#*:} packets drop" ;;
    silent) chain="type filter hook output priority 0;" rule="icmp type time-exceeded drop" ;;
    esac
    ip netns exec "$ns" nft add table ip chain_faults
    ip netns exec "$ns" nft add chain ip chain_faults "$kind" "{ $chain }"
    ip netns exec "$ns" nft add rule ip chain_faults "$kind" $rule
done

CHAIN_CLIENT=$(node 0)
CHAIN_SERVER=$(node "$server")
CHAIN_SERVER_ADDR=198.18.$routers.2
CHAIN_HOPS=${hops# }
export CHAIN_CLIENT CHAIN_SERVER CHAIN_SERVER_ADDR CHAIN_HOPS
status=0
"$@" || status=$?
exit $status
