#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The main job: builds the project for /usr, makes its Debian packages with CPack and checks
# them with lintian, installs them on this machine, builds and runs the separate consumer
# project in examples/consumer against the installed development package, then runs the live
# demo: the installed emd supervising the example manifest, driven by the installed emctl.
# Usage: bash scripts/main.sh      (as root, or with sudo for apt-get)
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
source "$root/scripts/deps.sh"
ara_exec_install_deps

step() { printf '\n=== %s\n' "$*"; }
fail() { echo "DEMO FAILED: $*" >&2; exit 1; }
sudo=()
[ "$(id -u)" -eq 0 ] || sudo=(sudo)

build="$root/build-main"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF -DARA_EXEC_BUILD_BENCH=OFF \
    -DCMAKE_INSTALL_PREFIX=/usr
cmake --build "$build" -j2

step "Debian packages (cpack), checked by lintian"
rm -rf "$build/packages"
(cd "$build" && cpack > "$build/cpack.log") || { cat "$build/cpack.log"; fail "cpack"; }
debs=("$build"/packages/*.deb)
for deb in "${debs[@]}"; do
    echo "$deb: $(dpkg-deb -f "$deb" Package Version | tr '\n' ' ')"
done
lintian --fail-on error "${debs[@]}" || fail "lintian reports errors"

# A clean Debian 12 (debootstrap) booted with systemd (systemd-nspawn): the packages install
# there and give a running emd.service, emctl and man emd. ARA_EXEC_SKIP_SERVICE_CHECK=1 leaves
# it out on a machine that cannot run containers.
if [ "${ARA_EXEC_SKIP_SERVICE_CHECK:-0}" != 1 ]; then
    step "the packages on a clean machine: installed in a fresh Debian 12, booted with systemd"
    "${sudo[@]}" bash "$root/scripts/service_check.sh" "$build/packages" "$build/clean-machine" ||
        fail "the packages do not give a working emd.service on a clean machine"
fi

step "install them here (apt-get resolves their dependencies)"
DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get install -y -q --reinstall --no-install-recommends "${debs[@]}" \
    > "$build/apt.log" || { cat "$build/apt.log"; fail "the packages do not install"; }
dpkg-query -W -f='${Package} ${Version} ${Status}\n' ara-exec-emd libara-exec-dev libara-exec1
emctl --version
/usr/sbin/emd --version
[ "$(/usr/sbin/emd --version)" = "emd $(dpkg-query -W -f='${Version}' ara-exec-emd)" ] ||
    fail "emd --version is not the package version"
man -w emd emctl emd-manifest || fail "the man pages are not installed"
MANWIDTH=80 man emd 2>/dev/null | head -n 12
systemd-analyze verify /lib/systemd/system/emd.service || fail "emd.service does not verify"
/usr/sbin/emd --check --manifest /etc/ara-exec/machine_manifest.json || fail "the service's manifest is refused"
if [ -d /run/systemd/system ]; then
    systemctl is-active emd.service || fail "emd.service is not running after the install"
    emctl wait-ready --timeout 30 || fail "the emd service does not answer"
else
    echo "systemd does not run here: emd.service is enabled ($(systemctl is-enabled emd.service 2>/dev/null ||
        echo "state unknown")), not started"
fi

step "examples/consumer against the installed development package"
consumer_build="$root/build-consumer"
rm -rf "$consumer_build"
cmake -S "$root/examples/consumer" -B "$consumer_build" -G Ninja -DCMAKE_BUILD_TYPE=Release
cmake --build "$consumer_build" -j2
"$consumer_build/ara_exec_consumer"

# The same program built with only the pkg-config file.
pc_out="$consumer_build/ara_exec_consumer_pc"
# shellcheck disable=SC2046
g++ -o "$pc_out" "$root/examples/consumer/main.cpp" $(pkg-config --cflags --libs ara_exec)
"$pc_out"

# The live demo, all from the installed packages: emd supervises the example manifest's
# processes, and emctl drives it. Every step checks what it saw in /proc.
bin=/usr/bin
sbin=/usr/sbin
manifest=/usr/share/ara_exec/machine_manifest.json
log="$build/emd-demo.log"
export KELP_DDS_CONFIG="<Discovery><Tag>demo-$$</Tag></Discovery>"

# The live children of a pid, as "pid name" lines (the name is the first argument, without
# its directory: a script's first argument is its path).
children() {
    local stat pid comm state ppid rest name
    for stat in /proc/[0-9]*/stat; do
        read -r pid comm state ppid rest 2>/dev/null < "$stat" || continue  # it may be gone
        if [ "$ppid" = "$1" ] && [ "$state" != Z ]; then
            name="$(tr '\0' ' ' < "/proc/$pid/cmdline" | cut -d' ' -f2)"
            echo "$pid ${name##*/}"
        fi
    done
}
# When a pid started, in clock ticks since boot (field 22 of its stat).
started() { sed -e 's/^.*) //' "/proc/$1/stat" | cut -d' ' -f20; }
expect_children() {
    local seen
    seen="$(children "$emd_pid" | awk '{print $2}' | sort | tr '\n' ' ')"
    echo "running under emd (from /proc): ${seen:-nothing}"
    [ "$seen" = "$1" ] || fail "expected '$1' running under emd, saw '$seen'"
}

