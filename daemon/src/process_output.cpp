// SPDX-License-Identifier: Apache-2.0
// The descriptors behind a process's standard output and error, and the reading of the log
// pipes on the event loop.
#include "process_output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace tarn::em::daemon {

namespace {

constexpr mode_t FILE_MODE = 0640;

std::string Reason(int error) {
    return std::strerror(error);
}

/// Opens `path` for appending; creates it with FILE_MODE when missing and then gives it to
/// `identity`'s user and group. -1 with `error` set on failure.
int OpenFile(const std::string& path, const Identity& identity, std::string& error) {
    int fd = -1;
    bool created = false;
    // Create it, or open the one that is there; a file removed in between is created again.
    for (int attempt = 0; attempt < 3 && fd < 0; ++attempt) {
        fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_EXCL | O_CLOEXEC, FILE_MODE);
        created = fd >= 0;
        if (fd >= 0 || errno != EEXIST) {
            break;
        }
        fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
        if (fd >= 0 || errno != ENOENT) {
            break;
        }
    }
    if (fd < 0) {
        error = "cannot open its output file " + path + ": " + Reason(errno);
        return -1;
    }
    if (created) {
        const uid_t user = identity.user ? *identity.user : static_cast<uid_t>(-1);
        const gid_t group = identity.group ? *identity.group : static_cast<gid_t>(-1);
        // fchmod: the mode is 0640 whatever emd's umask.
        if (fchmod(fd, FILE_MODE) != 0 || ((identity.user || identity.group) && fchown(fd, user, group) != 0)) {
            error = "cannot give its output file " + path + " mode 0640 and its user and group: " + Reason(errno);
            close(fd);
            return -1;
        }
    }
    return fd;
}

}  // namespace

OutputDescriptors::~OutputDescriptors() {
    CloseChild();
    if (read_ >= 0) {
        close(read_);
    }
}

OutputDescriptors::OutputDescriptors(OutputDescriptors&& other) noexcept
    : child_(std::exchange(other.child_, -1)), read_(std::exchange(other.read_, -1)) {}

bool OutputDescriptors::Open(const OutputTarget& output, const Identity& identity, std::string& error) {
    switch (output.kind) {
        case OutputKind::kInherit:
            return true;
        case OutputKind::kLog: {
            int ends[2] = {-1, -1};
            if (pipe2(ends, O_CLOEXEC) != 0) {
                error = "cannot make its output pipe: " + Reason(errno);
                return false;
            }
            read_ = ends[0];
            child_ = ends[1];
            if (fcntl(read_, F_SETFL, O_NONBLOCK) != 0) {  // the child's end stays blocking
                error = "cannot make its output pipe non-blocking: " + Reason(errno);
                return false;
            }
            break;
        }
        case OutputKind::kNull:
            child_ = open("/dev/null", O_WRONLY | O_CLOEXEC);
            if (child_ < 0) {
                error = "cannot open /dev/null for its output: " + Reason(errno);
                return false;
            }
            break;
        case OutputKind::kFile:
            child_ = OpenFile(output.path, identity, error);
            if (child_ < 0) {
                return false;
            }
            break;
    }
    // With emd's own 1 or 2 closed, a new descriptor may land there; the child's dup2 onto it
    // would then keep its close-on-exec flag.
    for (int* fd : {&child_, &read_}) {
        if (*fd >= 0 && *fd <= STDERR_FILENO) {
            const int moved = fcntl(*fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
            close(*fd);
            *fd = moved;
            if (moved < 0) {
                error = "cannot move its output descriptor: " + Reason(errno);
                return false;
            }
        }
    }
    return true;
}

void OutputDescriptors::CloseChild() noexcept {
    if (child_ >= 0) {
        close(child_);
        child_ = -1;
    }
}

int OutputDescriptors::TakeRead() noexcept {
    return std::exchange(read_, -1);
}

OutputPipes::OutputPipes(OutputLimits limits) : limits_(limits), log_(ara::quill::common::log::Log::GetLog("EMD")) {}

OutputPipes::~OutputPipes() {
    for (const auto& pipe : pipes_) {
        close(pipe.first);
    }
}

void OutputPipes::Add(const std::string& process, int fd) {
    pipes_.emplace(fd, OutputStream(process, OutputStream::Clock::now(), limits_));
}

void OutputPipes::AppendPollEntries(std::vector<pollfd>& fds) const {
    for (const auto& pipe : pipes_) {
        fds.push_back({pipe.first, POLLIN, 0});
    }
}

void OutputPipes::OnReady(const pollfd* fds, std::size_t count) {
    for (std::size_t i = 0U; i < count; ++i) {
        const auto pipe = fds[i].revents != 0 ? pipes_.find(fds[i].fd) : pipes_.end();
        if (pipe != pipes_.end() && Read(pipe->first, pipe->second, READ_BUDGET)) {
            Close(pipe);
        }
    }
}

void OutputPipes::Drain() {
    while (!pipes_.empty()) {
        const auto pipe = pipes_.begin();
        if (!Read(pipe->first, pipe->second, READ_BUDGET)) {
            std::vector<OutputRecord> records;  // a descendant still holds it: what it wrote is logged
            pipe->second.Finish(OutputStream::Clock::now(), records);
            Log(records);
        }
        Close(pipe);
    }
}

bool OutputPipes::Read(int fd, OutputStream& stream, std::size_t budget) {
    char buffer[16384];
    std::vector<OutputRecord> records;
    bool ended = false;
    for (std::size_t total = 0U; total < budget;) {
        const ssize_t got = read(fd, buffer, std::min(sizeof(buffer), budget - total));
        const auto now = OutputStream::Clock::now();
        if (got > 0) {
            stream.Feed(std::string_view(buffer, static_cast<std::size_t>(got)), now, records);
            total += static_cast<std::size_t>(got);
            continue;
        }
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0 && errno == EAGAIN) {
            break;
        }
        if (got < 0) {
            log_->warn() << "[Output][Read failed, output closed][process=" << stream.Process()
                         << ", reason=" << Reason(errno) << "]";
        }
        stream.Finish(now, records);
        ended = true;
        break;
    }
    Log(records);
    return ended;
}

void OutputPipes::Log(const std::vector<OutputRecord>& records) const {
    for (const OutputRecord& record : records) {
        if (record.dropReport) {
            log_->warn() << record.text;
        } else {
            log_->info() << record.text;
        }
    }
}

void OutputPipes::Close(std::map<int, OutputStream>::iterator pipe) {
    close(pipe->first);
    pipes_.erase(pipe);
}

DescriptorLimit RaiseDescriptorLimit(rlim_t cap) {
    DescriptorLimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit.original) != 0) {
        limit.error = "cannot read RLIMIT_NOFILE: " + Reason(errno);
        return limit;
    }
    const rlim_t target = std::min(limit.original.rlim_max, cap);
    if (target <= limit.original.rlim_cur) {
        return limit;
    }
    const rlimit raised{target, limit.original.rlim_max};
    if (setrlimit(RLIMIT_NOFILE, &raised) != 0) {
        limit.error = "cannot raise RLIMIT_NOFILE: " + Reason(errno);
        return limit;
    }
    limit.raisedTo = target;
    return limit;
}

}  // namespace tarn::em::daemon
