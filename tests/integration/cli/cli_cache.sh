#!/usr/bin/env bash
# Two printers that report no identity (no serial number, no UUID) keep their own
# cached values: the second collection of each answers from the cache, and with
# its own model, never the other printer's.
set -uo pipefail
norvane=$1
work=$(mktemp -d)
pids=()
trap 'for p in "${pids[@]}"; do kill "$p" 2>/dev/null; wait "$p" 2>/dev/null; done; rm -rf "$work"' EXIT
export NORVANE_REGISTRY_DIR=$work/registry
failed=0
# shellcheck source=../expect.sh
source "$(dirname "$0")/../expect.sh"

cat >"$work/model.xml" <<'MAP'
<DataMaps><IPPDataMap>
  <IPPParams Name="params" ResourceURI="/ipp/printer" Command="Get-Printer-Attributes" JobURI=""/>
  <DataItem Prefix="ipp" Name="MakeAndModel" AttributeID="printer-make-and-model"
            Command="Get-Printer-Attributes" JobURI="" LifeSpan="0"/>
</IPPDataMap></DataMaps>
MAP

# Each printer is a simulator of its own on an address of its own, answering IPP
# on port 80 with a model and nothing that identifies it.
for n in 2 3; do
  mkdir -p "$work/fx$n/http/ipp"
  printf 'text printer-make-and-model Model %s\nenum printer-state 3\n' "$n" >"$work/fx$n/http/ipp/printer"
  "$NORVANE_PRINTER_SIM" --bind "127.0.0.$n" --http-port 80 --alt-port off --soap-port off \
    --fixtures "$work/fx$n" --log "$work/sim$n.log" >"$work/sim$n.out" &
  pids+=($!)
done
for n in 2 3; do
  for _ in $(seq 50); do grep -q . "$work/sim$n.out" && break; sleep 0.1; done
done

for round in device cache; do
  for n in 2 3; do
    "$norvane" --json collect "127.0.0.$n:80" --datamap "$work/model.xml" >"$work/$round$n.json" || failed=1
    expect "$work/$round$n.json" "{\"key\":\"ipp:MakeAndModel\",\"source\":\"$round\",\"value\":\"Model $n\"}"
  done
done
exit $failed
