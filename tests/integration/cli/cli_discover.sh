#!/usr/bin/env bash
# discover and collect --discover against the bench's ippeveprinter, which registers
# itself with the bench's avahi-daemon: its URI from "rp" and the UUID it reports
# over IPP. Without a daemon on the bus the tool says so in one line and exits 3.
set -uo pipefail
norvane=$1
work=$(mktemp -d)
bus=
trap '[[ -n $bus ]] && kill "$bus" 2>/dev/null && wait "$bus" 2>/dev/null; rm -rf "$work"' EXIT
export NORVANE_REGISTRY_DIR=$work/registry
samples=$(dirname "$norvane")/../../share/norvane/datamaps
failed=0
# shellcheck source=../expect.sh
source "$(dirname "$0")/../expect.sh"

# The UUID as the printer itself reports it, through a client that is not ours.
uuid=$(ipptool -tv "$NORVANE_IPP_URI" get-printer-attributes.test |
  sed -n 's/.*printer-uuid (uri) = urn:uuid:\([0-9a-f-]*\).*/\1/p' | head -n 1)
[[ -n $uuid ]] || { echo "FAIL: ipptool reported no printer-uuid"; exit 1; }

"$norvane" --json discover --timeout 3 >"$work/json" 2>"$work/err" || { echo "FAIL: discover"; cat "$work/err"; failed=1; }
jq -e --arg name "$NORVANE_IPP_PRINTER_NAME" --arg uuid "$uuid" '
  select(.name == $name) | select(.uuid == $uuid and .port == 631 and .ty == "Norvane NX-4100")
  | select(.uri | test("^ipp://(192\\.0\\.2\\.1|127\\.0\\.0\\.1):631/ipp/print$"))
  | select(.pdl | contains("application/pdf"))
  | select(.services | index("_ipp._tcp"))' "$work/json" >/dev/null ||
  { echo "FAIL: the bench's printer is not listed with its URI and UUID $uuid:"; cat "$work/json"; failed=1; }

"$norvane" discover >"$work/table" 2>&1 || failed=1
expect "$work/table" "NAME" "URI" "$NORVANE_IPP_PRINTER_NAME" "$uuid"

"$norvane" --json collect --discover --no-cache --datamap "$samples/printer-status-ipp.xml" ipp:UUID ipp:State \
  >"$work/collect" 2>"$work/err" || { echo "FAIL: collect --discover"; cat "$work/err"; failed=1; }
jq -e --arg uuid "$uuid" 'select(.ok) | .datamaps[0].values[] | select(.key == "ipp:UUID")
  | select(.value | ascii_downcase | contains($uuid))' "$work/collect" >/dev/null ||
  { echo "FAIL: collect --discover did not read the printer's UUID:"; cat "$work/collect"; failed=1; }

# A system bus on which no avahi-daemon runs.
dbus-daemon --session --nofork --nopidfile --address="unix:path=$work/bus.sock" 2>/dev/null &
bus=$!
for _ in $(seq 100); do [[ -S $work/bus.sock ]] && break; sleep 0.05; done
status=0
DBUS_SYSTEM_BUS_ADDRESS="unix:path=$work/bus.sock" "$norvane" discover >"$work/out" 2>"$work/err" || status=$?
[[ $status == 3 && $(wc -l <"$work/err") == 1 && ! -s $work/out ]] ||
  { echo "FAIL: without a daemon: status $status, expected 3 and one line:"; cat "$work/out" "$work/err"; failed=1; }
expect "$work/err" "avahi-daemon"
exit "$failed"
