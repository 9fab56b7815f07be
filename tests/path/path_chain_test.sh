#!/bin/sh
# The extended step's path report in a chain of namespaces with one imposed
# fault, three runs in a row: where loss begins, each hop's address, and the
# step's duration must come out right every time.
#   path_chain_test.sh SCENARIO CLI SERVER [WINE_RUN PREFIX]
# With WINE_RUN and PREFIX, CLI is rig_inspector_cli.exe, run under Wine with
# a wineserver of the client namespace's own.
set -eu
scenario=$1 cli=$2 server=$3 wine_run=${4:-} prefix=${5:-}
here=$(cd "$(dirname "$0")" && pwd)

# Each scenario: the chain's faults, the hop where loss begins (or null), and
# the hops that limit or withhold their own answers.
case "$scenario" in
clean) faults="" start=null silent="" ;;
middle) faults="--loss 2:40" start=3 silent="" ;;
home) faults="--home-loss 40" start=1 silent="" ;;
back) faults="--loss-back 2:40" start=3 silent="" ;;
ratelimited) faults="--rate-limit 2:12:1" start=null silent="" ;;
silent) faults="--silent 2" start=null silent=2 ;;
*) echo "path_chain_test.sh: unknown scenario $scenario" >&2; exit 2 ;;
esac

if [ -n "$wine_run" ]; then
    "$wine_run" "$prefix" --prepare
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export PATH_TEST_CLI="$cli" PATH_TEST_SERVER="$server" PATH_TEST_WORK="$work" PATH_TEST_PREFIX="$prefix"
export PATH_TEST_START="$start" PATH_TEST_SILENT="$silent" PATH_TEST_SCENARIO="$scenario" PATH_TEST_HERE="$here"

failed=0
for run in 1 2 3; do
    export PATH_TEST_RUN=$run
    # shellcheck disable=SC2086
    "$here/../netns_chain.sh" $faults -- "$here/path_chain_run.sh" || failed=1
done
exit $failed
