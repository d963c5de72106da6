// SPDX-License-Identifier: Apache-2.0
// ara::exec::ExecutionClient: how an application process reports its own execution state
// to Execution Management.
#ifndef ARA_EXEC_EXECUTION_CLIENT_H
#define ARA_EXEC_EXECUTION_CLIENT_H

#include "ara/core/error_code.h"
#include "ara/core/internal/export.h"
#include "ara/core/result.h"
#include "ara/exec/execution_state.h"

namespace ara::exec {

/// An empty handle on the process-wide reporting endpoint (Execution Management's
/// application service: DDS domain 2, service 57360, instance "1"). The first object made in
/// a process starts the transport, binds the report method and loads the optional extension
/// library "libexec_client_extension.so"; that outcome holds for the life of the process.
///
/// @thread-safety objects may be made, copied and used on any number of threads at once.
class ARA_EXPORT ExecutionClient final {
public:
    /// Re-applies the endpoint settings; the first construction in the process also runs the
    /// one-time set-up. A failed set-up is not reported here but by every later report.
    ExecutionClient() noexcept;
    ~ExecutionClient() noexcept;
    ExecutionClient(const ExecutionClient&) noexcept = default;
    ExecutionClient& operator=(const ExecutionClient&) noexcept = default;

    /// Reports `state` (kRunning or kTerminating) for this process and waits for the answer
    /// of Execution Management. Takes at least 50 ms and at most about 2 s (longer only for
    /// the first report of a process whose service is not yet known, up to 1.4 s more).
    /// The extension hooks, if any, run before and after the request is sent.
    /// @error ExecErrc::kGeneralError for every failure: set-up failed, service not found,
    ///        invalid state, no answer within 1900 ms, or an error answered by the service or
    ///        the transport (logged with its message; the code itself is not passed on).
    ara::core::Result<void, ara::core::ErrorCode> ReportExecutionState(ExecutionState state) const noexcept;
};

}  // namespace ara::exec

#endif
