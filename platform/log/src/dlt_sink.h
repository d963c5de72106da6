// SPDX-License-Identifier: Apache-2.0
// The DLT sink: one DLT application per process, one DLT context per log context.
#ifndef ARA_QUILL_COMMON_LOG_SRC_DLT_SINK_H
#define ARA_QUILL_COMMON_LOG_SRC_DLT_SINK_H

#include <dlt/dlt.h>

#include <memory>
#include <set>
#include <string>
#include <unordered_map>

#include "ara/quill/common/log/log.h"

namespace ara::quill::common::log::internal {

/// Application id used when neither InitLog nor ARA_LOG_APP_ID names one.
constexpr const char* DEFAULT_DLT_APP_ID = "EMCL";

/// Not thread-safe: the caller serialises all calls. The application is registered with the
/// first InitLog or record, under the first non-empty app id given to InitLog by then, else
/// ARA_LOG_APP_ID, else DEFAULT_DLT_APP_ID (shortened to four characters). When
/// ARA_LOG_DLT_FILE names a file, records go to that file instead of a daemon.
class DltSink {
public:
    using ExitHook = void (*)();

    /// `exitHook` is registered with atexit right after the application, so it runs before the
    /// DLT library's own exit handler; it is expected to call Shutdown.
    DltSink(LogLevel threshold, ExitHook exitHook);
    ~DltSink();
    DltSink(const DltSink&) = delete;
    DltSink& operator=(const DltSink&) = delete;

    void InitContext(const std::string& appId, const std::string& ctxId, const std::string& description);
    void Write(const std::string& ctxId, LogLevel level, const std::string& text);
    /// Unregisters contexts and the application; later calls do nothing.
    void Shutdown() noexcept;

private:
    enum class State { kIdle, kRegistered, kFailed, kClosed };
    struct Context {
        std::string description;
        std::unique_ptr<DltContext> handle;
        bool registered{false};
    };

    bool EnsureApplication(const std::string& appId);
    DltContext* EnsureContext(const std::string& ctxId);

    LogLevel threshold_;
    ExitHook exitHook_;
    State state_{State::kIdle};
    std::unordered_map<std::string, Context> contexts_;
    std::set<std::string> takenIds_;
};

}  // namespace ara::quill::common::log::internal

#endif
