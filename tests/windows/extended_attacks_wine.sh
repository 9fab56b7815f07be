#!/bin/bash
# The Windows client as the honest player beside each attack on the real
# rig_test_server (the Linux build's): bench/extended_attacks.sh --check with
# rig_inspector_cli.exe under Wine in its place, in a network namespace with a
# wineserver of its own. Its figures hold, or it is told busy, within its time.
#   extended_attacks_wine.sh WINE_RUN PREFIX HOST_BUILD WINDOWS_CLI
set -euo pipefail
wine_run=$1 prefix=$2 host_build=$3 windows_cli=$4

. "$(dirname "$0")/wine_private_server.sh"
wine_namespace "$0" "$@"
trap 'wineserver -k 2>/dev/null || true' EXIT
wine_private_server
# The attacks that meet a client's own session; the crowd and the cookie
# guessing involve no client build and run with the Linux one.
export RIG_BENCH_NETNS=1 RIG_HONEST_CLI="wine $windows_cli"
export RIG_ATTACKS=${RIG_ATTACKS:-sessions hellos echoes silent}
sh "$(dirname "$0")/../../bench/extended_attacks.sh" --check "$host_build"
