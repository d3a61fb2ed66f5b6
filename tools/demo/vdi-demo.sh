#!/usr/bin/env bash
# vdi-demo: two short sessions of a thin client against the bundled simulator, walked with
# vdi-client, once with a controller reached directly and once through an access gateway:
# discovery, the login options and branding, the login (through the gateway the client asks for
# the gateway's user and password, answered here on its standard input), the terminal's
# registration, the pools and desktops, a desktop handed out with its connection data (the
# simulator lets the first request overrun its deadline, so the client asks again), operations
# and snapshots, a heartbeat, the application catalogues, the share terminals, a refused login,
# a password change and back, an upgrade check, an LDAP login, and a one-key help report (behind
# the gateway with the upload of a sample terminal's screenshots and logs, with stand-ins for
# w, sudo, dpkg and chown first on PATH). Every command is printed before its output; a step
# fails when the client's exit code is not the one expected.
#
# It runs with HOME in a temporary folder, so that the gateway settings the library saves never
# land in your own Documents folder. vdi-client and vdi-simulator are taken from beside this
# script, else from $VDI_TOOLS.
set -uo pipefail

tools=${VDI_TOOLS:-$(cd "$(dirname "$0")" && pwd)}
client=$tools/vdi-client
simulator=$tools/vdi-simulator
for program in "$client" "$simulator"; do
    [ -x "$program" ] || { echo "vdi-demo: $program is missing" >&2; exit 2; }
done

work=$(mktemp -d "${TMPDIR:-/tmp}/vdi-demo-XXXXXX")
simulator_pid=
cleanup() {
    [ -n "$simulator_pid" ] && kill "$simulator_pid" 2>/dev/null && wait "$simulator_pid" 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT
export HOME=$work/home XDG_CONFIG_HOME=$work/home/.config
mkdir -p "$HOME/Documents"
failures=0
steps=0

# step TITLE EXPECTED-EXIT-CODE [--input TEXT] ARGS...: one vdi-client run, indented.
step() {
    local title=$1 expected=$2 input=
    shift 2
    if [ "${1:-}" = --input ]; then input=$2; shift 2; fi
    steps=$((steps + 1))
    echo
    echo "$steps. $title"
    # The command as typed, its passwords masked.
    local shown= argument hide=
    for argument in "$@"; do
        if [ -n "$hide" ]; then shown+=" ******"; hide=; else shown+=$(printf ' %q' "$argument"); fi
        case $argument in --password | --gateway-password | password) hide=1 ;; esac
    done
    echo "   \$ vdi-client$shown"
    printf '%s' "$input" | "$client" "${connection[@]}" "$@" >"$work/out" 2>"$work/err"
    local code=$?
    sed 's/^/   /' "$work/out"
    grep -v '^$' "$work/err" | sed 's/^/   (stderr) /'
    if [ "$code" -ne "$expected" ]; then
        echo "   FAILED: exit code $code, expected $expected"
        failures=$((failures + 1))
    elif [ "$expected" -ne 0 ]; then
        echo "   (exit code $code, as expected)"
    fi
}

start_simulator() {
    : >"$work/sim.out"
    "$simulator" --mode "$1" --apply-overruns 1 >"$work/sim.out" 2>"$work/sim-$1.log" &
    simulator_pid=$!
    for _ in $(seq 100); do
        grep -q '^ready$' "$work/sim.out" && break
        sleep 0.1
    done
    grep -q '^ready$' "$work/sim.out" || { echo "vdi-demo: the simulator did not start"; cat "$work/sim-$1.log"; exit 1; }
    port=$(awk '$1 == "port" { print $2 }' "$work/sim.out")
    pem=$(awk '$1 == "pem" { print $2 }' "$work/sim.out")
    connection=(--server 127.0.0.1 --port "$port" --pem "$pem")
    echo "Simulator of a $1 on 127.0.0.1:$port; its certificate $pem names \"$(awk '$1 == "common-name" { print $2 }' "$work/sim.out")\", not the host."
}

stop_simulator() {
    kill "$simulator_pid" 2>/dev/null
    wait "$simulator_pid" 2>/dev/null
    simulator_pid=
}

