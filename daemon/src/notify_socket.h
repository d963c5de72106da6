// SPDX-License-Identifier: Apache-2.0
// The notify protocol's receiving end (systemd's NOTIFY_SOCKET): a datagram socket in the
// abstract namespace, one per emd, from which the event loop drains what the supervised
// processes send; the parser of a datagram; and the trace of a sender to the process emd
// started that it descends from.
#ifndef TARN_EM_DAEMON_NOTIFY_SOCKET_H
#define TARN_EM_DAEMON_NOTIFY_SOCKET_H

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "notify_message.h"

namespace tarn::em::daemon {

/// The datagram `text` as a message. A datagram with a NUL byte, or without a single
/// VARIABLE=VALUE line (a name of letters, digits and '_' not led by a digit), is refused
/// (nullopt); unknown variables are ignored; an EXTEND_TIMEOUT_USEC that is not a decimal
/// number of at most 63 bits is left out. `problem`, when given, receives why the datagram
/// was refused or what of it was left out (empty when nothing was).
std::optional<NotifyMessage> ParseNotify(std::string_view text, std::string* problem = nullptr);

/// The parent of `pid` as `procRoot`/<pid>/stat gives it; nullopt when it cannot be read.
std::optional<pid_t> ParentOf(pid_t pid, const std::string& procRoot = "/proc");

/// Walks from `sender` up its parents, `sender` first, to the first pid that `supervised`
/// accepts; nullopt once it reaches pid 1 or 0, a pid whose parent cannot be read, or after
/// MAX_TRACE_STEPS parents.
std::optional<pid_t> TraceToSupervised(pid_t sender,
                                       const std::function<bool(pid_t)>& supervised,
                                       const std::string& procRoot = "/proc");
constexpr int MAX_TRACE_STEPS = 64;

/// The largest datagram taken; a longer one is dropped.
constexpr std::size_t MAX_NOTIFY_DATAGRAM = 4096U;

class NotifySocket {
public:
    NotifySocket() = default;
    ~NotifySocket();
    NotifySocket(const NotifySocket&) = delete;
    NotifySocket& operator=(const NotifySocket&) = delete;

    /// Binds "@ara-emd/notify/<pid of emd>" (SOCK_DGRAM, close-on-exec, non-blocking, with
    /// SO_PASSCRED); false with the reason in `error` when it cannot.
    bool Open(std::string& error);
    /// The descriptor to poll for input; -1 before Open.
    int Descriptor() const noexcept { return fd_; }
    /// The value of NOTIFY_SOCKET for the processes: "@" and the abstract name.
    const std::string& Address() const noexcept { return address_; }

    /// What one datagram carried: the sender's pid (its credentials) and the message.
    using Handler = std::function<void(pid_t sender, const NotifyMessage& message)>;
    /// Takes the queued datagrams (at most 256; the rest keep the descriptor readable) and
    /// hands each that parses to `handler`, in order, without waiting.
    /// Dropped with a log line: a datagram too long, one whose descriptors or credentials did
    /// not fit, one without credentials, one ParseNotify refuses. Every descriptor a datagram
    /// passes is closed once the handler has returned: that is the answer to BARRIER=1, whose
    /// sender waits for its pipe to close (and so still exists while it is traced).
    void Receive(const Handler& handler);

private:
    int fd_{-1};
    std::string address_;
};

}  // namespace tarn::em::daemon

#endif
