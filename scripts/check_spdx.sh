#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Every source file, script and CMake file names its licence in its first lines. With --add,
# the line is put in where it is missing (after a shebang), in the file's comment syntax.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"
add=0
[ "${1:-}" = "--add" ] && add=1
tag="SPDX-License-Identifier: Apache-2.0"

comment_of() {
    case "$1" in
    packaging/changelog.in) echo "" ;; # a Debian changelog starts with its first entry
    *.cpp | *.h | *.inl | *.idl) echo "//" ;;
    *.scd) echo ";" ;;
    *.cmake | *CMakeLists.txt | *.sh | *.py | *.in | *.supp | *.service | *.bash | .ci/run | \
        tools/ara-exec-pki | packaging/post* | packaging/prerm | packaging/*maintscript | packaging/triggers | \
        .clang-format | .clang-tidy | .gitignore) echo "#" ;;
    *) echo "" ;;
    esac
}

missing=0
while IFS= read -r file; do
    mark="$(comment_of "$file")"
    [ -n "$mark" ] || continue
    if head -n 3 "$file" | grep -q "$tag"; then
        continue
    fi
    if [ "$add" -eq 1 ]; then
        if head -n 1 "$file" | grep -q '^#!'; then
            sed -i "1a $mark $tag" "$file"
        else
            sed -i "1i $mark $tag" "$file"
        fi
    else
        echo "no licence line: $file"
        missing=1
    fi
done < <(git ls-files)
exit "$missing"
