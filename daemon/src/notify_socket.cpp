// SPDX-License-Identifier: Apache-2.0
// The notify socket. Datagrams on an AF_UNIX socket are charged to their sender and queue at
// most net.unix.max_dgram_qlen deep (10 here); a sender beyond that waits in its sendmsg
// until emd drains, so a burst of hundreds of processes is slowed, not lost. The receive
// buffer is raised all the same, as far as the system allows.
#include "notify_socket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

#include "ara/quill/common/log/log.h"

namespace tarn::em::daemon {

namespace {

/// The most descriptors one datagram can pass (the kernel's SCM_MAX_FD).
constexpr std::size_t MAX_PASSED_FDS = 253U;
/// Datagrams taken per Receive; what is left wakes the next poll, so a flood from one
/// process never holds up the loop.
constexpr int MAX_DATAGRAMS_PER_RECEIVE = 256;
constexpr int RECEIVE_BUFFER = 8 * 1024 * 1024;
const ara::quill::common::log::LimitConfig DROP_LIMIT{5000U, 5U};

bool ValidName(std::string_view name) {
    if (name.empty() || (name.front() >= '0' && name.front() <= '9')) {
        return false;
    }
    for (const char c : name) {
        if (!((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_')) {
            return false;
        }
    }
    return true;
}

}  // namespace

std::optional<NotifyMessage> ParseNotify(std::string_view text, std::string* problem) {
    std::string ignored;
    std::string& why = problem != nullptr ? *problem : ignored;
    why.clear();
    if (text.find('\0') != std::string_view::npos) {
        why = "holds a NUL byte";
        return std::nullopt;
    }
    NotifyMessage message;
    bool assigned = false;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        const std::string_view line = text.substr(0U, end);
        text = end == std::string_view::npos ? std::string_view{} : text.substr(end + 1U);
        const std::size_t equals = line.find('=');
        if (equals == std::string_view::npos || !ValidName(line.substr(0U, equals))) {
            continue;
        }
        assigned = true;
        const std::string_view name = line.substr(0U, equals);
        const std::string_view value = line.substr(equals + 1U);
        if (name == "READY") {
            message.ready = message.ready || value == "1";
        } else if (name == "STOPPING") {
            message.stopping = message.stopping || value == "1";
        } else if (name == "WATCHDOG") {
            message.watchdog = message.watchdog || value == "1";
            message.watchdogTrigger = message.watchdogTrigger || value == "trigger";
        } else if (name == "STATUS") {
            message.status = std::string(value);
        } else if (name == "EXTEND_TIMEOUT_USEC") {
            if (const auto usec = ParseDecimal(value)) {
                message.extendTimeout = std::chrono::microseconds(static_cast<std::int64_t>(*usec));
            } else {
                why += (why.empty() ? "" : "; ") + ("EXTEND_TIMEOUT_USEC=" + Excerpt(value, 32U)) +
                       " is not a number of microseconds, ignored";
            }
        }
    }
    if (!assigned) {
        why = "no VARIABLE=VALUE line";
        return std::nullopt;
    }
    return message;
}

std::optional<pid_t> ParentOf(pid_t pid, const std::string& procRoot) {
    const std::string path = procRoot + "/" + std::to_string(pid) + "/stat";
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return std::nullopt;
    }
    // "pid (comm) state ppid ...": comm is at most 16 bytes but may hold spaces and ')', so
    // the fields after it start at the last ')'.
    char buffer[512];
    const ssize_t got = read(fd, buffer, sizeof(buffer) - 1U);
    close(fd);
    if (got <= 0) {
        return std::nullopt;
    }
    const std::string_view stat(buffer, static_cast<std::size_t>(got));
    const std::size_t last = stat.rfind(')');
    if (last == std::string_view::npos || stat.size() < last + 5U || stat[last + 1U] != ' ' || stat[last + 3U] != ' ') {
        return std::nullopt;
    }
    std::string_view rest = stat.substr(last + 4U);
    rest = rest.substr(0U, rest.find(' '));
    const auto parent = ParseDecimal(rest);
    if (!parent || *parent > static_cast<std::uint64_t>(std::numeric_limits<pid_t>::max())) {
        return std::nullopt;
    }
    return static_cast<pid_t>(*parent);
}

std::optional<pid_t> TraceToSupervised(pid_t sender,
                                       const std::function<bool(pid_t)>& supervised,
                                       const std::string& procRoot) {
    pid_t pid = sender;
    for (int step = 0; step <= MAX_TRACE_STEPS && pid > 1; ++step) {
        if (supervised(pid)) {
            return pid;
        }
        const auto parent = ParentOf(pid, procRoot);
        if (!parent) {
            return std::nullopt;
        }
        pid = *parent;
    }
    return std::nullopt;
}

NotifySocket::~NotifySocket() {
    if (fd_ >= 0) {
        close(fd_);
    }
}

bool NotifySocket::Open(std::string& error) {
    const std::string name = "@ara-emd/notify/" + std::to_string(getpid());
    sockaddr_un address{};
    socklen_t length = 0U;
    if (!NotifyAddress(name, address, length, error)) {
        return false;
    }
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        error = std::string("cannot create the notify socket: ") + std::strerror(errno);
        return false;
    }
    const int on = 1;
    if (bind(fd, reinterpret_cast<const sockaddr*>(&address), length) != 0 ||
        setsockopt(fd, SOL_SOCKET, SO_PASSCRED, &on, sizeof(on)) != 0) {
        error = "cannot bind the notify socket " + name + ": " + std::strerror(errno);
        close(fd);
        return false;
    }
    // The forced size needs CAP_NET_ADMIN; without it the system's maximum caps the request.
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &RECEIVE_BUFFER, sizeof(RECEIVE_BUFFER)) != 0) {
        (void)setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &RECEIVE_BUFFER, sizeof(RECEIVE_BUFFER));
    }
    fd_ = fd;
    address_ = name;
    return true;
}

