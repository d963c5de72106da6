#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Two hosts on one machine: network namespaces A and B joined by a veth pair (10.77.0.1 on
# veth-a, 10.77.0.2 on veth-b). emd runs on A, supervising TEST_APP processes; emctl on B
# drives it over DDS, with multicast discovery, with unicast peers listed on both sides, or
# with the library's own discovery pointed at host A by KELP_DDS_PEERS on both hosts. A
# call left pending must fail within the lease when A's link goes down and when emd is killed. Everything
# it starts ends with it, also when it is killed: the namespaces live only as long as the
# processes this script owns, and each of those dies with the script (its death signal), so
# even a SIGKILL of the script leaves nothing behind.
#
#   two_hosts.sh multicast|unicast|peers EMD EMCTL TEST_APP [ARA_EXEC_PKI]
#
# With ARA_EXEC_PKI every process has a DDS Security identity from a PKI it makes: emd its
# own, the test apps the application's, and emctl one with the state and health manager roles.
#
# Exits 0 when every check passed, 1 when one failed, and 77 (skipped) when this machine does
# not let us create a network namespace, unless ARA_EXEC_REQUIRE_NAMESPACES=1 asks for them.
set -uo pipefail
if [ $# -lt 4 ] || [ $# -gt 5 ] || { [ "$1" != multicast ] && [ "$1" != unicast ] && [ "$1" != peers ]; }; then
    echo "usage: $0 multicast|unicast|peers EMD EMCTL TEST_APP [ARA_EXEC_PKI]" >&2
    exit 2
fi
mode="$1" emd="$2" emctl="$3" app="$(realpath "$4")" pki_tool="${5:-}"
script_name="two hosts ($mode${pki_tool:+, secured})"
source "$(dirname "${BASH_SOURCE[0]}")/script_support.sh"
if [ -n "$pki_tool" ]; then
    printf 'emd emd\noperator state-manager health-manager\napplications application\n' > "$work/identities"
    "$pki_tool" -o "$work/pki" "$work/identities" > /dev/null || fail "ara-exec-pki failed"
fi

if ! unshare -n true 2>/dev/null || ! command -v ip > /dev/null; then
    if [ "${ARA_EXEC_REQUIRE_NAMESPACES:-0}" = 1 ]; then
        fail "cannot create a network namespace here, and ARA_EXEC_REQUIRE_NAMESPACES=1"
    fi
    echo "$script_name: skipped, network namespaces are not permitted here" >&2
    exit 77
fi

# A namespace per host, held by a sleeping process of ours.
# Started as plain commands, not through a function: "&" would put a subshell between them and us.
setpriv --pdeathsig KILL unshare -n sleep 1000000 & host_a=$!
setpriv --pdeathsig KILL unshare -n sleep 1000000 & host_b=$!
owned+=("$host_a" "$host_b")
for _ in $(seq 200); do
    own="$(readlink /proc/self/ns/net)"
    [ "$(readlink "/proc/$host_a/ns/net")" != "$own" ] && [ "$(readlink "/proc/$host_b/ns/net")" != "$own" ] && break
    sleep 0.01
done
on() { local host="$1"; shift; nsenter -t "$host" -n "$@"; }
ip link add veth-a netns "$host_a" type veth peer name veth-b netns "$host_b" || fail "cannot create the veth pair"
on "$host_a" ip addr add 10.77.0.1/24 dev veth-a && on "$host_a" ip link set veth-a up &&
    on "$host_a" ip link set lo up && on "$host_b" ip addr add 10.77.0.2/24 dev veth-b &&
    on "$host_b" ip link set veth-b up && on "$host_b" ip link set lo up || fail "cannot configure the hosts"

# The DDS configuration of a host (interface $1) for identity $2: the interface by name, a 1 s
# lease (added by the library), without multicast the peers of both hosts, and when secured
# the identity's security part. With peers, none: KELP_DDS_PEERS names host A to every process
# (emd and its processes serve and report there, emctl on B reaches it through veth-b).
export KELP_DDS_PEERS=
[ "$mode" != peers ] || KELP_DDS_PEERS=10.77.0.1
uri() {
    if [ "$mode" = peers ]; then
        return
    elif [ "$mode" = multicast ]; then
        printf '%s' "<General><Interfaces><NetworkInterface name=\"$1\" multicast=\"true\"/></Interfaces></General>"
    else
        printf '%s' "<General><Interfaces><NetworkInterface name=\"$1\"/></Interfaces><AllowMulticast>false" \
            "</AllowMulticast></General><Discovery><ParticipantIndex>auto</ParticipantIndex><Peers>" \
            "<Peer address=\"10.77.0.1\"/><Peer address=\"10.77.0.2\"/></Peers></Discovery>"
    fi
    [ -z "$pki_tool" ] || printf ',file://%s' "$work/pki/$2.xml"
    echo
}

# Demo On runs a and b; in Demo Slow, slow never reports, so a transition to it stays pending.
# Their DDS configuration comes from APP_URI in emd's environment.
process() {
    member "$1" "{$(member executable "\"$app\""), $(member arguments "[\"$1\", \"$2\"]"),
        $(member environment '{"CYCLONEDDS_URI": "${APP_URI}"}'),
        $(member functionGroup '"Demo"'), $(member states "[\"$3\"]"), $(member startupTimeoutMs 60000)}"
}
manifest="$work/manifest.json"
echo "{$(member functionGroups "{
    $(member MachineFG '{"states": ["Running"], "initialState": "Running"}'),
    $(member Demo '{"states": ["Off", "On", "Slow"], "initialState": "Off"}')}"),
  $(member processes "{$(process a run On), $(process b run On), $(process slow never Slow)}")}" > "$manifest"

