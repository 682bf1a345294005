#!/usr/bin/env bash
# Fails and shows the differences when a source file is not as clang-format would have it; with
# --fix it formats them.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
mode=(--dry-run --Werror)
[ "${1:-}" = --fix ] && mode=(-i)
git ls-files --cached --others --exclude-standard -z -- '*.cpp' '*.h' |
    xargs -0 clang-format-14 --style=file "${mode[@]}"
