#!/usr/bin/env bash
# The data maps that docs/datamaps.md shows are real: an excerpt occurs in one of the
# sample data maps, and a whole document defines only keys the bench's peers answer.
# The XML sample, which the tool's own tests do not read, is read here too.
#   check_datamap_doc.sh NORVANE SOURCE_DIR
set -uo pipefail
norvane=$1
source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export NORVANE_REGISTRY_DIR=$work/registry
failed=0

# Layout differs between the page and the samples; only the words must match.
squash() { tr -s ' \t\n' ' ' | sed 's/^ //; s/ $//'; }
samples=$(cat "$source"/datamaps/*.xml | squash)

awk -v dir="$work" '/^```xml$/ { n++; out = sprintf("%s/example%02d.xml", dir, n); next }
                    /^```$/ { out = "" } out != "" { print > out }' "$source/docs/datamaps.md"
examples=("$work"/example*.xml)
[[ -e ${examples[0]} ]] || { echo "FAIL: no XML examples in docs/datamaps.md"; exit 1; }

for example in "${examples[@]}"; do
  if ! grep -q '<DataMaps>' "$example"; then
    text=$(squash <"$example")
    [[ $samples == *"$text"* ]] || { echo "FAIL: not an excerpt of any sample: $text"; failed=1; }
    continue
  fi
  "$norvane" --json collect 127.0.0.1 --no-cache --datamap "$example" >"$example.json" ||
    { echo "FAIL: $(basename "$example") was not read"; cat "$example"; failed=1; continue; }
  # IPPParams names no value; every other name must have come back.
  for name in $(grep -v '<IPPParams' "$example" | grep -o ' Name="[^"]*"' | cut -d'"' -f2 | sort -u); do
    grep -q "\"key\":\"$name\"" "$example.json" ||
      { echo "FAIL: $name missing from:"; cat "$example.json"; failed=1; }
  done
done

# shellcheck source=../expect.sh
source "$(dirname "$0")/../expect.sh"
"$norvane" --json collect 127.0.0.1 --no-cache --datamap "$source/datamaps/printer-device-xml.xml" \
  >"$work/xml.json" || failed=1
expect "$work/xml.json" '"protocol":"VEXA"' \
  '{"key":"xml:State","source":"device","value":"idle"}' \
  '{"key":"xml:Model","source":"device","value":"Norvane NX-4100 Series"}' \
  '{"key":"xml:SerialNumber","source":"device","value":"NV42A17Q9X"}' \
  '{"key":"xml:BlackLevel","source":"device","value":"62"}' \
  '{"key":"xml:MagentaState","source":"device","value":"order a cartridge"}'
exit $failed
