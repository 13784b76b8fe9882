#!/usr/bin/env bash
# Answers captured from real printers (tests/fixtures/ipp/captures), each served by
# a simulator of its own: what `norvane status` and `collect` show of each, with
# the field compatibility the tool turns on and with --strict-ipp; the malformed
# ones fail with one line; an IPP/1.1-only printer is read after its refusal.
set -uo pipefail
norvane=$1
work=$(mktemp -d)
pids=()
trap 'for p in "${pids[@]}"; do kill "$p" 2>/dev/null; wait "$p" 2>/dev/null; done; rm -rf "$work"' EXIT
export NORVANE_REGISTRY_DIR=$work/registry
captures=$(dirname "$0")/../../fixtures/ipp/captures
samples=$(dirname "$norvane")/../../share/norvane/datamaps
failed=0
# shellcheck source=../expect.sh
source "$(dirname "$0")/../expect.sh"

# capture | simulator option | tool option | exit | texts `status` shows (';', '!' = must not) | KEY=VALUE collect gives
cases=(
  "SharpIppNext__GetPrinterAttributes_Canon_MX490_series_low_supply.bin|||0|Canon MX490 series;marker-supply-low-warning|ipp:MakeAndModel=Canon MX490 series"
  "SharpIppNext__GetPrinterAttributes_HP_Color_LaserJet_MFP_M476dn.bin|||0|48,44,48,43|ipp:MakeAndModel=HP Color LaserJet MFP M476dn"
  "python-ipp__get-printer-attributes-brother-mfcj5320dw.bin|||0|M,C,Y,BK;11,9,45,11|ipp:MakeAndModel=Brother MFC-J5320DW"
  "python-ipp__get-printer-attributes-brother-mfcj5320dw.bin||--strict-ipp|0|!Brother MFC-J5320DW;11,9,45,11"
  "python-ipp__get-printer-attributes-epsonxp6000.bin|||0|27,99,83,6,64|ipp:MakeAndModel=EPSON XP-6000 Series"
  "python-ipp__get-printer-attributes-hp6830.bin|||0|HP Officejet Pro 6830|ipp:MarkerNames=magenta ink"
  "python-ipp__get-printer-attributes-kyocera-ecosys-m2540dn-001.bin|||0|ECOSYS M2540dn|ipp:MakeAndModel=ECOSYS M2540dn"
  "ipp-client-kotlin__Xerox_B210_Printer__001-Get-Printer-Attributes.res|||0|62|ipp:MakeAndModel=Xerox B210 Printer"
  "ipp-client-kotlin__Xerox_B210_Printer__printer-stopped-media-jam.res|||0|stopped;media-jam-error|ipp:StateReasons=paper jam"
  "ipp-client-kotlin__Xerox_B210_Printer__printer-stopped-media-jam.res||--strict-ipp|1|answered IPP/1.1, which --strict-ipp refuses"
  "ipp-client-kotlin__Xerox_B210_Printer__printer-stopped-toner-empty.res|||0|toner-empty-error|ipp:StateReasons=out of toner"
  "ipp-client-kotlin__invalidBrotherMediaTypeSupported.response|||0|Brother QL-1110NWB|ipp:MediaReady=roll_current_62x0mm"
  "ipp-client-kotlin__CUPS__Cups-Get-Printers.ipp|||0|stopped,idle,idle|ipp:MarkerNames=black,cyan"
  "python-ipp__get-printer-attributes-error-0x0503.bin|||1|the printer answered server-error-version-not-supported (0x0503)"
  "ipp-client-kotlin__invalidHpNameWithLanguage.response|||1|answered, but its IPP/1.1 answer cannot be decoded"
  "ipp-client-kotlin__invalidXeroxMediaCol.response|||1|answered, but its IPP/1.1 answer cannot be decoded"
  "ipp-client-kotlin__Xerox_B210_Printer__001-Get-Printer-Attributes.res|--ipp11-only||0|Xerox B210 Printer"
  "ipp-client-kotlin__Xerox_B210_Printer__001-Get-Printer-Attributes.res|--ipp11-only|--strict-ipp|1|answered IPP/1.1, which --strict-ipp refuses"
  "python-ipp__get-jobs-kyocera-ecosys-m2540dn-000.bin|||1|answered, but its answer holds none of the printer attributes"
)

n=10
for row in "${cases[@]}"; do
  IFS='|' read -r capture sim_option tool_option want_exit texts collect <<<"$row"
  n=$((n + 1))
  # shellcheck disable=SC2086  # an empty option is no option
  sim "$n" $sim_option --ipp-capture "$captures/$capture"
  status=0
  # shellcheck disable=SC2086
  "$norvane" $tool_option status "127.0.0.$n:80" >"$work/out" 2>"$work/err" || status=$?
  what="$capture $sim_option $tool_option"
  if [[ $status != "$want_exit" ]] || { [[ $status != 0 ]] && [[ $(wc -l <"$work/err") != 1 ]]; }; then
    echo "FAIL: $what: exit $status (want $want_exit)"; cat "$work/out" "$work/err"; failed=1; continue
  fi
  IFS=';' read -ra wanted <<<"$texts"
  for text in "${wanted[@]}"; do
    grep -qF -- "${text#!}" "$work/out" "$work/err"
    [[ $? == 0 && $text != !* || $? != 0 && $text == !* ]] || { echo "FAIL: $what: $text"; cat "$work/out"; failed=1; }
  done
  [[ -z $collect ]] && continue
  "$norvane" --json collect --no-cache "127.0.0.$n:80" "${collect%%=*}" --datamap "$samples/printer-status-ipp.xml" \
    >"$work/collect.json" 2>&1 || failed=1
  grep -qF "\"source\":\"device\",\"value\":\"${collect#*=}" "$work/collect.json" ||
    { echo "FAIL: $what: collect lacks $collect:"; cat "$work/collect.json"; failed=1; }
done

# Neither Kyocera answer (127.0.0.17, 127.0.0.29) has a printer-uuid to tell the
# printers apart by: the cache keeps each printer's values apart all the same.
for round in 1 2; do
  for n in 17 29; do
    "$norvane" --json collect "127.0.0.$n:80" ipp:MakeAndModel --datamap "$samples/printer-status-ipp.xml" \
      >"$work/cache$n.json" 2>/dev/null
  done
done
expect "$work/cache17.json" '{"key":"ipp:MakeAndModel","source":"cache","value":"ECOSYS M2540dn"}'
! grep -q ECOSYS "$work/cache29.json" || { echo "FAIL: a printer got another's cached model"; failed=1; }
exit $failed
