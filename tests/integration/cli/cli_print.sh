#!/usr/bin/env bash
# `norvane print`, `jobs` and `cancel` against real print servers: ippeveprinter,
# LPrint and cupsd (bench peers). What the printer did decides the exit status;
# documents arrive byte for byte; waits end on SIGINT and at the time-out.
#
#   cli_print.sh NORVANE   (inside a bench started with --peer lprint --peer cupsd)
set -uo pipefail
norvane=$1
here=$(cd "$(dirname "$0")" && pwd)
documents=$here/../../fixtures/documents
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# ipptool names its jobs' user after the account; the tool after $USER.
USER=$(id -un)
export USER
# shellcheck source=../expect.sh
source "$here/../expect.sh"
failed=0

bash "$here/make_pdf.sh" "$work/page.pdf" 4096
lprint=$NORVANE_LPRINT_URI
cups=$NORVANE_CUPS_URI
ipp=$NORVANE_IPP_URI

# The newest regular file below DIR.
newest() { find "$1" -type f -printf '%T@ %p\n' | sort -n | tail -n 1 | cut -d' ' -f2-; }

# same FILE COPY WHAT: the printer's copy is the document, byte for byte.
same() {
    if [[ -z $2 || ! -f $2 ]]; then
        fail "$3: no copy at the printer"
    elif ! cmp -s "$1" "$2"; then
        fail "$3: $2 differs from $1"
    fi
}

# Documents that arrive whole: printer | document | the printer's copy | expected words.
# ippeveprinter and cupsd keep what they received in their spools; LPrint's label
# device gets a ZPL label unchanged and a PNG rendered to ZPL.
printed=(
    "$ipp|$work/page.pdf|$NORVANE_SPOOL_DIR/1-page_pdf.pdf|application/pdf"
    "$cups|$work/page.pdf|$NORVANE_CUPS_SPOOL_DIR/d00001-001|application/pdf"
    "$lprint|$documents/label.zpl|$NORVANE_LPRINT_DEVICE_DIR/label.zpl.prn|application/vnd.zebra-zpl"
    "$lprint|$documents/gradient.png|$NORVANE_LPRINT_DEVICE_DIR/gradient.png.prn|image/png"
)
i=0
for row in "${printed[@]}"; do
    IFS='|' read -r uri doc copy format <<<"$row"
    i=$((i + 1))
    run "print$i" 0 --timeout 20000 print "$uri" "$doc"
    expect "$work/print$i.out" "job $((i > 3 ? 2 : 1)): completed ($format"
    if [[ $format == image/png ]]; then
        grep -qa 'LPRINT.GRF' "$copy" 2>/dev/null || fail "the PNG did not become a label graphic at $copy"
    else
        same "$doc" "$copy" "print $doc to $uri"
    fi
done

# Refused before a byte is sent: the printer's list says why.
run refused-early 1 print "$lprint" "$work/page.pdf"
expect "$work/refused-early.err" "the printer does not take application/pdf" "image/png"
# Refused by the printer itself, and aborted by it: its words, exit 1.
run refused 1 --timeout 20000 print --format image/png "$ipp" "$work/page.pdf"
expect "$work/refused.err" "the printer refused the job: client-error-attributes-or-values-not-supported"
[[ $(wc -l <"$work/refused.err") == 1 ]] || fail "a refused job: more than one line"
run aborted 1 --timeout 20000 print --format application/pdf "$lprint" "$work/page.pdf"
expect "$work/aborted.err" "aborted: aborted-by-system"
run aborted-json 1 --json --timeout 20000 print --format application/pdf "$lprint" "$work/page.pdf"
expect "$work/aborted-json.out" '"ok":false' '"job-state":"aborted"'

# --no-wait returns with the job id once the printer has the document.
run nowait 0 print --no-wait "$ipp" "$work/page.pdf"
grep -qE '^job [1-9][0-9]*: ' "$work/nowait.out" || fail "--no-wait names no job: $(cat "$work/nowait.out")"

