#!/usr/bin/env bash
# Smoke test of the integration bench, run inside it by bench.sh: every peer answers on
# its real port the way the library's integration tests rely on, the three XML faces
# of the simulated printer and its SNMP agent agree on one device, and the simulator's
# faults really happen on the wire. Uses only curl, ipptool and the net-snmp tools.
set -uo pipefail

if [[ ${NORVANE_BENCH:-} != 1 ]]; then
    echo "smoke.sh: run through tests/integration/bench.sh -- $0" >&2
    exit 2
fi

host=$NORVANE_PRINTER_HOST
web="http://$host:$NORVANE_SIM_HTTP_PORT"
alt="http://$host:$NORVANE_SIM_ALT_PORT"
soap="http://$host:$NORVANE_SIM_SOAP_PORT"
control=$NORVANE_SIM_CONTROL_URL
snmp=(-v2c -c "$NORVANE_SNMP_COMMUNITY" -t 1 -r 0 -On "$host:$NORVANE_SNMP_PORT")
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

failures=0
group=""
begin() { group=$1; echo "== $group ($(date +%T.%N | cut -c1-12))"; }
pass() { echo "  ok   $1"; }
fail() { echo "  FAIL $1"; failures=$((failures + 1)); }
expect_eq() { # NAME EXPECTED ACTUAL
    if [[ $2 == "$3" ]]; then pass "$1"; else fail "$1: expected '$2', got '$3'"; fi
}
expect_match() { # NAME REGEX TEXT
    if [[ $3 =~ $2 ]]; then pass "$1"; else fail "$1: '$3' does not match /$2/"; fi
}

# GET or POST with curl; leaves headers in $tmp/h and the body in $tmp/b and prints
# "STATUS CURL-EXIT", then the fields of FETCH_WRITE_OUT (curl -w syntax) if set.
fetch() {
    local out rc=0 code extra
    out=$(curl -sS --max-time 10 -D "$tmp/h" -o "$tmp/b" \
        -w "%{http_code}${FETCH_WRITE_OUT:-}" "$@" 2>"$tmp/e") || rc=$?
    read -r code extra <<<"$out"
    echo "$code $rc $extra"
}
header() { grep -i "^$1:" "$tmp/h" | head -n1 | cut -d' ' -f2- | tr -d '\r'; }
# Text of the first element NAME, whatever its prefix, in FILE.
first_element() {
    tr -d '\n' <"$2" | grep -o "<\([A-Za-z]*:\)\{0,1\}$1[^>]*>[^<]*<" | head -n1 |
        sed 's/^<[^>]*>//; s/<$//'
}

# ---------------------------------------------------------------------------------
begin "XML resources on the web ports"

read -r status _ < <(fetch "$alt/DevMgmt/DiscoveryTree.xml")
expect_eq "discovery tree on $NORVANE_SIM_ALT_PORT" 200 "$status"
expect_match "discovery tree content type" '^text/xml' "$(header Content-Type)"
config_uri=$(tr -d '\n' <"$tmp/b" |
    sed -n 's|.*<dd:ResourceURI>\([^<]*\)</dd:ResourceURI>[[:space:]]*<dd:ResourceType>vexa:qvVexaProductConfigDyn</dd:ResourceType>.*|\1|p')
expect_eq "tree lists the product configuration" /DevMgmt/ProductConfigDyn.xml "$config_uri"

read -r status _ < <(fetch "$alt$config_uri")
expect_eq "product configuration on $NORVANE_SIM_ALT_PORT" 200 "$status"
serial=$(first_element SerialNumber "$tmp/b")
expect_match "product configuration has a serial number" '^[A-Z0-9]{10}$' "$serial"

read -r status _ < <(fetch "$web/qv/device/product_information.xml")
expect_eq "product information on $NORVANE_SIM_HTTP_PORT" 200 "$status"
expect_eq "product information names the same serial" "$serial" \
    "$(first_element ProductSerialNumber "$tmp/b")"
info_size=$(wc -c <"$tmp/b")

read -r status _ < <(fetch "$alt/DevMgmt/NoSuchResource.xml")
expect_eq "unknown resource" 404 "$status"

# ---------------------------------------------------------------------------------
begin "web-services GetPrinterElements on $NORVANE_SIM_SOAP_PORT"

