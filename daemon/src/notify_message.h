// SPDX-License-Identifier: Apache-2.0
// One datagram of the notify protocol (the one systemd defines for NOTIFY_SOCKET), as emd
// takes it: newline-separated VARIABLE=VALUE assignments, of which emd acts on READY=1,
// STOPPING=1, STATUS=..., WATCHDOG=1, WATCHDOG=trigger and EXTEND_TIMEOUT_USEC=...; the
// others are ignored.
#ifndef TARN_EM_DAEMON_NOTIFY_MESSAGE_H
#define TARN_EM_DAEMON_NOTIFY_MESSAGE_H

#include <chrono>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

namespace tarn::em::daemon {

struct NotifyMessage {
    bool ready{false};                                       ///< READY=1
    bool stopping{false};                                    ///< STOPPING=1
    bool watchdog{false};                                    ///< WATCHDOG=1
    bool watchdogTrigger{false};                             ///< WATCHDOG=trigger: count as a missed period at once
    std::optional<std::string> status;                       ///< STATUS=...
    std::optional<std::chrono::microseconds> extendTimeout;  ///< EXTEND_TIMEOUT_USEC=...
};

/// A number of the protocol (microseconds, a pid): decimal digits only, at most 63 bits.
inline std::optional<std::uint64_t> ParseDecimal(std::string_view text) {
    if (text.empty() || text.size() > 19U) {
        return std::nullopt;
    }
    std::uint64_t value = 0U;
    for (const char c : text) {
        if (c < '0' || c > '9') {
            return std::nullopt;
        }
        value = value * 10U + static_cast<std::uint64_t>(c - '0');
    }
    if (value > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
        return std::nullopt;
    }
    return value;
}

}  // namespace tarn::em::daemon

#endif
