// SPDX-License-Identifier: Apache-2.0
// ara::exec::StateClient: how the state-management application requests Function Group state
// changes from Execution Management, reads a Function Group's state and learns the result of
// the initial machine-state transition.
#ifndef ARA_EXEC_STATE_CLIENT_H
#define ARA_EXEC_STATE_CLIENT_H

#include "ara/core/error_code.h"
#include "ara/core/future.h"
#include "ara/core/internal/export.h"
#include "ara/core/string.h"
#include "ara/exec/function_group_state.h"

namespace ara::exec {

/// An empty handle on the process-wide endpoint of Execution Management's state manager
/// service (DDS domain 4, service 57361, instance "1"). The first object made in a process
/// starts the transport and binds the three methods; that outcome holds for the life of the
/// process.
///
/// @thread-safety objects may be made, copied and used on any number of threads at once.
class ARA_EXPORT StateClient final {
public:
    /// Re-applies the endpoint settings; the first construction in the process also runs the
    /// one-time set-up. A failed set-up is not reported here but by every later call.
    StateClient() noexcept;
    ~StateClient() noexcept;
    StateClient(const StateClient&) noexcept = default;
    StateClient& operator=(const StateClient&) noexcept = default;

    /// Asks for the transition of the Function Group of `state` to its state. Returns the
    /// pending outcome at once (after the 50 ms pause that precedes every request); no time
    /// limit is applied: the caller decides how long to wait.
    /// @error ExecErrc::kCommunicationError set-up failed, service unknown or lost, or a
    ///        transport error; any error answered by Execution Management is passed on
    ///        unchanged (for example kCancelled, kFailed, kInvalidArguments).
    ara::core::Future<void, ara::core::ErrorCode> SetState(const FunctionGroupState& state) const noexcept;

    /// The outcome of the machine's initial state transition, as SetState.
    ara::core::Future<void, ara::core::ErrorCode> GetInitialMachineStateTransitionResult() const noexcept;

    /// Reads the current state of Function Group `functionGroup` into `state`, waiting up to
    /// 1900 ms for the answer. The returned future is already complete; `state` is written
    /// only on success.
    /// @error ExecErrc::kCommunicationError set-up failed, service unknown or lost, no answer
    ///        in time, or a transport error; an error answered by Execution Management is
    ///        passed on unchanged.
    ara::core::Future<void, ara::core::ErrorCode> GetState(const ara::core::String& functionGroup,
                                                           ara::core::String& state) const noexcept;
};

/// The readiness check of SetState and GetInitialMachineStateTransitionResult: false (logged)
/// when the state client is not usable or its service was lost, or when the service is not
/// known yet. The first call in a process waits up to 1.4 s for the service, later ones 10 ms
/// until it has been seen once.
ARA_EXPORT bool CommunicationProcessing() noexcept;

}  // namespace ara::exec

#endif
