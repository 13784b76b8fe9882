#!/usr/bin/env bash
# Configures (once) and builds the tree with Ninja into build/ (or $NORVANE_BUILD_DIR).
# Extra arguments go to the first CMake configure.
set -euo pipefail
cd "$(dirname "$0")/.."
dir=${NORVANE_BUILD_DIR:-build}
if [ ! -f "$dir/build.ninja" ]; then
  launcher=()
  # ccache, where present, lets several checkouts of the tree share their objects.
  command -v ccache >/dev/null && launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  cmake -S . -B "$dir" -G Ninja "${launcher[@]}" "$@"
fi
cmake --build "$dir"
