// SPDX-License-Identifier: Apache-2.0
// Where the standard output and error of the supervised processes go: the descriptor a child
// gets on 1 and 2 (made by emd before the fork), the log pipes that emd's event loop reads,
// and emd's own descriptor limit, which those pipes need raised.
#ifndef TARN_EM_DAEMON_PROCESS_OUTPUT_H
#define TARN_EM_DAEMON_PROCESS_OUTPUT_H

#include <poll.h>
#include <sys/resource.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ara/quill/common/log/log.h"
#include "manifest.h"
#include "output_stream.h"

namespace tarn::em::daemon {

/// The descriptors of one launch: what the child puts on 1 and 2, and for "log" the read end
/// that emd keeps. Closes what it still holds when destroyed.
class OutputDescriptors {
public:
    OutputDescriptors() = default;
    ~OutputDescriptors();
    OutputDescriptors(OutputDescriptors&& other) noexcept;
    OutputDescriptors& operator=(OutputDescriptors&&) = delete;
    OutputDescriptors(const OutputDescriptors&) = delete;
    OutputDescriptors& operator=(const OutputDescriptors&) = delete;

    /// Opens what `output` names: a pipe for kLog, /dev/null, or the file (O_APPEND, created
    /// with mode 0640 and then given to `identity`'s user and group). kInherit opens nothing.
    /// Every descriptor is close-on-exec and above 2. False, with `error` set, when that fails.
    bool Open(const OutputTarget& output, const Identity& identity, std::string& error);

    /// The descriptor for the child's 1 and 2; -1: the child keeps emd's.
    int Child() const noexcept { return child_; }
    /// Closes emd's copy of the child's descriptor (once the child has its own).
    void CloseChild() noexcept;
    /// Hands over the read end of the log pipe (-1 for the other kinds).
    int TakeRead() noexcept;

private:
    int child_{-1};
    int read_{-1};
};

/// The read ends of the log pipes, polled by the event loop; each one's lines are logged as
/// info records of context EMD until its end of file, which may come long after the process
/// exited when a descendant keeps the pipe. Reads never block, and one descriptor is read at
/// most READ_BUDGET bytes per poll round, so a chatty process cannot hold up the loop.
/// @thread-safety none: used on the event loop's thread only.
class OutputPipes {
public:
    static constexpr std::size_t READ_BUDGET = 64U * 1024U;

    explicit OutputPipes(OutputLimits limits = {});
    ~OutputPipes();
    OutputPipes(const OutputPipes&) = delete;
    OutputPipes& operator=(const OutputPipes&) = delete;

    /// Takes `fd`, the read end of `process`'s log pipe.
    void Add(const std::string& process, int fd);
    /// Appends one entry per open read end to `fds`.
    void AppendPollEntries(std::vector<pollfd>& fds) const;
    /// Reads and logs what the entries say is ready (entries of other descriptors are skipped);
    /// closes the read ends that reached their end.
    void OnReady(const pollfd* fds, std::size_t count);
    /// At emd's end: logs what is left in every pipe without waiting, then closes them all.
    void Drain();
    std::size_t Size() const noexcept { return pipes_.size(); }

private:
    /// Reads up to `budget` bytes of `fd`; true at its end (or on an error).
    bool Read(int fd, OutputStream& stream, std::size_t budget);
    void Log(const std::vector<OutputRecord>& records) const;
    void Close(std::map<int, OutputStream>::iterator pipe);

    OutputLimits limits_;
    std::map<int, OutputStream> pipes_;  ///< by read end
    std::shared_ptr<ara::quill::common::log::Log> log_;
};

/// What RaiseDescriptorLimit did.
struct DescriptorLimit {
    rlimit original{};    ///< emd's limit at start, which its children get back
    rlim_t raisedTo{0U};  ///< the new soft limit; 0: not raised
    std::string error;    ///< why it could not be read or raised
};

/// Raises emd's soft RLIMIT_NOFILE to its hard limit, but at most to `cap` (never lowers it).
DescriptorLimit RaiseDescriptorLimit(rlim_t cap);

}  // namespace tarn::em::daemon

#endif
