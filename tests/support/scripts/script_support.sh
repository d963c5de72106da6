# SPDX-License-Identifier: Apache-2.0
# Sourced by the deployment test scripts after they set `script_name`: a scratch directory
# ($work) and the processes the script owns ($owned), both gone on every exit; fail(), which
# shows the end of emd's log; member(), a member "name": value of a JSON object.
work="$(mktemp -d)"
owned=()
cleanup() {
    for pid in "${owned[@]}"; do kill -KILL "$pid" 2>/dev/null; done
    wait 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT TERM
fail() { echo "$script_name: $*" >&2; [ -f "$work/emd.log" ] && tail -n 20 "$work/emd.log" >&2; exit 1; }
member() { echo "\"$1\": $2"; }
# own_ports: prints a port base no other test on this machine holds (slot k of 20 is
# 10000 + 1100 k, locked through /tmp/ara_exec_test_ports.<k> for as long as the script runs),
# for <Discovery><Ports><Base>: serving processes take the ports of participant indices 0-9
# whatever their discovery Tag.
own_ports() {
    local slot
    for slot in $(seq 0 19); do
        exec {ports_lock}>>"/tmp/ara_exec_test_ports.$slot"
        if flock -n "$ports_lock"; then
            echo $((10000 + 1100 * slot))
            return
        fi
        exec {ports_lock}>&-
    done
    echo $((10000 + 1100 * ($$ % 20)))
}
