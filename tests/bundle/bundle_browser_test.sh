#!/bin/sh
# The bundle end to end, offline: rig_inspector_cli runs twice against the
# reference server on loopback (the second time with --extended), its --json
# and the bundle's embedded copy are held to docs/results.schema.json and to
# each other, and headless Chromium renders the bundle in this network
# namespace (only loopback up): the report's text must be in the page, and
# the page must have requested nothing. A page with an outside image is
# checked the same way first, so the request check is known to see requests.
#
# usage: bundle_browser_test.sh CLI SERVER SCHEMA [SCREENSHOT.png]
# Run it through tests/netns_run.sh (it binds the server's fixed ports).
set -eu
CLI=$(readlink -f "$1")
SERVER=$(readlink -f "$2")
SCHEMA=$(readlink -f "$3")
SHOT=${4:-}
HERE=$(cd "$(dirname "$0")" && pwd)
WORK=$(mktemp -d "${TMPDIR:-/tmp}/rig_bundle_XXXXXX")
server_pid=
cleanup() {
    if [ -n "$server_pid" ] && kill "$server_pid" 2>/dev/null; then
        wait "$server_pid" 2>/dev/null || true
    fi
    rm -rf "$WORK"
}
trap cleanup EXIT
fail() {
    echo "bundle_browser_test: $*" >&2
    exit 1
}

"$SERVER" --address 127.0.0.1 --pong-delay 2 >"$WORK/server.out" 2>"$WORK/server.err" &
server_pid=$!
n=0
until grep -q 'rig_test_server listening' "$WORK/server.out" 2>/dev/null; do
    n=$((n + 1))
    [ "$n" -le 200 ] && kill -0 "$server_pid" 2>/dev/null || fail "the server did not start: $(cat "$WORK/server.err")"
    sleep 0.05
done

mkdir -p "$WORK/root/patcher" "$WORK/root/game" "$WORK/home"
export RIG_INSPECTOR_STATE_DIR="$WORK/state" HOME="$WORK/home"
cd "$WORK/root/patcher"
status=0
timeout -k 5 120 "$CLI" --quiet >/dev/null 2>&1 || status=$?
[ "$status" -le 1 ] || fail "first run: exit status $status"
status=0
timeout -k 5 120 "$CLI" --quiet --extended --json "$WORK/results.json" --bundle "$WORK/bundle.html" \
    >/dev/null 2>"$WORK/cli.err" || status=$?
[ "$status" -le 1 ] || fail "second run: exit status $status: $(cat "$WORK/cli.err")"
[ "$(wc -l <"$RIG_INSPECTOR_STATE_DIR/history.jsonl")" -eq 2 ] || fail "the history does not hold both runs"

/usr/bin/python3 "$HERE/validate_results.py" "$SCHEMA" "$WORK/results.json" "$WORK/bundle.html"

browse() { # browse <netlog> <extra args...>
    log=$1
    shift
    rm -rf "$WORK/profile"
    timeout -k 5 60 chromium --headless=new --no-sandbox --disable-gpu --disable-background-networking \
        --disable-component-update --disable-sync --no-first-run --user-data-dir="$WORK/profile" \
        --log-net-log="$log" "$@" 2>>"$WORK/chromium.err"
}

printf '<!DOCTYPE html><html><body><p>control</p><img src="http://198.18.0.1/outside.png"></body></html>' \
    >"$WORK/control.html"
browse "$WORK/control.netlog" --dump-dom "file://$WORK/control.html" >/dev/null
/usr/bin/python3 "$HERE/page_requests.py" "$WORK/control.netlog" >"$WORK/control.requests" &&
    fail "the request check missed the control page's outside image"
grep -q '198.18.0.1/outside.png' "$WORK/control.requests" || fail "the control's request was not named"

browse "$WORK/bundle.netlog" --dump-dom "file://$WORK/bundle.html" >"$WORK/dom.html"
for text in "Rig Inspector report" "Checking OS..." "Checking UDP port" "Latency idle against under load" \
    "Ping, loss and speed over past runs" "Machine-readable results"; do
    grep -qF "$text" "$WORK/dom.html" || fail "the rendered page lacks \"$text\""
done
if ! /usr/bin/python3 "$HERE/page_requests.py" "$WORK/bundle.netlog" >"$WORK/bundle.requests"; then
    fail "the bundle requested: $(cat "$WORK/bundle.requests")"
fi

if [ -n "$SHOT" ]; then
    browse "$WORK/shot.netlog" --hide-scrollbars --window-size=1100,3400 --screenshot="$SHOT" \
        "file://$WORK/bundle.html" >/dev/null
    cp "$WORK/bundle.html" "${SHOT%.png}.html"
fi
echo "bundle_browser_test: $(wc -c <"$WORK/bundle.html") bytes rendered offline; schema and copies agree"
