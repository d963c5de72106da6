// SPDX-License-Identifier: Apache-2.0
// emd's side of the notify protocol towards whatever started it: a service manager that set
// NOTIFY_SOCKET (and, for a watchdog, WATCHDOG_USEC and maybe WATCHDOG_PID) in emd's
// environment. emd tells it READY=1 once its services are offered, STOPPING=1 when an
// orderly stop begins, and WATCHDOG=1 at half the period it asked for, from the event loop.
// This is the sending end; emd's own socket for its processes is NotifySocket.
#ifndef TARN_EM_DAEMON_SERVICE_MANAGER_H
#define TARN_EM_DAEMON_SERVICE_MANAGER_H

#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "ara/quill/common/log/log.h"

namespace tarn::em::daemon {

/// The variables a service manager gives emd, as found at start.
struct ManagerEnvironment {
    std::optional<std::string> notifySocket;
    std::optional<std::string> watchdogUsec;
    std::optional<std::string> watchdogPid;
};

/// Reads NOTIFY_SOCKET, WATCHDOG_USEC and WATCHDOG_PID and removes them from emd's
/// environment. Call it before any other thread exists.
ManagerEnvironment TakeManagerEnvironment();

class ServiceManager {
public:
    using Clock = std::chrono::steady_clock;

    /// The watchdog is armed when `environment` has a usable socket address, a WATCHDOG_USEC
    /// of a positive number of microseconds and no WATCHDOG_PID other than `self`. Every
    /// problem with the variables gets one log line; emd then runs without them.
    explicit ServiceManager(const ManagerEnvironment& environment, pid_t self, Clock::time_point now);
    ~ServiceManager();
    ServiceManager(const ServiceManager&) = delete;
    ServiceManager& operator=(const ServiceManager&) = delete;

    /// A socket address was given and can be used.
    bool Active() const noexcept { return addressLength_ != 0U; }
    /// The watchdog's ping interval: half the period asked for (at least 1 ms); nullopt without one.
    std::optional<Clock::duration> PingInterval() const noexcept { return interval_; }

    /// READY=1 with STATUS=`status`.
    void Ready(const std::string& status);
    /// STOPPING=1 with STATUS=`status`; only the first call sends.
    void Stopping(const std::string& status);
    /// When the next WATCHDOG=1 is due; nullopt without a watchdog.
    std::optional<Clock::time_point> NextPing() const noexcept;
    /// Sends WATCHDOG=1 when it is due at `now`, and schedules the next one.
    void OnTimer(Clock::time_point now);

private:
    /// Arms the watchdog from WATCHDOG_USEC (set in `environment`); the period asked for, or
    /// nullopt (logged) when the variables do not allow it.
    std::optional<std::uint64_t> ArmWatchdog(const ManagerEnvironment& environment, pid_t self, Clock::time_point now);
    /// One datagram, without waiting. A failure is logged when the send before it went
    /// through (or was the first), so an unreachable manager gives one line, not one a ping.
    void Send(const std::string& text);

    std::shared_ptr<ara::quill::common::log::Log> log_;
    int fd_{-1};
    std::string address_;  ///< as given, for the log
    sockaddr_un sockaddr_{};
    socklen_t addressLength_{0U};
    std::optional<Clock::duration> interval_;
    Clock::time_point nextPing_{};
    bool stopping_{false};
    bool failing_{false};
};

}  // namespace tarn::em::daemon

#endif
