#!/usr/bin/env bash
# Two hosts on one machine: network namespaces A and B joined by a veth pair (10.77.0.1 on
# veth-a, 10.77.0.2 on veth-b). emd runs on A with the given manifest; emctl on B drives it
# over DDS, with multicast discovery or with unicast peers listed on both sides. Everything
# it starts ends with it, also when it is killed: the namespaces live only as long as the
# processes this script owns, and each of those dies with the script (its death signal), so
# even a SIGKILL of the script leaves nothing behind.
#
#   two_hosts.sh multicast|unicast EMD MANIFEST EMCTL
#
# Exits 0 when every check passed, 1 when one failed, and 77 (skipped) when this machine does
# not let us create a network namespace, unless ARA_EXEC_REQUIRE_NAMESPACES=1 asks for them.
set -uo pipefail
if [ $# -ne 4 ] || { [ "$1" != multicast ] && [ "$1" != unicast ]; }; then
    echo "usage: $0 multicast|unicast EMD MANIFEST EMCTL" >&2
    exit 2
fi
mode="$1" emd="$2" manifest="$3" emctl="$4"
work="$(mktemp -d)"
owned=()
cleanup() {
    for pid in "${owned[@]}"; do kill -KILL "$pid" 2>/dev/null; done
    wait 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT TERM
fail() { echo "two hosts ($mode): $*" >&2; [ -f "$work/emd.log" ] && tail -n 20 "$work/emd.log" >&2; exit 1; }

if ! unshare -n true 2>/dev/null || ! command -v ip > /dev/null; then
    if [ "${ARA_EXEC_REQUIRE_NAMESPACES:-0}" = 1 ]; then
        fail "cannot create a network namespace here, and ARA_EXEC_REQUIRE_NAMESPACES=1"
    fi
    echo "two hosts ($mode): skipped, network namespaces are not permitted here" >&2
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

# The DDS configuration of a host: its interface by name, a 1 s lease (added by the library),
# and without multicast the peers of both hosts.
uri() {
    if [ "$mode" = multicast ]; then
        echo "<General><Interfaces><NetworkInterface name=\"$1\" multicast=\"true\"/></Interfaces></General>"
    else
        echo "<General><Interfaces><NetworkInterface name=\"$1\"/></Interfaces><AllowMulticast>false</AllowMulticast>" \
            "</General><Discovery><ParticipantIndex>auto</ParticipantIndex><Peers><Peer address=\"10.77.0.1\"/>" \
            "<Peer address=\"10.77.0.2\"/></Peers></Discovery>"
    fi
}

mkfifo "$work/ready"
CYCLONEDDS_URI="$(uri veth-a)" setpriv --pdeathsig KILL nsenter -t "$host_a" -n "$emd" --manifest "$manifest" --log console \
    --ready-fd 3 3> "$work/ready" > "$work/emd.log" 2>&1 &
emd_pid=$!
owned+=("$emd_pid")
ready="$(timeout 30 head -n 1 "$work/ready")"
[ "$ready" = ready ] || fail "emd on host A did not become ready"

ctl() { CYCLONEDDS_URI="$(uri veth-b)" setpriv --pdeathsig KILL nsenter -t "$host_b" -n "$emctl" --timeout 30 "$@"; }
ctl wait-ready > /dev/null || fail "emctl wait-ready from host B"
ctl state set Demo On > /dev/null || fail "state set Demo On from host B"
running="$(ctl ps | awk '$3 == "Running"' | wc -l)"
[ "$running" = 3 ] || fail "expected 3 processes running, emctl ps from host B saw $running"
pid="$(ctl ps | awk '$1 == "greeter" {print $4}')"
[ "$(ctl name "$pid")" = greeter ] || fail "emctl name $pid from host B"
ctl state set Demo Off > /dev/null || fail "state set Demo Off from host B"

# The daemon's host killed: host B finds no Execution Management any more.
kill -KILL "$emd_pid"
wait "$emd_pid" 2>/dev/null
ctl ps > /dev/null 2>&1
status=$?
[ "$status" = 3 ] || fail "emctl ps after emd was killed exited $status, not 3 (unreachable)"
echo "two hosts ($mode): passed"
