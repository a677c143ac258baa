#!/usr/bin/env bash
# Formats every source file in place, or with --check only says which ones are not in order.
set -euo pipefail
cd "$(dirname "$0")/.."

mode=(-i)
[ "${1-}" = --check ] && mode=(--dry-run --Werror)
git ls-files -z -- '*.h' '*.cpp' '*.c' '*.inc' 'src/include/QZ/QZ*' |
  xargs -0 -r clang-format "${mode[@]}" --style=file
