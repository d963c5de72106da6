#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The layer check: every #include "..." in a component's include/ and src/ must name a header
# of the component itself or of a component it declares in USES (its ara_exec_add_component
# call). A header of any other component is an include that reaches up or sideways, and
# fails the check. Headers of no component (system, third party, generated) are not ours to
# judge. Prints each violation as "file:line: component includes header of other" and exits 1.
#
# usage: check_layers.sh [source root]     (default: the repository holding this script)
set -euo pipefail
root="${1:-$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)}"
cd "$root"

declare -A dir_of uses_of owner
components=()

# NAME and USES of every component, from the CMakeLists.txt files that declare one.
while IFS= read -r list; do
    dir="$(dirname "$list")"
    read -r name uses < <(awk '
        /ara_exec_add_component\(/ { inside = 1 }
        inside {
            for (i = 1; i <= NF; i++) {
                token = $i; sub(/\)$/, "", token); sub(/^ara_exec_add_component\(/, "", token)
                if (token ~ /^[A-Z_]+$/) { key = token; continue }
                if (key == "NAME") name = token
                if (key == "USES" && token != "") used = used " " token
            }
            if ($0 ~ /\)[[:space:]]*$/) inside = 0
        }
        END { print name, used }' "$list")
    [ -n "$name" ] || continue
    components+=("$name")
    dir_of[$name]="$dir"
    uses_of[$name]=" $uses "
done < <(grep -l 'ara_exec_add_component(' --include=CMakeLists.txt -r . | grep -v '^./build' | sort)

# Which component owns each public header path (as it is written in an #include).
for name in "${components[@]}"; do
    inc="${dir_of[$name]}/include"
    [ -d "$inc" ] || continue
    while IFS= read -r header; do
        path="${header#"$inc"/}"
        if [ -n "${owner[$path]:-}" ] && [ "${owner[$path]}" != "$name" ]; then
            echo "$header: $path is a header of both ${owner[$path]} and $name"
            exit 1
        fi
        owner[$path]="$name"
    done < <(find "$inc" -type f \( -name '*.h' -o -name '*.inl' \))
done

violations=0
for name in "${components[@]}"; do
    dir="${dir_of[$name]}"
    while IFS=: read -r file line text; do
        path="$(sed -E 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*"([^"]+)".*/\1/' <<<"$text")"
        other="${owner[$path]:-}"
        if [ -z "$other" ] || [ "$other" = "$name" ] || [[ "${uses_of[$name]}" == *" $other "* ]]; then
            continue
        fi
        echo "$file:$line: $name includes $path of $other"
        violations=$((violations + 1))
    done < <(grep -rnE '^[[:space:]]*#[[:space:]]*include[[:space:]]*"' "$dir/include" "$dir/src" 2>/dev/null || true)
done

if [ "$violations" -ne 0 ]; then
    echo "layer check: $violations include(s) reach up or sideways"
    exit 1
fi
echo "layer check: ${#components[@]} components, every include within its layer or below"
