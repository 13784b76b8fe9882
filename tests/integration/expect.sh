# Sourced by the integration scripts that check the tool's output.
# expect FILE TEXT...: every TEXT occurs in FILE; a miss prints the file and sets failed=1.
expect() {
  local file=$1 text
  shift
  for text in "$@"; do
    grep -qF -- "$text" "$file" || { echo "FAIL: missing $text in:"; cat "$file"; failed=1; }
  done
}

fail() { echo "FAIL: $*"; failed=1; }

# run NAME EXIT ARGS...: runs the tool ($norvane), checks its exit status and keeps
# its output in $work/NAME.out and .err.
run() {
  local name=$1 want=$2 status=0
  shift 2
  "$norvane" "$@" >"$work/$name.out" 2>"$work/$name.err" </dev/null || status=$?
  if [[ $status != "$want" ]]; then
    fail "$name: norvane $*: exit $status, want $want"
    sed 's/^/    /' "$work/$name.out" "$work/$name.err"
  fi
}

# sim N OPTION...: a simulator of its own on 127.0.0.N:80 (its log and ready line
# in $work/simN.log and .out), stopped by the caller's trap through $pids.
sim() {
  local n=$1
  shift
  "$NORVANE_PRINTER_SIM" --bind "127.0.0.$n" --http-port 80 --alt-port off --soap-port off "$@" \
    --log "$work/sim$n.log" >"$work/sim$n.out" &
  pids+=($!)
  for _ in $(seq 50); do grep -q ready "$work/sim$n.out" && break; sleep 0.1; done
}
