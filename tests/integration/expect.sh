# Sourced by the integration scripts that check the tool's output.
# expect FILE TEXT...: every TEXT occurs in FILE; a miss prints the file and sets failed=1.
expect() {
  local file=$1 text
  shift
  for text in "$@"; do
    grep -qF -- "$text" "$file" || { echo "FAIL: missing $text in:"; cat "$file"; failed=1; }
  done
}
