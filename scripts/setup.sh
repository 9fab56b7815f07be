#!/usr/bin/env bash
# Installs, from Debian's packages and only when missing, everything the build,
# the tests, the benchmarks and the main job need. Idempotent: when all is there
# it prints nothing and takes well under a second; `apt-get update` runs only
# when something must be installed.
set -euo pipefail

PACKAGES=(
    # build
    g++ cmake ninja-build pkgconf clang-format git
    # libraries
    libgtest-dev libgmock-dev nlohmann-json3-dev libcli11-dev libasio-dev qt6-base-dev libssl-dev
    # tests: network namespaces, a real X server, input, fonts for the dialogs
    iproute2 util-linux xvfb xauth xdotool x11-apps fonts-liberation fontconfig
    # fuzzing and benchmarks
    clang libclang-rt-14-dev iperf3 jq procps
    # the report bundle's tests: the results schema and a real browser, offline
    python3 python3-jsonschema chromium
    # the path report's namespace chains (faults) and its benchmark's anchor
    nftables mtr-tiny
    # the Windows build: cross compilers, Wine for its tests, the installer,
    # signing and the archive (the desktop tests also use xvfb, xauth,
    # xdotool and x11-apps above)
    g++-mingw-w64-x86-64-posix mingw-w64-tools wine wine64 nsis osslsigncode openssl zip unzip
)

missing=()
for p in "${PACKAGES[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$p")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

if [ "$(id -u)" -ne 0 ]; then
    SUDO=sudo
else
    SUDO=
fi
echo "setup: installing ${missing[*]}" >&2
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
echo "setup: done" >&2
