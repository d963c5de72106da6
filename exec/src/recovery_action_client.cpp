// SPDX-License-Identifier: Apache-2.0
// The recovery action client: the process-wide endpoint on Execution Management's platform
// health manager service, its one-time set-up, the readiness check, and the three calls: a
// process restart (method 3, name and flag), the process list (method 4, client name, returns
// the list) and a process name lookup (method 5, process id, returns the name).
#include "ara/exec/recovery_action_client.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <thread>
#include <utility>

#include "ara/core/promise.h"
#include "ara/exec/exec_error_domain.h"
#include "ara/quill/common/log/log.h"
#include "client_endpoint.h"
#include "kelp/brio/api/types/error_domains.h"

namespace ara::exec {
namespace {

using ara::quill::common::log::Log;
using Pending = ara::core::Future<void, ara::core::ErrorCode>;
using Outcome = ara::core::Result<void, ara::core::ErrorCode>;
using Processes = std::vector<Process>;
namespace services = tarn::em::services;

/// The endpoint shared by every recovery action client of the process, made on first use.
detail::ClientEndpoint& Shared() {
    static detail::ClientEndpoint endpoint;
    return endpoint;
}

std::shared_ptr<Log> Logger() {
    return Shared().Logger();
}

void InitializeOnce() {
    detail::ClientEndpoint& shared = Shared();
    if (shared.StartTransport("RecoveryActionClient", "get logInstance EMCL error, logInstance is inValid")) {
        shared.FinishSetUp("RecoveryActionClient",
                           shared.Bind<services::ProcessRestart>() && shared.Bind<services::GetProcessStates>() &&
                               shared.Bind<services::GetProcessName>());
    }
}

ara::core::ErrorCode GeneralError() {
    return MakeErrorCode(ExecErrc::kGeneralError, 0);
}

std::string MessageOf(const ara::core::ErrorCode& error) {
    return error.Domain().Message(error.Value());
}

/// Usable, and the service known: after the one-time wait of the process, or once a 10 ms
/// check on this or an earlier call has seen it. A lost service is not looked at here: the
/// calls then fail through the transport.
bool Ready() {
    if (!Shared().Usable()) {
        Logger()->error() << "[RecoveryActionClient][Not usable]";
        return false;
    }
    return Shared().ServiceFound();
}

/// The outcome handed to callers of ProcessRestart: transport errors become
/// kCommunicationError, errors sent by Execution Management pass unchanged. Runs on the thread
/// that completes the call, so it logs at debug level only.
Outcome ToRestartResult(Pending&& reply) {
    Outcome outcome = reply.GetResult();
    if (outcome.HasValue()) {
        Logger()->debug() << "[RecoveryActionClient][Process restart successfully]";
        return outcome;
    }
    if (detail::IsComError(outcome.Error())) {
        Logger()->debug() << "[RecoveryActionClient][Failed to restart process due to communication error]";
        return Outcome::FromError(MakeErrorCode(ExecErrc::kCommunicationError, 0));
    }
    Logger()->debug() << "[RecoveryActionClient][Failed to restart process due to other errors]";
    return outcome;
}

}  // namespace

RecoveryActionClient::RecoveryActionClient(std::string clientName) noexcept : clientName_(std::move(clientName)) {
    Shared().Construct(services::HEALTH_MANAGER_SERVICE, InitializeOnce);
}

RecoveryActionClient::~RecoveryActionClient() noexcept = default;

Pending RecoveryActionClient::ProcessRestart(const std::string& processName, bool flag) const noexcept {
    if (!Ready()) {
        return detail::ClientEndpoint::Failed<void>(GeneralError());
    }
    Logger()->info() << "[RecoveryActionClient][Begin restarting process]";
    std::this_thread::sleep_for(detail::PAUSE_BEFORE_REQUEST);
    Pending reply = Shared().Call<services::ProcessRestart>(processName, flag);
    Logger()->info() << "[RecoveryActionClient][Call method is returned on rpc client]";
    return reply.then(ToRestartResult);
}

Outcome RecoveryActionClient::GetProcessStates(Processes& processes) const noexcept {
    if (!Ready()) {
        return Outcome::FromError(GeneralError());
    }
    Logger()->info() << "[RecoveryActionClient][Get process states info]";
    std::this_thread::sleep_for(detail::PAUSE_BEFORE_REQUEST);
    auto reply = Shared().Call<services::GetProcessStates>(clientName_);
    Logger()->info() << "[RecoveryActionClient][Call method is returned on rpc client]";
    if (reply.wait_for(detail::REPLY_WAIT) != ara::core::future_status::kReady) {
        Logger()->error() << "[RecoveryActionClient][Waiting for method time out while getting process states]";
        return Outcome::FromError(GeneralError());
    }
    auto outcome = reply.GetResult();
    if (outcome.HasValue()) {
        processes = std::move(outcome).Value();
        Logger()->info() << "[RecoveryActionClient][Get process states successfully]";
        return {};
    }
    const ara::core::ErrorCode& error = outcome.Error();
    Logger()->error() << "[RecoveryActionClient][Failed to get process states][cm_or_em_error=" << MessageOf(error)
                      << "]";
    // Only Com code 2 (kMaxSamplesExceeded) reads as busy, whatever the code in another domain.
    const bool busy = detail::IsComError(error) &&
                      error.Value() == static_cast<int>(kelp::brio::api::types::ComErrc::kMaxSamplesExceeded);
    Logger()->error() << "[RecoveryActionClient][Failed to get process states]";
    return Outcome::FromError(busy ? MakeErrorCode(ExecErrc::kBusy, 0) : GeneralError());
}

ara::core::Result<ara::core::String, ara::core::ErrorCode> RecoveryActionClient::GetProcessName(
    int pid) const noexcept {
    using NameOutcome = ara::core::Result<ara::core::String, ara::core::ErrorCode>;
    if (!Ready()) {
        return NameOutcome::FromError(GeneralError());
    }
    // The request carries `pid` itself rather than a copy parked in a process-wide variable:
    // with such a variable, two threads asking at once could both send the later id, and one
    // would receive another process's name.
    const std::int32_t requested = pid;
    Logger()->verbose() << "[RecoveryActionClient][Get process name based on pid][pid=" << pid << "]";
    auto reply = Shared().Call<services::GetProcessName>(requested);
    Logger()->verbose() << "[RecoveryActionClient][Get process name, call method is returned on rpc client]";
    if (reply.wait_for(detail::REPLY_WAIT) != ara::core::future_status::kReady) {
        const ara::core::ErrorCode error = GeneralError();
        Logger()->error() << "[RecoveryActionClient][Failed to get process name][error_data=" << MessageOf(error)
                          << "]";
        return NameOutcome::FromError(error);
    }
    auto outcome = reply.GetResult();
    if (outcome.HasValue()) {
        return outcome;
    }
    Logger()->error() << "[RecoveryActionClient][Get process name failed][cm_or_em_error=" << MessageOf(outcome.Error())
                      << "]";
    Logger()->error() << "[RecoveryActionClient][Get process name failed, can't find process][process_pid=" << pid
                      << "]";
    return NameOutcome::FromError(GeneralError());
}

}  // namespace ara::exec
