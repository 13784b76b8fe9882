#!/usr/bin/env bash
# Each bad input gives exactly one line on standard error naming the problem, and
# the documented exit status; nothing waits past the time-outs. Runs in a bench.
set -uo pipefail
norvane=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
printf '<DataMaps><IPPDataMap>\n<DataItem Name="x"' >"$work/truncated.xml"
printf '<Maps/>' >"$work/noroot.xml"
export NORVANE_REGISTRY_DIR=$work/registry
ipp=$NORVANE_IPP_URI
samples=$(dirname "$norvane")/../../share/norvane/datamaps

# exit | stderr pattern (grep -E) | arguments
cases=(
  "2|unknown command 'frobnicate'|frobnicate"
  "2|a command is required|"
  "2|data map '/nonexistent.xml': no such file|collect 127.0.0.1 --datamap /nonexistent.xml"
  "2|truncated.xml' is not well-formed XML \(line [0-9]+\)|collect 127.0.0.1 --datamap $work/truncated.xml"
  "2|has no DataMaps root element|collect 127.0.0.1 --datamap $work/noroot.xml"
  "2|is not a printer address|status http://127.0.0.1/"
  "1|cannot resolve host name 'no-such-printer.invalid'|status no-such-printer.invalid"
  "1|no IPP printer at ipp://192.0.2.77:631/ipp/print: last error 0x20000002 \(no answer on port 631|--timeout 1000 status 192.0.2.77"
  "1|127.0.0.1:6399: no protocol of printer-status-ipp.xml answered: status 0x80004005 \(the operation failed\), last error 0x20000002 \(no answer on port 631 \(IPP, or the port the address names\)|collect 127.0.0.1:6399 --datamap $samples/printer-status-ipp.xml"
  "1|reading: 'Software\\\\Nothing' does not exist|reg show Software/Nothing"
  "2|document '/nonexistent.pdf': cannot be read|print $ipp /nonexistent.pdf"
  "1|no job 4242 at $ipp|cancel $ipp 4242"
  "1|no job 4242 at $ipp|jobs $ipp 4242"
  "1|ipp://127.0.0.1:631/ipp/nosuch: the printer answered client-error-not-found \(0x0406\)|status ipp://127.0.0.1:631/ipp/nosuch"
)

failed=0
run_case() {
  local want_exit=$1 pattern=$2 args=$3
  local status=0 started=$SECONDS
  # shellcheck disable=SC2086  # the arguments are split on purpose
  "$norvane" $args >"$work/out" 2>"$work/err" </dev/null || status=$?
  local lines
  lines=$(wc -l <"$work/err")
  if [[ $status != "$want_exit" || $lines != 1 ]] || ! grep -qE "^norvane: .*$pattern" "$work/err"; then
    echo "FAIL: norvane $args: exit $status (want $want_exit), $lines stderr lines:"
    sed 's/^/    /' "$work/err"
    failed=1
  elif (( SECONDS - started > 30 )); then
    echo "FAIL: norvane $args took $(( SECONDS - started )) s"
    failed=1
  else
    echo "ok: norvane $args -> $(cat "$work/err")"
  fi
}

for row in "${cases[@]}"; do
  IFS='|' read -r want_exit pattern args <<<"$row"
  run_case "$want_exit" "$pattern" "$args"
done

# A printer that dies mid-print: the print fails with one line once the
# listener is gone. Only where this build prints at all.
printf 'RaS2' >"$work/tiny.pwg"
"$norvane" print "$ipp" "$work/tiny.pwg" >"$work/out" 2>&1
if grep -q 'not available in this build' "$work/out"; then
  echo "skipped: printer dying mid-print (printing is not in this build)"
else
  # Large and sparse: the print is still streaming when the printer goes.
  printf 'RaS2' >"$work/big.pwg"
  truncate -s 2G "$work/big.pwg"
  "$norvane" print --chunk 4 --format image/pwg-raster "$ipp" "$work/big.pwg" >/dev/null 2>"$work/err" &
  printer=$!
  sleep 2
  kill -KILL "$NORVANE_IPP_PRINTER_PID"
  status=0
  wait "$printer" || status=$?
  if [[ $status == 1 && $(wc -l <"$work/err") == 1 ]] && grep -qE '^norvane: the printer (stopped|refused|did not)' "$work/err"; then
    echo "ok: printer died mid-print -> $(cat "$work/err")"
  else
    echo "FAIL: printer died mid-print: exit $status"; cat "$work/err"; failed=1
  fi
fi
exit $failed
