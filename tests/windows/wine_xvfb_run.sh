#!/bin/sh
# Runs a command with a Wine desktop of its own: wine_xvfb_run.sh PREFIX COMMAND [ARG...]
# Inside a private network and mount namespace (loopback only, a private
# wineserver socket folder): Xvfb first, then the prefix (made on first use
# under that display, as Wine keeps failing to make windows in a prefix
# whose first process had none), then a wineserver of this namespace only.
# COMMAND sees DISPLAY and WINEPREFIX; `wine PROGRAM` runs a Windows program.
set -eu
if [ "${RIG_WINE_XVFB_INSIDE:-}" != 1 ]; then
    RIG_WINE_XVFB_INSIDE=1 exec unshare --net --mount "$0" "$@"
fi
mkdir -p "$1"
PREFIX=$(realpath "$1") # Wine takes absolute prefixes only
shift
WORK=$(mktemp -d)
XVFB=""
cleanup() {
    wineserver -k 2>/dev/null || true
    [ -z "$XVFB" ] || kill "$XVFB" 2>/dev/null || true
    rm -rf "$WORK"
}
trap cleanup EXIT

mkdir -p "/tmp/.wine-$(id -u)"
mount -t tmpfs -o size=16m,mode=700 rig-wine "/tmp/.wine-$(id -u)"
ip link set lo up

# -displayfd picks a free display and reports it once the server is ready;
# RIG_XVFB_SCREEN gives another screen size (the high-DPI screenshots).
Xvfb -displayfd 3 -screen 0 "${RIG_XVFB_SCREEN:-1024x768x24}" -nolisten tcp 3>"$WORK/display" 2>/dev/null &
XVFB=$!
n=100
while [ ! -s "$WORK/display" ]; do
    n=$((n - 1))
    [ "$n" -gt 0 ] || { echo "Xvfb did not start"; exit 1; }
    sleep 0.1
done
DISPLAY=:$(cat "$WORK/display")
export DISPLAY WINEPREFIX="$PREFIX" WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
if [ ! -f "$PREFIX/.rig_ready" ]; then
    wine wineboot --init >"$WORK/wineboot.log" 2>&1 || { cat "$WORK/wineboot.log"; exit 1; }
    wine reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f >/dev/null 2>&1
    wineserver -w
    touch "$PREFIX/.rig_ready"
fi
wineserver -p
status=0
"$@" || status=$?
exit $status
