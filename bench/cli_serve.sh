#!/usr/bin/env bash
# norvane serve on the bench's real peers: probe latency for one SNMP and one IPP
# printer (every value from the printer, then with the cache), and the exporter's
# peak memory with 16 probes in flight.
#   bench/cli_serve.sh [BUILD_DIR] [PROBES]      (starts its own bench)
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-$here/build}" && pwd)
probes=${2:-100}
if [[ ${NORVANE_BENCH:-} != 1 ]]; then
  exec bash "$here/tests/integration/bench.sh" --sim "$build/tools/printer-sim/norvane-printer-sim" \
    -- bash "$here/bench/cli_serve.sh" "$build" "$probes"
fi
norvane=$build/tools/norvane/norvane
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export NORVANE_REGISTRY_DIR=$work/registry

start_serve() {  # PORT OPTIONS...: runs under time(1) for its peak RSS
  local port=$1
  shift
  # The exporter writes its own process id: /proc here may be the host's, so
  # the bench's process ids cannot be looked up there.
  /usr/bin/time -f '%M' -o "$work/rss.$port" \
    bash -c 'echo $$ >"$0"; exec "$@"' "$work/pid" "$norvane" serve --listen "127.0.0.1:$port" "$@" 2>/dev/null &
  timer=$!
  for _ in $(seq 50); do curl -sf "http://127.0.0.1:$port/" >/dev/null && return; sleep 0.1; done
}
stop_serve() {  # PORT: peak RSS in KiB
  kill -TERM "$(cat "$work/pid")"
  wait "$timer"
  cat "$work/rss.$1"
}
# latency PORT TARGET DATAMAP: median and 90th percentile of sequential probes as
# curl saw them, and the mean of the exporter's own durations (its histogram's
# sum over count since the last call): the difference is curl's start and the
# connection, which on a loaded machine is most of it.
declare -A seen_sum seen_count
latency() {
  for _ in $(seq "$probes"); do
    curl -s -o /dev/null -w '%{time_total}\n' "http://127.0.0.1:$1/probe?target=$2&datamap=$3"
  done | sort -n | awk '{ t[NR] = $1 * 1000 } END { printf "%8.1f %8.1f", t[int(NR / 2) + 1], t[int(NR * 0.9)] }'
  read -r sum count < <(curl -s "http://127.0.0.1:$1/metrics" |
    awk '/^norvane_exporter_probe_duration_seconds_sum/{ s = $2 } /^norvane_exporter_probe_duration_seconds_count/{ c = $2 } END { print s, c }')
  awk -v s="$sum" -v c="$count" -v s0="${seen_sum[$1]:-0}" -v c0="${seen_count[$1]:-0}" \
    'BEGIN { printf " %10.1f", 1000 * (s - s0) / (c - c0) }'
  seen_sum[$1]=$sum seen_count[$1]=$count
}

printf '%-32s %8s %8s %10s\n' "probe ($probes sequential)" "p50 ms" "p90 ms" "served ms"
start_serve 9171 --no-cache
printf '%-32s %s\n' "SNMP 127.0.0.1, no cache" "$(latency 9171 127.0.0.1 printer-supplies-snmp)"
printf '%-32s %s\n' "IPP 127.0.0.2, no cache" "$(latency 9171 127.0.0.2 printer-status-ipp)"
stop_serve 9171 >/dev/null
start_serve 9172
printf '%-32s %s\n' "SNMP 127.0.0.1, cache" "$(latency 9172 127.0.0.1 printer-supplies-snmp)"
printf '%-32s %s\n' "IPP 127.0.0.2, cache" "$(latency 9172 127.0.0.2 printer-status-ipp)"
stop_serve 9172 >/dev/null

# 16 at a time: the XML resources (the largest documents) held 1 s each, SNMP
# agents that never answer (192.0.2.0/24 is the veth's network, where nothing
# listens) until the probe's time-out, IPP printers on 32 addresses.
curl -sf -d "" "http://127.0.0.1:8080/__sim/fault?path=/DevMgmt/DiscoveryTree.xml&plan=delay:1000" >/dev/null
start_serve 9173 --no-cache --parallel 16 --probe-timeout 5
{
  for i in $(seq 10 17); do
    echo "target=127.0.0.1&datamap=printer-device-xml"
    echo "target=192.0.2.$i&datamap=printer-supplies-snmp"
  done
  for i in $(seq 1 32); do echo "target=127.0.0.$i&datamap=printer-status-ipp"; done
  for i in $(seq 1 8); do echo "target=127.0.0.1&datamap=printer-device-xml"; done
} >"$work/queries"
watch_in_flight() {
  local most=0 now
  while [[ -e $work/running ]]; do
    now=$(curl -s http://127.0.0.1:9173/metrics | awk '/^norvane_exporter_probes_in_flight /{ print $2 }')
    ((${now:-0} > most)) && most=$now
    sleep 0.05
  done
  echo "$most" >"$work/most"
}
touch "$work/running"
watch_in_flight &
watcher=$!
xargs -P 16 -I{} curl -s -o /dev/null "http://127.0.0.1:9173/probe?{}" <"$work/queries"
rm "$work/running"
wait "$watcher"
answered=$(curl -s http://127.0.0.1:9173/metrics | awk '/^norvane_exporter_probes_total/{ n += $2 } END { print n }')
stop_serve 9173 >/dev/null
printf '\n%s probes 16 at a time, at most %s in flight: peak RSS %s KiB\n' "$answered" "$(cat "$work/most")" \
  "$(cat "$work/rss.9173")"
