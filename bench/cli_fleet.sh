#!/usr/bin/env bash
# Fleet mode of `norvane collect`: wall time and peak memory for 50 printers
# collected one at a time and 16 at a time, against the bench's real IPP printer
# (every 127/8 address reaches it).
#   bench/cli_fleet.sh [BUILD_DIR]      (starts its own bench)
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-$here/build}" && pwd)
if [[ ${NORVANE_BENCH:-} != 1 ]]; then
  exec bash "$here/tests/integration/bench.sh" --sim "$build/tools/printer-sim/norvane-printer-sim" \
    -- bash "$here/bench/cli_fleet.sh" "$build"
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for i in $(seq 1 50); do echo "127.0.0.$i"; done >"$work/targets"
printf '%-12s %10s %16s %8s\n' parallel "wall (s)" "peak RSS (KiB)" printers
for n in 1 16; do
  /usr/bin/time -f '%e %M' -o "$work/time" "$build/tools/norvane/norvane" --json collect --no-cache \
    --targets "$work/targets" --parallel "$n" \
    --datamap "$here/datamaps/printer-status-ipp.xml" >"$work/out"
  read -r wall rss <"$work/time"
  printf '%-12s %10s %16s %8s\n' "$n" "$wall" "$rss" "$(grep -c '"ok":true' "$work/out")"
done
