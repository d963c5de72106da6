#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The packages on a clean machine: debootstrap makes a minimal Debian 12 in WORK/root,
# apt-get installs the packages there (with their dependencies from the archive), and
# systemd-nspawn boots it with systemd as its init. A check unit then asks, inside: is
# emd.service active (Type=notify, so only after emd said READY=1), does emctl reach it, does
# `man emd` show, does the example manifest run under the service (its processes in their
# groups below the unit's), and does a stop end every process. Needs root.
# Usage: service_check.sh PACKAGES_DIR WORK_DIR
set -euo pipefail
packages="$(cd "$1" && pwd)"
work="$2"
root="$work/root"
fail() { echo "SERVICE CHECK FAILED: $*" >&2; exit 1; }

rm -rf "$root"
mkdir -p "$work"
echo "--- debootstrap: a minimal Debian 12 with systemd in $root"
debootstrap --variant=minbase --include=systemd,systemd-sysv,dbus,man-db,procps bookworm "$root" \
    http://deb.debian.org/debian > "$work/debootstrap.log" 2>&1 || { tail -n 20 "$work/debootstrap.log"; fail "debootstrap"; }

echo "--- apt-get install the packages in it"
mkdir -p "$root/tmp/packages"
cp "$packages"/*.deb "$root/tmp/packages/"
cp /etc/resolv.conf "$root/etc/resolv.conf"
mount --bind /proc "$root/proc"
trap 'umount "$root/proc" 2>/dev/null || true' EXIT
chroot "$root" bash -c 'export DEBIAN_FRONTEND=noninteractive; apt-get update -q &&
    apt-get install -y -q --no-install-recommends /tmp/packages/*.deb' > "$work/install.log" 2>&1 ||
    { tail -n 20 "$work/install.log"; fail "the packages do not install on a clean machine"; }
grep -E 'Setting up (ara-exec|libara|libkelp|libbrio)|emd.service' "$work/install.log"
umount "$root/proc"
trap - EXIT

# The check, run by systemd inside once the machine is up; it powers the machine off.
cat > "$root/usr/local/sbin/emd-service-check" <<'EOF'
#!/bin/bash
exec > /root/emd-service-check.log 2>&1
ok() { echo "CHECK-OK $*"; }
bad() { echo "CHECK-FAILED $*"; exit 1; }
[ "$(systemctl is-active emd.service)" = active ] || bad "emd.service is not active after boot"
systemctl show emd.service -p Type -p SubState -p StatusText -p WatchdogUSec
[ "$(systemctl show -p StatusText --value emd.service)" = "serving 1 function groups, 0 processes" ] ||
    bad "emd did not tell systemd its status"
ok "emd.service active on the packaged manifest"
emctl wait-ready --timeout 30 && [ "$(emctl state get MachineFG)" = Running ] || bad "emctl does not reach emd"
ok "emctl $(emctl --version | cut -d' ' -f2) reaches emd $(emd --version 2>/dev/null | cut -d' ' -f2)"
MANWIDTH=80 man -P cat emd | grep -q 'emd - the Execution Management daemon' || bad "man emd"
ok "man emd"
cp /usr/share/ara_exec/machine_manifest.json /etc/ara-exec/machine_manifest.json
systemctl restart emd.service || bad "emd.service does not restart on the example manifest"
emctl wait-ready --timeout 30 && emctl state set Demo On || bad "the example machine does not come up"
emctl ps
[ "$(emctl ps | grep -c ' Running ')" = 4 ] || bad "not every example process runs"
systemd-cgls --no-pager -u emd.service
ok "the example manifest runs under emd.service"
systemctl stop emd.service
[ "$(systemctl show -p Result --value emd.service)" = success ] || bad "emd.service did not stop cleanly"
if pgrep -f /usr/libexec/ara_exec/ > /dev/null; then bad "processes outlived emd.service"; fi
journalctl -u emd.service --no-pager -o cat | grep -E 'Service manager|Stopping\]|Every process' | cut -c1-160
ok "a stop ends every process"
echo "SERVICE CHECK PASSED"
EOF
chmod +x "$root/usr/local/sbin/emd-service-check"
cat > "$root/etc/systemd/system/emd-service-check.service" <<'EOF'
[Unit]
Description=Check emd.service, then power off
After=emd.service
[Service]
Type=oneshot
ExecStart=/usr/local/sbin/emd-service-check
ExecStopPost=/bin/systemctl poweroff --no-block
[Install]
WantedBy=multi-user.target
EOF
ln -s /etc/systemd/system/emd-service-check.service "$root/etc/systemd/system/multi-user.target.wants/"

echo "--- boot it (systemd-nspawn) and check emd.service inside"
timeout 300 systemd-nspawn -q --register=no --keep-unit -D "$root" -b --console=pipe > "$work/boot.log" 2>&1 ||
    echo "(systemd-nspawn ended with $?; its output is in $work/boot.log)"
[ -f "$root/root/emd-service-check.log" ] || { tail -n 20 "$work/boot.log"; fail "the machine did not boot to the check"; }
cat "$root/root/emd-service-check.log"
grep -q '^SERVICE CHECK PASSED$' "$root/root/emd-service-check.log" || fail "see above"