# A sample terminal for the one-key help: the login user's screenshots and logs, and stand-ins
# for the shell tools the library runs, so that nothing of this machine's is asked or changed.
# The stand-in of `w` names a display user whose "/home/<user>" is the sample folder.
help_terminal() {
    local user=$work/terminal/demo bin=$work/terminal/bin
    mkdir -p "$user/Documents/oneKeyHelpImage" "$user/Documents/Birchlink/log" "$user/Documents/Oakdesk/log" \
             "$user/Downloads" "$bin"
    head -c 49152 /dev/urandom >"$user/Documents/oneKeyHelpImage/screen-1.png"
    head -c 98304 /dev/urandom >"$user/Documents/oneKeyHelpImage/screen-2.png"
    echo "12:00:01 session opened" >"$user/Documents/Birchlink/log/birchlink.log"
    echo "12:00:02 login ok" >"$user/Documents/Oakdesk/log/oakdesk.log"
    cat >"$bin/w" <<EOF
#!/bin/sh
echo ' 12:00:00 up 1 day,  1 user,  load average: 0.00'
echo 'USER     TTY      FROM     LOGIN@   IDLE   JCPU   PCPU WHAT'
echo '..$user tty7     :0       11:58    1:00m  0.10s  0.01s xsession'
EOF
    cat >"$bin/sudo" <<EOF
#!/bin/sh
case "\$1" in dpkg|chown) t="\$1"; shift; exec '$bin/'"\$t" "\$@" ;; esac
exit 1
EOF
    printf '#!/bin/sh\necho "ii  oakdesk  2.1.0  amd64  3.4.5-demo  Oakdesk desktop client"\n' >"$bin/dpkg"
    printf '#!/bin/sh\nexit 0\n' >"$bin/chown"
    chmod +x "$bin"/*
    echo "$bin"
}

session() {
    local mode=$1
    echo
    echo "== Session against a simulated $mode =="
    start_simulator "$mode"
    local user=(--user demo-user --password demo-password)
    local gateway_answers=
    [ "$mode" = gateway ] && gateway_answers=$'gw-user\ngw-password\n'

    step "Discovery: server type, gateways, server name and nodes" 0 discover
    local how="straight to the controller"
    [ "$mode" = gateway ] && how="through the gateway, whose user and password the client asks for"
    step "Login $how" 0 \
        --input "$gateway_answers" "${user[@]}" login
    step "Login options and branding" 0 "${user[@]}" options
    step "The terminal registers" 0 "${user[@]}" register
    step "Pools and desktops" 0 "${user[@]}" desktops
    step "A desktop of the first pool, with its connection data (asked again while it is prepared)" 0 \
        "${user[@]}" apply "Office desktops"
    step "Start a desktop that is shut down" 0 "${user[@]}" operate office-demo-user-2 start
    step "A snapshot of a running desktop" 0 "${user[@]}" snapshot eng-demo-user-3 create demo-snapshot
    step "A heartbeat" 0 "${user[@]}" heartbeat
    step "Remote and SaaS applications" 0 "${user[@]}" apps
    step "A remote application: its address and policy" 0 "${user[@]}" apps Word
    step "A SaaS application for another user alone: refused" 3 "${user[@]}" apps Payroll
    step "The share terminals" 0 "${user[@]}" share-terminals
    step "A wrong password: refused" 3 --user demo-user --password not-the-password login
    step "A password change, and back" 0 "${user[@]}" password demo-password-2
    step "(back)" 0 --user demo-user --password demo-password-2 password demo-password
    step "Is there a newer client?" 0 "${user[@]}" upgrade
    [ "$mode" = controller ] &&
        step "A login through LDAP" 0 --user ldap-user --password ldap-password --ldap vdi.local login
    local bin saved_path=$PATH
    bin=$(help_terminal)
    PATH="$bin:$PATH"
    if [ "$mode" = controller ]; then
        step "A help report: the controller fetches the screenshots itself" 0 \
            "${user[@]}" help-report display "The desktop freezes when a video plays."
    else
        step "A help report: the library packages the screenshots and logs and uploads them" 0 \
            "${user[@]}" help-report display "The desktop freezes when a video plays." screenshots
        echo "   What the simulator received:"
        grep -A20 'onekeyHelpUseGateway:' "$work/sim-$mode.log" | grep -v '^--$' | sed 's/^vdi-simulator: /     /' | head -16
        if [ -n "$(ls -A "$work/terminal/demo/Downloads")" ]; then
            echo "   FAILED: zip files were left behind in Downloads"
            failures=$((failures + 1))
        fi
    fi
    PATH=$saved_path
    stop_simulator
}

session controller
session gateway
rm -rf "$HOME/Documents/gateway"
echo
if [ "$failures" -eq 0 ]; then
    echo "Demo finished: every step worked."
    exit 0
fi
echo "Demo finished: $failures of $steps steps failed."
exit 1
