#!/bin/bash
# rig_inspector_cli.exe under Wine and the Linux rig_inspector_cli, each run
# as a player would (patcher/ as the working directory, game/ beside it)
# against the Linux rig_test_server, in a network namespace of their own;
# their report lines must match once measured figures are masked.
#   cli_compare.sh WINE_RUN PREFIX LINUX_CLI LINUX_SERVER WINDOWS_CLI
# The firewall step differs by design: Linux has no firewall to reach, Wine
# has the COM objects, whose entries read as disabled. Each side's firewall
# lines are held to the table row its situation names instead.
set -euo pipefail
wine_run=$1 prefix=$2 linux_cli=$3 linux_server=$4 windows_cli=$5

. "$(dirname "$0")/wine_private_server.sh"
wine_namespace "$0" "$@"
work=$(mktemp -d)
server=
cleanup() {
    [ -z "$server" ] || kill "$server" 2>/dev/null || true
    wineserver -k 2>/dev/null || true
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

# run NAME COMMAND...: the report lines on standard output, the exit status
# in NAME.status.
run() {
    local name=$1
    shift
    mkdir -p "$work/$name/patcher" "$work/$name/game"
    local status=0
    (cd "$work/$name/patcher" && timeout -k 5 120 "$@" --no-progress --accept --json result.json \
        </dev/null >"$work/$name.out" 2>"$work/$name.err") || status=$?
    echo "$status" >"$work/$name.status"
}
run linux "$linux_cli"
run windows wine "$windows_cli"

# Figures that are measured, not decided: speeds, the CPU clock and the memory
# sizes. The video check is masked whole: Linux reads a GPU's memory (or has
# none: "error!"), Wine emulates DirectDraw.
mask() {
    sed -E \
        -e 's/[0-9]+\.[0-9]+ KB\/Sec/#.## KB\/Sec/g' \
        -e 's/\([0-9]+\.[0-9]GHz\)/(#.#GHz)/' \
        -e 's/\([0-9]+M\)/(#M)/' \
        -e 's/^(Checking Video Card\(#M\)\.\.\.).*/\1#/'
}
# The UDP echo block is held to its counts only on the Linux side. Under Wine
# a sendto costs about a millisecond, so a loopback pong is often back before
# the same turn's receive and shows a round trip of 0 ms, which the echo test
# discards as it must; on Windows and over a real network the pong comes a
# turn later. The Windows side must have sent ten pings and had answers.
udp_block() { sed -n '/^Checking UDP(/,/^$/p' "$1"; }
without_udp() { sed '/^Checking UDP(/,/^$/c\[UDP echo block]' "$1"; }
firewall_lines() { grep -E "Firewall|firewall" "$1" || true; }
# The advice follows each machine's findings (no GPU on one side, say), as
# the diagnostics do: it is left out of both comparisons.
without_advice() {
    awk '/^Advice$/ { skip = 1; blank = 0; next }
         skip { if ($0 == "") skip = 0; next }
         $0 == "" { blank++; next }
         { for (; blank > 0; blank--) print ""; print }
         END { for (; blank > 0; blank--) print "" }'
}
report_lines() { without_udp "$1" | without_advice | grep -vE "Firewall|firewall" | mask; }

failed=0
if ! diff -u <(report_lines "$work/linux.out") <(report_lines "$work/windows.out"); then
    echo "cli_compare: the report lines differ (- Linux, + Windows)"
    failed=1
fi
# Both ran every check (0: all passed, 1: one did not). Which of the two
# follows the measured video memory and the UDP timing above, so it may
# differ; a usage or output failure (2, 3) or a crash may not.
for side in linux windows; do
    case "$(cat "$work/$side.status")" in
    0 | 1) ;;
    *) echo "cli_compare: $side exit status $(cat "$work/$side.status")"; failed=1 ;;
    esac
done
# The JSON has the same fields on both (its values are the measurements; the
# diagnostics list holds what each machine found, e.g. no GPU on one side).
json_fields() { jq -r 'del(.diagnostics[]) | del(.advice[]) | paths | map(tostring) | join(".")' "$1"; }
if ! diff <(json_fields "$work/linux/patcher/result.json") <(json_fields "$work/windows/patcher/result.json"); then
    echo "cli_compare: the JSON fields differ"
    failed=1
fi
# The option file: the same keys (the values follow the measured video memory).
keys() { tr -d '\r' <"$1" | sed 's/=.*//'; }
if ! diff <(keys "$work/linux/game/option.ini") <(keys "$work/windows/game/option.ini"); then
    echo "cli_compare: option.ini differs"
    failed=1
fi
if ! udp_block "$work/windows.out" | grep -q "send :  10 packets" ||
    udp_block "$work/windows.out" | grep -q "received :   0 packets"; then
    echo "cli_compare: the Windows UDP echo test sent no pings or had no answer"
    failed=1
fi
echo "--- Linux firewall lines"
firewall_lines "$work/linux.out"
echo "--- Windows firewall lines"
firewall_lines "$work/windows.out"
if [ $failed -ne 0 ]; then
    for side in linux windows; do
        echo "--- $side report"; cat "$work/$side.out"; echo "--- $side errors"; cat "$work/$side.err"
    done
fi
# The firewall: Linux has no firewall to reach ("passed."); Wine's entries
# read as disabled, which is the "game entry missing or disabled" row.
expected_linux="Connecting to Firewall Manager...passed."
expected_windows="Connecting to Firewall Manager...passed.
If you want to windows firewall off, you can click the 'Windows Firewall off' at left-bottom side.
Checking Windows Firewall opened...failed
Application is not enabled in the firewall. You will not be able host games or join a peer-to-peer game. Depending on the game, you may be able to join."
if [ "$(firewall_lines "$work/linux.out")" != "$expected_linux" ] ||
    [ "$(firewall_lines "$work/windows.out")" != "$expected_windows" ]; then
    echo "cli_compare: the firewall lines are not those of their situations"
    failed=1
fi
echo "--- Windows UDP echo block"
udp_block "$work/windows.out"
exit $failed
