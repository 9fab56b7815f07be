#!/bin/sh
# The distribution end to end: packages the built executables with a
# throwaway self-signed certificate (the package target's own script), checks
# every signature, then installs and uninstalls silently under Wine and checks
# that the files, the shortcut and the uninstall entry come and go.
#
# usage: installer_test.sh <wine_run.sh> <prefix> <package.cmake> <installer.nsi>
#                          <strip> <makensis> <rig_inspector.exe> [<rig_inspector_cli.exe>]
set -eu
RIG_VERSION=${RIG_VERSION:?the build sets it from its project version}
WINE_RUN=$1 PREFIX=$2 SCRIPT=$3 NSI=$4 STRIP=$5 MAKENSIS=$6 INSPECTOR=$7 CLI=${8:-}
WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT
wine() { "$WINE_RUN" "$PREFIX" "$@"; }

openssl req -x509 -newkey rsa:2048 -nodes -days 1 -subj "/CN=Rig Inspector test signing" \
    -keyout "$WORK/key.pem" -out "$WORK/cert.pem" 2>/dev/null
cmake -DINSPECTOR="$INSPECTOR" ${CLI:+-DCLI="$CLI"} -DOUT_DIR="$WORK/out" -DVERSION="$RIG_VERSION" -DNSI="$NSI" \
    -DSTRIP="$STRIP" -DMAKENSIS="$MAKENSIS" -DSIGN_CERT="$WORK/cert.pem" -DSIGN_KEY="$WORK/key.pem" \
    -P "$SCRIPT" >/dev/null
SETUP=$WORK/out/RigInspector-$RIG_VERSION-setup.exe
for f in "$SETUP" "$WORK/out/stage/patcher/"*.exe; do
    osslsigncode verify -CAfile "$WORK/cert.pem" -in "$f" >"$WORK/verify.log" 2>&1 ||
        { echo "signature of $f does not verify"; cat "$WORK/verify.log"; exit 1; }
done
# The zip holds the same (signed) files as the installer.
mkdir "$WORK/unzip"
(cd "$WORK/unzip" && unzip -q "$WORK/out/RigInspector-$RIG_VERSION-win64.zip")
for f in "$WORK/out/stage/patcher/"*.exe; do
    cmp -s "$f" "$WORK/unzip/patcher/$(basename "$f")" || { echo "zip differs at $(basename "$f")"; exit 1; }
done

KEY='HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall\DunmoreNineRigInspector'
ROOT=$PREFIX/drive_c/RigInspectorTest
LINK=$PREFIX/drive_c/ProgramData/Microsoft/Windows/Start\ Menu/Programs/Dunmore\ Nine
rm -rf "$ROOT"
cp "$SETUP" "$WORK/setup.exe"
# Wine's icacls changes no ACL (Wine has none): what the installer asks of
# it is read from Wine's record of the processes it starts.
WINEDEBUG=-all,trace+process wine "$WORK/setup.exe" /S '/D=C:\RigInspectorTest' 2>"$WORK/setup.log"
started() {
    grep -a 'NtCreateUserProcess.* image L"C:\\\\windows\\\\system32\\\\icacls.exe" cmdline ' "$WORK/setup.log" |
        sed -e 's/.* cmdline L"//' -e 's/" parent .*//' -e 's/\\\\/\\/g' -e 's/\\"/"/g'
}
expected='"C:\windows\system32\icacls.exe" "C:\RigInspectorTest\game" /grant *S-1-5-32-545:(OI)(CI)M
"C:\windows\system32\icacls.exe" "C:\RigInspectorTest\patcher\assertion_failed.log" /grant *S-1-5-32-545:M'
[ "$(started)" = "$expected" ] || { echo "icacls was run as:"; started; echo "not as:"; echo "$expected"; exit 1; }
for f in patcher/fc.exe patcher/uninstall_rig_inspector.exe; do
    [ -f "$ROOT/$f" ] || { echo "not installed: $f"; exit 1; }
done
[ -z "$CLI" ] || [ -f "$ROOT/patcher/rig_inspector_cli.exe" ] || { echo "not installed: the CLI"; exit 1; }
[ -d "$ROOT/game" ] || { echo "no game folder beside patcher"; exit 1; }
[ -f "$ROOT/patcher/assertion_failed.log" ] || { echo "no assertion log for the players to append to"; exit 1; }
[ -f "$LINK/Rig Inspector.lnk" ] || { echo "no Start menu shortcut"; exit 1; }
wine reg query "$KEY" /v UninstallString >/dev/null 2>&1 || { echo "no uninstall entry"; exit 1; }

wine 'C:\RigInspectorTest\patcher\uninstall_rig_inspector.exe' /S
# The uninstaller runs on from a copy of itself after this call returns, and
# the prefix's wineserver stays up for other tests: wait for its work to be
# done, at most 60 s.
uninstalled() { [ ! -e "$ROOT" ] && [ ! -e "$LINK" ] && ! wine reg query "$KEY" >/dev/null 2>&1; }
n=0
until uninstalled || [ "$n" -ge 120 ]; do
    sleep 0.5
    n=$((n + 1))
done
[ ! -e "$ROOT" ] || { echo "left behind:"; find "$ROOT"; exit 1; }
[ ! -e "$LINK" ] || { echo "Start menu folder left behind"; exit 1; }
! wine reg query "$KEY" >/dev/null 2>&1 || { echo "uninstall entry left behind"; exit 1; }
echo "installer: passed"
