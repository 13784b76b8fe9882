#!/usr/bin/env bash
# The monitoring guide's YAML is what Prometheus accepts: each block holding
# scrape jobs is a valid configuration, each holding rule groups valid rules.
set -uo pipefail
doc=$1/docs/monitoring.md
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
command -v promtool >/dev/null || { echo "promtool is missing (scripts/install-deps.sh)"; exit 77; }
awk -v dir="$work" '/^```yaml$/ { n++; inside = 1; next } /^```$/ { inside = 0 } inside { print > (dir "/" n ".yml") }' "$doc"
failed=0 checked=0
for block in "$work"/*.yml; do
  if grep -q '^groups:' "$block"; then
    promtool check rules "$block" >"$block.out" 2>&1 || { cat "$block.out"; failed=1; }
  elif grep -q 'job_name:' "$block"; then
    # A shard's excerpt lists jobs only.
    grep -q '^scrape_configs:' "$block" || sed -i '1i scrape_configs:' "$block"
    promtool check config --syntax-only "$block" >"$block.out" 2>&1 || { cat "$block.out"; failed=1; }
  else
    continue
  fi
  checked=$((checked + 1))
done
((checked == 3)) || { echo "FAIL: $checked YAML blocks of $doc checked, expected 3"; failed=1; }
exit $failed
