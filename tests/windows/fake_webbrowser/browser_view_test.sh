#!/bin/sh
# rig_inspector.exe's browser path under Wine and Xvfb, against the stand-in
# control (fake_webbrowser.dll) registered under the WebBrowser's and the
# HTML document's class ids in place of Wine's own. Runs inside
# wine_xvfb_run.sh (a display, a private network) with a prefix of its own,
# as it changes the machine's classes: Wine 8 does not look at a user's
# classes (HKCU\Software\Classes) when it creates an object.
#
# usage: wine_xvfb_run.sh <own prefix> browser_view_test.sh <rig_inspector.exe> <fake_webbrowser.dll>
# The screen is at 150 % (LogPixels 144). Run 1, both classes registered: the
# report goes through the control, zoomed to 150 %, every loaded stream is
# whole and well formed, scrolling goes to the bottom, and keys reach the
# control through TranslateAccelerator. Run 2, the document
# class not creatable: the RichEdit view, the control never activated. Run 3,
# no WebBrowser class: the RichEdit view, the stand-in never loaded.
set -eu
EXE=$(realpath "$1")
DLL=$(realpath "$2")
. "$(dirname "$0")/../../smoke_common.sh"

BROWSER='{8856F961-340A-11D0-A96B-00C04FD705A2}'
DOCUMENT='{25336920-03F9-11CF-8FD0-00AA00686F13}'
CLASSES='HKLM\Software\Classes\CLSID'
MAIN="Dunmore Nine Rig Inspector v1.1"
PREFIX_HTML='<html><body><font style="font-family:arial; font-size:9pt">'
SUFFIX_HTML='</font></body></html>'
HEADER='<B><font>Rig Inspector v1.1</font><br></B>'

register() {
    wine reg add "$CLASSES\\$1\\InprocServer32" /ve /d "$(winepath -w "$DLL")" /f >/dev/null 2>&1
    wine reg add "$CLASSES\\$1\\InprocServer32" /v ThreadingModel /d Apartment /f >/dev/null 2>&1
}
unregister() { wine reg delete "$CLASSES\\$1" /f >/dev/null 2>&1 || true; }

fail() {
    echo "browser view: $*"
    [ ! -f "$LOG/events.log" ] || sed 's/^/  log: /' "$LOG/events.log" | tail -n 40
    exit 1
}

# start <log folder>: rig_inspector as the patcher folder holds it.
start() {
    LOG=$1
    mkdir -p "$LOG" "$WORK/root/patcher" "$WORK/root/game"
    cp "$EXE" "$WORK/root/patcher/fc.exe"
    RIG_FAKE_BROWSER_LOG=$(winepath -w "$LOG")
    export RIG_FAKE_BROWSER_LOG
    (cd "$WORK/root/patcher" && exec wine fc.exe) >"$WORK/app.log" 2>&1 &
    APP=$!
    WID=$(timeout 30 xdotool search --sync --onlyvisible --name "$MAIN" | head -n 1)
    [ -n "$WID" ] || fail "main dialog did not appear"
}

# leave: Esc is Cancel, through the control's TranslateAccelerator (which
# declines it) and the dialog manager.
leave() {
    xdotool windowfocus --sync "$WID" && xdotool key --window "$WID" Escape
    n=300
    while kill -0 "$APP" 2>/dev/null; do
        n=$((n - 1))
        [ "$n" -gt 0 ] || fail "rig_inspector did not quit"
        sleep 0.1
    done
    wait "$APP" || fail "rig_inspector failed"
}

count() { grep -c "$1" "$LOG/events.log" 2>/dev/null || true; }
at_least() { [ "$(count "$1")" -ge "$2" ]; }

# The prefix is the test's own, so its DPI is set before its first window;
# the wineserver restarts so that every process reads it.
wine reg add 'HKCU\Control Panel\Desktop' /v LogPixels /t REG_DWORD /d 144 /f >/dev/null 2>&1
wineserver -k
wineserver -w

# Run 1: the browser path.
register "$BROWSER"
register "$DOCUMENT"
start "$WORK/run1"
wait_for 300 at_least '^load ' 3 || fail "fewer than three streams were loaded"
wait_for 100 at_least '^scrollTop ' 1 || fail "the report was never scrolled"
# A click puts the focus into the control; then a page down and a copy.
xdotool mousemove --window "$WID" 120 150 click 1
xdotool key --window "$WID" Next ctrl+c
wait_for 100 grep -q '^accelerator 0100 22 mine' "$LOG/events.log" || fail "Page Down did not reach the control"
wait_for 100 grep -q '^accelerator 0100 43 mine' "$LOG/events.log" || fail "Ctrl+C did not reach the control"
leave