envelope() { # MESSAGE-ID ACTION
    printf '%s' '<?xml version="1.0" encoding="utf-8"?> <soap:Envelope' \
        ' xmlns:soap="http://www.w3.org/2003/05/soap-envelope"' \
        ' xmlns:wsa="http://schemas.xmlsoap.org/ws/2004/08/addressing"' \
        ' xmlns:pri="http://schemas.microsoft.com/windows/2006/08/wdp/print">' \
        " <soap:Header> <wsa:To>$host:$NORVANE_SIM_SOAP_PORT</wsa:To>" \
        " <wsa:Action>http://schemas.microsoft.com/windows/2006/08/wdp/print/$2</wsa:Action>" \
        " <wsa:MessageID>urn:uuid:$1</wsa:MessageID> </soap:Header>" \
        ' <soap:Body> <pri:GetPrinterElementsRequest> <pri:RequestedElements>' \
        ' <pri:Name>pri:PrinterDescription</pri:Name> <pri:Name>pri:PrinterStatus</pri:Name>' \
        ' </pri:RequestedElements> </pri:GetPrinterElementsRequest> </soap:Body> </soap:Envelope>'
}
soap_post() { # PATH BODY [CURL-ARGS...]
    local path=$1 body=$2
    shift 2
    fetch -u guest: -H 'Content-Type: application/soap+xml' --data-binary "$body" "$@" "$soap$path"
}

message_id=6f1c0b52-3d8e-4a71-9c2f-0e5b7d4a1c93
read -r status _ < <(soap_post /device "$(envelope "$message_id" GetPrinterElements)")
expect_eq "GetPrinterElements answered" 200 "$status"
expect_match "SOAP 1.2 content type" '^application/soap\+xml' "$(header Content-Type)"
expect_eq "answer relates to our message" "urn:uuid:$message_id" "$(first_element RelatesTo "$tmp/b")"
expect_match "device id carries the serial" "(^|;)SN:$serial;" "$(first_element DeviceId "$tmp/b")"

read -r status _ < <(soap_post /device "$(envelope "$message_id" GetJobElements)")
expect_eq "wrong action refused" 400 "$status"
expect_match "refusal is a SOAP fault" 'ActionNotSupported' "$(tr -d '\n' <"$tmp/b")"

read -r status _ < <(fetch -H 'Content-Type: text/xml' \
    --data-binary "$(envelope "$message_id" GetPrinterElements)" "$soap/device")
expect_eq "non-SOAP content type refused" 415 "$status"

read -r status _ < <(soap_post /nosuchservice "$(envelope "$message_id" GetPrinterElements)")
expect_eq "unknown service path" 404 "$status"

read -r status _ < <(soap_post /device "$(envelope "$message_id" GetPrinterElements)" \
    -H 'Expect: 100-continue')
expect_eq "Expect: 100-continue refused as printers do" 417 "$status"

curl -sS "$control/requests?path=/device" >"$tmp/journal"
expect_eq "journal counts the /device requests" "count: 4" "$(head -n1 "$tmp/journal")"
expect_match "journal keeps the last request's header" 'Expect: 100-continue' "$(cat "$tmp/journal")"

# ---------------------------------------------------------------------------------
begin "fault injection"

read -r status _ < <(fetch "$alt$config_uri?sim-fault=404")
expect_eq "404 from the query string" 404 "$status"

curl -sS --data "" "$control/fault?path=$config_uri&plan=500@1" >/dev/null
read -r status _ < <(fetch "$alt$config_uri")
expect_eq "500 from the control endpoint" 500 "$status"
read -r status _ < <(fetch "$alt$config_uri")
expect_eq "a counted fault ends after its count" 200 "$status"
full_size=$(wc -c <"$tmp/b")

read -r status rc < <(fetch "$web/qv/device/product_information.xml?sim-fault=truncate:40")
expect_eq "truncated body: curl reports a partial transfer" 18 "$rc"
expect_eq "truncated body: 40 bytes arrived" 40 "$(wc -c <"$tmp/b")"
expect_eq "truncated body: the full length was announced" "$info_size" "$(header Content-Length)"

read -r status rc first total < <(FETCH_WRITE_OUT=' %{time_starttransfer} %{time_total}' \
    fetch "$alt$config_uri?sim-fault=slow:800")
expect_eq "slow body arrives whole" "200 $full_size" "$status $(wc -c <"$tmp/b")"
expect_match "slow body: headers at once, body over 0.8 s" '^yes$' \
    "$(awk -v f="$first" -v t="$total" 'BEGIN { print (f < 0.5 && t >= 0.7) ? "yes" : "no" }')"

read -r status rc first < <(FETCH_WRITE_OUT=' %{time_starttransfer}' \
    fetch "$alt$config_uri?sim-fault=delay:600")
expect_match "delayed answer waits before the status line" '^yes$' \
    "$(awk -v f="$first" 'BEGIN { print (f >= 0.55) ? "yes" : "no" }')"

read -r status _ < <(fetch "$alt$config_uri?sim-fault=chunked")
expect_eq "chunked framing" chunked "$(header Transfer-Encoding)"
expect_eq "chunked body is the same document" "$full_size" "$(wc -c <"$tmp/b")"