step "start emd on $manifest (its log: $log)"
"$sbin/emd" --manifest "$manifest" > "$log" 2>&1 &
emd_pid=$!
trap 'kill -KILL "$emd_pid" 2>/dev/null || true' EXIT
"$bin/emctl" wait-ready --timeout 30 || fail "emd did not come up"

step "emctl ps: MachineFG is Running, so logger runs, and timekeeper, which logger needs"
"$bin/emctl" ps || fail "ps"
expect_children "logger timekeeper "
keeper="$(children "$emd_pid" | awk '$2 == "timekeeper" {print $1}')"
logger="$(children "$emd_pid" | awk '$2 == "logger" {print $1}')"
echo "from /proc: timekeeper started at tick $(started "$keeper"), logger at tick $(started "$logger")"
[ "$(started "$keeper")" -le "$(started "$logger")" ] || fail "logger started before timekeeper"

step "emctl status timekeeper: a shell script, made ready by systemd-notify, under a watchdog"
"$bin/emctl" status timekeeper || fail "status timekeeper"
"$bin/emctl" status timekeeper --json | grep -q '"readiness": *"notify"' || fail "timekeeper is not notify-ready"
"$bin/emctl" status MachineFG || fail "status MachineFG"

step "timekeeper in its box: user nobody, no capabilities, a cgroup of its own with 32 MiB of memory"
grep -E '^(Uid|Gid|CapEff|CapBnd|NoNewPrivs):' "/proc/$keeper/status"
[ "$(awk '/^Uid:/ {print $2}' "/proc/$keeper/status")" = 65534 ] || fail "timekeeper does not run as nobody"
[ "$(awk '/^CapBnd:/ {print $2}' "/proc/$keeper/status")" = 0000000000000000 ] || fail "timekeeper kept capabilities"
grep -E ':memory:|^0::' "/proc/$keeper/cgroup"
if grep -q '\[Cgroups\]\[Ready\].*memory=v' "$log"; then
    "$bin/emctl" status timekeeper | grep 'memory:'
    "$bin/emctl" status timekeeper | grep -q '(max 32.0 MiB)' || fail "timekeeper's group has no 32 MiB limit"
else
    echo "emd has no memory controller here: the limit is not applied, as its log says"
    grep -E '\[Cgroups\]' "$log" || true
fi

step "emctl state set Demo On: counter starts, then greeter, which needs it"
"$bin/emctl" state set Demo On || fail "state set Demo On"
"$bin/emctl" ps || fail "ps"
expect_children "counter greeter logger timekeeper "

step "emctl blame: how long each process of the last transitions took to be ready"
"$bin/emctl" blame || fail "blame"
[ "$("$bin/emctl" blame Demo | wc -l)" -eq 2 ] || fail "blame Demo does not list greeter and counter"

step "emctl graph: the dependencies, as Graphviz dot"
"$bin/emctl" graph || fail "graph"

