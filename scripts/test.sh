#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test (unit, install, integration).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
bash scripts/build.sh
cd "${NORVANE_BUILD_DIR:-build}"
ctest --output-on-failure -j2 "$@"
