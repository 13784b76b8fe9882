#!/usr/bin/env bash
# A fleet scraped the way Prometheus scrapes it: COUNT printers (default 1,000;
# 127/8 addresses, every one reaching the bench's snmpd and ippeveprinter), each
# probed once through `norvane serve` with PARALLEL probes in flight (default 64),
# for the SNMP sample and for the IPP sample; next to them, in the same run,
# Debian's prometheus-snmp-exporter walking the same Printer-MIB objects for the
# same printers. Per row: printers answered, wall time, CPU time of the exporter
# per printer, its peak resident memory, and SNMP requests per printer where the
# agent's counters say.
#   bench/fleet.sh [BUILD_DIR] [COUNT] [PARALLEL]      (starts its own bench)
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-$here/build}" && pwd)
count=${2:-1000}
parallel=${3:-64}
if [[ ${NORVANE_BENCH:-} != 1 ]]; then
  exec bash "$here/tests/integration/bench.sh" --sim "$build/tools/printer-sim/norvane-printer-sim" \
    -- bash "$here/bench/fleet.sh" "$build" "$count" "$parallel"
fi
command -v prometheus-snmp-exporter >/dev/null || {
  echo "fleet: prometheus-snmp-exporter is missing (scripts/install-deps.sh --bench installs it)" >&2
  exit 77
}
work=$(mktemp -d)
cleanup() {
  [[ -s $work/pid ]] && kill "$(cat "$work/pid")" 2>/dev/null || true
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

# 127.0.1.1 to 127.0.4.250 and on: never 127.0.0.1, where the peers' own
# addresses could hide a target that only works on the loopback's first address.
for ((i = 0; i < count; i++)); do echo "127.0.$((1 + i / 250)).$((1 + i % 250))"; done >"$work/targets"

# The same objects as datamaps/printer-supplies-snmp.xml reads: five scalars in one
# GET, the supply and colorant columns walked.
cat >"$work/snmp.yml" <<'EOF'
printer:
  version: 2
  auth:
    community: public
  get:
  - 1.3.6.1.2.1.25.3.2.1.3.1
  - 1.3.6.1.2.1.25.3.2.1.5.1
  - 1.3.6.1.2.1.25.3.5.1.1.1
  - 1.3.6.1.2.1.43.10.2.1.4.1.1
  - 1.3.6.1.2.1.43.5.1.1.17.1
  walk:
  - 1.3.6.1.2.1.43.11.1.1.6.1
  - 1.3.6.1.2.1.43.11.1.1.8.1
  - 1.3.6.1.2.1.43.11.1.1.9.1
  - 1.3.6.1.2.1.43.12.1.1.4.1
  metrics:
  - {name: hrDeviceDescr, oid: 1.3.6.1.2.1.25.3.2.1.3, type: DisplayString,
     indexes: [{labelname: hrDeviceIndex, type: gauge}]}
  - {name: hrDeviceStatus, oid: 1.3.6.1.2.1.25.3.2.1.5, type: gauge,
     indexes: [{labelname: hrDeviceIndex, type: gauge}]}
  - {name: hrPrinterStatus, oid: 1.3.6.1.2.1.25.3.5.1.1, type: gauge,
     indexes: [{labelname: hrDeviceIndex, type: gauge}]}
  - {name: prtMarkerLifeCount, oid: 1.3.6.1.2.1.43.10.2.1.4, type: counter,
     indexes: [{labelname: hrDeviceIndex, type: gauge}, {labelname: prtMarkerIndex, type: gauge}]}
  - {name: prtGeneralSerialNumber, oid: 1.3.6.1.2.1.43.5.1.1.17, type: DisplayString,
     indexes: [{labelname: hrDeviceIndex, type: gauge}]}
  - {name: prtMarkerSuppliesDescription, oid: 1.3.6.1.2.1.43.11.1.1.6, type: DisplayString,
     indexes: [{labelname: hrDeviceIndex, type: gauge}, {labelname: prtMarkerSuppliesIndex, type: gauge}]}
  - {name: prtMarkerSuppliesMaxCapacity, oid: 1.3.6.1.2.1.43.11.1.1.8, type: gauge,
     indexes: [{labelname: hrDeviceIndex, type: gauge}, {labelname: prtMarkerSuppliesIndex, type: gauge}]}
  - {name: prtMarkerSuppliesLevel, oid: 1.3.6.1.2.1.43.11.1.1.9, type: gauge,
     indexes: [{labelname: hrDeviceIndex, type: gauge}, {labelname: prtMarkerSuppliesIndex, type: gauge}]}
  - {name: prtMarkerColorantValue, oid: 1.3.6.1.2.1.43.12.1.1.4, type: DisplayString,
     indexes: [{labelname: hrDeviceIndex, type: gauge}, {labelname: prtMarkerColorantIndex, type: gauge}]}
EOF

wait_for() {  # URL: until it answers, at most 15 s
  for _ in $(seq 150); do curl -sf -o /dev/null "$1" && return 0; sleep 0.1; done
  echo "fleet: $1 never answered" >&2
  exit 1
}

# The bench runs in its own PID namespace under the machine's /proc, so an
# exporter's CPU time and peak memory come from /usr/bin/time around a shell that
# waits for it: one exporter a row, stopped when its row is done.
exporter=""
start_exporter() {  # URL COMMAND...
  local url=$1
  shift
  rm -f "$work/pid" "$work/usage"
  /usr/bin/time -f '%U %S %M' -o "$work/usage" sh -c '"$@" 2>>"$0.log" & echo $! >"$0"; wait' "$work/pid" "$@" &
  exporter=$!
  for _ in $(seq 50); do [[ -s $work/pid ]] && break; sleep 0.1; done
  wait_for "$url"
}
stop_exporter() {
  kill "$(cat "$work/pid")"
  wait "$exporter" || true
}
snmp_requests() { snmpget -v2c -c public -Oqv 127.0.0.1 1.3.6.1.2.1.11.1.0 2>/dev/null || echo 0; }  # snmpInPkts.0

printf '%-26s %8s %9s %16s %10s %17s\n' exporter printers "wall (s)" "CPU ms/printer" "peak MiB" "SNMP req/printer"
declare -A cpu_per_printer
row() {  # NAME URL-PREFIX SUCCESS-PATTERN COMMAND...
  local name=$1 prefix=$2 pattern=$3 start end r0 r1 ok user system rss cpu
  shift 3
  start_exporter "${prefix%/*}/" "$@"
  r0=$(snmp_requests)
  start=$(date +%s.%N)
  # One probe a printer, PARALLEL at once; each answer reduced to one line.
  xargs -P "$parallel" -I{} sh -c "curl -s --max-time 30 '$prefix{}' | grep -c '$pattern' || true" \
    <"$work/targets" >"$work/answers"
  end=$(date +%s.%N)
  r1=$(snmp_requests)
  stop_exporter
  ok=$(grep -c '^[1-9]' "$work/answers" || true)
  read -r user system rss <"$work/usage"
  cpu=$(awk -v u="$user" -v s="$system" -v n="$count" 'BEGIN {printf "%.2f", (u + s) * 1000 / n}')
  cpu_per_printer[$name]=$cpu
  printf '%-26s %8s %9.1f %16s %10.1f %17.1f\n' "$name" "$ok" "$(awk -v a="$start" -v b="$end" 'BEGIN {print b - a}')" \
    "$cpu" "$(awk -v k="$rss" 'BEGIN {print k / 1024}')" "$(awk -v a="$r0" -v b="$r1" -v n="$count" 'BEGIN {print (b - a - 1) / n}')"
}
norvane=("$build/tools/norvane/norvane" serve --listen 127.0.0.1:9170 --parallel "$parallel" --no-cache
  --datamap-dir "$here/datamaps")
row "norvane serve, SNMP" "http://127.0.0.1:9170/probe?datamap=printer-supplies-snmp&target=" \
  '^norvane_probe_success{.*} 1$' "${norvane[@]}"
row "prometheus-snmp-exporter" "http://127.0.0.1:9116/snmp?module=printer&target=" '^prtMarkerSuppliesLevel{' \
  prometheus-snmp-exporter --config.file="$work/snmp.yml" --web.listen-address=127.0.0.1:9116 --log.level=warn
row "norvane serve, IPP" "http://127.0.0.1:9170/probe?datamap=printer-status-ipp&target=" \
  '^norvane_probe_success{.*} 1$' "${norvane[@]}"
awk -v a="${cpu_per_printer[norvane serve, SNMP]}" -v b="${cpu_per_printer[prometheus-snmp-exporter]}" \
  'BEGIN {if (b > 0) printf "CPU per SNMP printer, norvane serve / prometheus-snmp-exporter: %.2fx\n", a / b}'
