#!/bin/sh
# Desktop smoke test of rig_inspector.exe under Wine and Xvfb (no window
# manager), against the Linux reference server. Runs inside wine_xvfb_run.sh,
# which gives it a display, a prefix and a network namespace of its own.
#
# usage: wine_xvfb_run.sh <prefix> smoke_wine.sh <rig_inspector.exe> <rig_test_server> <output dir>
# Run 1: the whole check sequence, a screenshot of each dialog, Next, then
# Accept writes ../game/option.ini with the four keys. Run 2: Next, then
# Cancel (Esc) quits without touching option.ini. Run 3: Accept updates an
# existing option.ini. Run 4: a refused write is kept in the history. Every
# wait is bounded.
set -eu
EXE=$(realpath "$1")
SERVER=$2
OUT=$3
mkdir -p "$OUT"
. "$(dirname "$0")/../smoke_common.sh"
start_server "$SERVER"

MAIN="Dunmore Nine Rig Inspector v1.1"
CONFIG="Dunmore Nine Graphic Configuration"
OPTIONS="$WORK/root/game/option.ini"

# start: runs the analyzer as the game's patcher folder would hold it.
start() {
    mkdir -p "$WORK/root/patcher" "$WORK/root/game"
    cp "$EXE" "$WORK/root/patcher/fc.exe"
    (cd "$WORK/root/patcher" && exec wine fc.exe) >"$WORK/app.log" 2>&1 &
    APP=$!
}

# window <title>: the X window of a dialog, once it is mapped.
window() {
    timeout 30 xdotool search --sync --onlyvisible --name "$1" | head -n 1
}

# key <window> <key>: no window manager, so focus the window itself first.
key() {
    xdotool windowfocus --sync "$1" && xdotool key --window "$1" "$2"
}

finished() {
    n=150
    while kill -0 "$APP" 2>/dev/null; do
        n=$((n - 1))
        [ "$n" -gt 0 ] || { echo "rig_inspector did not quit"; return 1; }
        sleep 0.1
    done
    wait "$APP" || { echo "rig_inspector failed"; return 1; }
}

same_twice() {
    xwd -silent -id "$1" -out "$WORK/a.xwd" && sleep 0.3 && xwd -silent -id "$1" -out "$WORK/b.xwd" &&
        cmp -s "$WORK/a.xwd" "$WORK/b.xwd"
}

has_udp_20000() { ss -uan | grep -q ':20000 '; }
no_udp_20000() { ! has_udp_20000; }

# Run 1: the whole sequence, then Next and Accept.
start
WID=$(window "$MAIN")
[ -n "$WID" ] || { echo "main dialog did not appear"; exit 1; }
wait_for 900 grep -q '^tcp ' "$WORK/server.log" || { echo "TCP test did not run"; exit 1; }
wait_for 300 has_udp_20000 || { echo "UDP test did not run"; exit 1; }
wait_for 300 no_udp_20000 || { echo "UDP test did not end"; exit 1; }
wait_for 50 same_twice "$WID" || { echo "main dialog kept changing"; exit 1; }
cp "$WORK/b.xwd" "$OUT/inspector_dialog_wine.xwd"
# Return is Next: the main dialog has no default button, so the dialog manager
# sends IDOK.
key "$WID" Return
CID=$(window "$CONFIG")
[ -n "$CID" ] || { echo "graphic configuration did not appear"; exit 1; }
wait_for 50 same_twice "$CID" || { echo "graphic configuration kept changing"; exit 1; }
cp "$WORK/b.xwd" "$OUT/graphic_config_wine.xwd"
key "$CID" Return # Accept, the default button
finished
for k in shadow audience event_screen char_lod; do
    grep -q "^$k=[01]" "$OPTIONS" || { echo "option.ini lacks $k"; cat "$OPTIONS"; exit 1; }
done
grep -q '^\[video\]' "$OPTIONS" || { echo "option.ini lacks [video]"; exit 1; }

# Run 2: Next at once (between two steps), then Cancel: option.ini untouched.
printf '[video]\r\nshadow=7\r\n' >"$OPTIONS"
cp "$OPTIONS" "$WORK/before.ini"
start
WID=$(window "$MAIN")
[ -n "$WID" ] || { echo "main dialog did not appear (run 2)"; exit 1; }
key "$WID" Return
CID=$(window "$CONFIG")
[ -n "$CID" ] || { echo "graphic configuration did not appear (run 2)"; exit 1; }
key "$CID" Escape
finished
cmp -s "$OPTIONS" "$WORK/before.ini" || { echo "Cancel changed option.ini"; exit 1; }

# Run 3: an option.ini already there in LF with another section, as a game
# ships one: Next at once, then Accept. The four keys go into it in its own
# line ends, the rest stays, and nothing else is left in game/.
printf '[video]\nshadow=7\n\n[audio]\nvolume=3\n' >"$OPTIONS"
start
WID=$(window "$MAIN")
[ -n "$WID" ] || { echo "main dialog did not appear (run 3)"; exit 1; }
key "$WID" Return
CID=$(window "$CONFIG")
[ -n "$CID" ] || { echo "graphic configuration did not appear (run 3)"; exit 1; }
key "$CID" Return
finished
printf '[video]\nshadow=#\naudience=#\nevent_screen=#\nchar_lod=#\n\n[audio]\nvolume=3\n' >"$WORK/expected.ini"
sed 's/=[01]$/=#/' "$OPTIONS" | cmp -s - "$WORK/expected.ini" ||
    { echo "Accept did not update the existing option.ini"; cat "$OPTIONS"; exit 1; }
[ "$(ls -A "$WORK/root/game")" = option.ini ] || { echo "game/ holds:"; ls -A "$WORK/root/game"; exit 1; }

# Run 4: a game folder the player may not write (a read-only mount: Wine has
# no ACLs, and the test runs as root), Next at once, then Accept. The dialog
# keeps its silence, and the run's history says what could not be written and
# where, for the next run's details and the bundle.
export RIG_INSPECTOR_STATE_DIR="$WORK/state"
printf '[video]\nshadow=7\n' >"$OPTIONS"
cp "$OPTIONS" "$WORK/before.ini"
mount --bind "$WORK/root/game" "$WORK/root/game"
mount -o remount,bind,ro "$WORK/root/game"
start
WID=$(window "$MAIN")
[ -n "$WID" ] || { echo "main dialog did not appear (run 4)"; exit 1; }
key "$WID" Return
CID=$(window "$CONFIG")
[ -n "$CID" ] || { echo "graphic configuration did not appear (run 4)"; exit 1; }
key "$CID" Return
finished
umount "$WORK/root/game"
cmp -s "$OPTIONS" "$WORK/before.ini" || { echo "a refused write changed option.ini"; exit 1; }
jq -e 'select(.diagnostics[]? | .code == "options_write_failed" and (.message | contains("option.ini")))' \
    "$WORK/state/history.jsonl" >/dev/null 2>&1 ||
    { echo "the history does not record the refused write:"; cat "$WORK/state/history.jsonl" 2>&1; exit 1; }
echo "smoke: passed"
