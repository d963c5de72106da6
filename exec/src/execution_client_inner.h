// SPDX-License-Identifier: Apache-2.0
// The report hooks that an optional extension library supplies: loaded once per process and
// called by the execution client immediately before and after each report is sent.
#ifndef ARA_EXEC_INNER_EXECUTION_CLIENT_INNER_H
#define ARA_EXEC_INNER_EXECUTION_CLIENT_INNER_H

#include <memory>
#include <string>

#include "ara/exec/execution_state.h"

namespace ara::exec::inner {

/// A hook of the extension library: receives the state being reported.
using ReportHook = void (*)(ExecutionState);

/// @thread-safety the hooks are written only by DlopenExtensionSo, which runs inside the
/// execution client's once-guarded set-up; afterwards they are only read.
class ExecutionClientInner final {
public:
    /// The one instance of the process, created on first call with nothing loaded.
    static std::shared_ptr<ExecutionClientInner> GetExecutionClientInnerInstance();

    ExecutionClientInner() = default;
    /// Closes the library and clears the after hook; the before hook keeps its value.
    ~ExecutionClientInner();
    ExecutionClientInner(const ExecutionClientInner&) = delete;
    ExecutionClientInner& operator=(const ExecutionClientInner&) = delete;

    /// Loads the library through the loader's ordinary search path and resolves both hooks.
    /// A missing library or symbol is a warning, not an error: that hook stays null.
    void DlopenExtensionSo();

    void* handle_{nullptr};
    ReportHook beforeReportHook_{nullptr};
    ReportHook afterReportHook_{nullptr};
    const std::string libraryName_{"libexec_client_extension.so"};
    const std::string beforeReportSymbol_{"ExecBeforeReportState"};
    const std::string afterReportSymbol_{"ExecAfterReportState"};

private:
    /// The address of `symbol` in the loaded library, or null (logged) when it has none.
    ReportHook ResolveHook(const std::string& symbol, const char* which) const;
};

}  // namespace ara::exec::inner

#endif
