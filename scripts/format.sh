#!/usr/bin/env bash
# format.sh [--check]: formats (or checks) every C++ file tracked by git.
set -euo pipefail
cd "$(dirname "$0")/.."
files=$( (git ls-files --cached --others --exclude-standard 2>/dev/null || find . -name '*.cpp' -o -name '*.h') | grep -E '\.(cpp|h)$' || true)
[ -z "$files" ] && exit 0
if [ "${1:-}" = "--check" ]; then
  # shellcheck disable=SC2086
  clang-format --dry-run --Werror $files
else
  # shellcheck disable=SC2086
  clang-format -i $files
fi
