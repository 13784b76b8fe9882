#!/usr/bin/env bash
# Builds and runs tests under a sanitizer:
#   sanitize.sh [asan]  the unit tests with AddressSanitizer and UndefinedBehaviorSanitizer (build-asan/)
#   sanitize.sh tsan    the unit tests with ThreadSanitizer (build-tsan/), among them reference
#                       counting, logging and the print polling threads; on the integration
#                       bench a print stream and the exporter (serve) with its threads
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
case "${1:-asan}" in
  asan)
    NORVANE_BUILD_DIR=build-asan bash scripts/build.sh -DNORVANE_SANITIZE=ON -DNORVANE_BUILD_BENCH=OFF \
      -DCMAKE_BUILD_TYPE=Debug
    cd build-asan
    export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1
    export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
    ctest --output-on-failure -j2 -L unit
    ;;
  tsan)
    NORVANE_BUILD_DIR=build-tsan bash scripts/build.sh -DNORVANE_SANITIZE_THREAD=ON -DNORVANE_BUILD_BENCH=OFF \
      -DCMAKE_BUILD_TYPE=RelWithDebInfo
    cd build-tsan
    export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:suppressions=$PWD/../scripts/tsan.supp
    # TSan's shadow memory needs the address layout of fewer random bits; setarch
    # turns randomisation off for the run where the kernel uses more.
    run=()
    if [ "$(cat /proc/sys/vm/mmap_rnd_bits 2>/dev/null || echo 28)" -gt 28 ]; then run=(setarch "$(uname -m)" -R); fi
    "${run[@]}" ctest --output-on-failure -j2 -L unit
    "${run[@]}" ctest --output-on-failure -L integration -R 'ipp_print_cancels|ipp_sim_faults|cli_serve'
    ;;
  *)
    echo "usage: $0 [asan|tsan]" >&2
    exit 2
    ;;
esac
