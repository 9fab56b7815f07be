#!/bin/bash
# rig_inspector_cli.exe --accept under Wine as the patcher starts it: patcher\
# the working folder, ..\game\option.ini already there (the game ships one,
# and every Accept after the first finds the last one's):
#   cli_accept.sh WINE_RUN PREFIX LINUX_SERVER WINDOWS_CLI
# Each case is held to its exit status, the file's bytes afterwards and the
# game folder's listing, so a temporary file left behind fails it. Wine has
# no ACLs; a game folder that takes no new file is a read-only bind mount
# here, inside a mount namespace of the test's own.
set -euo pipefail
wine_run=$1 prefix=$2 linux_server=$3 windows_cli=$4

. "$(dirname "$0")/wine_private_server.sh"
wine_namespace "$0" "$@"
work=$(mktemp -d)
server=
cleanup() {
    [ -z "$server" ] || kill "$server" 2>/dev/null || true
    wineserver -k 2>/dev/null || true
    umount -R "$work"/*/game 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT
wine_private_server

"$linux_server" >"$work/server.log" 2>&1 &
server=$!
for _ in $(seq 100); do
    grep -q "listening" "$work/server.log" && break
    sleep 0.1
done
grep -q "listening" "$work/server.log" || { cat "$work/server.log"; exit 1; }

failed=0
fail() {
    echo "cli_accept: $case: $*"
    failed=1
}

# check CASE BEFORE EOL STATUS LISTING [MOUNTS]: option.ini holds BEFORE
# (printf format); a killed run's temporary and a file of someone else's lie
# beside it. MOUNTS (a command run in the case's folder) may then lock things
# down. STATUS is "ran" (0 or 1: the checks ran and the file was written,
# the four keys in the file's line end EOL appended to BEFORE) or 4 (refused:
# the file unchanged, the reason on standard error).
check() {
    case=$1
    local before=$2 eol=$3 expect=$4 listing=$5 mounts=${6:-}
    local dir=$work/$case
    mkdir -p "$dir/patcher" "$dir/game"
    printf "$before" >"$dir/game/option.ini"
    printf '[video]\r\nsha' >"$dir/game/.option.ini.rigtmp.k1ll3d"
    echo theirs >"$dir/game/keep.tmp"
    [ -z "$mounts" ] || (cd "$dir" && eval "$mounts")
    local status=0
    (cd "$dir/patcher" && timeout -k 5 120 wine "$windows_cli" --no-progress --accept --json result.json \
        </dev/null >"$dir/out.txt" 2>"$dir/err.txt") || status=$?
    if [ "$expect" = ran ]; then
        [ "$status" = 0 ] || [ "$status" = 1 ] || fail "exit status $status"
        v() { jq -r ".recommendation.$1" "$dir/patcher/result.json"; }
        printf "${before}shadow=%s${eol}audience=%s${eol}event_screen=%s${eol}char_lod=%s${eol}" \
            "$(v shadow)" "$(v audience)" "$(v event_screen)" "$(v char_lod)" >"$dir/expected.ini"
        cmp -s "$dir/expected.ini" "$dir/game/option.ini" || fail "option.ini is not the old one with the four keys"
        [ "$(jq -r .options_written "$dir/patcher/result.json")" = true ] || fail "options_written is not true"
    else
        [ "$status" = "$expect" ] || fail "exit status $status, not $expect"
        printf "$before" >"$dir/expected.ini"
        cmp -s "$dir/expected.ini" "$dir/game/option.ini" || fail "option.ini changed"
        # The reason names the file as given and as the system resolved it.
        grep -qF 'The graphic options could not be written to ../game/option.ini (Z:\' "$dir/err.txt" &&
            grep -qF '\game\option.ini: ' "$dir/err.txt" || fail "no diagnostic with the full path"
    fi
    [ "$(ls -A "$dir/game" | tr '\n' ' ')" = "$listing" ] || fail "game folder holds: $(ls -A "$dir/game")"
    if [ $failed -ne 0 ]; then
        echo "--- $case errors"
        cat "$dir/err.txt"
    fi
}

crlf='[audio]\r\nvolume=7\r\n[video]\r\n'
check crlf "$crlf" '\r\n' ran "keep.tmp option.ini "
# The folder takes no new file (read-only), the file itself is writable: it
# is rewritten in place, and what a killed run left cannot be removed.
check folder_read_only "$crlf" '\r\n' ran ".option.ini.rigtmp.k1ll3d keep.tmp option.ini " \
    'cp game/option.ini rw.ini && mount --bind game game && mount -o remount,bind,ro game &&
     mount --bind rw.ini game/option.ini'
check all_read_only "$crlf" '\r\n' 4 ".option.ini.rigtmp.k1ll3d keep.tmp option.ini " \
    'mount --bind game game && mount -o remount,bind,ro game'
exit $failed
