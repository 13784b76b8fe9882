#!/usr/bin/env bash
# Builds the unit tests with AddressSanitizer and UndefinedBehaviorSanitizer
# (build-asan/) and runs them.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
NORVANE_BUILD_DIR=build-asan bash scripts/build.sh -DNORVANE_SANITIZE=ON -DNORVANE_BUILD_BENCH=OFF \
  -DCMAKE_BUILD_TYPE=Debug
cd build-asan
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
ctest --output-on-failure -j2 -L unit
