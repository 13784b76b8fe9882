#!/usr/bin/env bash
# The main job: install what is missing, build, and run the norvane demo (or the
# norvane command given as arguments).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
bash scripts/build.sh >/dev/null
exec build/tools/norvane/norvane "${@:-demo}"
