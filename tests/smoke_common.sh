# Shared by the desktop smoke tests (sourced, POSIX sh): a work folder and the
# processes started, both removed on exit; a bounded wait; the reference
# server started and waited for. Sets WORK and PIDS.
WORK=$(mktemp -d)
PIDS=""
cleanup() {
    for pid in $PIDS; do kill "$pid" 2>/dev/null || true; done
    rm -rf "$WORK"
}
trap cleanup EXIT

# wait_for <tries> <command...>: retries every 100 ms, fails after <tries>.
wait_for() {
    n=$1; shift
    while ! "$@" >/dev/null 2>&1; do
        n=$((n - 1))
        [ "$n" -gt 0 ] || return 1
        sleep 0.1
    done
}

# start_server <rig_test_server>: its log goes to $WORK/server.log.
start_server() {
    "$1" >"$WORK/server.log" 2>&1 &
    PIDS="$PIDS $!"
    wait_for 100 grep -q listening "$WORK/server.log" || { echo "server did not start"; exit 1; }
}
