#!/usr/bin/env bash
# Sets up the machine, builds every target and runs every test with CTest.
# Usage: scripts/run_tests.sh [preset...]   (default: dev asan tsan fuzz windows)
# dev is the plain suite; asan and tsan run it under the sanitizers (tsan
# without the gui label, see tests/sanitizer/tsan.supp); fuzz builds the
# libFuzzer targets with clang and runs each for about 30 s on its corpus;
# windows cross-builds with MinGW-w64 and runs its tests under Wine, its
# end-to-end comparison using dev's rig_inspector_cli and rig_test_server
# (so dev is built first when windows is asked for alone).
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh
presets=("$@")
[ ${#presets[@]} -gt 0 ] || presets=(dev asan tsan fuzz windows)
if [[ " ${presets[*]} " == *" windows "* && " ${presets[*]} " != *" dev "* ]]; then
    echo "== dev (for windows): configure and build"
    cmake --preset dev >/dev/null
    cmake --build --preset dev --target rig_inspector_cli rig_test_server jumbo_echo_server bench_extended_attack
fi
# The runs the tests make are history too: keep it in the build tree, never in
# the user's own folder (each test may name a folder of its own).
export RIG_INSPECTOR_STATE_DIR="$PWD/build/test-state"
for preset in "${presets[@]}"; do
    echo "== ${preset}: configure and build"
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset"
    echo "== ${preset}: test"
    # No retries: a test that fails once is a defect to fix, not to re-run.
    ctest --preset "$preset"
    echo "== ${preset}: passed, ${SECONDS} s since the start"
done
