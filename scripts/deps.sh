#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs the Debian packages the build and the tests need, when any is missing.
# Sourced by main.sh and test.sh; needs root (or sudo) only when something must be installed.
set -euo pipefail

ARA_EXEC_PACKAGES=(
    build-essential cmake ninja-build pkg-config git
    cyclonedds-dev cyclonedds-tools
    libdlt-dev dlt-daemon dlt-tools
    rapidjson-dev zlib1g-dev libssl-dev openssl
    systemd
    libgtest-dev libgmock-dev libbenchmark-dev
    clang-14 libclang-rt-14-dev
    iproute2 util-linux libcap-dev
    python3-jsonschema
    scdoc man-db lintian file debootstrap systemd-container
)

# A daemon of the distribution that speaks the notify protocol, for emd's readiness test. It
# is a time daemon, so it is added only where no time daemon is installed: it must never
# replace the machine's own.
ara_exec_add_time_daemon() {
    local daemon
    for daemon in chrony ntp ntpsec openntpd systemd-timesyncd; do
        if dpkg-query -W -f='${Status}' "$daemon" 2>/dev/null | grep -q "install ok installed"; then
            return 0
        fi
    done
    ARA_EXEC_PACKAGES+=(systemd-timesyncd)
}

ara_exec_install_deps() {
    local missing=()
    local pkg
    ara_exec_add_time_daemon
    for pkg in "${ARA_EXEC_PACKAGES[@]}"; do
        if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed"; then
            missing+=("$pkg")
        fi
    done
    if [ ${#missing[@]} -eq 0 ]; then
        return 0
    fi
    echo "Installing missing packages: ${missing[*]}"
    local sudo=()
    if [ "$(id -u)" -ne 0 ]; then
        sudo=(sudo)
    fi
    export DEBIAN_FRONTEND=noninteractive
    "${sudo[@]}" apt-get update -q
    "${sudo[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
}
