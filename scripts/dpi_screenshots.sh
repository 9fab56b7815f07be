#!/bin/sh
# Screenshots of rig_inspector.exe under Wine at 100 %, 150 % and 200 %
# (LogPixels 96, 144, 192), each in a fresh prefix whose DPI is set before
# its first window, against the reference server.
#
# usage: dpi_screenshots.sh <rig_inspector.exe> <rig_test_server> <rig_xwd_to_png> <output dir>
# Writes <output dir>/windows-dpi-<percent>-{main,config}.png. Every wait is bounded.
set -eu
HERE=$(cd "$(dirname "$0")" && pwd)
if [ "${RIG_DPI_INSIDE:-}" != 1 ]; then
    EXE=$(realpath "$1")
    SERVER=$(realpath "$2")
    TOPNG=$(realpath "$3")
    mkdir -p "$4"
    OUT=$(realpath "$4")
    for dpi in 96 144 192; do
        prefix=$(mktemp -d)
        status=0
        RIG_DPI_INSIDE=1 RIG_DPI=$dpi RIG_XVFB_SCREEN=1920x1440x24 "$HERE/../tests/windows/wine_xvfb_run.sh" "$prefix/wine" "$0" \
            "$EXE" "$SERVER" "$TOPNG" "$OUT" || status=$?
        rm -rf "$prefix"
        [ "$status" -eq 0 ] || exit "$status"
    done
    exit 0
fi

EXE=$1
TOPNG=$3
OUT=$4
. "$HERE/../tests/smoke_common.sh"
# The prefix is new: its DPI is set before any program has made a window,
# and the wineserver restarted so that every process reads it.
wine reg add 'HKCU\Control Panel\Desktop' /v LogPixels /t REG_DWORD /d "$RIG_DPI" /f >/dev/null 2>&1
wineserver -k
wineserver -w
start_server "$2"

percent=$((RIG_DPI * 100 / 96))
mkdir -p "$WORK/root/patcher" "$WORK/root/game"
cp "$EXE" "$WORK/root/patcher/fc.exe"
(cd "$WORK/root/patcher" && exec wine fc.exe) >"$WORK/app.log" 2>&1 &
PIDS="$PIDS $!"

WID=$(timeout 30 xdotool search --sync --onlyvisible --name "Dunmore Nine Rig Inspector v1.1" | head -n 1)
[ -n "$WID" ] || { echo "main dialog did not appear"; exit 1; }
has_udp_20000() { ss -uan | grep -q ':20000 '; }
no_udp_20000() { ! has_udp_20000; }
same_twice() {
    xwd -silent -id "$1" -out "$WORK/a.xwd" && sleep 0.3 && xwd -silent -id "$1" -out "$WORK/b.xwd" &&
        cmp -s "$WORK/a.xwd" "$WORK/b.xwd"
}
wait_for 900 grep -q '^tcp ' "$WORK/server.log" || { echo "TCP test did not run"; exit 1; }
wait_for 300 has_udp_20000 || { echo "UDP test did not run"; exit 1; }
wait_for 300 no_udp_20000 || { echo "UDP test did not end"; exit 1; }
wait_for 50 same_twice "$WID" || { echo "main dialog kept changing"; exit 1; }
"$TOPNG" "$WORK/b.xwd" "$OUT/windows-dpi-$percent-main.png"

xdotool windowfocus --sync "$WID" && xdotool key --window "$WID" Return
CID=$(timeout 30 xdotool search --sync --onlyvisible --name "Dunmore Nine Graphic Configuration" | head -n 1)
[ -n "$CID" ] || { echo "graphic configuration did not appear"; exit 1; }
wait_for 50 same_twice "$CID" || { echo "graphic configuration kept changing"; exit 1; }
"$TOPNG" "$WORK/b.xwd" "$OUT/windows-dpi-$percent-config.png"
xdotool windowfocus --sync "$CID" && xdotool key --window "$CID" Escape
echo "$percent %: done"
