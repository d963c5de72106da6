#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# man_pages_render.sh PAGE.gz...: renders each built manual page as lintian does and fails on
# anything man or groff prints on standard error; the header must be the NAME(SECTION) of the
# page's file name, and the NAME section must begin with that name.
set -uo pipefail
[ $# -gt 0 ] || { echo "man_pages_render.sh: no pages given" >&2; exit 1; }
failed=0
for page in "$@"; do
    file=$(basename "$page" .gz)
    name=${file%.*} section=${file##*.}
    warnings=$(LC_ALL=C.UTF-8 MANROFFSEQ='' MANWIDTH=80 man --warnings -E UTF-8 -l -Tutf8 -Z "$page" 2>&1 >/dev/null)
    text=$(LC_ALL=C.UTF-8 MANWIDTH=80 man -E UTF-8 -l "$page" 2>/dev/null)
    header=$(head -n 1 <<<"$text")
    name_line=$(sed -n '/^NAME$/{n;p;q}' <<<"$text")
    problems=()
    [ -z "$warnings" ] || problems+=("warnings: $warnings")
    [[ "$header" == "$name($section) "* ]] || problems+=("header is '$header', not $name($section)")
    [[ "$name_line" =~ ^\ +"$name"\ -\ [^\ ] ]] || problems+=("NAME reads '$name_line', not '$name - ...'")
    for problem in "${problems[@]}"; do
        echo "$page: $problem" >&2
        failed=1
    done
done
exit $failed
