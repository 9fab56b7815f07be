#!/bin/sh
# The executables players get import only DLLs every Windows has: a MinGW
# runtime DLL (libstdc++, libgcc, libwinpthread) would be missing on their PCs.
# usage: imports_test.sh <objdump> <exe>...
set -eu
OBJDUMP=$1
shift
SYSTEM=" advapi32 comctl32 comdlg32 gdi32 iphlpapi kernel32 msvcrt mswsock ole32 oleaut32 shell32 shlwapi user32 version winmm ws2_32 "
status=0
for exe in "$@"; do
    dlls=$("$OBJDUMP" -p "$exe" | sed -n 's/^[[:space:]]*DLL Name: //p' | tr 'A-Z' 'a-z' | sed 's/\.dll$//')
    [ -n "$dlls" ] || { echo "$exe: no imports found"; status=1; }
    for dll in $dlls; do
        case "$SYSTEM" in
        *" $dll "*) ;;
        *) echo "$exe imports $dll.dll"; status=1 ;;
        esac
    done
done
exit $status
