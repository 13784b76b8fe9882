#!/usr/bin/env bash
# serve against the bench's real peers: what a probe of each protocol answers,
# read by Prometheus' own parsers (promtool: the older text format with its lint,
# and the OpenMetrics parser of its block import); a failure is a body, never a
# bare HTTP error; the scrape's time-out shortens a probe; SIGTERM lets a probe
# in flight finish and ends with status 0.
set -uo pipefail
norvane=$1
work=$(mktemp -d)
trap 'kill "$pid" 2>/dev/null; rm -rf "$work"' EXIT
export NORVANE_REGISTRY_DIR=$work/registry
failed=0
# shellcheck source=../expect.sh
source "$(dirname "$0")/../expect.sh"
if ! command -v promtool >/dev/null; then echo "promtool is missing (scripts/install-deps.sh)"; exit 77; fi

# A data map of awkward values: texts that need escaping and the supply levels
# RFC 3805 gives meanings, next to the samples.
mkdir "$work/maps"
cp "$(dirname "$norvane")"/../../share/norvane/datamaps/*.xml "$work/maps/"
cat >"$work/maps/awkward.xml" <<'XML'
<DataMaps>
  <OIDDataMap>
    <DataItem Prefix="odd" Name="Model" OID="1.3.6.1.2.1.25.3.2.1.3.1"/>
    <StaticDataItem Prefix="odd" Name="Quote">say "hi" \ there&#10;next line</StaticDataItem>
    <StaticDataItem Prefix="odd" Name="TonerLevel">-3</StaticDataItem>
    <StaticDataItem Prefix="odd" Name="DrumLevel">unknown</StaticDataItem>
  </OIDDataMap>
</DataMaps>
XML

"$norvane" serve --listen 127.0.0.1:9170 --datamap-dir "$work/maps" --allow 127.0.0.0/8 2>"$work/serve.log" &
pid=$!
base=http://127.0.0.1:9170
for _ in $(seq 50); do curl -sf "$base/" >/dev/null && break; sleep 0.1; done

# OpenMetrics by default; the block import wants time stamps on the samples.
openmetrics() {  # QUERY NAME
  curl -s -D "$work/$2.head" "$base/$1" >"$work/$2.om"
  expect "$work/$2.head" 'Content-Type: application/openmetrics-text; version=1.0.0; charset=utf-8'
  sed -E '/^#/!s/$/ 1700000000/' "$work/$2.om" >"$work/$2.stamped"
  promtool tsdb create-blocks-from openmetrics "$work/$2.stamped" "$work/blocks-$2" >"$work/$2.import" 2>&1 ||
    { echo "FAIL: the OpenMetrics parser refused $1:"; cat "$work/$2.import" "$work/$2.om"; failed=1; }
  curl -s -H 'Accept: text/plain; version=0.0.4' "$base/$1" >"$work/$2.txt"
  promtool check metrics <"$work/$2.txt" >"$work/$2.lint" 2>&1 ||
    { echo "FAIL: promtool check metrics on $1:"; cat "$work/$2.lint" "$work/$2.txt"; failed=1; }
}
t='target="127.0.0.1",datamap'
openmetrics "probe?target=127.0.0.1&datamap=printer-supplies-snmp" snmp
expect "$work/snmp.om" "norvane_probe_success{$t=\"printer-supplies-snmp\"} 1" \
  "norvane_snmp_supply_level{$t=\"printer-supplies-snmp\",index=\"1\"} 62" \
  "norvane_snmp_supply_level{$t=\"printer-supplies-snmp\",index=\"2\"} 9" \
  "norvane_snmp_page_count_value{$t=\"printer-supplies-snmp\"} 48213" \
  "norvane_snmp_printer_status_info{$t=\"printer-supplies-snmp\",value=\"idle\"} 1"
openmetrics "probe?target=127.0.0.9&datamap=printer-status-ipp.xml" ipp
expect "$work/ipp.om" 'norvane_ipp_state_info{target="127.0.0.9",datamap="printer-status-ipp",value="idle"} 1' \
  'norvane_ipp_make_and_model_info{target="127.0.0.9",datamap="printer-status-ipp",value="Norvane NX-4100"} 1'
openmetrics "probe?target=127.0.0.1&datamap=awkward" odd
expect "$work/odd.om" 'value="say \"hi\" \\ there\nnext line"} 1' \
  "norvane_odd_toner_level{$t=\"awkward\",state=\"some_remaining\"} NaN" \
  "norvane_odd_drum_level{$t=\"awkward\",state=\"unknown\"} NaN"
# A printer that is not there, and one outside --allow: a body with the reason.
openmetrics "probe?target=127.0.0.1:6399&datamap=printer-status-ipp" dead
expect "$work/dead.om" 'norvane_probe_success{target="127.0.0.1:6399",datamap="printer-status-ipp"} 0' \
  'reason="no_protocol",message="no protocol of printer-status-ipp.xml answered'
openmetrics "probe?target=192.0.2.1&datamap=printer-status-ipp" outside
expect "$work/outside.om" 'reason="not_allowed",message="192.0.2.1 is outside the ranges --allow gives"'

# The scrape's time-out, less a margin, bounds the probe: the simulator holds
# its discovery tree for 3 s.
curl -sf -d "" "http://127.0.0.1:8080/__sim/fault?path=/DevMgmt/DiscoveryTree.xml&plan=delay:3000" >/dev/null
start=$(date +%s%N)
curl -s -H 'X-Prometheus-Scrape-Timeout-Seconds: 1.5' "$base/probe?target=127.0.0.1&datamap=printer-device-xml" \
  >"$work/slow.om"
took=$((($(date +%s%N) - start) / 1000000))
expect "$work/slow.om" 'reason="timeout",message="the printer did not answer within 1.0 s"'
((took < 1400)) || { echo "FAIL: a probe with a 1.5 s scrape time-out took $took ms"; failed=1; }

# Bad queries: 400 with a line saying why; an unknown page: 404 with a line.
for query in "probe?datamap=printer-status-ipp" "probe?target=127.0.0.1&datamap=../../etc/passwd" \
  "probe?target=ipp://[::1&datamap=printer-status-ipp" "nothing-here"; do
  code=$(curl -gs -o "$work/bad.txt" -w '%{http_code}' "$base/$query")
  [[ $code == 400 || ($code == 404 && $query == nothing-here) ]] && [[ -s $work/bad.txt ]] ||
    { echo "FAIL: /$query answered $code: $(cat "$work/bad.txt")"; failed=1; }
done

openmetrics metrics self
expect "$work/self.om" 'norvane_exporter_probes_total{datamap="printer-status-ipp"} 6' \
  'norvane_exporter_probe_failures_total{reason="timeout"} 1' \
  'norvane_exporter_probe_duration_seconds_bucket{le="+Inf"} 11'

# SIGTERM with a probe in flight: its answer is written whole, then status 0.
curl -sf -d "" "http://127.0.0.1:8080/__sim/fault?path=/DevMgmt/DiscoveryTree.xml&plan=delay:1500" >/dev/null
curl -s "$base/probe?target=127.0.0.1&datamap=printer-device-xml" >"$work/inflight.om" &
client=$!
sleep 0.5
kill -TERM "$pid"
wait "$pid"
status=$?
wait "$client"
[[ $status == 0 ]] || { echo "FAIL: serve ended with status $status after SIGTERM"; cat "$work/serve.log"; failed=1; }
expect "$work/inflight.om" 'norvane_xml_black_level{target="127.0.0.1",datamap="printer-device-xml"} 62' '# EOF'
exit $failed
