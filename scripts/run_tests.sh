#!/usr/bin/env bash
# Sets up the machine, builds every target and runs every test with CTest.
# Usage: scripts/run_tests.sh [preset...]   (default: dev asan tsan)
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh
presets=("$@")
[ ${#presets[@]} -gt 0 ] || presets=(dev)
for preset in "${presets[@]}"; do
    echo "== ${preset}: configure and build"
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset"
    echo "== ${preset}: test"
    ctest --preset "$preset"
done