# jobs: a finished job's real state on each server; an unknown id is an error.
for uri in "$ipp" "$cups" "$lprint"; do
    run jobs 0 jobs "$uri" 1
    expect "$work/jobs.out" "completed"
    run jobs-unknown 1 jobs "$uri" 4242
    expect "$work/jobs-unknown.err" "no job 4242 at $uri"
done

# cancel: an unfinished job is cancelled, and jobs then says so. cupsd and LPrint
# hold a job on request; ippeveprinter takes seconds to "print" one.
cat >"$work/hold.test" <<'TEST'
{
    OPERATION Print-Job
    GROUP operation-attributes-tag
    ATTR charset attributes-charset utf-8
    ATTR language attributes-natural-language en
    ATTR uri printer-uri $uri
    ATTR name requesting-user-name $user
    ATTR keyword job-hold-until indefinite
    ATTR mimeMediaType document-format $format
    FILE $filename
    STATUS successful-ok
}
TEST
held=(
    "$ipp|application/pdf|$work/page.pdf"
    "$cups|application/pdf|$work/page.pdf"
    "$lprint|application/vnd.zebra-zpl|$documents/label.zpl"
)
for row in "${held[@]}"; do
    IFS='|' read -r uri format doc <<<"$row"
    if [[ $uri == "$ipp" ]]; then
        run hold 0 print --no-wait "$uri" "$doc"
        id=$(sed -n 's/^job \([0-9]*\): .*/\1/p' "$work/hold.out")
    else
        id=$(ipptool -tv -d format="$format" -f "$doc" "$uri" "$work/hold.test" |
            sed -n 's/.*job-id (integer) = \([0-9]*\).*/\1/p' | head -n 1)
    fi
    [[ -n $id ]] || { fail "could not make an unfinished job at $uri"; continue; }
    run cancel 0 --timeout 20000 cancel "$uri" "$id"
    expect "$work/cancel.out" "job $id: canceled"
    run jobs-canceled 0 jobs "$uri" "$id"
    expect "$work/jobs-canceled.out" "canceled"
done

# A stopped queue keeps the job waiting; SIGINT ends the wait within 2 s.
"$norvane" print "$NORVANE_CUPS_STOPPED_URI" "$work/page.pdf" >"$work/stopped.out" 2>"$work/stopped.err" </dev/null &
pid=$!
sleep 1.5
started=$EPOCHREALTIME
kill -INT "$pid"
status=0
wait "$pid" || status=$?
took=$(awk -v a="$started" -v b="$EPOCHREALTIME" 'BEGIN { printf "%d", (b - a) * 1000 }')
[[ $status == 130 ]] || fail "SIGINT while the queue is stopped: exit $status, want 130"
(( took < 2000 )) || fail "SIGINT while the queue is stopped: took $took ms"
expect "$work/stopped.err" "canceled while the printer was stopped: paused"
# --timeout bounds the same wait.
run stopped-timeout 1 --timeout 1500 print "$NORVANE_CUPS_STOPPED_URI" "$work/page.pdf"
expect "$work/stopped-timeout.err" "was not ready within" "stopped"

# A queue that does not exist: one line, exit 1.
run missing 1 --timeout 3000 print "ipp://127.0.0.1:$NORVANE_CUPS_PORT/printers/nothere" "$work/page.pdf"
expect "$work/missing.err" "client-error-not-found"
[[ $(wc -l <"$work/missing.err") == 1 ]] || fail "missing queue: more than one line"

# A printer on port 8000 only: nothing answers on 631 once ippeveprinter is gone.
kill "$NORVANE_IPP_PRINTER_PID"
for _ in $(seq 50); do kill -0 "$NORVANE_IPP_PRINTER_PID" 2>/dev/null || break; sleep 0.1; done
run port-print 0 --timeout 20000 print --job-name port-label "$lprint" "$documents/label.zpl"
same "$documents/label.zpl" "$NORVANE_LPRINT_DEVICE_DIR/port-label.prn" "a label to port 8000"
run port-status 0 status "$lprint"
expect "$work/port-status.out" "printer-state" "idle"
run port-collect 0 collect "$lprint" --datamap "$here/../../../datamaps/printer-status-ipp.xml"
expect "$work/port-collect.out" "idle"

exit "$failed"
