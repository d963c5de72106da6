// SPDX-License-Identifier: Apache-2.0
// Records to DLT: application and context registration, level mapping and orderly teardown.
#include "dlt_sink.h"

#include <dlt/dlt.h>

#include <cstdlib>
#include <limits>

#include "console_sink.h"
#include "short_id.h"

namespace ara::quill::common::log::internal {
namespace {

DltLogLevelType ToDltLevel(LogLevel level) {
    switch (level) {
        case LogLevel::kFatal:
            return DLT_LOG_FATAL;
        case LogLevel::kError:
            return DLT_LOG_ERROR;
        case LogLevel::kWarn:
            return DLT_LOG_WARN;
        case LogLevel::kInfo:
            return DLT_LOG_INFO;
        case LogLevel::kDebug:
            return DLT_LOG_DEBUG;
        case LogLevel::kVerbose:
            return DLT_LOG_VERBOSE;
        case LogLevel::kOff:
        default:
            return DLT_LOG_OFF;
    }
}

}  // namespace

DltSink::DltSink(LogLevel threshold, ExitHook exitHook) : threshold_(threshold), exitHook_(exitHook) {}

DltSink::~DltSink() {
    Shutdown();
}

bool DltSink::EnsureApplication(const std::string& appId) {
    if (state_ == State::kRegistered) {
        return true;
    }
    if (state_ != State::kIdle) {
        return false;
    }
    state_ = State::kFailed;

    std::string name = appId;
    if (name.empty()) {
        const char* fromEnv = std::getenv("ARA_LOG_APP_ID");  // NOLINT(concurrency-mt-unsafe): under the core lock
        name = (fromEnv != nullptr && fromEnv[0] != '\0') ? fromEnv : DEFAULT_DLT_APP_ID;
    }
    const std::string id = ShortId(name, {});

    // File mode must be chosen before any other DLT call, which would connect to the daemon.
    const char* file = std::getenv("ARA_LOG_DLT_FILE");  // NOLINT(concurrency-mt-unsafe): under the core lock
    if (file != nullptr && file[0] != '\0') {
        if (dlt_init_file(file) < DLT_RETURN_OK) {
            WriteDiagnostic(std::string("cannot open DLT file '") + file + "', DLT output disabled");
            return false;
        }
        // The library starts file mode with a size limit of zero, which would drop every record.
        static_cast<void>(dlt_set_filesize_max(std::numeric_limits<unsigned int>::max()));
    }
    // Without this a process that finds no daemon waits 10 s at exit to resend its records.
    static_cast<void>(dlt_set_resend_timeout_atexit(0U));
    if (dlt_register_app(id.c_str(), name.c_str()) < DLT_RETURN_OK) {
        WriteDiagnostic("cannot register DLT application '" + id + "', DLT output disabled");
        return false;
    }
    state_ = State::kRegistered;
    if (exitHook_ != nullptr) {
        static_cast<void>(std::atexit(exitHook_));
    }
    return true;
}

DltContext* DltSink::EnsureContext(const std::string& ctxId) {
    Context& context = contexts_[ctxId];
    if (context.registered) {
        return context.handle.get();
    }
    if (context.handle) {
        return nullptr;  // registration failed before; do not retry on every record
    }
    context.handle = std::make_unique<DltContext>();
    const std::string id = ShortId(ctxId, takenIds_);
    const std::string& description = context.description.empty() ? ctxId : context.description;
    if (dlt_register_context_ll_ts(
            context.handle.get(), id.c_str(), description.c_str(), ToDltLevel(threshold_), DLT_TRACE_STATUS_OFF) <
        DLT_RETURN_OK) {
        WriteDiagnostic("cannot register DLT context '" + id + "' for '" + ctxId + "'");
        return nullptr;
    }
    takenIds_.insert(id);
    context.registered = true;
    return context.handle.get();
}

void DltSink::InitContext(const std::string& appId, const std::string& ctxId, const std::string& description) {
    if (!EnsureApplication(appId) || ctxId.empty()) {
        return;
    }
    Context& context = contexts_[ctxId];
    if (!context.handle && context.description.empty()) {
        context.description = description;
    }
    static_cast<void>(EnsureContext(ctxId));
}

void DltSink::Write(const std::string& ctxId, LogLevel level, const std::string& text) {
    if (!EnsureApplication({})) {
        return;
    }
    DltContext* handle = EnsureContext(ctxId);
    if (handle == nullptr) {
        return;
    }
    DltContextData data{};
    if (dlt_user_log_write_start(handle, &data, ToDltLevel(level)) == DLT_RETURN_TRUE) {
        static_cast<void>(dlt_user_log_write_string(&data, text.c_str()));
        static_cast<void>(dlt_user_log_write_finish(&data));
    }
}

void DltSink::Shutdown() noexcept {
    if (state_ == State::kRegistered) {
        for (auto& entry : contexts_) {
            if (entry.second.registered) {
                static_cast<void>(dlt_unregister_context(entry.second.handle.get()));
                entry.second.registered = false;
            }
        }
        static_cast<void>(dlt_unregister_app());
    }
    state_ = State::kClosed;
}

}  // namespace ara::quill::common::log::internal
