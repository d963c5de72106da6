// SPDX-License-Identifier: Apache-2.0
// Whole-file reads for the parser and the CRC sidecar.
#include "file_reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace ara::quill::common::jsonParser::detail {

namespace {

class FdGuard {
public:
    explicit FdGuard(int fd) noexcept : fd_(fd) {}
    ~FdGuard() {
        if (fd_ >= 0) {
            static_cast<void>(::close(fd_));
        }
    }
    FdGuard(const FdGuard&) = delete;
    FdGuard& operator=(const FdGuard&) = delete;
    FdGuard(FdGuard&&) = delete;
    FdGuard& operator=(FdGuard&&) = delete;
    int Get() const noexcept { return fd_; }

private:
    int fd_;
};

}  // namespace

FileRead ReadWholeFile(const std::string& path, std::size_t maxSize, std::string& contents) {
    const FdGuard fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (fd.Get() < 0) {
        return FileRead::kOpenFailed;
    }
    struct stat info {};
    if (::fstat(fd.Get(), &info) != 0 || !S_ISREG(info.st_mode)) {
        return FileRead::kOpenFailed;
    }
    if (info.st_size < 0 || static_cast<std::size_t>(info.st_size) > maxSize) {
        return FileRead::kTooLarge;
    }
    std::string buffer;
    buffer.resize(static_cast<std::size_t>(info.st_size));
    std::size_t used = 0U;
    // Read until end of file rather than trusting st_size: the file may grow meanwhile, and
    // some file systems report 0. One byte beyond the cap tells an oversized file.
    while (true) {
        if (used == buffer.size()) {
            if (buffer.size() > maxSize) {
                return FileRead::kTooLarge;
            }
            const std::size_t grown = buffer.size() < 4096U ? 4096U : buffer.size() * 2U;
            buffer.resize(grown > maxSize + 1U ? maxSize + 1U : grown);
        }
        const ssize_t got = ::read(fd.Get(), &buffer[used], buffer.size() - used);
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            return FileRead::kReadFailed;
        }
        if (got == 0) {
            break;
        }
        used += static_cast<std::size_t>(got);
    }
    if (used > maxSize) {
        return FileRead::kTooLarge;
    }
    buffer.resize(used);
    contents.swap(buffer);
    return FileRead::kOk;
}

}  // namespace ara::quill::common::jsonParser::detail
