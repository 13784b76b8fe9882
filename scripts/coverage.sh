#!/usr/bin/env bash
# Line and branch coverage of src/ and host/ by the unit and integration tests
# together, from an instrumented build of its own (build-cov/, or
# $NORVANE_COVERAGE_DIR). Extra arguments go to ctest (e.g. -R ipp).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
dir=${NORVANE_COVERAGE_DIR:-build-cov}
# Threads share the counters: without atomic updates a racing increment can
# leave a branch count of -1, which gcov prints and gcovr cannot read (any
# line it still cannot read is skipped and named on stderr, not fatal).
flags="--coverage -fprofile-update=atomic"
NORVANE_BUILD_DIR=$dir bash scripts/build.sh -DCMAKE_BUILD_TYPE=Debug -DNORVANE_BUILD_BENCH=OFF \
  -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" \
  -DCMAKE_EXE_LINKER_FLAGS=--coverage -DCMAKE_SHARED_LINKER_FLAGS=--coverage \
  -DCMAKE_MODULE_LINKER_FLAGS=--coverage
# Counters from an earlier run would add up with this one.
find "$dir" -name '*.gcda' -delete
status=0
(cd "$dir" && ctest -j2 -L 'unit|integration' --output-on-failure "$@") || status=$?
gcovr --root . --object-directory "$dir" --filter 'src/' --filter 'host/' \
  --exclude-throw-branches --exclude-unreachable-branches --gcov-ignore-parse-errors \
  --print-summary --output /dev/null
exit $status
