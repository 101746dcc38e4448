#!/usr/bin/env bash
# Layout, includes and lint of our sources. Usage: check-style.sh [BUILD_DIR]
#   BUILD_DIR  a configured build with compile_commands.json; without it clang-tidy is left out
set -euo pipefail
cd "$(dirname "$0")/.."

mapfile -t sources < <(git ls-files --cached --others --exclude-standard '*.h' '*.cpp')
clang-format --dry-run --Werror "${sources[@]}"
python3 scripts/check-includes.py

if [ $# -gt 0 ]; then
    mapfile -t units < <(git ls-files --cached --others --exclude-standard '*.cpp' |
        grep -vE '/win32/|^output/directsound/|^tests/windows/|^packaging/')
    printf '%s\n' "${units[@]}" |
        xargs -P "$(nproc)" -n 4 clang-tidy --quiet -p "$1" 2> >(grep -vE \
            'warnings generated|Suppressed|Use -header-filter|^$' >&2)
fi
echo "style: ${#sources[@]} files"
