#!/usr/bin/env bash
# Builds the fuzz targets with clang (libFuzzer, ASan, UBSan) into build-fuzz/ and
# runs each for a bounded time: scripts/fuzz.sh [SECONDS_PER_TARGET] [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
shift || true
bash scripts/fuzz-build.sh
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  mapfile -t targets < <(find build-fuzz/fuzz -maxdepth 1 -type f -executable -name '*_fuzz' -printf '%f\n' | sort)
fi
status=0
for t in "${targets[@]}"; do
  corpus=build-fuzz/corpus/$t
  mkdir -p "$corpus"
  seeds=()
  [ -d "fuzz/seeds/$t" ] && seeds+=("fuzz/seeds/$t")
  [ -d "fuzz/corpus/$t" ] && seeds+=("fuzz/corpus/$t")
  echo "== $t: ${seconds}s"
  if ! build-fuzz/fuzz/"$t" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
       -print_final_stats=1 -artifact_prefix=build-fuzz/ "$corpus" "${seeds[@]}" 2>build-fuzz/$t.log; then
    echo "$t found a failure:"; tail -40 build-fuzz/$t.log; status=1
  else
    grep -E 'stat::number_of_executed_units|Done [0-9]+ runs' build-fuzz/$t.log | tail -2
  fi
done
exit $status
