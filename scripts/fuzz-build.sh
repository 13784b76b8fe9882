#!/usr/bin/env bash
# Builds the fuzz targets with clang (libFuzzer, ASan, UBSan) into build-fuzz/;
# the log goes to build-fuzz/build.log. Used by fuzz.sh and fuzz-campaign.sh.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
mkdir -p build-fuzz
if ! CC=clang CXX=clang++ NORVANE_BUILD_DIR=build-fuzz bash scripts/build.sh \
     -DNORVANE_BUILD_FUZZ=ON -DNORVANE_SANITIZE=ON -DNORVANE_BUILD_TESTS=OFF \
     -DNORVANE_BUILD_BENCH=OFF -DNORVANE_BUILD_HOST=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo \
     >build-fuzz/build.log 2>&1; then
  echo "fuzz build failed:"; tail -40 build-fuzz/build.log; exit 1
fi