grep -q '^doverb -5$' "$LOG/events.log" || fail "the control was not activated in place"
grep -q '^navigate about:blank$' "$LOG/events.log" || fail "no navigation to about:blank"
# The view is the template's 206 x 256 dialog units at 150 %, and the page
# is zoomed to match (the control draws at 96 DPI unless told).
grep -qE '^window (5[0-9][0-9]) (6[0-9][0-9])$' "$LOG/events.log" || fail "the view is not sized for 150 %"
[ "$(grep '^zoom ' "$LOG/events.log" | sort -u)" = "zoom 150" ] || fail "the page is not zoomed to 150 %"
# The header was rendered while the control had no document yet.
sed -n '/^navigate/,/^document ready/p' "$LOG/events.log" | grep -q '^document none' ||
    fail "nothing was rendered before the document existed"
sed -n '/^document ready/,$p' "$LOG/events.log" | grep -q '^load 1 ' || fail "a stream was loaded before the document"
# Every load is InitNew and Load on a fresh stream.
[ "$(count '^initnew')" -eq "$(count '^load ')" ] || fail "InitNew and Load do not pair"

# Each stream: the prefix, the body, the suffix and one zero character, no
# byte-order mark, 2 x length + 2 bytes; each body extends the one before.
n=1
previous=""
while [ -f "$LOG/stream-$n.bin" ]; do
    stream="$LOG/stream-$n.bin"
    bytes=$(wc -c <"$stream")
    grep -q "^load $n $bytes\$" "$LOG/events.log" || fail "stream $n: the log gives another size"
    text=$(iconv -f UTF-16LE -t UTF-8 "$stream" | tr -d '\000')
    zeros=$(iconv -f UTF-16LE -t UTF-32LE "$stream" | od -An -v -tx4 | tr -s ' ' '\n' | grep -c '^00000000$' || true)
    units=$(iconv -f UTF-16LE -t UTF-32LE "$stream" | wc -c)
    units=$((units / 4))
    [ "$zeros" -eq 1 ] && [ "$(tail -c 2 "$stream" | od -An -tx1 | tr -d ' ')" = 0000 ] ||
        fail "stream $n: not exactly one zero character, at the end"
    [ "$bytes" -eq $((2 * (units - 1) + 2)) ] || fail "stream $n: $bytes bytes for $((units - 1)) characters"
    case "$text" in
    "$PREFIX_HTML"*"$SUFFIX_HTML") ;;
    *) fail "stream $n: not prefix, body, suffix" ;;
    esac
    body=${text#"$PREFIX_HTML"}
    body=${body%"$SUFFIX_HTML"}
    case "$body" in
    "$HEADER"*) ;;
    *) fail "stream $n: the body does not start with the header" ;;
    esac
    case "$body" in
    "$previous"*) ;;
    *) fail "stream $n: the body lost what was shown before" ;;
    esac
    [ "$n" -eq 1 ] || [ "$body" != "$previous" ] || fail "stream $n: a render without an append"
    previous=$body
    n=$((n + 1))
done
[ "$n" -gt 3 ] || fail "the streams were not kept"
# The first render after the document appeared carries everything appended
# before it: the header and the first step's heading at least.
first=$(iconv -f UTF-16LE -t UTF-8 "$LOG/stream-1.bin" | tr -d '\000')
case "$first" in
"$PREFIX_HTML$HEADER<br>"*) ;;
*) fail "the first render lacks what was appended before the document" ;;
esac

# Scrolling: every scrollTop written is the scrollHeight just read.
grep -E '^scroll(Height|Top) ' "$LOG/events.log" | awk '
    $1 == "scrollHeight" { height = $2; have = 1; next }
    !have || $2 != height { bad = 1 }
    { have = 0 }
    END { exit bad }' || fail "scrollTop was not set to scrollHeight"

# Run 2: the control exists, its document does not: the RichEdit view.
unregister "$DOCUMENT"
start "$WORK/run2"
leave
grep -q '^create WebBrowser' "$LOG/events.log" || fail "run 2: the control was not even tried"
! grep -qE '^(doverb|navigate|load)' "$LOG/events.log" || fail "run 2: the control was used without a document class"

# Run 3: no WebBrowser class at all: the RichEdit view, the stand-in never
# loaded, and the program runs and quits as usual.
unregister "$BROWSER"
start "$WORK/run3"
leave
! grep -q '^create' "$LOG/events.log" 2>/dev/null || fail "run 3: an unregistered control was created"
echo "browser view: passed"
