#!/usr/bin/env bash
# `norvane print` to printers in the field (simulators beside ippeveprinter): one
# that refuses chunked uploads gets a 20 MiB document with its length, byte for byte,
# the tool under 64 MiB; IPP/1.1-only ones are read and printed to.
#
#   cli_print_field.sh NORVANE   (inside a bench)
set -uo pipefail
norvane=$1
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
pids=()
trap 'for p in "${pids[@]}"; do kill "$p" 2>/dev/null; wait "$p" 2>/dev/null; done; rm -rf "$work"' EXIT
USER=$(id -un)
export USER
# shellcheck source=../expect.sh
source "$here/../expect.sh"
failed=0

sim 41 --refuse-chunked
sim 42 --ipp11-only
sim 43 --refuse-chunked=501 --ipp11-only
refusing=ipp://127.0.0.41:80/ipp/printer
old=ipp://127.0.0.42:80/ipp/printer

# received N JOB FILE: the simulator on 127.0.0.N kept FILE as job JOB's document.
received() {
  curl -sf -o "$work/copy" "http://127.0.0.$1:80/__sim/document?job=$2" || { fail "no job $2 at 127.0.0.$1"; return; }
  cmp -s "$3" "$work/copy" || fail "job $2 at 127.0.0.$1 differs from $3"
}

head -c $((20 << 20)) /dev/urandom >"$work/big.bin"
bash "$here/make_pdf.sh" "$work/page.pdf" 4096

# The 20 MiB print: refused chunked, sent again with its length; the peak RSS
# of the whole process (the refused attempt included) is what /usr/bin/time sees.
/usr/bin/time -v -o "$work/big.time" "$norvane" --json --timeout 60000 print --format application/octet-stream \
  "$refusing" "$work/big.bin" >"$work/big.out" 2>"$work/big.err" </dev/null || fail "20 MiB print: exit $?"
expect "$work/big.err" "refused a chunked upload (HTTP 411)"
expect "$work/big.out" '"body":"content-length"' '"bytes":20971520' '"job-state":"completed"'
received 41 1 "$work/big.bin"
rss=$(awk -F': ' '/Maximum resident set size/ {print $2}' "$work/big.time")
echo "20 MiB print to the chunk-refusing printer: peak RSS ${rss} KiB"
((rss > 0 && rss < 64 * 1024)) || fail "peak RSS ${rss} KiB, want under 65536"
# Only the refused attempt went chunked.
[[ $(grep -c -- '-> 411' "$work/sim41.log") == 1 ]] || fail "411 answered $(grep -c -- '-> 411' "$work/sim41.log") times"

# print on each printer kind: URI | tool option | print option | exit | texts |
# job whose bytes must arrive (N:JOB)
cases=(
  "$refusing|||0|job 2: completed;refused a chunked upload (HTTP 411)|41:2"
  "$refusing||--no-wait|0|job 3|41:3"
  "$old|||0|job 1: completed|42:1"
  "$old|--strict-ipp||1|IPP/1.1, which --strict-ipp refuses|"
  "ipp://127.0.0.43:80/ipp/printer|||0|job 1: completed;refused a chunked upload (HTTP 501)|43:1"
)
i=0
for row in "${cases[@]}"; do
  IFS='|' read -r uri option print_option want texts job <<<"$row"
  i=$((i + 1))
  # shellcheck disable=SC2086  # an empty option is no option
  run "print$i" "$want" $option --timeout 20000 print $print_option "$uri" "$work/page.pdf"
  IFS=';' read -ra wanted <<<"$texts"
  for text in "${wanted[@]}"; do
    grep -qF -- "$text" "$work/print$i.out" "$work/print$i.err" || fail "print $option $uri: missing $text"
  done
  [[ -z $job ]] || received "${job%%:*}" "${job##*:}" "$work/page.pdf"
done
# A pipe has no length: spooled, then sent again with its length after the refusal.
cat "$work/page.pdf" | "$norvane" --timeout 20000 print "$refusing" - >"$work/pipe.out" 2>"$work/pipe.err" ||
  fail "print from a pipe: exit $?"
expect "$work/pipe.out" "job 4: completed"
received 41 4 "$work/page.pdf"
# ippeveprinter takes chunked uploads: the stream is the chunked one, unchanged.
run chunked 0 --json --timeout 20000 print "$NORVANE_IPP_URI" "$work/page.pdf"
expect "$work/chunked.out" '"body":"chunked"'
cmp -s "$work/page.pdf" "$NORVANE_SPOOL_DIR/1-page_pdf.pdf" || fail "ippeveprinter's copy differs"
run status-old 0 status "$old"
expect "$work/status-old.out" "Norvane NX-4100 Series"
exit $failed
