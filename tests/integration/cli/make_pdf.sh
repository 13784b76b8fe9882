#!/usr/bin/env bash
# make_pdf.sh OUT [BYTES]: writes a one-page PDF with a correct cross-reference
# table, padded by comment lines in its content stream to about BYTES (default
# 2 KiB), so that tests can print a real document of the size they need.
set -euo pipefail
export LC_ALL=C  # lengths below are byte counts
out=${1:?output file}
size=${2:-2048}
text="BT /F1 24 Tf 72 720 Td (Norvane test page) Tj ET"
pad=$(( size > 900 ? size - 900 : 0 ))
content=$text$'\n'
while (( ${#content} < pad )); do
    content+="% padding line so that the document has the size the test asked for ......"$'\n'
done
objects=(
    "<< /Type /Catalog /Pages 2 0 R >>"
    "<< /Type /Pages /Kids [3 0 R] /Count 1 >>"
    "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] /Contents 4 0 R /Resources << /Font << /F1 5 0 R >> >> >>"
    "<< /Length ${#content} >>"$'\n'"stream"$'\n'"${content}endstream"
    "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>"
)
{
    printf '%%PDF-1.4\n'
    offsets=()
    offset=9
    for i in "${!objects[@]}"; do
        offsets+=("$offset")
        body=$(printf '%d 0 obj\n%s\nendobj\n' $((i + 1)) "${objects[$i]}"; printf x)
        body=${body%x}
        printf '%s' "$body"
        offset=$((offset + ${#body}))
    done
    printf 'xref\n0 %d\n0000000000 65535 f \n' $(( ${#objects[@]} + 1 ))
    for o in "${offsets[@]}"; do printf '%010d 00000 n \n' "$o"; done
    printf 'trailer\n<< /Size %d /Root 1 0 R >>\nstartxref\n%d\n%%%%EOF\n' $(( ${#objects[@]} + 1 )) "$offset"
} >"$out"
