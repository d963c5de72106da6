// SPDX-License-Identifier: Apache-2.0
// One datagram of the notify protocol (the one systemd defines for NOTIFY_SOCKET), as emd
// takes it: newline-separated VARIABLE=VALUE assignments, of which emd acts on READY=1,
// STOPPING=1, STATUS=..., WATCHDOG=1, WATCHDOG=trigger and EXTEND_TIMEOUT_USEC=...; the
// others are ignored.
#ifndef TARN_EM_DAEMON_NOTIFY_MESSAGE_H
#define TARN_EM_DAEMON_NOTIFY_MESSAGE_H

#include <sys/socket.h>
#include <sys/un.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
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

/// At most `limit` bytes of `text`, for a log line.
inline std::string Excerpt(std::string_view text, std::size_t limit) {
    return text.size() <= limit ? std::string(text) : std::string(text.substr(0U, limit)) + "...";
}

/// The socket address a NOTIFY_SOCKET value names: a path, or an abstract name led by '@'.
/// False with `problem` set when it names neither or does not fit.
inline bool NotifyAddress(const std::string& text, sockaddr_un& address, socklen_t& length, std::string& problem) {
    const std::size_t room = sizeof(address.sun_path);
    address = sockaddr_un{};
    address.sun_family = AF_UNIX;
    if (text.empty()) {
        problem = "it is empty";
    } else if (text.front() == '/') {
        if (text.size() >= room) {  // the path and its NUL must fit
            problem = "the path is longer than " + std::to_string(room - 1U) + " bytes";
        } else {
            std::memcpy(address.sun_path, text.data(), text.size());
            length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + text.size() + 1U);
            return true;
        }
    } else if (text.front() == '@') {
        if (text.size() == 1U) {
            problem = "the abstract name is empty";
        } else if (text.size() > room) {  // '@' stands for the leading NUL
            problem = "the abstract name is longer than " + std::to_string(room - 1U) + " bytes";
        } else {
            std::memcpy(address.sun_path + 1, text.data() + 1, text.size() - 1U);
            length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + text.size());
            return true;
        }
    } else {
        problem = "it is neither a path nor an abstract name led by '@'";
    }
    return false;
}

}  // namespace tarn::em::daemon

#endif