step "emctl restart greeter: a new process replaces the old one"
old="$("$bin/emctl" ps | awk '$1 == "greeter" {print $4}')"
"$bin/emctl" restart greeter || fail "restart greeter"
new="$("$bin/emctl" ps | awk '$1 == "greeter" {print $4}')"
echo "greeter: pid $old before, pid $new after"
[ -n "$new" ] && [ "$new" != "$old" ] || fail "greeter was not restarted"

step "emctl name $new"
name="$("$bin/emctl" name "$new")" || fail "name $new"
echo "$name"
[ "$name" = greeter ] || fail "pid $new is '$name', not greeter"

step "emctl state set Demo Off: greeter and counter stop"
"$bin/emctl" state set Demo Off || fail "state set Demo Off"
expect_children "logger timekeeper "
"$bin/emctl" state get Demo --json || fail "state get"

step "SIGTERM to emd: it stops logger, then timekeeper, and exits 0"
pids="$(children "$emd_pid" | awk '{print $1}')"
kill -TERM "$emd_pid"
status=0
wait "$emd_pid" || status=$?
trap - EXIT
echo "emd exited with $status"
[ "$status" -eq 0 ] || fail "emd exited with $status"
for pid in $pids; do
    if [ -e "/proc/$pid" ] && ! grep -q '^[0-9]* ([^)]*) Z' "/proc/$pid/stat"; then
        fail "process $pid outlived emd"
    fi
done
echo "nothing left running"
first_stop="$(sed -n '/\[Supervisor\]\[Shutting down\]/,$p' "$log" | grep -o 'Stopping\]\[process=[a-z]*' | head -1)"
echo "first stopped: ${first_stop#*=}"
[ "${first_stop#*=}" = logger ] || fail "timekeeper was stopped before logger, which needs it"

step "what the processes printed: their lines in emd's log, each tagged with its process"
grep -F '[Output][process=' "$log" | sed -e 's/^[^ ]* //' | head -6
grep -qF '[Output][process=counter] counter: tick' "$log" || fail "counter's output is not in emd's log"

step "what emd logged"
grep -E '\[Supervisor\]\[(Transition (begins|completed|ended)|Launched|Reported|Ready|Process exited|Stopping|Restart)' "$log" |
    sed -e 's/^[^ ]* //' || true

# The same machine with DDS Security, set up as README's "Securing Execution Management" says:
# emd, the state manager, the health manager and the applications each with an identity.
step "DDS Security: ara-exec-pki makes the CAs, identities and grants"
export ARA_EXEC_PKI="$build/pki"
export NET='<General><Interfaces><NetworkInterface address="127.0.0.1" multicast="true"/></Interfaces></General>'
export ARA_EXEC_APP_URI="$NET,file://$ARA_EXEC_PKI/applications.xml"
rm -rf "$ARA_EXEC_PKI"
"$bin/ara-exec-pki" -o "$ARA_EXEC_PKI"
as() { local who="$1"; shift; CYCLONEDDS_URI="$NET,file://$ARA_EXEC_PKI/$who.xml" "$bin/emctl" "$@"; }

step "emd as identity emd on secured_manifest.json; the state manager sets Demo On"
CYCLONEDDS_URI="$NET,file://$ARA_EXEC_PKI/emd.xml" "$sbin/emd" --manifest /usr/share/ara_exec/secured_manifest.json \
    > "$log.secured" 2>&1 &
emd_pid=$!
trap 'kill -KILL "$emd_pid" 2>/dev/null || true' EXIT
as state_manager wait-ready --timeout 30 || fail "the state manager cannot reach emd"
as state_manager state set Demo On || fail "state set Demo On as the state manager"
as health_manager ps || fail "ps as the health manager"
expect_children "counter greeter logger timekeeper "

step "an application may not change states: refused before anything is sent"
status=0
ARA_LOG_SINK=console as applications state set Demo Off 2> "$build/refused.log" || status=$?
grep -m1 'Security refused' "$build/refused.log" | sed -e 's/^[^ ]* //' || fail "no refusal line"
[ "$status" -eq 3 ] || fail "the application's state set ended with $status, not 3"
expect_children "counter greeter logger timekeeper "
kill -TERM "$emd_pid"
wait "$emd_pid" || fail "secured emd exited with $?"
trap - EXIT

echo
echo "demo passed"
