#!/usr/bin/env bash
# The tool on recordings of printers' MIBs (tests/fixtures/snmp, one community
# each) served by snmpsimd on 127.0.0.5 beside the bench's snmpd: a device
# without hrDeviceDescr.1 is named as such, fleet lines carry their own
# community, a failure's reason shows in the table, counters are JSON numbers.
# snmpsimd must start as root to drop to nobody, so this bench runs as real root
# in a plain network namespace; elsewhere it is skipped.
set -uo pipefail
norvane=$1
[[ $(id -u) == 0 ]] && command -v snmpsimd >/dev/null || { echo "skipped: needs root and snmpsimd"; exit 77; }
work=$(mktemp -d)
chmod 755 "$work"
agent=
trap '[[ -n $agent ]] && kill "$agent" 2>/dev/null && wait "$agent" 2>/dev/null; rm -rf "$work"' EXIT
export NORVANE_REGISTRY_DIR=$work/registry
samples=$(dirname "$norvane")/../../share/norvane/datamaps
recordings=$(dirname "$0")/../../fixtures/snmp
failed=0
# shellcheck source=../expect.sh
source "$(dirname "$0")/../expect.sh"

mkdir -p "$work/data" "$work/cache"
cp "$recordings"/*.snmprec "$work/data/"
chmod -R a+rX "$work/data"
chown nobody:nogroup "$work/cache"
snmpsimd --data-dir="$work/data" --cache-dir="$work/cache" --agent-udpv4-endpoint=127.0.0.5:161 \
  --process-user=nobody --process-group=nogroup --logging-method=file:"$work/snmpsim.log" &
agent=$!
for _ in $(seq 100); do
  snmpget -v2c -c laser-gap -t 0.3 -r 0 127.0.0.5 1.3.6.1.2.1.1.1.0 >/dev/null 2>&1 && break
  sleep 0.2
done

# snmpget answers, so "does not answer SNMP" would be wrong: the message names
# the object that is missing.
"$norvane" --community no-descr get 127.0.0.5 1.3.6.1.2.1.1.1.0 >"$work/out" 2>"$work/err"
[[ $? == 1 && $(wc -l <"$work/err") == 1 ]] || { echo "FAIL: get on no-descr"; cat "$work/err"; failed=1; }
expect "$work/err" "hrDeviceDescr.1 (1.3.6.1.2.1.25.3.2.1.3.1) is missing"

# Fleet mode: each line its community; the bench's own agent answers "public".
printf '127.0.0.5 laser-gap\n127.0.0.5 community=no-descr\n127.0.0.1\n' >"$work/targets"
"$norvane" collect --no-cache --targets "$work/targets" --parallel 1 \
  --datamap "$samples/printer-supplies-snmp.xml" >"$work/fleet.txt" || failed=1
expect "$work/fleet.txt" \
  "FAILED 0 of 1 data maps answered; no protocol of printer-supplies-snmp.xml answered: the device answers SNMP, but its hrDeviceDescr.1" \
  "1 of 1 data maps answered"
[[ $(grep -c '^127.0.0.[15] \{15\} ok' "$work/fleet.txt") == 2 ]] ||
  { echo "FAIL: two printers answered, padded to 24 columns:"; cat "$work/fleet.txt"; failed=1; }

# The SNMP sample on RFC 3805's special levels, a colorant table of one row
# followed by the vendor's objects, and a counter above 2^31.
"$norvane" --json --community laser-gap collect --no-cache 127.0.0.5 \
  --datamap "$samples/printer-supplies-snmp.xml" >"$work/gap.json" || failed=1
expect "$work/gap.json" \
  '{"key":"snmp:SupplyLevel.002","source":"device","value":"some remaining"}' \
  '{"key":"snmp:Colorant.001","source":"device","value":"black"}' \
  '{"key":"snmp:PageCount","source":"device","value":3000000000}'
! grep -q 'MFG:\|82214' "$work/gap.json" ||
  { echo "FAIL: the walk ran past its table:"; cat "$work/gap.json"; failed=1; }
exit $failed
