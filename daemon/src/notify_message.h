// SPDX-License-Identifier: Apache-2.0
// One datagram of the notify protocol (the one systemd defines for NOTIFY_SOCKET), as emd
// takes it: newline-separated VARIABLE=VALUE assignments, of which emd acts on READY=1,
// STOPPING=1, STATUS=..., WATCHDOG=1, WATCHDOG=trigger and EXTEND_TIMEOUT_USEC=...; the
// others are ignored.
#ifndef TARN_EM_DAEMON_NOTIFY_MESSAGE_H
#define TARN_EM_DAEMON_NOTIFY_MESSAGE_H

#include <chrono>
#include <optional>
#include <string>

namespace tarn::em::daemon {

struct NotifyMessage {
    bool ready{false};                                       ///< READY=1
    bool stopping{false};                                    ///< STOPPING=1
    bool watchdog{false};                                    ///< WATCHDOG=1
    bool watchdogTrigger{false};                             ///< WATCHDOG=trigger: count as a missed period at once
    std::optional<std::string> status;                       ///< STATUS=...
    std::optional<std::chrono::microseconds> extendTimeout;  ///< EXTEND_TIMEOUT_USEC=...
};

}  // namespace tarn::em::daemon

#endif
