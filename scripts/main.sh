#!/usr/bin/env bash
# The main job: builds the library, installs it into a local prefix, then builds and runs
# the separate consumer project in examples/consumer against that installation.
# Usage: bash scripts/main.sh
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
source "$root/scripts/deps.sh"
ara_exec_install_deps

build="$root/build-main"
prefix="$root/_install"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF -DARA_EXEC_BUILD_BENCH=OFF \
    -DCMAKE_INSTALL_PREFIX="$prefix" -DCMAKE_INSTALL_LIBDIR=lib
cmake --build "$build" -j2
cmake --install "$build"

consumer_build="$root/build-consumer"
cmake -S "$root/examples/consumer" -B "$consumer_build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_PREFIX_PATH="$prefix"
cmake --build "$consumer_build" -j2
"$consumer_build/ara_exec_consumer"

# The same program built with only the pkg-config file.
pc_out="$consumer_build/ara_exec_consumer_pc"
# shellcheck disable=SC2046
g++ -o "$pc_out" "$root/examples/consumer/main.cpp" \
    $(PKG_CONFIG_PATH="$prefix/lib/pkgconfig" pkg-config --cflags --libs ara_exec) -Wl,-rpath,"$prefix/lib"
"$pc_out"
