#!/usr/bin/env bash
# shellcheck disable=SC2317  # functions run from traps, which shellcheck cannot follow
# The integration bench: runs COMMAND inside a private network namespace where real
# peers listen on their real ports on 127.0.0.1 (ippeveprinter 631, snmpd 161,
# norvane-printer-sim 80/8080/3910), stops every peer by PID whatever happens, and
# exits with COMMAND's status.
#
#   tests/integration/bench.sh [--sim PATH] [--fixtures DIR] [--sim-option OPT]...
#                              [--peer lprint|cupsd|avahi]... -- COMMAND [ARG...]
#
# --sim-option passes one more option to the simulator, e.g. --sim-option=--soap-port=off
# for a device without web services, or --sim-option=--fault=/device=500.
# --peer starts one more print server next to the others: lprint (port 8000, one
# label printer "lab") or cupsd (port 8631, a raw queue "lab" and a stopped one
# "halted", each writing to a file) or avahi (avahi-daemon on the bench's bus, with
# which ippeveprinter then registers itself by DNS-SD; needs the bench as real root,
# NORVANE_BENCH_UNSHARE="-n --pid --fork --kill-child=SIGTERM", since the daemon
# insists on its runtime directory belonging to its own user).
#
# Exit status: COMMAND's (the peers' logs are printed when it is not 0); 125 when the
# peers could not be started (their logs are printed too); 77 when this machine cannot make the namespace or lacks a peer program,
# which ctest reports as skipped (set NORVANE_BENCH_REQUIRED=1 to make that a failure).
#
# Environment read: NORVANE_PRINTER_SIM (simulator binary, or --sim),
# NORVANE_BENCH_FIXTURES (fixture set, or --fixtures), NORVANE_BENCH_START_TIMEOUT
# (seconds per peer, default 15), NORVANE_BENCH_KEEP=1 (keep the work directory),
# NORVANE_BENCH_VERBOSE=1 (verbose peers, logs printed at the end),
# NORVANE_BENCH_UNSHARE (force the unshare options, e.g. "-rn"),
# NORVANE_BENCH_SNMPD_EDIT (a sed script applied to snmpd.conf.in, so a test can play
# a device that answers differently).
# What COMMAND receives is listed in export_bench_environment below.
set -euo pipefail

readonly EXIT_SKIP=77
readonly EXIT_BENCH_FAILED=125
script_path=$(readlink -f -- "${BASH_SOURCE[0]}")
script_dir=$(dirname -- "$script_path")
readonly script_path script_dir

# Fixed facts of the bench, shared by both halves of the script.
readonly BENCH_IPV4=192.0.2.1
readonly BENCH_IPV6=fd00::1
readonly IPP_PORT=631
readonly SNMP_PORT=161
readonly SNMP_COMMUNITY=public
readonly SNMP_BIG_TABLE_ROWS=1500
readonly SIM_HTTP_PORT=80
readonly SIM_ALT_PORT=8080
readonly SIM_SOAP_PORT=3910
readonly PRINTER_NAME="Norvane Test"
readonly LPRINT_PORT=8000
readonly CUPS_PORT=8631

say() { printf 'bench: %s\n' "$*" >&2; }

usage() {
    sed -n '/^# The integration bench/,/^set -euo/{/^set -euo/d;s/^# \{0,1\}//;p}' "$script_path" >&2
    exit 2
}

# ---------------------------------------------------------------------------------
# Outer half: check the machine, then re-run this script inside the namespaces.
# ---------------------------------------------------------------------------------

skip_or_fail() {
    say "$*"
    if [[ ${NORVANE_BENCH_REQUIRED:-0} == 1 ]]; then
        exit 1
    fi
    say "skipping (set NORVANE_BENCH_REQUIRED=1 to fail instead)"
    exit "$EXIT_SKIP"
}

