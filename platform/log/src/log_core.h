// SPDX-License-Identifier: Apache-2.0
// The process-wide state behind every Log: configuration, the logger registry, the rate
// limiter, installed captures and the routing of records to sinks.
#ifndef ARA_QUILL_COMMON_LOG_SRC_LOG_CORE_H
#define ARA_QUILL_COMMON_LOG_SRC_LOG_CORE_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "ara/quill/common/log/log.h"
#include "log_config.h"
#include "rate_limiter.h"

namespace ara::quill::common::log::internal {

class DltSink;

/// Records kept by one CaptureSink.
class CaptureBuffer {
public:
    void Append(LogRecord record);
    std::vector<LogRecord> Records() const;
    void Clear();

private:
    mutable std::mutex mutex_;
    std::vector<LogRecord> records_;
};

/// The single instance is created on first use and never destroyed, so loggers held in statics
/// of other libraries can still log while those are destroyed. The DLT registration is undone
/// by an exit handler; records arriving after it no longer reach DLT.
class LogCore {
public:
    static LogCore& Instance();

    /// Whether a record of `level` would reach any sink (lock-free).
    bool Enabled(LogLevel level) const noexcept {
        return level != LogLevel::kOff &&
               static_cast<std::uint8_t>(level) <= threshold_.load(std::memory_order_relaxed);
    }
    bool Admit(const std::string& logId, const LimitConfig& limit);

    std::shared_ptr<Log> GetLog(const std::string& ctxId);
    void InitLog(const std::string& appId, const std::string& ctxId, const std::string& description);
    void Dispatch(const std::string& ctxId, LogLevel level, const std::string& text);

    /// The newest installed capture receives every record, and no configured sink does.
    /// Installing one also starts every rate-limit window afresh.
    void PushCapture(CaptureBuffer* capture);
    void RemoveCapture(CaptureBuffer* capture);

    LogCore(const LogCore&) = delete;
    LogCore& operator=(const LogCore&) = delete;

private:
    LogCore();
    ~LogCore() = delete;
    void UpdateThreshold();
    void ShutdownDlt() noexcept;

    std::atomic<std::uint8_t> threshold_{0U};
    RateLimiter limiter_;

    std::mutex loggersMutex_;
    std::unordered_map<std::string, std::shared_ptr<Log>> loggers_;

    // Guards everything below and serialises records towards the sinks.
    std::mutex mutex_;
    LogConfig config_;
    std::vector<CaptureBuffer*> captures_;
    DltSink* dlt_{nullptr};  // owned; lives as long as the core, i.e. until the process ends
};

}  // namespace ara::quill::common::log::internal

#endif
