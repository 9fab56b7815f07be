#!/bin/sh
# Runs a Windows program under Wine in a private network namespace with only
# loopback up:  wine_netns_run.sh PREFIX PROGRAM [ARG...]
# Wine's sockets belong to the wineserver, so the server must start inside
# the namespace: a private /tmp/.wine-UID (in a private mount namespace) keeps
# the program from reaching the build's shared server, which lives outside.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
"$here/wine_run.sh" "$1" --prepare
exec unshare --net --mount sh -c '
    mkdir -p "/tmp/.wine-$(id -u)"
    mount -t tmpfs -o size=16m,mode=700 rig-wine "/tmp/.wine-$(id -u)"
    ip link set lo up
    prefix=$1; shift
    export WINEPREFIX=$prefix WINEDEBUG=${WINEDEBUG:--all} WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-mscoree,mshtml=}
    wineserver -p
    status=0
    wine "$@" || status=$?
    wineserver -k 2>/dev/null || true
    exit $status' wine_netns_run "$@"
