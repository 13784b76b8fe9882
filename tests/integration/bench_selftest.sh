#!/usr/bin/env bash
# Checks the bench itself, from outside: COMMAND's status and standard input come
# through, a stop request ends everything, a peer that cannot start fails the run with
# its log, and nothing the bench started outlives it.
#
#   bench_selftest.sh BENCH SIM
set -uo pipefail

bench=${1:?bench.sh path}
sim=${2:?norvane-printer-sim path}

# Every process the bench starts has the work directory, made below TMPDIR, on its
# command line (the bus socket, the spool, the snmpd configuration) or runs a command
# named here; a private TMPDIR therefore finds leftovers without confusing them with
# other benches running in parallel.
TMPDIR=$(mktemp -d "${TMPDIR:-/tmp}/norvane-bench-selftest.XXXXXX")
export TMPDIR
export NORVANE_PRINTER_SIM=$sim
marker_sleep=1000.$$
trap 'rm -rf "$TMPDIR"' EXIT

failures=0
pass() { echo "  ok   $1"; }
fail() { echo "  FAIL $1"; failures=$((failures + 1)); }
expect_eq() { if [[ $2 == "$3" ]]; then pass "$1"; else fail "$1: expected '$2', got '$3'"; fi; }

# Processes still running that belong to a bench of this test.
leftovers() {
    pgrep -af -- "$TMPDIR|sleep $marker_sleep" | grep -v -- "pgrep" || true
}

# Waits up to 3 s for the last bench's processes to be gone, then reports.
expect_no_leftovers() {
    local i left
    for ((i = 0; i < 30; i++)); do
        left=$(leftovers)
        [[ -z $left ]] && break
        sleep 0.1
    done
    if [[ -z $left ]]; then pass "$1: nothing left running"; else fail "$1: left running: $left"; fi
    left=$(find "$TMPDIR" -mindepth 1 -maxdepth 1 -name 'norvane-bench.*')
    if [[ -z $left ]]; then pass "$1: work directory removed"; else fail "$1: left $left"; fi
}

run_bench() { # STDIN-TEXT -- COMMAND...  prints the bench's status; output in $TMPDIR/out
    local input=$1 status=0
    shift
    printf '%s' "$input" | "$bench" "$@" >"$TMPDIR/out" 2>&1 || status=$?
    echo "$status"
}

echo "== status, environment and standard input"
status=$(run_bench "" -- sh -c 'exit 7')
if [[ $status == 77 ]]; then
    cat "$TMPDIR/out"
    exit 77
fi
expect_eq "COMMAND's exit status comes through" 7 "$status"
# shellcheck disable=SC2016  # expanded by the inner shell
expect_eq "COMMAND sees the bench and reads standard input" 0 \
    "$(run_bench $'hello\n' -- sh -c 'read -r line && [ "$line" = hello ] && [ "$NORVANE_BENCH" = 1 ]')"
expect_eq "COMMAND cannot reach beyond the namespace" 0 \
    "$(run_bench "" -- sh -c '! ip route get 198.51.100.7 >/dev/null 2>&1')"
status=$(run_bench "" -- sh -c "sleep $marker_sleep & exit 0")
expect_eq "a background child does not hold the bench open" 0 "$status"
expect_no_leftovers "after COMMAND left a child behind"

# shellcheck disable=SC2016  # expanded by the inner shell
status=$(run_bench "" --sim-option=--soap-port=off \
    --sim-option=--fault=/DevMgmt/DiscoveryTree.xml=503@1 -- sh -c '
        tree=http://127.0.0.1:$NORVANE_SIM_ALT_PORT/DevMgmt/DiscoveryTree.xml
        first=$(curl -s -o /dev/null -w "%{http_code}" "$tree")
        second=$(curl -s -o /dev/null -w "%{http_code}" "$tree")
        if curl -s --max-time 2 -o /dev/null http://127.0.0.1:3910/; then soap=open; else soap=closed; fi
        echo "RESULT: $NORVANE_SIM_SOAP_PORT $soap $first $second"')
expect_eq "simulator options: the bench starts without the SOAP port" 0 "$status"
expect_eq "simulator options reach the simulator" "off closed 503 200" \
    "$(sed -n 's/^RESULT: //p' "$TMPDIR/out")"

# Both ways of isolating: with a PID namespace (the default here) the kernel ends
# what the bench misses; with -rn alone, the bench's own process-group kill must.
for isolation in "" "-rn"; do
    echo "== stop request (unshare ${isolation:-chosen by the bench})"
    # The last bench's "peers up" is still in the file until the background job gets
    # round to truncating it; seen early, it would send SIGTERM to this shell's own
    # forked copy, which runs the EXIT trap (deleting TMPDIR) or drops the signal.
    : >"$TMPDIR/out"
    NORVANE_BENCH_UNSHARE=$isolation "$bench" -- bash -c "sleep $marker_sleep & sleep $marker_sleep" \
        >"$TMPDIR/out" 2>&1 &
    bench_pid=$!
    for ((i = 0; i < 300; i++)); do
        grep -q 'peers up' "$TMPDIR/out" && break
        sleep 0.1
    done
    started=$EPOCHREALTIME
    kill -TERM "$bench_pid"
    status=0
    wait "$bench_pid" || status=$?
    expect_eq "SIGTERM ends the bench with 143" 143 "$status"
    # Not a speed goal: a bench that waited for its command would take the marker's
    # 1000 s. Stopping takes under a second on an idle machine, seconds on a loaded one.
    expect_eq "and does not wait for its command" yes \
        "$(awk -v s="$started" -v e="$EPOCHREALTIME" 'BEGIN { print (e - s < 30) ? "yes" : "no" }')"
    expect_no_leftovers "after SIGTERM"
done

echo "== the host's network is never touched"
# Run the inner half as if unshare had failed to make a namespace, inside a throwaway
# namespace so that a broken guard cannot harm the real network.
status=0
# shellcheck disable=SC2016  # expanded by the inner shell
unshare -rn bash -c '
    _NORVANE_BENCH_HOST_NETNS=$(readlink /proc/self/ns/net) \
    _NORVANE_BENCH_SIM=$2 _NORVANE_BENCH_FIXTURES=/nonexistent _NORVANE_BENCH_ISOLATION=none \
        "$1" --inner -- true
    status=$?
    ip link show nvbench0 >/dev/null 2>&1 && exit 99
    exit $status' _ "$bench" "$sim" >"$TMPDIR/out" 2>&1 || status=$?
expect_eq "the bench refuses to configure the namespace it was started in" 125 "$status"

echo "== a peer that cannot start"
mkdir -p "$TMPDIR/empty-fixtures"
status=$(NORVANE_BENCH_FIXTURES="$TMPDIR/empty-fixtures" run_bench "" -- true)
expect_eq "the bench fails with 125" 125 "$status"
if grep -q 'neither an http/ nor a soap/ directory' "$TMPDIR/out"; then
    pass "the peer's log is shown"
else
    fail "the peer's log is shown: $(cat "$TMPDIR/out")"
fi
expect_no_leftovers "after a failed start"

echo
if ((failures > 0)); then
    echo "bench self-test: $failures check(s) failed"
    exit 1
fi
echo "bench self-test: all checks passed"
