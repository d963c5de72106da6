// SPDX-License-Identifier: Apache-2.0
// The state client: the process-wide endpoint on Execution Management's state manager service,
// its one-time set-up, the readiness check, and the three calls: the initial transition result
// (method 1, no arguments), a state change (method 2, group path and state name) and a state
// read (method 6, group name, returns the state name).
#include "ara/exec/state_client.h"

#include <chrono>
#include <memory>
#include <thread>

#include "ara/core/promise.h"
#include "ara/core/result.h"
#include "ara/exec/exec_error_domain.h"
#include "ara/quill/common/log/log.h"
#include "client_endpoint.h"
#include "kelp/brio/api/types/error_domains.h"

namespace ara::exec {
namespace {

using ara::quill::common::log::Log;
using Pending = ara::core::Future<void, ara::core::ErrorCode>;
using Outcome = ara::core::Result<void, ara::core::ErrorCode>;
namespace services = tarn::em::services;

/// The endpoint shared by every state client of the process, made on first use.
detail::ClientEndpoint& Shared() {
    static detail::ClientEndpoint endpoint;
    return endpoint;
}

/// The "EMCL" logger; also usable by a readiness check made before any client was constructed.
std::shared_ptr<Log> Logger() {
    return Shared().Logger();
}

void InitializeOnce() {
    detail::ClientEndpoint& shared = Shared();
    if (shared.StartTransport("StateClient", "get logInstanceEMCL error, logInstance is inValid in StateClient")) {
        shared.FinishSetUp("StateClient",
                           shared.Bind<services::GetInitialMachineStateTransitionResult>() &&
                               shared.Bind<services::SetState>() && shared.Bind<services::GetState>());
    }
}

ara::core::ErrorCode CommunicationError() {
    return MakeErrorCode(ExecErrc::kCommunicationError, 0);
}

/// The outcome handed to callers of SetState and GetInitialMachineStateTransitionResult:
/// transport errors become kCommunicationError, errors sent by Execution Management pass
/// unchanged. Runs on the thread that completes the call, so it logs at debug level only.
Outcome ToStateResult(Pending&& reply) {
    Outcome outcome = reply.GetResult();
    const auto log = Logger();
    if (outcome.HasValue()) {
        log->debug() << "[StateClient][Set state or get result successfully]";
        return outcome;
    }
    if (detail::IsComError(outcome.Error())) {
        log->debug() << "[StateClient][Failed to set state or get result due to communication error]";
        return Outcome::FromError(CommunicationError());
    }
    log->debug() << "[StateClient][Failed to set state or get result due to other errors]";
    return outcome;
}

/// Pauses as Execution Management expects, sends, and returns the converted outcome.
template <typename M, typename... Args>
Pending SendStateRequest(const Args&... args) {
    std::this_thread::sleep_for(detail::PAUSE_BEFORE_REQUEST);
    Pending reply = Shared().Call<M>(args...);
    Logger()->info() << "[StateClient][Call method is returned on rpc client]";
    return reply.then(ToStateResult);
}

}  // namespace

bool CommunicationProcessing() noexcept {
    if (!Shared().Usable() || Shared().Rpc().isServiceOffline_.load()) {
        Logger()->error() << "[StateClient][Not usable]";
        return false;
    }
    return Shared().ServiceFound();
}

StateClient::StateClient() noexcept {
    Shared().Construct(services::STATE_MANAGER_SERVICE, InitializeOnce);
}

StateClient::~StateClient() noexcept = default;

Pending StateClient::SetState(const FunctionGroupState& state) const noexcept {
    if (!CommunicationProcessing()) {
        return detail::ClientEndpoint::Failed<void>(CommunicationError());
    }
    const ara::core::String group(state.FunctionGroupMetaModel());
    const ara::core::String target(state.State());
    Logger()->info() << "[StateClient][Begin setting function group state][function_group_name=" << group
                     << ", target_state=" << target << "]";
    return SendStateRequest<services::SetState>(group, target);
}

Pending StateClient::GetInitialMachineStateTransitionResult() const noexcept {
    if (!CommunicationProcessing()) {
        return detail::ClientEndpoint::Failed<void>(CommunicationError());
    }
    Logger()->info() << "[StateClient][Begin getting machine state initial transition result]";
    return SendStateRequest<services::GetInitialMachineStateTransitionResult>();
}

Pending StateClient::GetState(const ara::core::String& functionGroup, ara::core::String& state) const noexcept {
    ara::core::Promise<void, ara::core::ErrorCode> promise;
    Pending future = promise.get_future();
    tarn::em::util::RpcClient& endpoint = Shared().Rpc();
    // Checked on every call: the one-time discovery wait belongs to the other two calls.
    if (!Shared().Usable() || !endpoint.CheckFindServiceResult() || endpoint.isServiceOffline_.load()) {
        promise.SetError(CommunicationError());
        Logger()->error() << "[StateClient][Not usable]";
        return future;
    }
    Logger()->info() << "[StateClient][Begin getting function group state][function_group_name=" << functionGroup
                     << "]";
    std::this_thread::sleep_for(detail::PAUSE_BEFORE_REQUEST);
    auto reply = Shared().Call<services::GetState>(functionGroup);
    if (reply.wait_for(detail::REPLY_WAIT) != ara::core::future_status::kReady) {
        promise.SetError(CommunicationError());
        Logger()->error() << "[StateClient][Waiting for method time out while getting state]";
        return future;
    }
    auto outcome = reply.GetResult();
    if (outcome.HasValue()) {
        state = std::move(outcome).Value();
        promise.set_value();
        Logger()->debug() << "[StateClient][Get state successfully]";
    } else if (detail::IsComError(outcome.Error())) {
        promise.SetError(CommunicationError());
        Logger()->error() << "[StateClient][Failed to get state due to communication error]";
    } else {
        promise.SetError(outcome.Error());
        Logger()->error() << "[StateClient][Failed to get state due to other errors]";
    }
    return future;
}

}  // namespace ara::exec
