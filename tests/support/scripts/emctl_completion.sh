#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# emctl_completion.sh EMCTL COMPLETION: checks emctl's bash completion against what `EMCTL
# --help` lists: every verb and nothing else, each verb's options, and for each operand that
# names a function group or a process, the names of a running emd (from a stand-in emctl on
# PATH); when emd does not answer, or emctl hangs, nothing is offered, promptly.
set -uo pipefail
script_name=emctl_completion
# shellcheck source=script_support.sh
source "$(dirname "$0")/script_support.sh"
emctl_real=$1
# shellcheck disable=SC1090 # the script under test
source "$2"
failures=0
# shellcheck disable=SC2086 # a list of words, split on purpose
words_of() { printf '%s\n' $1 | sort -u; }
expect() {  # expect WHAT EXPECTED ACTUAL: the two word lists, sorted, must be equal
    if [ "$(words_of "$2")" != "$(words_of "$3")" ]; then
        echo "$script_name: $1: expected [$2], offered [$3]" >&2
        failures=$((failures + 1))
    fi
}
offered() {  # offered LINE: what completing LINE (the cursor at its end) offers
    read -r -a COMP_WORDS <<<"$1"
    [[ $1 != *" " ]] || COMP_WORDS+=("")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    _emctl 2>>"$work/stderr"
    echo "${COMPREPLY[*]}"
}

# The stand-in: emd's names for `list KIND --timeout N`; MODE down: unreachable; hang: no end.
mkdir -p "$work/bin" && PATH="$work/bin:$PATH"
cat >"$work/bin/emctl" <<'STANDIN'
#!/bin/sh
case "$MODE $*" in
    "up list processes --timeout "*) printf 'greeter\ncounter\n' ;;
    "up list groups --timeout "*) printf 'MachineFG\nDemo\n' ;;
    "down "*) echo "emctl: unreachable" >&2; exit 3 ;;
    "hang "*) exec sleep 60 ;;
    *) echo "stand-in emctl: unexpected $*" >&2; exit 2 ;;
esac
STANDIN
chmod +x "$work/bin/emctl"
processes="greeter counter" groups="MachineFG Demo"

# Each synopsis of the help: its verb (the leading lower-case words), options and operands.
synopses=$("$emctl_real" --help | sed -n 's/^  emctl //p')
[ -n "$synopses" ] || fail "no verbs in $emctl_real --help"
export MODE=up
expect "verbs" "$(cut -d' ' -f1 <<<"$synopses")" "$(offered "emctl ")"
while read -r -a words; do
    verb=() options=() operands=()
    for word in "${words[@]}"; do
        word=${word//[\[\]]/}
        if [[ ${#operands[@]} -eq 0 && ${#options[@]} -eq 0 && $word =~ ^[a-z][a-z-]*$ ]]; then verb+=("$word")
        elif [[ $word == --* ]]; then options+=("$word")
        elif [[ $word =~ ^[A-Z_]+$ ]]; then operands+=("$word"); fi
    done
    [ ${#verb[@]} -eq 1 ] ||
        expect "words after '${verb[0]}'" "$(grep -o "^${verb[0]} [a-z-]*" <<<"$synopses" | cut -d' ' -f2)" \
            "$(offered "emctl ${verb[0]} ")"
    expect "options of '${verb[*]}'" "${options[*]} --help" "$(offered "emctl ${verb[*]} -")"
    line="emctl ${verb[*]}"
    for operand in "${operands[@]}"; do
        case $operand in
            FUNCTION_GROUP) expect "groups for '$line'" "$groups" "$(offered "$line ")" ;;
            NAME) # every process; a verb that takes a group too may offer the groups
                expect "names for '$line'" "$processes" "$(comm -23 <(words_of "$(offered "$line ")") <(words_of "$groups"))" ;;
        esac
        line+=" x"
    done
done <<<"$synopses"
expect "names that begin with what is typed" "counter" "$(offered "emctl --timeout 5 restart c")"

for MODE in down hang; do
    start=$SECONDS
    expect "names while emd is $MODE" "" "$(offered "emctl state get ")"
    [ $((SECONDS - start)) -le 5 ] || fail "completion took $((SECONDS - start)) s while emd is $MODE"
done
[ ! -s "$work/stderr" ] || fail "completion wrote on standard error: $(cat "$work/stderr")"
[ "$failures" -eq 0 ] || fail "$failures checks failed"
echo "$script_name: passed"
