#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# A service that is not an ara::exec application: it tells emd that it is ready, and then that
# it is still alive, with systemd-notify (emd gives it NOTIFY_SOCKET and, for its watchdog,
# WATCHDOG_USEC; see daemon/README.md).
if [ "${1:-}" = --version ]; then
    echo "timekeeper @PROJECT_VERSION@"
    exit 0
fi
pinger=
trap '[ -z "$pinger" ] || kill "$pinger" 2>/dev/null; systemd-notify STOPPING=1; exit 0' TERM INT
systemd-notify --ready --status="keeping time"
# A ping every half watchdog period, in whole seconds (at least one).
period=$((${WATCHDOG_USEC:-2000000} / 2000000))
[ "$period" -ge 1 ] || period=1
while :; do
    sleep "$period" &
    pinger=$!
    wait "$pinger"
    systemd-notify --status="keeping time, last ping $(date +%T)" WATCHDOG=1
done
