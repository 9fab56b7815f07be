#!/bin/sh
# Fails when a shipped executable imports a DLL that is not part of Windows
# (a MinGW runtime DLL, say), which a player's PC would not have.
#   check_imports.sh OBJDUMP EXE...
set -eu
objdump=$1
shift
# The system DLLs the program may import, lower case.
allowed=" advapi32.dll bcrypt.dll comctl32.dll comdlg32.dll crypt32.dll gdi32.dll imm32.dll iphlpapi.dll
kernel32.dll msimg32.dll msvcrt.dll mswsock.dll ole32.dll oleaut32.dll rpcrt4.dll shell32.dll shlwapi.dll
user32.dll uxtheme.dll version.dll winmm.dll ws2_32.dll "
status=0
for exe in "$@"; do
    dlls=$("$objdump" -p "$exe" | sed -n 's/^[[:space:]]*DLL Name: //p' | tr 'A-Z' 'a-z')
    [ -n "$dlls" ] || { echo "$exe: no import table found"; status=1; }
    for dll in $dlls; do
        case "$allowed" in
        *" $dll "* | *"
$dll "* | *" $dll
"*) ;;
        *) echo "$exe imports $dll, which is not a Windows system DLL"; status=1 ;;
        esac
    done
    echo "$(basename "$exe"): $(echo $dlls)"
done
exit $status
