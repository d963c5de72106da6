#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Caller authorisation with DDS Security on loopback: a PKI from ara-exec-pki, emd with its own
# identity supervising a TEST_APP that reports with the application identity, and emctl as
# each of the other identities. The state manager may change states and the health manager
# may list processes, and both may ask emd's own status service; the application identity's
# state, recovery and status calls fail cleanly with a line naming the refusal, callers
# without an identity of this PKI never reach emd, and emd sees nothing of any of them.
# Credentials that cannot be trusted (a grant signed by another permissions CA, an expired
# certificate) stop the participant with a line that says why.
#
#   secured.sh EMD EMCTL TEST_APP ARA_EXEC_PKI
set -uo pipefail
if [ $# -ne 4 ]; then
    echo "usage: $0 EMD EMCTL TEST_APP ARA_EXEC_PKI" >&2
    exit 2
fi
emd="$1" emctl="$2" app="$(realpath "$3")" pki_tool="$4"
script_name=secured
source "$(dirname "${BASH_SOURCE[0]}")/script_support.sh"

export NET='<General><Interfaces><NetworkInterface address="127.0.0.1" multicast="true"/></Interfaces></General>'
own_ports > "$work/ports"  # not in $(...): the lock must stay with this shell
export KELP_DDS_CONFIG="<Discovery><Tag>secured-$$-$RANDOM</Tag><Ports><Base>$(cat "$work/ports")</Base></Ports></Discovery>"
pki="$work/pki"
"$pki_tool" -o "$pki" > /dev/null || fail "ara-exec-pki failed"
for key in "$pki"/*.key; do
    [ "$(stat -c %a "$key")" = 600 ] || fail "$key is not mode 0600"
done
for cert in "$pki"/*.pem; do
    since="$(date -d "$(openssl x509 -in "$cert" -noout -startdate | cut -d= -f2)" +%s)"
    [ $(($(date +%s) - since)) -ge 86000 ] || fail "$cert is not valid from a day ago"
done

manifest="$work/manifest.json"
echo "{$(member functionGroups "{
    $(member MachineFG '{"states": ["Running"], "initialState": "Running"}'),
    $(member Demo '{"states": ["Off", "On"], "initialState": "Off"}')}"),
  $(member processes "{$(member worker "{$(member executable "\"$app\""), $(member arguments '["worker", "run"]'),
    $(member environment "{\"CYCLONEDDS_URI\": \"\${NET},file://$pki/applications.xml\"}"),
    $(member functionGroup '"Demo"'), $(member states '["On"]')}")}")}" > "$manifest"

mkfifo "$work/ready"
CYCLONEDDS_URI="$NET,file://$pki/emd.xml" setpriv --pdeathsig KILL "$emd" --manifest "$manifest" --log console \
    --ready-fd 3 3> "$work/ready" >> "$work/emd.log" 2>&1 &
owned+=($!)
[ "$(timeout 30 head -n 1 "$work/ready")" = ready ] || fail "emd did not become ready"

# as IDENTITY_CONFIG emctl ARGS...: emctl with that identity; the library's log on stderr.
as() {
    local config="$1"
    shift
    CYCLONEDDS_URI="$NET,file://$config" ARA_LOG_SINK=console setpriv --pdeathsig KILL "$emctl" --timeout 20 "$@"
}
as "$pki/state_manager.xml" wait-ready > /dev/null 2>&1 || fail "the state manager cannot reach emd"
as "$pki/state_manager.xml" state set Demo On > /dev/null 2>&1 || fail "the state manager's SetState failed"
as "$pki/health_manager.xml" ps 2> /dev/null | grep -q '^worker  *Demo  *Running' ||
    fail "the health manager does not see worker running (so the application identity could not report either)"
pid="$(as "$pki/health_manager.xml" ps 2> /dev/null | awk '$1 == "worker" {print $4}')"
# emd's own status service: granted to the state and health managers.
as "$pki/state_manager.xml" status worker 2> /dev/null | grep -q "^  pid: *$pid\$" ||
    fail "the state manager's emctl status worker does not show its pid"
as "$pki/health_manager.xml" status Demo 2> /dev/null | grep -q '^  state: *On$' ||
    fail "the health manager's emctl status Demo does not show On"

# The application identity may report, but not change states or restart processes.
lines_before="$(wc -l < "$work/emd.log")"
refused() {
    local topic="$1"
    shift
    as "$pki/applications.xml" "$@" > /dev/null 2> "$work/refused.log"
    local status=$?
    [ "$status" = 3 ] || fail "emctl $* as the application ended with $status, not 3 (unreachable)"
    grep -q "\[Security refused: the permissions of this participant do not allow the topic.*topic=$topic" \
        "$work/refused.log" || { cat "$work/refused.log" >&2; fail "emctl $* as the application: no refusal line"; }
}
refused EM_RPC_REQUEST_STATE_MANAGER_ state set Demo Off
refused EM_RPC_REQUEST_PLATFORM_HEALTH_MANAGER_ restart worker
refused EM_RPC_REQUEST_EMD_STATUS_ status worker
# Callers outside this PKI never even match emd: one without security, one of another PKI.
"$pki_tool" -o "$work/other" > /dev/null || fail "ara-exec-pki (a second PKI) failed"
for outsider in "" ",file://$work/other/state_manager.xml"; do
    CYCLONEDDS_URI="$NET$outsider" setpriv --pdeathsig KILL "$emctl" --timeout 20 state set Demo Off > /dev/null 2>&1
    status=$?
    [ "$status" = 3 ] || fail "an outsider's state set (CYCLONEDDS_URI=\$NET$outsider) ended with $status, not 3"
done
[ "$(as "$pki/state_manager.xml" state get Demo 2> /dev/null)" = On ] || fail "Demo left On after refused calls"
[ "$(as "$pki/health_manager.xml" ps 2> /dev/null | awk '$1 == "worker" {print $4}')" = "$pid" ] ||
    fail "worker was restarted by a refused call"
tail -n +"$((lines_before + 1))" "$work/emd.log" | grep -E "Transition begins|Stopping|Restart" &&
    fail "emd acted on a refused call"

# Credentials that cannot be trusted: the participant never starts, and the log says why.
untrusted() {
    local config="$1" expected="$2"
    as "$config" state get Demo > /dev/null 2> "$work/untrusted.log"
    local status=$?
    [ "$status" = 3 ] || fail "emctl with $(basename "$config") ended with $status, not 3"
    grep -q "DDS Security refused to start this process's participant: $expected" "$work/untrusted.log" ||
        { cat "$work/untrusted.log" >&2; fail "no line saying '$expected'"; }
}
sed "s|file:$pki/state_manager.permissions.p7s|file:$work/other/state_manager.permissions.p7s|" \
    "$pki/state_manager.xml" > "$work/foreign_grant.xml"
untrusted "$work/foreign_grant.xml" "the governance or the permissions grant is not signed by the configured permissions CA"
echo "late_manager state-manager" > "$work/late.table"
"$pki_tool" -o "$pki" --days 0 "$work/late.table" > /dev/null || fail "ara-exec-pki --days 0 failed"
sleep 1.1  # valid until the second it was made
untrusted "$pki/late_manager.xml" "a certificate has expired"
echo "secured: passed"
