# Sourced by the deployment test scripts after they set `script_name`: a scratch directory
# ($work) and the processes the script owns ($owned), both gone on every exit; fail(), which
# shows the end of emd's log; entry(), a key-value entry of a manifest.
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
entry() { echo "{\"key\": \"$1\", \"value\": $2}"; }
