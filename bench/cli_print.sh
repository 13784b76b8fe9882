#!/usr/bin/env bash
# `norvane print --no-wait` of a 137 KiB PDF to the bench's idle ippeveprinter,
# median of 10 runs, next to ipptool sending the same document in the same bench.
# Goal: the tool within 3x ipptool.
#   bench/cli_print.sh [BUILD_DIR]      (starts its own bench)
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-$here/build}" && pwd)
if [[ ${NORVANE_BENCH:-} != 1 ]]; then
  exec bash "$here/tests/integration/bench.sh" --sim "$build/tools/printer-sim/norvane-printer-sim" \
    -- bash "$here/bench/cli_print.sh" "$build"
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
bash "$here/tests/integration/cli/make_pdf.sh" "$work/doc.pdf" $((137 * 1024))
cat >"$work/print.test" <<'TEST'
{ OPERATION Print-Job
  GROUP operation-attributes-tag
  ATTR charset attributes-charset utf-8
  ATTR language attributes-natural-language en
  ATTR uri printer-uri $uri
  ATTR name requesting-user-name $user
  ATTR mimeMediaType document-format application/pdf
  FILE $filename
  STATUS successful-ok }
TEST
runs=10

# Milliseconds of one run of COMMAND...
time_ms() {
  local start=$EPOCHREALTIME
  "$@" >/dev/null 2>&1
  awk -v a="$start" -v b="$EPOCHREALTIME" 'BEGIN { printf "%.1f\n", (b - a) * 1000 }'
}
median() { sort -n | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }
# Waits until the printer has no job left, so that each run finds it idle.
idle() {
  local i
  for ((i = 0; i < 600; i++)); do
    ipptool -tv "$NORVANE_IPP_URI" get-printer-attributes.test 2>/dev/null |
      grep -q 'printer-state (enum) = idle' && return 0
    sleep 0.1
  done
}

for tool in ipptool norvane; do
  for ((i = 0; i < runs; i++)); do
    idle
    if [[ $tool == ipptool ]]; then
      time_ms ipptool -f "$work/doc.pdf" "$NORVANE_IPP_URI" "$work/print.test"
    else
      time_ms "$build/tools/norvane/norvane" print --no-wait "$NORVANE_IPP_URI" "$work/doc.pdf"
    fi
  done >"$work/$tool.ms"
done
ipptool_ms=$(median <"$work/ipptool.ms")
norvane_ms=$(median <"$work/norvane.ms")
printf '%-36s %12s\n' "137 KiB PDF to idle ippeveprinter" "median (ms)"
printf '%-36s %12s\n' "ipptool Print-Job" "$ipptool_ms" "norvane print --no-wait" "$norvane_ms"
awk -v n="$norvane_ms" -v i="$ipptool_ms" 'BEGIN { r = n / i; printf "ratio %.2f (goal <= 3)\n", r; exit !(r <= 3) }'