# Prints the unshare options that work here, best isolation first. A PID namespace
# on top of the network namespace makes the kernel kill anything COMMAND left
# behind when the bench's init exits; a root user outside any user namespace can
# still make a bare network namespace.
# (printf, not echo: echo would swallow a lone "-n".)
pick_isolation() {
    if [[ -n ${NORVANE_BENCH_UNSHARE:-} ]]; then
        # Forced, to exercise a weaker isolation on a machine that offers more.
        [[ $NORVANE_BENCH_UNSHARE == *n* ]] || return 1
        # shellcheck disable=SC2086
        unshare $NORVANE_BENCH_UNSHARE true && printf '%s\n' "$NORVANE_BENCH_UNSHARE"
        return
    fi
    if unshare -rn --pid --fork --kill-child=SIGTERM true 2>/dev/null; then
        printf '%s\n' "-rn --pid --fork --kill-child=SIGTERM"
    elif unshare -rn true 2>/dev/null; then
        printf '%s\n' "-rn"
    elif [[ $(id -u) == 0 ]] && unshare -n true 2>/dev/null; then
        printf '%s\n' "-n"
    else
        return 1
    fi
}

outer() {
    local sim=${NORVANE_PRINTER_SIM:-}
    local fixtures=${NORVANE_BENCH_FIXTURES:-$script_dir/../fixtures/printer-sim}
    local inner_options=()
    while [[ $# -gt 0 ]]; do
        case $1 in
            --sim) sim=${2:?--sim needs a path}; shift 2 ;;
            --sim=*) sim=${1#*=}; shift ;;
            --fixtures) fixtures=${2:?--fixtures needs a directory}; shift 2 ;;
            --fixtures=*) fixtures=${1#*=}; shift ;;
            --sim-option) inner_options+=(--sim-option "${2:?--sim-option needs a value}"); shift 2 ;;
            --sim-option=*) inner_options+=(--sim-option "${1#*=}"); shift ;;
            --peer) inner_options+=(--peer "${2:?--peer needs a name}"); shift 2 ;;
            --peer=*) inner_options+=(--peer "${1#*=}"); shift ;;
            --) shift; break ;;
            -h|--help) usage ;;
            *) say "unknown option '$1'"; usage ;;
        esac
    done
    [[ $# -gt 0 ]] || usage

    if [[ -z $sim ]]; then
        say "no simulator: set NORVANE_PRINTER_SIM or pass --sim PATH"
        exit 2
    fi
    [[ -x $sim ]] || { say "simulator '$sim' is not executable"; exit 2; }
    [[ -d $fixtures ]] || { say "fixture set '$fixtures' is not a directory"; exit 2; }

    local tool missing=() wanted=(unshare ip dbus-daemon ippeveprinter ipptool snmpd snmpget curl) i
    for ((i = 0; i < ${#inner_options[@]}; i += 2)); do
        case ${inner_options[$i]}:${inner_options[$((i + 1))]} in
            --peer:lprint) wanted+=(lprint) ;;
            --peer:cupsd) wanted+=(cupsd) ;;
            --peer:avahi) wanted+=(avahi-daemon dbus-send) ;;
            --peer:*) say "unknown peer '${inner_options[$((i + 1))]}' (lprint, cupsd, avahi)"; exit 2 ;;
        esac
    done
    for tool in "${wanted[@]}"; do
        command -v "$tool" >/dev/null || missing+=("$tool")
    done
    [[ ${#missing[@]} -eq 0 ]] ||
        skip_or_fail "missing programs: ${missing[*]} (scripts/install-deps.sh installs them)"

    local isolation
    isolation=$(pick_isolation) || skip_or_fail "cannot create a network namespace here"
    local unshare_options
    read -ra unshare_options <<<"$isolation"
    [[ ${#unshare_options[@]} -gt 0 ]] || skip_or_fail "no usable unshare options"
    if [[ " ${inner_options[*]} " == *" --peer avahi "* && $isolation == *-r* ]]; then
        skip_or_fail "avahi-daemon needs the bench as real root in a plain network namespace" \
            "(NORVANE_BENCH_UNSHARE=\"-n --pid --fork --kill-child=SIGTERM\" as root)"
    fi

    export _NORVANE_BENCH_SIM _NORVANE_BENCH_FIXTURES _NORVANE_BENCH_ISOLATION
    export _NORVANE_BENCH_HOST_NETNS
    _NORVANE_BENCH_HOST_NETNS=$(readlink /proc/self/ns/net)
    _NORVANE_BENCH_SIM=$(readlink -f -- "$sim")
    _NORVANE_BENCH_FIXTURES=$(readlink -f -- "$fixtures")
    _NORVANE_BENCH_ISOLATION=$isolation

    if [[ $isolation != *--fork* ]]; then
        # unshare execs the inner half in this very process: signals sent to the
        # bench reach the inner half's traps directly.
        exec unshare "${unshare_options[@]}" -- \
            bash "$script_path" --inner "${inner_options[@]}" -- "$@"
    fi

    # With --fork, unshare blocks SIGTERM and SIGINT and forwards nothing, so this
    # shell stays as the process callers signal. It hands a stop request to the
    # inner half (PID 1 of the new PID namespace) and, should that not end it,
    # kills it: the kernel then kills everything inside. If this shell is killed
    # outright, the parent-death signal takes unshare down, and --kill-child sends
    # the inner half SIGTERM.
    local runner=()
    if command -v setpriv >/dev/null; then
        runner=(setpriv --pdeathsig KILL --)
    fi
    "${runner[@]}" unshare "${unshare_options[@]}" -- \
        bash "$script_path" --inner "${inner_options[@]}" -- "$@" <&0 &
    unshare_pid=$!
    trap 'stop_inner 143' TERM
    trap 'stop_inner 130' INT
    trap 'stop_inner 129' HUP
    local status=0
    wait "$unshare_pid" || status=$?
    exit "$status"
}

stop_inner() {
    local code=$1 inner i
    trap '' TERM INT HUP
    inner=$(cat "/proc/$unshare_pid/task/$unshare_pid/children" 2>/dev/null || true)
    inner=${inner%% *}
    if [[ -n $inner ]]; then
        kill -TERM "$inner" 2>/dev/null || true
    fi
    for ((i = 0; i < 100; i++)); do
        kill -0 "$unshare_pid" 2>/dev/null || break
        sleep 0.1
    done
    if kill -0 "$unshare_pid" 2>/dev/null; then
        say "inner half did not stop within 10 s; killing its namespace"
        [[ -z $inner ]] || kill -KILL "$inner" 2>/dev/null || true
        kill -KILL "$unshare_pid" 2>/dev/null || true
    fi
    wait "$unshare_pid" 2>/dev/null || true
    exit "$code"
}

# ---------------------------------------------------------------------------------
# Inner half: runs in the private namespaces.
# ---------------------------------------------------------------------------------

workdir=""
sim_options=()
extra_peers=()
command_pid=""
bench_failed=0
command_failed=0
stopping=0
peer_names=()
peer_pids=()

now_ms() { echo $(( ${EPOCHREALTIME/./} / 1000 )); }

start_peer() {
    local name=$1
    shift
    "$@" >"$workdir/logs/$name.out" 2>"$workdir/logs/$name.log" </dev/null 3<&- &
    peer_names+=("$name")
    peer_pids+=("$!")
}

peer_pid() {
    local i
    for i in "${!peer_names[@]}"; do
        [[ ${peer_names[$i]} == "$1" ]] && { echo "${peer_pids[$i]}"; return; }
    done
}

dump_logs() {
    local file shown=0
    for file in "$workdir"/logs/*; do
        [[ -s $file ]] || continue
        printf '\n----- %s (last 60 lines) -----\n' "${file##*/}" >&2
        tail -n 60 "$file" >&2
        shown=1
    done
    [[ $shown == 0 ]] || printf -- '-----\n' >&2
}

bench_fail() {
    say "$*"
    bench_failed=1
    exit "$EXIT_BENCH_FAILED"
}

# Polls CHECK... until it succeeds, failing fast when the peer has exited.
wait_for_peer() {
    local name=$1
    shift
    local pid limit_ms deadline
    pid=$(peer_pid "$name")
    limit_ms=$(( ${NORVANE_BENCH_START_TIMEOUT:-15} * 1000 ))
    deadline=$(( $(now_ms) + limit_ms ))
    until "$@" >/dev/null 2>&1; do
        if ! kill -0 "$pid" 2>/dev/null; then
            local status=0
            wait "$pid" || status=$?
            bench_fail "$name exited during start-up with status $status"
        fi
        if (( $(now_ms) > deadline )); then
            bench_fail "$name did not answer within ${limit_ms} ms (check: $*)"
        fi
        sleep 0.05
    done
}

# Stops one peer: SIGTERM, up to 5 s of grace, then SIGKILL.
stop_peer() {
    local name=$1 pid=$2 deadline
    kill -TERM "$pid" 2>/dev/null || return 0
    deadline=$(( $(now_ms) + 5000 ))
    while kill -0 "$pid" 2>/dev/null; do
        if (( $(now_ms) > deadline )); then
            say "$name (pid $pid) ignored SIGTERM; killing it"
            kill -KILL "$pid" 2>/dev/null || true
            break
        fi
        sleep 0.02
    done
    wait "$pid" 2>/dev/null || true
}

stop_peers() {
    local i
    # Reverse start order, one at a time: ippeveprinter leaves the bus before the
    # bus goes away, instead of logging that it crashed.
    for ((i = ${#peer_pids[@]} - 1; i >= 0; i--)); do
        stop_peer "${peer_names[$i]}" "${peer_pids[$i]}"
    done
}

stop_command() {
    [[ -n $command_pid ]] || return 0
    kill -0 "$command_pid" 2>/dev/null || return 0
    # COMMAND runs in its own process group (see run_command); end all of it.
    kill -TERM -- "-$command_pid" 2>/dev/null || kill -TERM "$command_pid" 2>/dev/null || true
    local i
    for ((i = 0; i < 50; i++)); do
        kill -0 "$command_pid" 2>/dev/null || break
        sleep 0.1
    done
    kill -KILL -- "-$command_pid" 2>/dev/null || true
    wait "$command_pid" 2>/dev/null || true
}

cleanup() {
    local status=$?
    # Nothing may cut the teardown short, not even an unset variable.
    set +eu
    trap '' TERM INT HUP
    stop_command
    stop_peers
    if [[ $bench_failed == 1 || $command_failed == 1 || ${NORVANE_BENCH_VERBOSE:-0} == 1 ]]; then
        dump_logs
    fi
    if [[ -n $workdir ]]; then
        if [[ ${NORVANE_BENCH_KEEP:-0} == 1 ]]; then
            say "work directory kept: $workdir"
        else
            rm -rf -- "$workdir"
        fi
    fi
    exit "$status"
}

on_signal() {
    [[ $stopping == 1 ]] && return
    stopping=1
    say "received SIG$1; stopping"
    exit "$2"
}

setup_network() {
    # Everything below rewires the current network namespace; on the host's it would
    # shadow real addresses (documentation ranges are used by real sandboxes too).
    local netns
    netns=$(readlink /proc/self/ns/net)
    if [[ -z ${_NORVANE_BENCH_HOST_NETNS:-} || $netns == "$_NORVANE_BENCH_HOST_NETNS" ]]; then
        bench_fail "not inside a private network namespace ($netns); refusing to touch the network"
    fi
    # A non-loopback address of each family, so getaddrinfo with AI_ADDRCONFIG
    # answers for both. The veth pair stays inside the namespace; nothing routes out.
    # Chained with &&: set -e does not apply inside a function called from "||".
    ip link set lo up &&
        ip link add nvbench0 type veth peer name nvbench1 &&
        ip addr add "$BENCH_IPV4/24" dev nvbench0 &&
        ip -6 addr add "$BENCH_IPV6/64" dev nvbench0 nodad &&
        ip link set nvbench0 up &&
        ip link set nvbench1 up
}

start_peers() {
    local verbose=()
    [[ ${NORVANE_BENCH_VERBOSE:-0} == 1 ]] && verbose=(-v -v)

    # ippeveprinter -r off still talks to D-Bus on the system bus address; a private
    # bus keeps it off the host's.
    start_peer dbus dbus-daemon --session --nofork --nopidfile \
        --address="unix:path=$workdir/dbus.sock"
    export DBUS_SYSTEM_BUS_ADDRESS="unix:path=$workdir/dbus.sock"

    sed -e "s/@SNMP_COMMUNITY@/$SNMP_COMMUNITY/g" -e "${NORVANE_BENCH_SNMPD_EDIT:-}" \
        "$script_dir/snmpd.conf.in" >"$workdir/snmpd.conf"
    # A second marker's supplies table, long enough for walks to be measured:
    # description "Supply N" and level N % 101 in rows .2.1 to .2.$SNMP_BIG_TABLE_ROWS.
    local row
    for ((row = 1; row <= SNMP_BIG_TABLE_ROWS; row++)); do
        printf 'override 1.3.6.1.2.1.43.11.1.1.6.2.%d octet_str "Supply %d"\n' "$row" "$row"
        printf 'override 1.3.6.1.2.1.43.11.1.1.9.2.%d integer %d\n' "$row" $((row % 101))
    done >>"$workdir/snmpd.conf"
    # Empty MIB list: Debian's agent has no MIB files and would log a page of
    # complaints; persistent state (values SET by tests) stays in the work directory.
    start_peer snmpd env MIBS= MIBDIRS="$workdir/snmp" SNMP_PERSISTENT_DIR="$workdir/snmp" \
        snmpd -f -Lf "$workdir/logs/snmpd-agent.log" -C -c "$workdir/snmpd.conf"

    start_peer printer-sim "$_NORVANE_BENCH_SIM" --fixtures "$_NORVANE_BENCH_FIXTURES" \
        --http-port "$SIM_HTTP_PORT" --alt-port "$SIM_ALT_PORT" --soap-port "$SIM_SOAP_PORT" \
        --log "$workdir/logs/printer-sim-requests.log" "${sim_options[@]}"

    # The bus must exist before ippeveprinter starts, and so must avahi-daemon when
    # the printer is to register: without a daemon it aborts at its first announcement.
    wait_for_peer dbus test -S "$workdir/dbus.sock"
    local announce=(-r off)
    if [[ " ${extra_peers[*]} " == *" avahi "* ]]; then
        start_avahi
        announce=()
    fi
    start_peer ippeveprinter ippeveprinter "${verbose[@]}" "${announce[@]}" -p "$IPP_PORT" \
        -d "$workdir/spool" -k -M Norvane -m "NX-4100" -l "Level 2, Print Room" \
        -f application/octet-stream,application/pdf,image/pwg-raster "$PRINTER_NAME"

    local peer
    for peer in "${extra_peers[@]}"; do
        [[ $peer == avahi ]] || "start_$peer"
    done
}

# avahi-daemon on the bench's bus, announcing on the loopback and the veth. Its pid
# file and socket live in a fixed /run/avahi-daemon, so it gets a mount namespace
# with a /run of its own: benches in parallel, and the host's daemon, never meet.
# It stays root (the bus admits only its owner) and outside a chroot (its
# configuration is in the work directory).
start_avahi() {
    local dir=$workdir/avahi
    mkdir -p "$dir"
    cat >"$dir/avahi-daemon.conf" <<EOF
[server]
host-name=norvane-bench
use-ipv4=yes
use-ipv6=yes
allow-interfaces=lo,nvbench0
enable-dbus=yes
[wide-area]
enable-wide-area=no
[publish]
publish-hinfo=no
publish-workstation=no
EOF
    start_peer avahi unshare -m -- sh -c 'mount -t tmpfs tmpfs /run && mkdir /run/avahi-daemon &&
        exec avahi-daemon -f "$1" --no-drop-root --no-chroot --no-rlimits --no-proc-title' \
        avahi "$dir/avahi-daemon.conf"
    wait_for_peer avahi dbus-send --bus="$DBUS_SYSTEM_BUS_ADDRESS" --print-reply --dest=org.freedesktop.Avahi / \
        org.freedesktop.Avahi.Server.GetVersionString
}

# LPrint keeps its state, spool and control socket in the work directory (SNAP_COMMON
# moves the socket out of /run, so benches in parallel do not meet there); its one
# printer writes every job into a directory, as a label printer on a file device.
start_lprint() {
    local dir=$workdir/lprint
    mkdir -p "$dir/home" "$dir/tmp" "$dir/spool" "$dir/device" "$dir/run"
    start_peer lprint env HOME="$dir/home" TMPDIR="$dir/tmp" SNAP_COMMON="$dir/run" \
        lprint server -o server-port="$LPRINT_PORT" -o listen-hostname=127.0.0.1 \
        -o spool-directory="$dir/spool" -o log-file="$workdir/logs/lprint-server.log" \
        -o log-level="$([[ ${NORVANE_BENCH_VERBOSE:-0} == 1 ]] && echo debug || echo info)"
    wait_for_peer lprint test -S "$dir/run/lprint.sock"
    HOME="$dir/home" TMPDIR="$dir/tmp" SNAP_COMMON="$dir/run" \
        lprint add -d lab -m zpl_4inch-203dpi-dt -v "file://$dir/device" \
        >>"$workdir/logs/lprint.log" 2>&1 || bench_fail "lprint would not add its printer"
}

# cupsd with every directory of its own; FileDevice lets a queue print into a file.
# Only root is mapped in the bench's user namespace, so cupsd cannot change owners
# (it logs that and goes on) and runs nothing as "lp": raw queues need no filter.
start_cupsd() {
    local dir=$workdir/cups
    mkdir -p "$dir/root/ppd" "$dir/root/ssl" "$dir/spool" "$dir/cache" "$dir/state" "$dir/tmp" "$dir/device"
    cat >"$dir/root/cupsd.conf" <<EOF
Listen 127.0.0.1:$CUPS_PORT
LogLevel $([[ ${NORVANE_BENCH_VERBOSE:-0} == 1 ]] && echo debug || echo info)
DefaultAuthType None
WebInterface No
Browsing No
PreserveJobFiles Yes
<Location />
  Order allow,deny
  Allow all
</Location>
<Policy default>
  <Limit All>
    Order deny,allow
  </Limit>
</Policy>
EOF
    cat >"$dir/root/cups-files.conf" <<EOF
ServerRoot $dir/root
RequestRoot $dir/spool
CacheDir $dir/cache
StateDir $dir/state
TempDir $dir/tmp
DataDir /usr/share/cups
ServerBin /usr/lib/cups
AccessLog $workdir/logs/cupsd-access.log
ErrorLog $workdir/logs/cupsd-error.log
PageLog $workdir/logs/cupsd-page.log
Printcap $dir/printcap
FileDevice Yes
User lp
Group lp
EOF
    cat >"$dir/root/printers.conf" <<EOF
<Printer lab>
DeviceURI file://$dir/device/lab.out
State Idle
Accepting Yes
</Printer>
<Printer halted>
DeviceURI file://$dir/device/halted.out
State Stopped
StateMessage Paused by the bench
Reason paused
Accepting Yes
</Printer>
EOF
    start_peer cupsd cupsd -f -c "$dir/root/cupsd.conf" -s "$dir/root/cups-files.conf"
}

# The simulator's endpoint for http, alt or soap from its ready line: ADDR:PORT or off.
sim_endpoint() {
    sed -n "s/^norvane-printer-sim ready.* $1=\([^ ]*\).*/\1/p" "$workdir/logs/printer-sim.out"
}

sim_answers() {
    grep -q '^norvane-printer-sim ready' "$workdir/logs/printer-sim.out" || return 1
    local listener endpoint
    for listener in http alt soap; do
        endpoint=$(sim_endpoint "$listener")
        [[ $endpoint == off ]] && continue
        curl -fsS --max-time 1 "http://$endpoint/__sim/status" || return 1
    done
}

wait_for_peers() {
    wait_for_peer snmpd snmpget -v2c -c "$SNMP_COMMUNITY" -t 0.3 -r 0 -Oqv \
        "127.0.0.1:$SNMP_PORT" 1.3.6.1.2.1.25.3.2.1.3.1
    wait_for_peer printer-sim sim_answers
    wait_for_peer ippeveprinter ipptool -q -T 2 "ipp://127.0.0.1:$IPP_PORT/ipp/print" \
        get-printer-attributes.test
    local peer
    for peer in "${extra_peers[@]}"; do
        case $peer in
            # Announced once the daemon resolves the printer's IPP service.
            avahi) wait_for_peer avahi dbus-send --bus="$DBUS_SYSTEM_BUS_ADDRESS" --print-reply \
                --dest=org.freedesktop.Avahi / org.freedesktop.Avahi.Server.ResolveService int32:-1 int32:-1 \
                "string:$PRINTER_NAME" string:_ipp._tcp string:local int32:-1 uint32:0 ;;
            lprint) wait_for_peer lprint ipptool -q -T 2 "ipp://127.0.0.1:$LPRINT_PORT/ipp/print/lab" \
                get-printer-attributes.test ;;
            # The stock test expects attributes a scheduler's queue does not have.
            cupsd) printf '{ OPERATION Get-Printer-Attributes\n%s\n%s\n%s\nSTATUS successful-ok }\n' \
                    'GROUP operation-attributes-tag' 'ATTR charset attributes-charset utf-8' \
                    'ATTR language attributes-natural-language en ATTR uri printer-uri $uri' \
                    >"$workdir/cups/ready.test"
                wait_for_peer cupsd ipptool -q -T 2 "ipp://127.0.0.1:$CUPS_PORT/printers/lab" \
                "$workdir/cups/ready.test" ;;
        esac
    done
}

# Everything COMMAND may rely on. Keep tests/integration/README.md in step.
export_bench_environment() {
    export NORVANE_BENCH=1
    export NORVANE_BENCH_DIR="$workdir"
    export NORVANE_BENCH_LOG_DIR="$workdir/logs"
    export NORVANE_BENCH_IPV4="$BENCH_IPV4"
    export NORVANE_BENCH_IPV6="$BENCH_IPV6"
    export NORVANE_PRINTER_HOST=127.0.0.1
    export NORVANE_IPP_PORT="$IPP_PORT"
    export NORVANE_IPP_URI="ipp://127.0.0.1:$IPP_PORT/ipp/print"
    export NORVANE_IPP_PRINTER_NAME="$PRINTER_NAME"
    # For tests of a printer that goes away: the process to kill (in this PID
    # namespace; /proc may still show the host's numbers).
    NORVANE_IPP_PRINTER_PID=$(peer_pid ippeveprinter)
    export NORVANE_IPP_PRINTER_PID
    export NORVANE_SPOOL_DIR="$workdir/spool"
    export NORVANE_SNMP_PORT="$SNMP_PORT"
    export NORVANE_SNMP_COMMUNITY="$SNMP_COMMUNITY"
    export NORVANE_SNMP_WRITABLE_OID=1.3.6.1.2.1.43.5.1.1.16.1
    export NORVANE_SNMP_BIG_TABLE_ROWS="$SNMP_BIG_TABLE_ROWS"
    # The SNMPv3 user snmpd.conf.in creates.
    export NORVANE_SNMP_V3_USER=norvane-v3 NORVANE_SNMP_V3_AUTH_PASS=bench-auth-phrase NORVANE_SNMP_V3_PRIV_PASS=bench-priv-phrase
    # The simulator's ports as it reports them: a --sim-option may have moved one or
    # turned it off.
    local listener endpoint
    for listener in http alt soap; do
        endpoint=$(sim_endpoint "$listener")
        export "NORVANE_SIM_${listener^^}_PORT=${endpoint##*:}"
    done
    # Control endpoints answer on every port; prefer 8080, the discovery-tree port.
    for listener in alt http soap; do
        endpoint=$(sim_endpoint "$listener")
        if [[ $endpoint != off ]]; then
            export NORVANE_SIM_CONTROL_URL="http://$endpoint/__sim"
            break
        fi
    done
    export NORVANE_SIM_FIXTURES="$_NORVANE_BENCH_FIXTURES"
    export NORVANE_PRINTER_SIM="$_NORVANE_BENCH_SIM"
    local peer
    for peer in "${extra_peers[@]}"; do
        case $peer in
            lprint)
                export NORVANE_LPRINT_PORT="$LPRINT_PORT"
                export NORVANE_LPRINT_URI="ipp://127.0.0.1:$LPRINT_PORT/ipp/print/lab"
                export NORVANE_LPRINT_DEVICE_DIR="$workdir/lprint/device"
                export NORVANE_LPRINT_SPOOL_DIR="$workdir/lprint/spool"
                ;;
            cupsd)
                export NORVANE_CUPS_PORT="$CUPS_PORT"
                export NORVANE_CUPS_URI="ipp://127.0.0.1:$CUPS_PORT/printers/lab"
                export NORVANE_CUPS_STOPPED_URI="ipp://127.0.0.1:$CUPS_PORT/printers/halted"
                export NORVANE_CUPS_DEVICE_FILE="$workdir/cups/device/lab.out"
                export NORVANE_CUPS_SPOOL_DIR="$workdir/cups/spool"
                ;;
        esac
    done
}

run_command() {
    # COMMAND gets the bench's standard input back (a background job would get
    # /dev/null) and, unless the PID namespace already contains it, a process group
    # of its own so that stop_command reaches its children too.
    local group=()
    [[ $_NORVANE_BENCH_ISOLATION == *--pid* ]] || group=(setsid)
    local status=0
    "${group[@]}" "$@" <&3 3<&- &
    command_pid=$!
    wait "$command_pid" || status=$?
    command_pid=""
    return "$status"
}

inner() {
    while [[ ${1:-} == --sim-option || ${1:-} == --peer ]]; do
        if [[ $1 == --peer ]]; then extra_peers+=("$2"); else sim_options+=("$2"); fi
        shift 2
    done
    [[ ${1:-} == -- ]] && shift
    exec 3<&0
    trap cleanup EXIT
    trap 'on_signal TERM 143' TERM
    trap 'on_signal INT 130' INT
    trap 'on_signal HUP 129' HUP

    local started
    started=$(now_ms)
    workdir=$(mktemp -d "${TMPDIR:-/tmp}/norvane-bench.XXXXXX")
    mkdir -p "$workdir/logs" "$workdir/spool" "$workdir/snmp"

    setup_network || bench_fail "cannot configure the namespace's network"
    start_peers
    wait_for_peers
    say "peers up in $(( $(now_ms) - started )) ms (unshare $_NORVANE_BENCH_ISOLATION):" \
        "ipp $IPP_PORT, snmp $SNMP_PORT, printer-sim" \
        "$(sim_endpoint http) $(sim_endpoint alt) $(sim_endpoint soap)"

    export_bench_environment
    local status=0
    run_command "$@" || status=$?
    say "command exited with status $status"
    # The peers' side of a failed test is usually what explains it.
    [[ $status == 0 ]] || command_failed=1
    exit "$status"
}

if [[ ${1:-} == --inner ]]; then
    shift
    inner "$@"
else
    outer "$@"
fi
