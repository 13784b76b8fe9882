#!/usr/bin/env bash
# A fuzzing campaign, not a CI step: runs each fuzz target (ASan+UBSan, libFuzzer)
# one after another until it has made FUZZ_RUNS executions (10 million) or spent
# SECONDS_PER_TARGET, starting from the corpus kept in the repository
# (fuzz/corpus/TARGET, plus fuzz/seeds/TARGET), then minimises what it found back
# into fuzz/corpus/TARGET with -merge=1 and prints one row per target:
#
#   scripts/fuzz-campaign.sh [SECONDS_PER_TARGET] [TARGET...]
#
# SECONDS_PER_TARGET defaults to $FUZZ_SECONDS or 2400. Without TARGETs, every
# target whose source is in fuzz/ and whose binary the build made. Runs under
# nice; a target stops at its first finding, whose input is kept as
# build-fuzz/campaign/TARGET-crash-* (or leak-, timeout-, oom-; a time-out that does
# not come again when its input runs alone is kept as slow- and not counted). Exit status 1
# when anything was found. Columns: executions made, inputs and KiB kept in the
# corpus, coverage (edges the kept corpus reaches), findings.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-${FUZZ_SECONDS:-2400}}
shift || true
runs=${FUZZ_RUNS:-10000000}
# Inputs beyond this are not kept: the corpus lives in the repository.
max_len=${FUZZ_MAX_LEN:-8192}
bash scripts/fuzz-build.sh
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for source in fuzz/*_fuzz.cpp; do
    t=$(basename "$source" .cpp)
    [ -x "build-fuzz/fuzz/$t" ] && targets+=("$t")
  done
fi
out=build-fuzz/campaign
mkdir -p "$out"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
status=0
rows=()
for t in "${targets[@]}"; do
  bin=build-fuzz/fuzz/$t
  work=$out/$t.new
  rm -rf "$work" "$out/$t-"*
  mkdir -p "$work" "fuzz/corpus/$t"
  inputs=("fuzz/corpus/$t")
  [ -d "fuzz/seeds/$t" ] && inputs+=("fuzz/seeds/$t")
  echo "== $t: up to $runs runs or ${seconds}s" >&2
  # New inputs go to the first directory; the kept ones are only read.
  nice -n 10 "$bin" -runs="$runs" -max_total_time="$seconds" -max_len="$max_len" -timeout=10 \
    -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="$out/$t-" "$work" "${inputs[@]}" \
    >"$out/$t.log" 2>&1 || true
  execs=$(grep -o 'stat::number_of_executed_units: [0-9]*' "$out/$t.log" | tail -1 | grep -o '[0-9]*$' || echo "?")
  # A time-out may be the machine's: under nice on a busy machine the wall-clock
  # limit passes while the unit waits for a core. One that runs in time on its
  # own is kept as slow-* and not counted.
  for unit in "$out/$t-timeout-"*; do
    [ -e "$unit" ] || continue
    if timeout 60 "$bin" -timeout=10 "$unit" >/dev/null 2>&1; then mv "$unit" "${unit/-timeout-/-slow-}"; fi
  done
  # Slow units only say the machine was busy; crashes, leaks, time-outs and
  # memory blow-ups are findings.
  findings=$(find "$out" -maxdepth 1 -type f \( -name "$t-crash-*" -o -name "$t-leak-*" -o -name "$t-timeout-*" \
             -o -name "$t-oom-*" \) | wc -l)
  if [ "$findings" -gt 0 ]; then
    status=1
    echo "$t found:" >&2
    grep -E 'ERROR|SUMMARY|runtime error' "$out/$t.log" | head -5 >&2 || true
  fi
  # The minimal set of inputs that covers everything found so far.
  merged=$out/$t.merged
  rm -rf "$merged" && mkdir -p "$merged"
  nice -n 10 "$bin" -merge=1 -max_len="$max_len" -timeout=10 "$merged" "$work" "${inputs[@]}" \
    >"$out/$t.merge.log" 2>&1 || true
  if [ -n "$(ls -A "$merged")" ]; then
    rm -rf "fuzz/corpus/$t" && mv "$merged" "fuzz/corpus/$t"
  fi
  cov=$(nice -n 10 "$bin" -runs=0 "fuzz/corpus/$t" 2>&1 | grep -o 'INITED cov: [0-9]*' | tail -1 | grep -o '[0-9]*$' ||
        echo "?")
  files=$(find "fuzz/corpus/$t" -type f | wc -l)
  size=$(( $(du -sb "fuzz/corpus/$t" | cut -f1) / 1024 ))
  rows+=("$(printf '%-24s %12s %7s %9s %9s %8s' "$t" "$execs" "$files" "${size}K" "$cov" "$findings")")
done
printf '%-24s %12s %7s %9s %9s %8s\n' target executions inputs corpus coverage findings
printf '%s\n' "${rows[@]}"
exit $status
