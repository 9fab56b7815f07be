#!/usr/bin/env bash
# Runs a libFuzzer binary on a temporary copy of its seed corpus.
# Usage: fuzz_run.sh <fuzzer> <seed corpus dir> <artifact dir> [libFuzzer options...]
# The fuzzer runs in a scratch directory whose assertion log is /dev/null:
# inputs that break a ZUL_ASSERT on purpose would otherwise grow the log by
# megabytes a minute. Crashing inputs are kept in <artifact dir>.
set -euo pipefail
fuzzer=$1
seeds=$2
artifacts=$3
shift 3

work=$(mktemp -d "${TMPDIR:-/tmp}/rig_fuzz.XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir "$work/corpus"
cp -R "$seeds"/. "$work/corpus/"
ln -s /dev/null "$work/assertion_failed.log"
mkdir -p "$artifacts"

cd "$work"
"$fuzzer" -artifact_prefix="$artifacts/" "$@" "$work/corpus"
