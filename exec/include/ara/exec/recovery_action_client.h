// SPDX-License-Identifier: Apache-2.0
// ara::exec::RecoveryActionClient: how the platform health manager asks Execution Management to
// restart a process, lists the processes with their states and maps a process id to a name.
#ifndef ARA_EXEC_RECOVERY_ACTION_CLIENT_H
#define ARA_EXEC_RECOVERY_ACTION_CLIENT_H

#include <string>
#include <vector>

#include "ara/core/error_code.h"
#include "ara/core/future.h"
#include "ara/core/internal/export.h"
#include "ara/core/result.h"
#include "ara/core/string.h"
#include "ara/exec/process.h"

namespace ara::exec {

/// A handle on the process-wide endpoint of Execution Management's platform health manager
/// service (DDS domain 4, service 57362, instance "1"). The first object made in a process
/// starts the transport and binds the three methods; that outcome holds for the life of the
/// process. The object itself keeps only the client name given to the constructor.
///
/// @thread-safety objects may be made, copied and used on any number of threads at once.
class ARA_EXPORT RecoveryActionClient final {
public:
    /// Keeps `clientName` (sent with every process-list request) and re-applies the endpoint
    /// settings; the first construction in the process also runs the one-time set-up. A failed
    /// set-up is not reported here but by every later call.
    explicit RecoveryActionClient(std::string clientName) noexcept;
    ~RecoveryActionClient() noexcept;
    RecoveryActionClient(const RecoveryActionClient&) = default;
    RecoveryActionClient(RecoveryActionClient&&) noexcept = default;
    RecoveryActionClient& operator=(const RecoveryActionClient&) = default;
    RecoveryActionClient& operator=(RecoveryActionClient&&) noexcept = default;

    /// Asks for a restart of process `processName`; `flag` is passed to Execution Management as
    /// given. Returns the pending outcome (after the 50 ms pause that precedes every request);
    /// no time limit is applied: the caller decides how long to wait.
    /// @error ExecErrc::kGeneralError at once: set-up failed or service not found.
    /// @error ExecErrc::kCommunicationError a transport error; any error answered by Execution
    ///        Management is passed on unchanged.
    ara::core::Future<void, ara::core::ErrorCode> ProcessRestart(const std::string& processName,
                                                                 bool flag) const noexcept;

    /// Reads the process list into `processes`, waiting up to 1900 ms for the answer;
    /// `processes` is written only on success.
    /// @error ExecErrc::kBusy the transport reports Com code 2.
    /// @error ExecErrc::kGeneralError every other failure (set-up, service not found, no answer
    ///        in time, any other error answered by Execution Management or the transport).
    ara::core::Result<void, ara::core::ErrorCode> GetProcessStates(std::vector<Process>& processes) const noexcept;

    /// The name of the process with id `pid`, waiting up to 1900 ms for the answer. Several
    /// threads may ask at once; each receives the name of the id it asked for.
    /// @error ExecErrc::kGeneralError every failure, including an unknown id.
    ara::core::Result<ara::core::String, ara::core::ErrorCode> GetProcessName(int pid) const noexcept;

private:
    std::string clientName_;
};

}  // namespace ara::exec

#endif
