#!/usr/bin/env bash
# Every tracked C++ source is formatted by the repository's .clang-format.
# Usage: format_check.sh SOURCE_DIR CLANG_FORMAT
set -euo pipefail
cd "$1"
if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
    mapfile -t files < <(git ls-files -- '*.cpp' '*.h')
else
    mapfile -t files < <(find . -path ./build -prune -o \( -name '*.cpp' -o -name '*.h' \) -print)
fi
[ ${#files[@]} -gt 0 ] || { echo "no sources found under $1" >&2; exit 1; }
exec "$2" --dry-run -Werror "${files[@]}"
