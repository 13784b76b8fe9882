#!/usr/bin/env bash
# Fails when a C++ file of the library, the host, the tools, the tests or the
# benchmarks is not laid out as .clang-format says. `bash scripts/check-format.sh --fix` rewrites them instead.
set -euo pipefail
cd "$(dirname "$0")/.."
mapfile -t files < <(git ls-files 'src/*.cpp' 'src/*.h' 'host/*.cpp' 'host/*.h' 'include/*.h' \
                                  'tools/*.cpp' 'tools/*.h' 'tests/*.cpp' 'tests/*.h' 'tests/*.c' \
                                  'bench/*.cpp' 'bench/*.h' 'fuzz/*.cpp')
[ ${#files[@]} -gt 0 ] || exit 0
if [ "${1:-}" = "--fix" ]; then
  clang-format -i "${files[@]}"
else
  clang-format --dry-run --Werror "${files[@]}"
fi
