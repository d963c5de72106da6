// SPDX-License-Identifier: Apache-2.0
// Console output of records and of the library's own diagnostics.
#include "console_sink.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <ctime>

#include "log_config.h"

namespace ara::quill::common::log::internal {
namespace {

void WriteAll(const std::string& line) noexcept {
    const char* data = line.data();
    std::size_t left = line.size();
    while (left > 0U) {
        const ssize_t written = ::write(STDERR_FILENO, data, left);
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        data += written;
        left -= static_cast<std::size_t>(written);
    }
}

}  // namespace

void WriteConsoleRecord(const std::string& ctxId, LogLevel level, const std::string& text) noexcept {
    try {
        timespec now{};
        ::clock_gettime(CLOCK_REALTIME, &now);
        tm utc{};
        ::gmtime_r(&now.tv_sec, &utc);
        std::array<char, 40> stamp{};
        const std::size_t stampLength = std::strftime(stamp.data(), stamp.size(), "%Y-%m-%dT%H:%M:%S", &utc);
        const std::string micros = std::to_string(1000000L + now.tv_nsec / 1000L);  // "1" and six digits

        std::string line;
        line.reserve(stampLength + ctxId.size() + text.size() + 32U);
        line.append(stamp.data(), stampLength).append(".").append(micros, 1U, std::string::npos).append("Z [");
        line.append(ctxId).append("] [");
        line.append(LevelName(level)).append("] ");
        for (const char c : text) {
            line.push_back(c == '\n' || c == '\r' ? ' ' : c);
        }
        line.push_back('\n');
        WriteAll(line);
    } catch (...) {
        // Out of memory while formatting: the record is lost, the caller goes on.
    }
}

void WriteDiagnostic(const std::string& text) noexcept {
    try {
        WriteAll("ara log: " + text + "\n");
    } catch (...) {
    }
}

}  // namespace ara::quill::common::log::internal
