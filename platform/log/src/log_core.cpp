// SPDX-License-Identifier: Apache-2.0
// Routing of records to the capture, console and DLT sinks, and the process-wide log state.
#include "log_core.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "console_sink.h"
#ifdef ARA_LOG_WITH_DLT
#include "dlt_sink.h"
#endif

namespace ara::quill::common::log::internal {
namespace {

#ifdef ARA_LOG_WITH_DLT
constexpr bool DLT_BUILT_IN = true;
#else
constexpr bool DLT_BUILT_IN = false;
#endif

}  // namespace

void CaptureBuffer::Append(LogRecord record) {
    const std::lock_guard<std::mutex> lock(mutex_);
    records_.push_back(std::move(record));
}

std::vector<LogRecord> CaptureBuffer::Records() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return records_;
}

void CaptureBuffer::Clear() {
    const std::lock_guard<std::mutex> lock(mutex_);
    records_.clear();
}

LogCore& LogCore::Instance() {
    // Deliberately leaked: see the class comment.
    static auto* const instance = new LogCore();  // NOLINT(cppcoreguidelines-owning-memory): never freed
    return *instance;
}

// NOLINTNEXTLINE(concurrency-mt-unsafe): read once, under the guard of the instance's initialisation
LogCore::LogCore() : config_(ParseLogConfig(std::getenv("ARA_LOG_SINK"), std::getenv("ARA_LOG_LEVEL"), DLT_BUILT_IN)) {
    for (const auto& complaint : config_.complaints) {
        WriteDiagnostic(complaint);
    }
#ifdef ARA_LOG_WITH_DLT
    if ((config_.sinks & SINK_DLT) != 0U) {
        // NOLINTNEXTLINE(cppcoreguidelines-owning-memory): owned by the core, which is never freed
        dlt_ = new DltSink(config_.level, [] { Instance().ShutdownDlt(); });
    }
#endif
    UpdateThreshold();
}

void LogCore::UpdateThreshold() {
    LogLevel level = config_.sinks == 0U ? LogLevel::kOff : config_.level;
    if (!captures_.empty()) {
        level = LogLevel::kVerbose;
    }
    threshold_.store(static_cast<std::uint8_t>(level), std::memory_order_relaxed);
}

bool LogCore::Admit(const std::string& logId, const LimitConfig& limit) {
    return limiter_.Admit(logId, limit, RateLimiter::Clock::now());
}

std::shared_ptr<Log> LogCore::GetLog(const std::string& ctxId) {
    const std::lock_guard<std::mutex> lock(loggersMutex_);
    auto& slot = loggers_[ctxId];
    if (!slot) {
        slot = std::make_shared<Log>(ctxId);
    }
    return slot;
}

void LogCore::InitLog(const std::string& appId, const std::string& ctxId, const std::string& description) {
    static_cast<void>(GetLog(ctxId));
#ifdef ARA_LOG_WITH_DLT
    const std::lock_guard<std::mutex> lock(mutex_);
    if (dlt_ != nullptr) {
        dlt_->InitContext(appId, ctxId, description);
    }
#else
    static_cast<void>(appId);
    static_cast<void>(description);
#endif
}

void LogCore::Dispatch(const std::string& ctxId, LogLevel level, const std::string& text) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!captures_.empty()) {
        captures_.back()->Append(LogRecord{ctxId, level, text});
        return;
    }
    if (level == LogLevel::kOff || level > config_.level) {
        return;
    }
    if ((config_.sinks & SINK_CONSOLE) != 0U) {
        WriteConsoleRecord(ctxId, level, text);
    }
#ifdef ARA_LOG_WITH_DLT
    if (dlt_ != nullptr) {
        dlt_->Write(ctxId, level, text);
    }
#endif
}

void LogCore::PushCapture(CaptureBuffer* capture) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        captures_.push_back(capture);
        UpdateThreshold();
    }
    limiter_.Reset();
}

void LogCore::RemoveCapture(CaptureBuffer* capture) {
    const std::lock_guard<std::mutex> lock(mutex_);
    captures_.erase(std::remove(captures_.begin(), captures_.end(), capture), captures_.end());
    UpdateThreshold();
}

void LogCore::ShutdownDlt() noexcept {
#ifdef ARA_LOG_WITH_DLT
    const std::lock_guard<std::mutex> lock(mutex_);
    if (dlt_ != nullptr) {
        dlt_->Shutdown();
    }
#endif
}

}  // namespace ara::quill::common::log::internal
