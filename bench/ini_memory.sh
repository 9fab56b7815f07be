#!/bin/sh
# Profile files' memory: the peak resident memory of one read, one settings
# load and one --accept edit (bench_ini_memory_probe, a process each) on files
# of the shapes that cost the most per byte, each at most the 16 MiB the
# reader accepts. Goal: under 64 MB for every shape and operation.
#
# usage: ini_memory.sh <build dir>
set -eu
SRC=$(cd "$(dirname "$0")/.." && pwd)
. "$SRC/bench/bench_common.sh"
BUILD=${1:?usage: ini_memory.sh <build dir>}
BUILD=$(cd "$BUILD" && pwd)
PROBE=$(need_bin "$BUILD/bench" bench_ini_memory_probe)

WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT
cap=16777216
head -c 15000000 /dev/zero | tr '\0' '\n' >"$WORK/newlines.ini"
awk 'BEGIN { print "[tcp]"; for (i = 0; i < 1000000; i++) printf "k%07d=%d\n", i, i;
             print "host=10.1.2.3"; print "[s]"; print "k=value" }' >"$WORK/million_keys.ini"
{ printf '[s]\nk='; head -c $((cap - 7)) /dev/zero | tr '\0' 'x'; printf '\n'; } >"$WORK/one_line.ini"

echo "== profile files' peak resident memory (load average: $(cut -d' ' -f1-3 /proc/loadavg))"
for shape in newlines million_keys one_line; do
    for mode in read settings accept; do
        cp "$WORK/$shape.ini" "$WORK/edit.ini"
        start=$(date +%s%N)
        line=$("$PROBE" "$mode" "$WORK/edit.ini")
        ms=$((($(date +%s%N) - start) / 1000000))
        kib=$(echo "$line" | sed -n 's/^peak_rss_kib=\([0-9]*\) .*/\1/p')
        mb=$(awk -v k="$kib" 'BEGIN { printf "%.1f", k * 1024 / 1e6 }')
        met=$(awk -v k="$kib" 'BEGIN { print (k * 1024 < 64e6) ? "yes" : "no" }')
        printf '%-13s %-9s %6s MB peak, %5d ms  (%s)\n' "$shape" "$mode" "$mb" "$ms" "$(echo "$line" | sed 's/^.* result=//')"
        result ini_memory "$shape $mode peak RSS" "$mb MB" "< 64 MB" "$met"
    done
done