read -r status _ < <(soap_post "/device?sim-fault=503" \
    "$(envelope "$message_id" GetPrinterElements)")
expect_eq "injected error on the SOAP port" 503 "$status"
expect_match "injected error is a Receiver fault" 'soap:Receiver' "$(tr -d '\n' <"$tmp/b")"

curl -sS -X PUT --data-binary '<ProductInformation/>' \
    "$control/resource?path=/qv/device/product_information.xml" >/dev/null
read -r status _ < <(fetch "$web/qv/device/product_information.xml")
expect_eq "replaced document is served" '<ProductInformation/>' "$(cat "$tmp/b")"
expect_eq "replaced document keeps an XML type" text/xml "$(header Content-Type)"
curl -sS --data "" "$control/reset" >/dev/null
read -r status _ < <(fetch "$web/qv/device/product_information.xml")
expect_eq "reset restores the fixture" "$serial" "$(first_element ProductSerialNumber "$tmp/b")"

# ---------------------------------------------------------------------------------
begin "IPP on $NORVANE_IPP_PORT"

if ipptool -tv "$NORVANE_IPP_URI" get-printer-attributes.test >"$tmp/ipp" 2>&1; then
    pass "get-printer-attributes"
else
    fail "get-printer-attributes: $(tail -n 5 "$tmp/ipp")"
fi
expect_match "printer name" "printer-name \(nameWithoutLanguage\) = $NORVANE_IPP_PRINTER_NAME" \
    "$(cat "$tmp/ipp")"

# A one-page PDF: ippeveprinter sniffs documents and keeps them in the spool (-k).
cat >"$tmp/page.pdf" <<'EOF'
%PDF-1.4
1 0 obj << /Type /Catalog /Pages 2 0 R >> endobj
2 0 obj << /Type /Pages /Kids [3 0 R] /Count 1 >> endobj
3 0 obj << /Type /Page /Parent 2 0 R /MediaBox [0 0 595 842] >> endobj
trailer << /Root 1 0 R >>
%%EOF
EOF
if ipptool -t -f "$tmp/page.pdf" "$NORVANE_IPP_URI" print-job.test >"$tmp/ipp" 2>&1; then
    pass "print-job of a PDF"
else
    fail "print-job of a PDF: $(tail -n 5 "$tmp/ipp")"
fi
spooled=$(grep -rl '^%PDF-1.4' "$NORVANE_SPOOL_DIR" 2>/dev/null | head -n1)
expect_match "printed document lands in NORVANE_SPOOL_DIR" "^$NORVANE_SPOOL_DIR/" "$spooled"

# ---------------------------------------------------------------------------------
begin "SNMP on $NORVANE_SNMP_PORT"

expect_eq "hrDeviceDescr.1" '"Norvane NX-4100 Color MFP"' \
    "$(snmpget "${snmp[@]}" -Oqv 1.3.6.1.2.1.25.3.2.1.3.1 2>&1)"
expect_eq "prtGeneralSerialNumber.1 matches the XML serial" "\"$serial\"" \
    "$(snmpget "${snmp[@]}" -Oqv 1.3.6.1.2.1.43.5.1.1.17.1 2>&1)"
expect_eq "first marker's supply levels walk as two rows" $'62\n9' \
    "$(snmpwalk "${snmp[@]}" -Oqv 1.3.6.1.2.1.43.11.1.1.9.1 2>&1)"
expect_eq "second marker's supplies table is long enough to time walks" 1500 \
    "$(snmpwalk "${snmp[@]}" -Oqv 1.3.6.1.2.1.43.11.1.1.9.2 2>&1 | wc -l)"

snmpset "${snmp[@]}" "$NORVANE_SNMP_WRITABLE_OID" s "Bench Renamed" >/dev/null 2>"$tmp/e" ||
    fail "set of the writable object: $(cat "$tmp/e")"
expect_eq "writable object reads back" '"Bench Renamed"' \
    "$(snmpget "${snmp[@]}" -Oqv "$NORVANE_SNMP_WRITABLE_OID" 2>&1)"
if snmpset "${snmp[@]}" 1.3.6.1.2.1.43.5.1.1.17.1 s X >"$tmp/o" 2>&1; then
    fail "set of the read-only serial number succeeded"
else
    expect_match "read-only serial number refuses a set" 'notWritable' "$(cat "$tmp/o")"
fi
if snmpget -v2c -c not-the-community -t 0.3 -r 0 "$host:$NORVANE_SNMP_PORT" \
    1.3.6.1.2.1.1.1.0 >/dev/null 2>&1; then
    fail "an unknown community got an answer"
else
    pass "an unknown community gets no answer"
fi

# ---------------------------------------------------------------------------------
echo
if ((failures > 0)); then
    echo "smoke: $failures check(s) failed"
    exit 1
fi
echo "smoke: all checks passed"
