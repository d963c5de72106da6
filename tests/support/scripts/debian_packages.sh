#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The Debian packages of a build configured for /usr: cpack makes them, lintian finds no
# error, and unpacked into a scratch root (no installation) they hold what a user needs:
# every program answers --version with the package version, the service's manifest passes
# emd --check, and examples/consumer builds and runs against the root both through the CMake
# package and through pkg-config.
# Usage: debian_packages.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build="$1"
source_dir="$2"
work="$(mktemp -d "${TMPDIR:-/tmp}/ara-exec-packages.XXXXXX")"
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }
# The consumer talks DDS: on a discovery tag of its own, apart from the other tests.
export KELP_DDS_CONFIG="<Discovery><Tag>packages-$$</Tag></Discovery>"

cpack --config "$build/CPackConfig.cmake" -B "$work/packages" > "$work/cpack.log" 2>&1 ||
    { cat "$work/cpack.log"; fail "cpack"; }
debs=("$work"/packages/*.deb)
expected="ara-exec-emd libara-exec-dev libara-exec1 libara-platform1 libbrio-ddsdriver1 libkelp-brio1"
names="$(for deb in "${debs[@]}"; do dpkg-deb -f "$deb" Package; done | sort | tr '\n' ' ')"
[ "$names" = "$expected " ] || fail "packages: expected '$expected', made '$names'"

echo "--- lintian"
lintian --fail-on error --tag-display-limit 0 "${debs[@]}" || fail "lintian reports errors"

root="$work/root"
for deb in "${debs[@]}"; do
    dpkg-deb -x "$deb" "$root"
done
libdir="$(dirname "$(find "$root/usr/lib" -name 'libara_exec.so.1' | head -n 1)")"
export LD_LIBRARY_PATH="$libdir"
version="$(dpkg-deb -f "${debs[0]}" Version)"

echo "--- --version of every program, package version $version"
programs=("$root/usr/sbin/emd" "$root"/usr/bin/* "$root"/usr/libexec/ara_exec/*)
[ "${#programs[@]}" -ge 6 ] || fail "programs missing: ${programs[*]}"
for program in "${programs[@]}"; do
    answer="$("$program" --version)" || fail "$program --version failed"
    [ "$answer" = "$(basename "$program") $version" ] || fail "$program --version says '$answer'"
done
for lib in "$libdir"/lib*.so.1; do
    readelf -d "$lib" | grep -q "SONAME.*\[$(basename "$lib")\]" || fail "$lib: SONAME is not its name"
    if readelf -d "$lib" | grep -q -E 'RPATH|RUNPATH'; then fail "$lib carries a library search path"; fi
done
"$root/usr/sbin/emd" --check --manifest "$root/etc/ara-exec/machine_manifest.json" ||
    fail "the service's manifest is refused"

echo "--- examples/consumer through the CMake package"
cmake -S "$source_dir/examples/consumer" -B "$work/consumer" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_PREFIX_PATH="$root/usr" -DCMAKE_FIND_USE_SYSTEM_PACKAGE_REGISTRY=OFF > "$work/consumer.log" 2>&1 ||
    { cat "$work/consumer.log"; fail "consumer configure"; }
grep -q "$root" "$work/consumer/CMakeCache.txt" || fail "the consumer did not find AraExec in the scratch root"
cmake --build "$work/consumer" -j2 > "$work/consumer-build.log" 2>&1 ||
    { cat "$work/consumer-build.log"; fail "consumer build"; }
"$work/consumer/ara_exec_consumer" || fail "consumer (CMake package) failed"

echo "--- examples/consumer through pkg-config"
export PKG_CONFIG_SYSROOT_DIR="$root"
export PKG_CONFIG_LIBDIR="$libdir/pkgconfig"
flags="$(pkg-config --cflags --libs ara_exec)" || fail "pkg-config does not know ara_exec"
case "$flags" in *"-I$root/usr/include"*"-L$libdir"*) ;; *) fail "pkg-config flags outside the root: $flags" ;; esac
# shellcheck disable=SC2086
g++ -o "$work/consumer_pc" "$source_dir/examples/consumer/main.cpp" $flags ||
    fail "consumer (pkg-config) does not build"
"$work/consumer_pc" || fail "consumer (pkg-config) failed"
echo "packages: ${debs[*]##*/}"
