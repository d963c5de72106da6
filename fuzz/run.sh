#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Runs every fuzz target for a bounded time on a copy of its committed seed corpus.
# Usage: fuzz/run.sh <build-dir> <seconds-per-target>. Exits non-zero if any target crashes.
set -uo pipefail
if [ $# -ne 2 ]; then
    echo "usage: $0 <build-dir> <seconds-per-target>" >&2
    exit 2
fi
build="$(cd "$1" && pwd)"
seconds="$2"
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

# Decoders log every refusal; the fuzzers do not need the lines.
export ARA_LOG_SINK=none

failed=0
for seeds in "$here"/corpus/*/; do
    target="$(basename "$seeds")"
    binary="$build/fuzz/fuzz_$target"
    if [ ! -x "$binary" ]; then
        echo "fuzz: $binary is missing" >&2
        failed=1
        continue
    fi
    mkdir -p "$work/$target/corpus" "$work/$target/artifacts"
    cp "$seeds"* "$work/$target/corpus/"
    echo "=== fuzz_$target (${seconds}s) ==="
    if ! "$binary" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
            -artifact_prefix="$work/$target/artifacts/" "$work/$target/corpus" > "$work/$target/log" 2>&1; then
        echo "fuzz_$target FAILED; last lines of its output:" >&2
        tail -n 40 "$work/$target/log" >&2
        for artifact in "$work/$target/artifacts/"*; do
            [ -f "$artifact" ] && echo "reproducer ($(basename "$artifact")): $(od -An -tx1 "$artifact" | head -c 600)" >&2
        done
        failed=1
    else
        grep -E "stat::number_of_executed_units|cov:" "$work/$target/log" | tail -n 2
    fi
done
exit "$failed"
