#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The layer check must fail on an include that reaches up: run it on a copy of the
# components' CMake files and sources in which the bottom layer includes a client header.
set -euo pipefail
root="$1"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
(cd "$root" && find platform util rpc exec \( -name CMakeLists.txt -o -path '*/include/*' -o -path '*/src/*' \) \
    -type f -exec cp --parents {} "$work" \;)
cp "$root/scripts/check_layers.sh" "$work/"
bash "$work/check_layers.sh" "$work" >/dev/null
sed -i '1a #include "ara/exec/process.h"' "$work/platform/core/src/abort.cpp"
if out="$(bash "$work/check_layers.sh" "$work")"; then
    echo "the check passed a tree in which platform_core includes ara/exec/process.h"
    exit 1
fi
grep -q 'platform/core/src/abort.cpp:2: platform_core includes ara/exec/process.h of exec' <<<"$out"
echo "layer check refuses an upward include"
