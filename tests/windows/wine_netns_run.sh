#!/bin/sh
# Runs a Windows program under Wine in a private network namespace with only
# loopback up, with a wineserver of its own started inside (see
# wine_private_server.sh):  wine_netns_run.sh PREFIX PROGRAM [ARG...]
set -eu
here=$(cd "$(dirname "$0")" && pwd)
"$here/wine_run.sh" "$1" --prepare
exec unshare --net --mount sh -c '
    . "$0"
    export WINEPREFIX=$1 WINEDEBUG=${WINEDEBUG:--all} WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-mscoree,mshtml=}
    shift
    wine_private_server || exit 1
    status=0
    wine "$@" || status=$?
    wineserver -k 2>/dev/null || true
    exit $status' "$here/wine_private_server.sh" "$@"
