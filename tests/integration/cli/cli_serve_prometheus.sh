#!/usr/bin/env bash
# A real Prometheus scrapes serve for 50 printers, relabelling each target into
# the probe's query as operators do: 44 IPP printers and 4 SNMP printers (every
# 127/8 address reaches the bench's ippeveprinter and snmpd), the simulator's XML
# on 127.0.0.1, and one printer that is not there. Its query API then holds the
# values the peers serve.
set -uo pipefail
norvane=$1
work=$(mktemp -d)
trap 'kill "$prometheus" "$serve" 2>/dev/null; wait 2>/dev/null; rm -rf "$work"' EXIT
export NORVANE_REGISTRY_DIR=$work/registry
failed=0
if ! command -v prometheus >/dev/null; then echo "prometheus is missing (scripts/install-deps.sh)"; exit 77; fi

"$norvane" serve --listen 127.0.0.1:9170 --parallel 16 2>"$work/serve.log" &
serve=$!

ipp=$(for i in $(seq 2 45); do printf "'127.0.0.%d', " "$i"; done)
# One job per data map; the relabelling is the same for each.
job() {  # NAME DATAMAP TARGETS
  cat <<YAML
  - job_name: $1
    metrics_path: /probe
    params: {datamap: [$2]}
    static_configs: [{targets: [$3]}]
    relabel_configs:
      - {source_labels: [__address__], target_label: __param_target}
      - {source_labels: [__param_target], target_label: instance}
      - {target_label: __address__, replacement: '127.0.0.1:9170'}
YAML
}
{
  echo "global: {scrape_interval: 3s, scrape_timeout: 3s}"
  echo "scrape_configs:"
  job ipp printer-status-ipp "${ipp}'127.0.0.1:6399'"
  job snmp printer-supplies-snmp "'127.0.0.1', '127.0.0.46', '127.0.0.47', '127.0.0.48'"
  job xml printer-device-xml "'127.0.0.1'"
} >"$work/prometheus.yml"
prometheus --config.file="$work/prometheus.yml" --storage.tsdb.path="$work/tsdb" \
  --web.listen-address=127.0.0.1:9090 --log.level=warn >"$work/prometheus.log" 2>&1 &
prometheus=$!

# query PROMQL: the first result's value, empty while there is none.
query() {
  curl -s --data-urlencode "query=$1" http://127.0.0.1:9090/api/v1/query |
    grep -o '"value":\[[^]]*\]' | head -1 | sed -E 's/.*,"([^"]*)"\]/\1/'
}
# Every target scraped and answered by the exporter (a dead printer too); on a
# loaded machine a probe may miss its time-out once, and the next scrape counts.
for _ in $(seq 60); do
  [[ $(query 'count(up == 1)') == 50 && $(query 'sum(norvane_probe_success)') == 49 ]] && break
  sleep 0.5
done
check() {  # PROMQL EXPECTED
  local got
  got=$(query "$1")
  [[ $got == "$2" ]] || { echo "FAIL: $1 is '$got', expected '$2'"; failed=1; }
}
check 'count(up == 1)' 50
check 'norvane_snmp_supply_level{instance="127.0.0.1",index="1"}' 62
check 'norvane_snmp_supply_level{instance="127.0.0.1",index="2"}' 9
check 'count(norvane_snmp_supply_level{index="1"} == 62)' 4
check 'count(norvane_snmp_supply_level{index="2"} == 9)' 4
check 'norvane_snmp_supply_level{instance="127.0.0.47",index="2"}' 9
check 'norvane_xml_black_level{instance="127.0.0.1"}' 62
check 'norvane_snmp_printer_status_info{instance="127.0.0.1",value="idle"}' 1
check 'count(norvane_ipp_state_info{job="ipp",value="idle"})' 44
check 'count(norvane_snmp_printer_status_info{value="idle"})' 4
for i in 2 17 45; do check "norvane_ipp_state_info{instance=\"127.0.0.$i\",value=\"idle\"}" 1; done
check 'norvane_probe_success{instance="127.0.0.1:6399"}' 0
check 'count(norvane_probe_failure_info{instance="127.0.0.1:6399",reason="no_protocol"})' 1
check 'sum(norvane_probe_success)' 49
check 'count(norvane_exporter_probes_total)' ''  # the exporter's own figures are not in a probe
if ((failed)); then
  echo "--- prometheus targets"; curl -s http://127.0.0.1:9090/api/v1/targets | head -c 3000; echo
  cat "$work/prometheus.log" "$work/serve.log"
fi
kill -TERM "$prometheus" "$serve"
wait "$serve" || { echo "FAIL: serve ended with status $? after SIGTERM"; failed=1; }
exit $failed
