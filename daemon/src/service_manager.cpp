// SPDX-License-Identifier: Apache-2.0
// The messages go out with sendto on an unconnected datagram socket, so a manager that
// re-creates its socket is still reached, and never wait: a manager whose queue is full
// misses a message rather than stall the event loop.
#include "service_manager.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "ara/quill/common/log/log.h"
#include "notify_message.h"

namespace tarn::em::daemon {

namespace {

constexpr const char* NOTIFY_SOCKET = "NOTIFY_SOCKET";
constexpr const char* WATCHDOG_USEC = "WATCHDOG_USEC";
constexpr const char* WATCHDOG_PID = "WATCHDOG_PID";
/// The ping interval's bounds: a tiny period would spin the loop, a huge one overflow the clock.
constexpr std::chrono::milliseconds MIN_PING{1};
constexpr std::chrono::hours MAX_PING{1};

std::optional<std::string> Take(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr) {
        return std::nullopt;
    }
    std::string copy(value);
    unsetenv(name);
    return copy;
}

}  // namespace

ManagerEnvironment TakeManagerEnvironment() {
    ManagerEnvironment environment;
    environment.notifySocket = Take(NOTIFY_SOCKET);
    environment.watchdogUsec = Take(WATCHDOG_USEC);
    environment.watchdogPid = Take(WATCHDOG_PID);
    return environment;
}

ServiceManager::ServiceManager(const ManagerEnvironment& environment, pid_t self, Clock::time_point now)
    : log_(ara::quill::common::log::Log::GetLog("EMD")) {
    if (environment.notifySocket) {
        address_ = *environment.notifySocket;
        std::string problem;
        if (NotifyAddress(address_, sockaddr_, addressLength_, problem)) {
            fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
            if (fd_ < 0) {
                problem = std::string("cannot create a socket: ") + std::strerror(errno);
                addressLength_ = 0U;
            }
        }
        if (!problem.empty()) {
            log_->warn() << "[emd][Service manager not told][NOTIFY_SOCKET=" << Excerpt(address_, 64U)
                         << " ignored, reason=" << problem << "]";
        }
    }
    const std::optional<std::uint64_t> usec =
        environment.watchdogUsec ? ArmWatchdog(environment, self, now) : std::nullopt;
    if (!Active()) {
        return;
    }
    if (!usec) {
        log_->info() << "[emd][Service manager][NOTIFY_SOCKET=" << address_ << ", watchdog=none]";
        return;
    }
    log_->info() << "[emd][Service manager][NOTIFY_SOCKET=" << address_ << ", watchdog_usec=" << *usec
                 << ", ping_every_ms=" << std::chrono::duration_cast<std::chrono::milliseconds>(*interval_).count()
                 << "]";
}

std::optional<std::uint64_t> ServiceManager::ArmWatchdog(const ManagerEnvironment& environment,
                                                         pid_t self,
                                                         Clock::time_point now) {
    const auto usec = ParseDecimal(*environment.watchdogUsec);
    const auto pid = environment.watchdogPid ? ParseDecimal(*environment.watchdogPid) : std::optional<std::uint64_t>{};
    std::string problem;
    if (!usec || *usec == 0U) {
        problem =
            "WATCHDOG_USEC=" + Excerpt(*environment.watchdogUsec, 64U) + " is not a positive number of microseconds";
    } else if (environment.watchdogPid && !pid) {
        problem = "WATCHDOG_PID=" + Excerpt(*environment.watchdogPid, 64U) + " is not a pid";
    } else if (pid && *pid != static_cast<std::uint64_t>(self)) {
        problem = "WATCHDOG_PID=" + *environment.watchdogPid + " is another process";
    } else if (!Active()) {
        problem = "no usable NOTIFY_SOCKET to send it to";
    }
    if (!problem.empty()) {
        log_->warn() << "[emd][Watchdog not armed][reason=" << problem << "]";
        return std::nullopt;
    }
    const Clock::duration half =
        std::chrono::microseconds(static_cast<std::int64_t>(std::min<std::uint64_t>(*usec, 1ULL << 40U))) / 2;
    interval_ = std::clamp(half, Clock::duration(MIN_PING), Clock::duration(MAX_PING));
    nextPing_ = now + *interval_;
    return usec;
}

ServiceManager::~ServiceManager() {
    if (fd_ >= 0) {
        close(fd_);
    }
}

void ServiceManager::Ready(const std::string& status) {
    Send("READY=1\nSTATUS=" + status);
}

void ServiceManager::Stopping(const std::string& status) {
    if (stopping_) {
        return;
    }
    stopping_ = true;
    Send("STOPPING=1\nSTATUS=" + status);
}

std::optional<ServiceManager::Clock::time_point> ServiceManager::NextPing() const noexcept {
    return interval_ ? std::optional<Clock::time_point>(nextPing_) : std::nullopt;
}

void ServiceManager::OnTimer(Clock::time_point now) {
    if (!interval_ || now < nextPing_) {
        return;
    }
    Send("WATCHDOG=1");
    // From now, not from when it was due: a loop that was held up pings once, not in a burst.
    nextPing_ = now + *interval_;
}

void ServiceManager::Send(const std::string& text) {
    if (!Active()) {
        return;
    }
    ssize_t sent = -1;
    do {
        sent = sendto(fd_,
                      text.data(),
                      text.size(),
                      MSG_DONTWAIT | MSG_NOSIGNAL,
                      reinterpret_cast<const sockaddr*>(&sockaddr_),
                      addressLength_);
    } while (sent < 0 && errno == EINTR);
    const int error = errno;
    const std::string first = text.substr(0U, text.find('\n'));
    if (sent < 0) {
        if (!failing_) {
            log_->warn() << "[emd][Service manager not told][NOTIFY_SOCKET=" << address_ << ", message=" << first
                         << ", reason=" << std::strerror(error) << "]";
        }
        failing_ = true;
        return;
    }
    if (failing_) {
        log_->info() << "[emd][Service manager reached again][NOTIFY_SOCKET=" << address_ << ", message=" << first
                     << "]";
    }
    failing_ = false;
}

}  // namespace tarn::em::daemon
