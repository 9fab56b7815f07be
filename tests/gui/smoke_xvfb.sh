#!/bin/sh
# Smoke test on a real X server (Xvfb, no window manager): starts the real
# rig_inspector against the reference server, lets the check sequence finish,
# saves a screenshot and leaves through "Cancel" with xdotool. This exercises
# the xcb platform plugin a user's desktop loads, not only the offscreen one.
#
# usage: smoke_xvfb.sh <rig_inspector> <rig_test_server> <output dir>
# Binds the server's fixed ports: run it in a network namespace of its own
# (tests/netns_run.sh). Every wait is bounded; nothing sleeps blindly.
set -eu
INSPECTOR=$1
SERVER=$2
OUT=$3
mkdir -p "$OUT"
. "$(dirname "$0")/../smoke_common.sh"
start_server "$SERVER"

# -displayfd picks a free display and reports it once the server is ready.
Xvfb -displayfd 3 -screen 0 1024x768x24 -nolisten tcp 3>"$WORK/display" 2>/dev/null &
PIDS="$PIDS $!"
wait_for 100 test -s "$WORK/display" || { echo "Xvfb did not start"; exit 1; }
DISPLAY=:$(cat "$WORK/display")
export DISPLAY

mkdir -p "$WORK/game/patcher"
(cd "$WORK/game/patcher" && QT_QPA_PLATFORM=xcb exec "$INSPECTOR") &
APP=$!
PIDS="$PIDS $APP"

WID=$(timeout 20 xdotool search --sync --name "Dunmore Nine Rig Inspector v1.1" | head -n 1)
[ -n "$WID" ] || { echo "main window did not appear"; exit 1; }

# The sequence is over once the UDP echo test has held and released local
# port 20000 after the TCP test, and the window has stopped changing.
has_udp_20000() { ss -uan | grep -q ':20000 '; }
no_udp_20000() { ! has_udp_20000; }
wait_for 600 grep -q '^tcp ' "$WORK/server.log" || { echo "TCP test did not run"; exit 1; }
wait_for 300 has_udp_20000 || { echo "UDP test did not run"; exit 1; }
wait_for 300 no_udp_20000 || { echo "UDP test did not end"; exit 1; }
same_twice() {
    xwd -silent -id "$WID" -out "$WORK/a.xwd" && sleep 0.3 && xwd -silent -id "$WID" -out "$WORK/b.xwd" &&
        cmp -s "$WORK/a.xwd" "$WORK/b.xwd"
}
wait_for 50 same_twice || { echo "window kept changing"; exit 1; }
# Kept as X's own dump: a PNG conversion would need a tool the set-up does
# not install (rig_xwd_to_png, a dev build tool, converts it by hand).
cp "$WORK/b.xwd" "$OUT/inspector_dialog_xvfb.xwd"

# Leave through "Cancel": a click at the centre of the button (183,268
# 29x16 dialog units; with Liberation Sans 9pt at 96 dpi a unit is 7/4 by 14/8
# pixels, so the button spans 320..371 by 469..497 inside the window).
xdotool mousemove --window "$WID" 345 483 click 1
n=100
while kill -0 "$APP" 2>/dev/null; do
    n=$((n - 1))
    [ "$n" -gt 0 ] || { echo "rig_inspector did not quit"; exit 1; }
    sleep 0.1
done
wait "$APP"
echo "smoke: passed"
