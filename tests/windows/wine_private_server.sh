# Sourced inside a fresh network and mount namespace: gives the prefix
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
