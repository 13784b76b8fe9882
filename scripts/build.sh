#!/usr/bin/env bash
# Configures (once) and builds the tree with Ninja into build/ (or $NORVANE_BUILD_DIR).
# Extra arguments go to the first CMake configure.
set -euo pipefail
cd "$(dirname "$0")/.."
dir=${NORVANE_BUILD_DIR:-build}
if [ ! -f "$dir/build.ninja" ]; then
  cmake -S . -B "$dir" -G Ninja "$@"
fi
cmake --build "$dir"