void NotifySocket::Receive(const Handler& handler) {
    const auto log = ara::quill::common::log::Log::GetLog("EMD");
    for (int taken = 0; taken < MAX_DATAGRAMS_PER_RECEIVE; ++taken) {
        char data[MAX_NOTIFY_DATAGRAM];
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred)) + CMSG_SPACE(sizeof(int) * MAX_PASSED_FDS)];
        iovec payload{data, sizeof(data)};
        msghdr header{};
        header.msg_iov = &payload;
        header.msg_iovlen = 1U;
        header.msg_control = control;
        header.msg_controllen = sizeof(control);
        const ssize_t got = recvmsg(fd_, &header, MSG_CMSG_CLOEXEC | MSG_DONTWAIT);
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            if (errno != EAGAIN && errno != EWOULDBLOCK) {
                log->warn("notify-receive", DROP_LIMIT)
                    << "[Notify][Receive failed][reason=" << std::strerror(errno) << "]";
            }
            return;
        }
        pid_t sender = 0;
        int passed[MAX_PASSED_FDS];
        std::size_t passedCount = 0U;
        for (cmsghdr* item = CMSG_FIRSTHDR(&header); item != nullptr; item = CMSG_NXTHDR(&header, item)) {
            if (item->cmsg_level != SOL_SOCKET) {
                continue;
            }
            if (item->cmsg_type == SCM_CREDENTIALS && item->cmsg_len == CMSG_LEN(sizeof(ucred))) {
                ucred credentials{};
                std::memcpy(&credentials, CMSG_DATA(item), sizeof(credentials));
                sender = credentials.pid;
            } else if (item->cmsg_type == SCM_RIGHTS) {
                const std::size_t count = (item->cmsg_len - CMSG_LEN(0U)) / sizeof(int);
                for (std::size_t i = 0U; i < count && passedCount < MAX_PASSED_FDS; ++i) {
                    std::memcpy(&passed[passedCount++], CMSG_DATA(item) + i * sizeof(int), sizeof(int));
                }
            }
        }
        if ((header.msg_flags & MSG_TRUNC) != 0) {
            log->warn("notify-drop", DROP_LIMIT)
                << "[Notify][Datagram longer than " << MAX_NOTIFY_DATAGRAM << " bytes, dropped][pid=" << sender << "]";
        } else if ((header.msg_flags & MSG_CTRUNC) != 0) {
            log->warn("notify-drop", DROP_LIMIT)
                << "[Notify][Datagram with more descriptors than fit, dropped][pid=" << sender << "]";
        } else if (sender <= 0) {
            log->warn("notify-drop", DROP_LIMIT) << "[Notify][Datagram without credentials, dropped]";
        } else {
            std::string problem;
            const auto message = ParseNotify(std::string_view(data, static_cast<std::size_t>(got)), &problem);
            if (!problem.empty()) {
                log->warn("notify-drop", DROP_LIMIT)
                    << "[Notify][" << (message ? "Field of a datagram ignored" : "Datagram refused")
                    << "][pid=" << sender << ", reason=" << problem << "]";
            }
            if (message) {
                handler(sender, *message);
            }
        }
        for (std::size_t i = 0U; i < passedCount; ++i) {
            close(passed[i]);
        }
    }
}

}  // namespace tarn::em::daemon
