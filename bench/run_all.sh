#!/usr/bin/env bash
# Builds what the benchmarks need (release preset), runs every benchmark and
# prints one table of their figures against their goals.
#
# usage: bench/run_all.sh
#
# Each benchmark is a script bench/<name>.sh taking the build directory; it
# prints readable lines and one line per figure,
#   RESULT|<benchmark>|<figure>|<value>|<goal>|<met: yes/no/->
# which end up in the table. Scripts not present are skipped. The benchmarks
# that use the network run in network namespaces of their own (needs root).
# Exit status: 0 when every benchmark ran (whether or not its goals were met),
# 1 when one could not run to its end.
set -euo pipefail
SRC=$(cd "$(dirname "$0")/.." && pwd)
cd "$SRC"
./scripts/setup.sh

BUILD=$SRC/build/release
cmake --preset release >/dev/null
# The benchmarks' own programs are every executable bench/CMakeLists.txt
# declares; the desktop and its harness only when the GUI is built.
targets=(rig_inspector_cli rig_test_server)
gui=0
if grep -q '^RIG_BUILD_GUI:BOOL=ON' "$BUILD/CMakeCache.txt"; then
    gui=1
    targets+=(rig_inspector)
fi
while read -r t; do
    if [ "$t" = bench_desktop_harness ] && [ "$gui" = 0 ]; then
        continue
    fi
    targets+=("$t")
done < <(sed -n 's/^ *add_executable( *\([A-Za-z0-9_]*\).*/\1/p' bench/CMakeLists.txt)
cmake --build --preset release --target "${targets[@]}"

OUT=$(mktemp -d)
trap 'rm -rf "$OUT"' EXIT
failed=0
names=(sequence_overhead speed_accuracy rtt_fidelity server_capacity udp_efficiency server_scale footprint extended_accuracy ini_memory bundle)
for name in "${names[@]}"; do
    script=bench/$name.sh
    if [ ! -f "$script" ]; then
        echo "== $name: bench/$name.sh is not there; skipped"
        continue
    fi
    echo
    echo "== $name"
    set +e
    # Readable lines as they come; the RESULT lines are kept for the table.
    runner=()
    [ -x "$script" ] || runner=(sh)
    "${runner[@]}" "./$script" "$BUILD" 2>&1 | tee "$OUT/$name.out" | grep -v '^RESULT|'
    status=${PIPESTATUS[0]}
    set -e
    if [ "$status" -ne 0 ]; then
        failed=1
        echo "RESULT|$name|did not run to its end (exit status $status)|-|-|no" >>"$OUT/$name.out"
    fi
done

echo
echo "== Benchmarks ($(date -u '+%Y-%m-%d %H:%M UTC'), $(nproc) cores, load average $(cut -d' ' -f1-3 /proc/loadavg))"
for name in "${names[@]}"; do
    [ -f "$OUT/$name.out" ] && grep '^RESULT|' "$OUT/$name.out"
done | awk -F'|' '
{
    n++
    for (i = 2; i <= 6; i++) cell[n, i] = $i
    cell[n, 6] = ($6 == "yes") ? "met" : ($6 == "no") ? "not met" : "-"
}
END {
    head[2] = "benchmark"; head[3] = "figure"; head[4] = "value"; head[5] = "goal"; head[6] = "met"
    for (i = 2; i <= 6; i++) {
        w[i] = length(head[i])
        for (r = 1; r <= n; r++) if (length(cell[r, i]) > w[i]) w[i] = length(cell[r, i])
    }
    line = ""
    for (i = 2; i <= 6; i++) line = line sprintf("| %-" w[i] "s ", head[i])
    print line "|"
    line = ""
    for (i = 2; i <= 6; i++) { dash = ""; for (k = 0; k < w[i]; k++) dash = dash "-"; line = line "|-" dash "-" }
    print line "|"
    for (r = 1; r <= n; r++) {
        line = ""
        for (i = 2; i <= 6; i++) line = line sprintf("| %-" w[i] "s ", cell[r, i])
        print line "|"
    }
}'
exit "$failed"
