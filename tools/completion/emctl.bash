# SPDX-License-Identifier: Apache-2.0
# bash completion for emctl: its verbs, each verb's options and operands, and the names of the
# processes and function groups of the running emd, which `emctl list` prints. emd is asked
# with a short time-out, and nothing is offered when it does not answer.

# One line per verb: the verb, its options, and what each operand is: groups, processes,
# names (a process or a group), file, a list of words such as running,terminating, or - for
# nothing to offer (a state, a pid).
_emctl_verbs() {
    cat <<'VERBS'
state get|--json|groups
state set|--timeout|groups -
ps|--json|
restart|--kill --timeout|processes
name||-
report||running,terminating
wait-ready|--timeout|
status|--json|names
blame|--json|groups
graph||
list processes||
list groups||
validate|--crc|file
VERBS
}

# _emctl_names EMCTL KIND: the names emd knows of KIND (processes, groups or names), one a line.
_emctl_names() {
    local kinds=$2 kind
    [ "$kinds" != names ] || kinds="processes groups"
    for kind in $kinds; do
        timeout 3 "$1" list "$kind" --timeout 1 2>/dev/null
    done
}

_emctl() {
    local IFS=$' \t\n'
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
    local emctl=${COMP_WORDS[0]/#\~/$HOME}
    COMPREPLY=()
    case $prev in
        --timeout) return 0 ;;
        --crc)
            mapfile -t COMPREPLY < <(compgen -W "strong weak not" -- "$cur")
            return 0
            ;;
    esac

    # The words before the cursor that are neither options nor their values.
    local words=() i
    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
            --timeout | --crc) ((i++)) ;;
            -*) ;;
            *) words+=("${COMP_WORDS[i]}") ;;
        esac
    done

    # The verb those words begin with; else the verbs' next words that fit them.
    local verb options operands given next=()
    while IFS='|' read -r verb options operands; do
        local -a verbWords
        read -r -a verbWords <<<"$verb"
        given="${words[*]:0:${#verbWords[@]}}"
        if [ "$given" = "$verb" ]; then
            break
        fi
        if [ ${#words[@]} -lt ${#verbWords[@]} ] && [ "${verbWords[*]:0:${#words[@]}}" = "${words[*]}" ] &&
            [[ " ${next[*]} " != *" ${verbWords[${#words[@]}]} "* ]]; then
            next+=("${verbWords[${#words[@]}]}")
        fi
        verb=
    done < <(_emctl_verbs)
    if [ -z "$verb" ]; then
        if [[ $cur == -* ]]; then
            [ ${#words[@]} -gt 0 ] || mapfile -t COMPREPLY < <(compgen -W "--help --version" -- "$cur")
        else
            mapfile -t COMPREPLY < <(compgen -W "${next[*]}" -- "$cur")
        fi
        return 0
    fi

    local -a kinds
    read -r -a kinds <<<"$operands"
    local kind=${kinds[${#words[@]} - ${#verbWords[@]}]:-}
    if [[ $cur == -* ]] || [ -z "$kind" ]; then
        mapfile -t COMPREPLY < <(compgen -W "$options --help" -- "$cur")
        return 0
    fi
    local name
    case $kind in
        -) ;;
        groups | processes | names)
            while IFS= read -r name; do
                [[ -n $name && $name == "$cur"* ]] && COMPREPLY+=("$(printf '%q' "$name")")
            done < <(_emctl_names "$emctl" "$kind")
            ;;
        file)
            compopt -o filenames 2>/dev/null
            mapfile -t COMPREPLY < <(compgen -f -- "$cur")
            ;;
        *) mapfile -t COMPREPLY < <(compgen -W "${kind//,/ }" -- "$cur") ;;
    esac
    return 0
}
complete -F _emctl emctl