mkfifo "$work/ready"
start_emd() {
    CYCLONEDDS_URI="$(uri veth-a emd)" APP_URI="$(uri veth-a applications)" setpriv --pdeathsig KILL nsenter -t "$host_a" -n "$emd" --manifest "$manifest" \
        --log console --ready-fd 3 3> "$work/ready" >> "$work/emd.log" 2>&1 &
    emd_pid=$!
    owned+=("$emd_pid")
    [ "$(timeout 30 head -n 1 "$work/ready")" = ready ] || fail "emd on host A did not become ready"
}
ctl() { CYCLONEDDS_URI="$(uri veth-b operator)" setpriv --pdeathsig KILL nsenter -t "$host_b" -n "$emctl" --timeout 30 "$@"; }
# Starts `emctl state set Demo Slow` in the background; pending_done waits for it and checks
# that it failed as unreachable (3) within the 1 s lease plus a margin for a loaded machine.
pending_start() {
    CYCLONEDDS_URI="$(uri veth-b operator)" setpriv --pdeathsig KILL nsenter -t "$host_b" -n "$emctl" --timeout 30 \
        state set Demo Slow > /dev/null 2>&1 &
    pending=$!
    owned+=("$pending")
    sleep 1  # the request reaches emd, which starts slow and waits for its report
}
pending_done() {
    local since status elapsed
    since=$(date +%s%N)
    wait "$pending"
    status=$?
    elapsed=$(( ($(date +%s%N) - since) / 1000000 ))
    echo "$script_name: pending call ended after $1 with $status in ${elapsed} ms"
    [ "$status" = 3 ] || fail "the pending call ended with $status after $1, not 3 (unreachable)"
    [ "$elapsed" -lt 3000 ] || fail "the pending call took ${elapsed} ms to fail after $1"
}

start_emd
[ -z "$pki_tool" ] || grep -q 'Domain started.*pki/emd.xml' "$work/emd.log" || fail "emd started without its identity"
ctl wait-ready > /dev/null || fail "emctl wait-ready from host B"
ctl state set Demo On > /dev/null || fail "state set Demo On from host B"
running="$(ctl ps | awk '$3 == "Running"' | wc -l)"
[ "$running" = 2 ] || fail "expected 2 processes running, emctl ps from host B saw $running"
pid="$(ctl ps | awk '$1 == "a" {print $4}')"
[ "$(ctl name "$pid")" = a ] || fail "emctl name $pid from host B"

# Host A's link goes down: the pending call fails; once the link is back, calls succeed again.
pending_start
on "$host_a" ip link set veth-a down
pending_done "host A's link went down"
on "$host_a" ip link set veth-a up
for _ in $(seq 50); do ctl ps > /dev/null 2>&1 && break; sleep 0.2; done
ctl state get Demo > /dev/null || fail "no call succeeds after host A's link came back"

# emd killed on host A: noticed the same way.
pending_start
{ kill -KILL "$emd_pid" && wait "$emd_pid"; } 2> /dev/null
pending_done "emd was killed"
echo "$script_name: passed"
