#!/usr/bin/env bash
# The main job: install what is missing, build, and run the norvane tool.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
bash scripts/build.sh >/dev/null
exec build/tools/norvane/norvane "${@:-version}"
