#!/usr/bin/env bash
# The sample data maps read what the bench's real peers serve; a second collection
# answers from the registry cache; fleet mode collects 50 printers at once.
set -uo pipefail
norvane=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export NORVANE_REGISTRY_DIR=$work/registry
samples=$(dirname "$norvane")/../../share/norvane/datamaps
failed=0

# shellcheck source=../expect.sh
source "$(dirname "$0")/../expect.sh"

# Traced: the exchanges go to stderr, the answer alone to stdout.
"$norvane" --json --trace collect 127.0.0.1 --datamap "$samples/printer-status-ipp.xml" >"$work/ipp.json" \
  2>"$work/ipp.trace" || failed=1
expect "$work/ipp.trace" 'norvane-host: http POST http://127.0.0.1:631/' ' -> 200 OK (sent '
expect "$work/ipp.json" '"protocol":"IPP"' \
  '{"key":"ipp:State","source":"device","value":"idle"}' \
  '{"key":"ipp:StateReasons","source":"device","value":"no problems"}' \
  '{"key":"ipp:MakeAndModel","source":"device","value":"Norvane NX-4100"}' \
  '{"key":"ipp:SupplyNames","source":"device","value":"Toner Waste Tank,Black Toner"}' \
  '"key":"ipp:UUID","source":"device","value":"urn:uuid:' \
  '{"key":"ipp:Source","source":"static","value":"IPP Everywhere"}'

NORVANE_HOST_TRACE=1 "$norvane" --json collect 127.0.0.1 --datamap "$samples/printer-supplies-snmp.xml" \
  >"$work/snmp.json" 2>"$work/snmp.trace" || failed=1
expect "$work/snmp.trace" 'norvane-host: snmp GET udp:127.0.0.1:161 v2c ' '; noError ('
# Not one request per object: the objects in one get-several, each column's rows
# in one GETBULK (a monitoring system polls thousands of printers a minute).
requests=$(grep -c '^norvane-host: snmp ' "$work/snmp.trace")
(( requests <= 8 )) || { echo "FAIL: the SNMP sample cost $requests requests:"; cat "$work/snmp.trace"; failed=1; }
expect "$work/snmp.json" '"protocol":"OID"' \
  '{"key":"snmp:PrinterStatus","source":"device","value":"idle"}' \
  '{"key":"snmp:DeviceStatus","source":"device","value":"running"}' \
  '{"key":"snmp:SerialNumber","source":"device","value":"NV42A17Q9X"}' \
  '{"key":"snmp:PageCount","source":"device","value":48213}' \
  '{"key":"snmp:Colorant.002","source":"device","value":"magenta"}' \
  '{"key":"snmp:SupplyDescription.001","source":"device","value":"Black Toner Cartridge NX41K"}' \
  '{"key":"snmp:SupplyDescription.002","source":"device","value":"Magenta Toner Cartridge NX41M"}' \
  '{"key":"snmp:SupplyLevel.001","source":"device","value":62}' \
  '{"key":"snmp:SupplyLevel.002","source":"device","value":9}' \
  '{"key":"snmp:SupplyMaxCapacity.001","source":"device","value":100}'

# The first collection saved its values; the second finds them still valid.
"$norvane" --json collect 127.0.0.1 --datamap "$samples/printer-supplies-snmp.xml" snmp:SerialNumber \
  >"$work/cached.json" || failed=1
expect "$work/cached.json" '{"key":"snmp:SerialNumber","source":"cache","value":"NV42A17Q9X"}'

# The device's XML sample (read over the discovery tree by the data-map guide's
# check): with the XML resources gone the web-services port serves the same
# keys, unless the host says the device has none.
sim="http://127.0.0.1:${NORVANE_SIM_HTTP_PORT:-80}/__sim"
for path in /DevMgmt/DiscoveryTree.xml /qv/device/product_information.xml; do
  curl -sf -d "" "$sim/fault?path=$path&plan=404" >/dev/null || { echo "FAIL: cannot inject a fault"; failed=1; }
done
"$norvane" --json collect --no-cache 127.0.0.1 --datamap "$samples/printer-device-xml.xml" >"$work/ws.json" ||
  failed=1
expect "$work/ws.json" '"protocol":"WS"' '{"key":"xml:Source","source":"static","value":"web services"}'
"$norvane" --json --no-web-services collect --no-cache 127.0.0.1 --datamap "$samples/printer-device-xml.xml" \
  >"$work/no-ws.json" 2>&1 && { echo "FAIL: a collection without web services answered"; failed=1; }
expect "$work/no-ws.json" 'no protocol of printer-device-xml.xml answered'
curl -sf -d "" "$sim/reset" >/dev/null

# Fleet mode: 50 printers, one JSON line each as it finishes. Every 127/8 address
# reaches the bench's IPP printer.
for i in $(seq 1 50); do echo "127.0.0.$i"; done >"$work/targets"
# A loaded machine answers slowly: the time-out is generous, the count exact.
"$norvane" --json --timeout 20000 collect --no-cache --targets "$work/targets" --parallel 8 \
  --datamap "$samples/printer-status-ipp.xml" >"$work/fleet.json" || failed=1
lines=$(grep -c '"ok":true' "$work/fleet.json")
# Every printer gets its line; on a machine loaded past the time-outs a few may
# report their time-out in it instead of values.
[[ $lines -ge 45 && $(wc -l <"$work/fleet.json") == 50 ]] ||
  { echo "FAIL: $lines of 50 printers collected"; grep -v '"ok":true' "$work/fleet.json"; failed=1; }
echo "127.0.0.1:6399" >"$work/one-bad"
"$norvane" --json collect --no-cache --targets "$work/one-bad" --datamap "$samples/printer-status-ipp.xml" \
  >"$work/bad.json" 2>/dev/null
expect "$work/bad.json" '"address":"127.0.0.1:6399"' '"ok":false' 'no protocol of printer-status-ipp.xml answered'
exit $failed
