#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds the whole project with its tests in build/ and runs the suite with ctest.
# Usage: bash scripts/test.sh            (from the repository root or anywhere)
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
source "$root/scripts/deps.sh"
ara_exec_install_deps

build="${ARA_EXEC_BUILD_DIR:-$root/build}"
# Configured for /usr, so that the suite also checks the Debian packages made from this build
# (nothing is installed: the packaging test unpacks them into a scratch directory).
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBUILD_TESTING=ON -DARA_EXEC_WERROR=ON \
    -DCMAKE_INSTALL_PREFIX=/usr
cmake --build "$build" -j2
ctest --test-dir "$build" -j2 --output-on-failure --timeout 600
