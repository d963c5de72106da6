// SPDX-License-Identifier: Apache-2.0
// The platform log library: one Log per context id, level streams that emit one record
// each, rate limiting by log id, and the sinks the records go to.
//
// The sinks are chosen once per process, at the first use of the library, from the environment:
//   ARA_LOG_SINK      comma list of console, dlt, none (default console). Unknown names are
//                     ignored; if nothing usable remains, the console is used. Without DLT support
//                     built in, "dlt" is reported and ignored the same way.
//   ARA_LOG_LEVEL     fatal, error, warn, info, debug, verbose or off (default warn), for all sinks.
//   ARA_LOG_APP_ID    DLT application id when InitLog gives none (default "EMCL").
//   ARA_LOG_DLT_FILE  write DLT records to this file instead of sending them to a dlt-daemon.
// Problems with these settings are reported once on standard error, as "ara log: ..." lines.
// The console sink writes "<UTC time> [<context>] [<level>] <text>" lines to standard error.
// DLT ids have at most four characters: longer ids are shortened ("CHECKER" -> "CHKR"), and the
// description keeps the full name. A record emitted after the DLT registration was closed at
// exit (from a static destructor, say) is dropped by the DLT sink; other sinks still take it.
#ifndef ARA_QUILL_COMMON_LOG_LOG_H
#define ARA_QUILL_COMMON_LOG_LOG_H

#include <cstdint>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "ara/core/internal/export.h"

namespace ara::quill::common::log {

/// Severity, most severe first. A record is emitted when its level is at or above the
/// configured threshold (kFatal is the most severe); kOff disables a sink.
enum class LogLevel : std::uint8_t { kOff = 0, kFatal, kError, kWarn, kInfo, kDebug, kVerbose };

/// Rate limit of a log id: at most `count` records per `period` milliseconds.
struct LimitConfig {
    std::uint32_t period{500U};
    std::uint32_t count{1U};
};

class Log;

/// Collects `<<` items and emits them as one record when destroyed. Move-only.
class ARA_EXPORT LogStreamBuffer {
public:
    LogStreamBuffer(LogStreamBuffer&& other) noexcept;
    LogStreamBuffer(const LogStreamBuffer&) = delete;
    LogStreamBuffer& operator=(const LogStreamBuffer&) = delete;
    LogStreamBuffer& operator=(LogStreamBuffer&&) = delete;
    ~LogStreamBuffer();

    template <typename T>
    LogStreamBuffer& operator<<(const T& value) {
        if (active_) {
            if constexpr (std::is_enum_v<T>) {
                // Promoted at least to int so one-byte enums print as numbers, not characters.
                *stream_ << static_cast<std::common_type_t<int, std::underlying_type_t<T>>>(value);
            } else if constexpr (std::is_same_v<T, std::int8_t> || std::is_same_v<T, std::uint8_t>) {
                *stream_ << static_cast<int>(value);
            } else {
                *stream_ << value;
            }
        }
        return *this;
    }
    LogStreamBuffer& operator<<(const char* text);
    LogStreamBuffer& operator<<(bool value);

    /// False when the record was filtered (level or rate limit); then `<<` does nothing.
    bool IsActive() const noexcept { return active_; }

private:
    friend class Log;
    LogStreamBuffer(const Log* owner, LogLevel level, bool active);

    const Log* owner_;
    LogLevel level_;
    bool active_;
    // Engaged only for an active record, so a filtered stream never builds a stream object.
    std::optional<std::ostringstream> stream_;
};

/// One log context. Obtained with GetLog; shared by every user of the same context id.
/// @thread-safety all operations may be called from any thread.
class ARA_EXPORT Log {
public:
    /// Opens a context: registers the application (once per process, `appId` may be empty
    /// and then a default is used) and the context `ctxId` with the sinks. Safe to repeat.
    static void InitLog(const std::string& appId, const std::string& ctxId, const std::string& description);
    /// The logger of `ctxId`, created on first use (also before InitLog). Never null.
    static std::shared_ptr<Log> GetLog(const std::string& ctxId);

    /// False for a logger that cannot emit (empty context id).
    bool IsValid() const noexcept;
    const std::string& ContextId() const noexcept { return ctxId_; }

    LogStreamBuffer fatal() const;
    LogStreamBuffer error() const;
    LogStreamBuffer warn() const;
    LogStreamBuffer info() const;
    LogStreamBuffer debug() const;
    LogStreamBuffer verbose() const;

    /// Rate-limited streams: records under the same `logId` are emitted at most
    /// `limit.count` times per `limit.period` ms; an empty `logId` is never limited.
    LogStreamBuffer fatal(const std::string& logId, const LimitConfig& limit) const;
    LogStreamBuffer error(const std::string& logId, const LimitConfig& limit) const;
    LogStreamBuffer warn(const std::string& logId, const LimitConfig& limit) const;
    LogStreamBuffer info(const std::string& logId, const LimitConfig& limit) const;
    LogStreamBuffer debug(const std::string& logId, const LimitConfig& limit) const;
    LogStreamBuffer verbose(const std::string& logId, const LimitConfig& limit) const;

    explicit Log(std::string ctxId);
    ~Log();
    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;

private:
    friend class LogStreamBuffer;
    LogStreamBuffer Stream(LogLevel level) const;
    LogStreamBuffer Stream(LogLevel level, const std::string& logId, const LimitConfig& limit) const;
    void Emit(LogLevel level, const std::string& text) const;

    std::string ctxId_;
};

/// One emitted record, as a sink receives it.
struct LogRecord {
    std::string ctxId;
    LogLevel level;
    std::string text;
};

/// In-memory sink for tests: install it, run code, read the exact texts back.
class ARA_EXPORT CaptureSink {
public:
    /// Replaces the configured sinks by this capture (level threshold kVerbose) until destroyed.
    /// Every rate-limit window starts afresh, so the first record of each log id is captured.
    CaptureSink();
    ~CaptureSink();
    CaptureSink(const CaptureSink&) = delete;
    CaptureSink& operator=(const CaptureSink&) = delete;

    std::vector<LogRecord> Records() const;
    /// Texts of the records of one context (all contexts when `ctxId` is empty).
    std::vector<std::string> Texts(const std::string& ctxId = {}) const;
    /// True when some record's text equals `text` exactly.
    bool Contains(const std::string& text) const;
    void Clear();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace ara::quill::common::log

#endif
