// SPDX-License-Identifier: Apache-2.0
// Log, LogStreamBuffer and CaptureSink: the public face of the log library.
#include "ara/quill/common/log/log.h"

#include <algorithm>
#include <utility>

#include "log_core.h"

namespace ara::quill::common::log {

using internal::LogCore;

LogStreamBuffer::LogStreamBuffer(const Log* owner, LogLevel level, bool active)
    : owner_(owner), level_(level), active_(active) {
    if (active_) {
        stream_.emplace();
    }
}

LogStreamBuffer::LogStreamBuffer(LogStreamBuffer&& other) noexcept
    : owner_(other.owner_), level_(other.level_), active_(other.active_), stream_(std::move(other.stream_)) {
    other.active_ = false;
}

LogStreamBuffer::~LogStreamBuffer() {
    if (!active_ || owner_ == nullptr || !stream_) {
        return;
    }
    try {
        owner_->Emit(level_, stream_->str());
    } catch (...) {
        // A record that cannot be built or delivered is dropped; logging never throws.
    }
}

LogStreamBuffer& LogStreamBuffer::operator<<(const char* text) {
    if (active_) {
        *stream_ << (text != nullptr ? text : "(null)");
    }
    return *this;
}

LogStreamBuffer& LogStreamBuffer::operator<<(bool value) {
    if (active_) {
        *stream_ << (value ? "true" : "false");
    }
    return *this;
}

void Log::InitLog(const std::string& appId, const std::string& ctxId, const std::string& description) {
    LogCore::Instance().InitLog(appId, ctxId, description);
}

std::shared_ptr<Log> Log::GetLog(const std::string& ctxId) {
    return LogCore::Instance().GetLog(ctxId);
}

Log::Log(std::string ctxId) : ctxId_(std::move(ctxId)) {}

Log::~Log() = default;

bool Log::IsValid() const noexcept {
    return !ctxId_.empty();
}

LogStreamBuffer Log::Stream(LogLevel level) const {
    return {this, level, IsValid() && LogCore::Instance().Enabled(level)};
}

LogStreamBuffer Log::Stream(LogLevel level, const std::string& logId, const LimitConfig& limit) const {
    // The level is checked first so that filtered records do not use up the allowance.
    LogCore& core = LogCore::Instance();
    const bool active = IsValid() && core.Enabled(level) && core.Admit(logId, limit);
    return {this, level, active};
}

void Log::Emit(LogLevel level, const std::string& text) const {
    LogCore::Instance().Dispatch(ctxId_, level, text);
}

LogStreamBuffer Log::fatal() const {
    return Stream(LogLevel::kFatal);
}
LogStreamBuffer Log::error() const {
    return Stream(LogLevel::kError);
}
LogStreamBuffer Log::warn() const {
    return Stream(LogLevel::kWarn);
}
LogStreamBuffer Log::info() const {
    return Stream(LogLevel::kInfo);
}
LogStreamBuffer Log::debug() const {
    return Stream(LogLevel::kDebug);
}
LogStreamBuffer Log::verbose() const {
    return Stream(LogLevel::kVerbose);
}

LogStreamBuffer Log::fatal(const std::string& logId, const LimitConfig& limit) const {
    return Stream(LogLevel::kFatal, logId, limit);
}
LogStreamBuffer Log::error(const std::string& logId, const LimitConfig& limit) const {
    return Stream(LogLevel::kError, logId, limit);
}
LogStreamBuffer Log::warn(const std::string& logId, const LimitConfig& limit) const {
    return Stream(LogLevel::kWarn, logId, limit);
}
LogStreamBuffer Log::info(const std::string& logId, const LimitConfig& limit) const {
    return Stream(LogLevel::kInfo, logId, limit);
}
LogStreamBuffer Log::debug(const std::string& logId, const LimitConfig& limit) const {
    return Stream(LogLevel::kDebug, logId, limit);
}
LogStreamBuffer Log::verbose(const std::string& logId, const LimitConfig& limit) const {
    return Stream(LogLevel::kVerbose, logId, limit);
}

struct CaptureSink::Impl {
    internal::CaptureBuffer buffer;
};

CaptureSink::CaptureSink() : impl_(std::make_unique<Impl>()) {
    LogCore::Instance().PushCapture(&impl_->buffer);
}

CaptureSink::~CaptureSink() {
    LogCore::Instance().RemoveCapture(&impl_->buffer);
}

std::vector<LogRecord> CaptureSink::Records() const {
    return impl_->buffer.Records();
}

std::vector<std::string> CaptureSink::Texts(const std::string& ctxId) const {
    std::vector<std::string> texts;
    for (auto& record : impl_->buffer.Records()) {
        if (ctxId.empty() || record.ctxId == ctxId) {
            texts.push_back(std::move(record.text));
        }
    }
    return texts;
}

bool CaptureSink::Contains(const std::string& text) const {
    const auto records = impl_->buffer.Records();
    return std::any_of(
        records.begin(), records.end(), [&text](const LogRecord& record) { return record.text == text; });
}

void CaptureSink::Clear() {
    impl_->buffer.Clear();
}

}  // namespace ara::quill::common::log
