# Sourced by the Wine tests that need a network of their own. Inside a fresh
# network and mount namespace, wine_private_server gives the prefix
# ($WINEPREFIX) a wineserver of this namespace's own. Wine's sockets belong to
# its server, so a server started outside would make the program see the
# host's loopback. Clients find the server through a folder under /tmp (the
# one the prefix's "wineserver" file names, on Debian, or /tmp/.wine-UID
# upstream); an empty tmpfs over it hides the outside server.
wine_private_server() {
    local dirs="/tmp/.wine-$(id -u)" name
    if [ -f "$WINEPREFIX/wineserver" ]; then
        name=$(cat "$WINEPREFIX/wineserver")
        case "$name" in
        "" | */* | .*) echo "wine_private_server: unexpected server folder '$name'" >&2; return 1 ;;
        esac
        dirs="$dirs /tmp/$name"
    fi
    for dir in $dirs; do
        mkdir -p "$dir"
        mount -t tmpfs -o size=16m,mode=700 rig-wine "$dir" || return 1
    done
    ip link set lo up || return 1
    if ! wineserver -p </dev/null >/dev/null 2>&1; then
        echo "wine_private_server: could not start a wineserver in this namespace" >&2
        return 1
    fi
    # Warm it: the first program start brings up Wine's services.
    wine cmd /c exit </dev/null >/dev/null 2>&1
}

# wine_namespace SCRIPT WINE_RUN PREFIX [ARGS...], as `wine_namespace "$0" "$@"`
# from a test whose first two arguments are the Wine runner and the prefix:
# the first time, it readies the prefix and runs the test again, with the same
# arguments, in a network and mount namespace of its own (and does not return);
# inside, it sets Wine's environment for the prefix.
wine_namespace() {
    local script=$1 run=$2 prefix=$3
    shift
    if [ "${RIG_WINE_NAMESPACE:-}" != 1 ]; then
        "$run" "$prefix" --prepare
        RIG_WINE_NAMESPACE=1 exec unshare --net --mount "$script" "$@"
    fi
    export WINEPREFIX=$prefix WINEDEBUG=-all WINEDLLOVERRIDES=mscoree,mshtml=
}
