// The recovery action client: the process-wide endpoint on Execution Management's platform
// health manager service, its one-time set-up, the readiness check, and the three calls: a
// process restart (method 3, name and flag), the process list (method 4, client name, returns
// the list) and a process name lookup (method 5, process id, returns the name).
#include "ara/exec/recovery_action_client.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <iostream>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "ara/core/promise.h"
#include "ara/exec/exec_error_domain.h"
#include "ara/quill/common/log/log.h"
#include "kelp/brio/api/types/error_domains.h"
#include "tarn/em/log_em.h"
#include "tarn/em/util/rpc_client.h"

namespace ara::exec {
namespace {

using ara::quill::common::log::Log;
using Pending = ara::core::Future<void, ara::core::ErrorCode>;
using Outcome = ara::core::Result<void, ara::core::ErrorCode>;
using Processes = std::vector<Process>;

constexpr short DOMAIN_ID = 4;
constexpr unsigned short SERVICE_ID = 57362U;  // 0xE012
constexpr const char* INSTANCE_ID = "1";
constexpr const char* REQUEST_TOPIC_NAME = "EM_RPC_REQUEST_PLATFORM_HEALTH_MANAGER";
constexpr const char* REPLY_TOPIC_NAME = "EM_RPC_REPLY_PLATFORM_HEALTH_MANAGER";
constexpr unsigned int RESTART_METHOD_ID = 3U;
constexpr unsigned int PROCESS_STATES_METHOD_ID = 4U;
constexpr unsigned int PROCESS_NAME_METHOD_ID = 5U;
// Execution Management expects this pause before a restart or a list request; it is part of
// the protocol. The name lookup goes without it.
constexpr std::chrono::microseconds PAUSE_BEFORE_REQUEST{50000};
constexpr std::chrono::milliseconds REPLY_WAIT{1900};

std::shared_ptr<Log> logger;
bool clientUsable = false;  // decided once, inside initOnce
std::once_flag initOnce;
bool findServiceDone = false;  // outcome of the one-time discovery wait, written inside findServiceOnce
std::once_flag findServiceOnce;
// Discovery confirmed by a later 10 ms check; concurrent callers may confirm it at once.
std::atomic<bool> serviceConfirmed{false};

/// The endpoint shared by every recovery action client of the process. Made on first use: its
/// members refer to constants of other translation units, which a namespace-scope object could
/// meet before they are initialised.
tarn::em::util::RpcClient& Endpoint() {
    static tarn::em::util::RpcClient client(false);
    return client;
}

void InitializeOnce() {
    Log::InitLog("", "EM", "");
    Log::InitLog("", "EMCL", "");
    Log::InitLog("", "CM", "");
    logger = Log::GetLog("EMCL");
    if (!logger->IsValid()) {
        std::cout << "get logInstance EMCL error, logInstance is inValid" << std::endl;
    }
    tarn::em::util::RpcClient& endpoint = Endpoint();
    if (!endpoint.Initialize()) {
        clientUsable = false;
        logger->error() << "[RecoveryActionClient][Client failed to be initialized]";
        return;
    }
    clientUsable = true;
    const bool bound = endpoint.InitializeMethod<void>(RESTART_METHOD_ID, false, false) &&
                       endpoint.InitializeMethod<Processes>(PROCESS_STATES_METHOD_ID, false, false) &&
                       endpoint.InitializeMethod<ara::core::String>(PROCESS_NAME_METHOD_ID, false, false);
    if (bound) {
        logger->info() << "[RecoveryActionClient][Client method initialized successfully]";
    } else {
        clientUsable = false;
        logger->error() << "[RecoveryActionClient][Client method failed to be initialized]";
    }
}

ara::core::ErrorCode GeneralError() {
    return MakeErrorCode(ExecErrc::kGeneralError, 0);
}

bool IsComError(const ara::core::ErrorCode& error) {
    return error.Domain().Id() == kelp::brio::api::types::ComErrorDomain::kId;
}

std::string MessageOf(const ara::core::ErrorCode& error) {
    return error.Domain().Message(error.Value());
}

/// Usable, and the service known: after the one-time wait of the process, or once a 10 ms
/// check on this or an earlier call has seen it. A lost service is not looked at here: the
/// calls then fail through the transport.
bool Ready() {
    if (!clientUsable) {
        logger->error() << "[RecoveryActionClient][Not usable]";
        return false;
    }
    tarn::em::util::RpcClient& endpoint = Endpoint();
    endpoint.ClientFindService(findServiceOnce, findServiceDone);
    if (findServiceDone || serviceConfirmed.load()) {
        return true;
    }
    if (endpoint.CheckFindServiceResult()) {
        serviceConfirmed.store(true);
        return true;
    }
    tarn::em::GetEmLog()->error() << "[RpcClient][Service is unavailable]";
    return false;
}

/// A future that already holds `error`.
template <typename T>
ara::core::Future<T, ara::core::ErrorCode> Failed(const ara::core::ErrorCode& error) {
    ara::core::Promise<T, ara::core::ErrorCode> promise;
    auto future = promise.get_future();
    promise.SetError(error);
    return future;
}

/// Sends `args` to method `methodId` with result type T; an unbound method gives a future
/// holding Com code 3, as a request the transport cannot take does.
template <typename T, typename... Args>
ara::core::Future<T, ara::core::ErrorCode> Call(unsigned int methodId, const Args&... args) {
    const auto method = Endpoint().proxy_.GetMethodProxy<T>(methodId);
    if (method == nullptr) {
        return Failed<T>(ara::core::ErrorCode(kelp::brio::api::types::ComErrc::kNetworkBindingFailure, 0));
    }
    return method->Request(args...);
}

/// The outcome handed to callers of ProcessRestart: transport errors become
/// kCommunicationError, errors sent by Execution Management pass unchanged. Runs on the thread
/// that completes the call, so it logs at debug level only.
Outcome ToRestartResult(Pending&& reply) {
    Outcome outcome = reply.GetResult();
    if (outcome.HasValue()) {
        logger->debug() << "[RecoveryActionClient][Process restart successfully]";
        return outcome;
    }
    if (IsComError(outcome.Error())) {
        logger->debug() << "[RecoveryActionClient][Failed to restart process due to communication error]";
        return Outcome::FromError(MakeErrorCode(ExecErrc::kCommunicationError, 0));
    }
    logger->debug() << "[RecoveryActionClient][Failed to restart process due to other errors]";
    return outcome;
}

}  // namespace

RecoveryActionClient::RecoveryActionClient(std::string clientName) noexcept : clientName_(std::move(clientName)) {
    tarn::em::util::RpcClient& endpoint = Endpoint();
    endpoint.SetDomainId(DOMAIN_ID);
    endpoint.SetServiceId(SERVICE_ID);
    endpoint.SetInstanceId(INSTANCE_ID);
    endpoint.SetRequestTopicName(REQUEST_TOPIC_NAME);
    endpoint.SetReplyTopicName(REPLY_TOPIC_NAME);
    endpoint.ReadAndSetConfigIP();
    std::call_once(initOnce, InitializeOnce);
}

RecoveryActionClient::~RecoveryActionClient() noexcept = default;

Pending RecoveryActionClient::ProcessRestart(const std::string& processName, bool flag) const noexcept {
    if (!Ready()) {
        return Failed<void>(GeneralError());
    }
    logger->info() << "[RecoveryActionClient][Begin restarting process]";
    std::this_thread::sleep_for(PAUSE_BEFORE_REQUEST);
    Pending reply = Call<void>(RESTART_METHOD_ID, processName, flag);
    logger->info() << "[RecoveryActionClient][Call method is returned on rpc client]";
    return reply.then(ToRestartResult);
}

Outcome RecoveryActionClient::GetProcessStates(Processes& processes) const noexcept {
    if (!Ready()) {
        return Outcome::FromError(GeneralError());
    }
    logger->info() << "[RecoveryActionClient][Get process states info]";
    std::this_thread::sleep_for(PAUSE_BEFORE_REQUEST);
    auto reply = Call<Processes>(PROCESS_STATES_METHOD_ID, clientName_);
    logger->info() << "[RecoveryActionClient][Call method is returned on rpc client]";
    if (reply.wait_for(REPLY_WAIT) != ara::core::future_status::kReady) {
        logger->error() << "[RecoveryActionClient][Waiting for method time out while getting process states]";
        return Outcome::FromError(GeneralError());
    }
    auto outcome = reply.GetResult();
    if (outcome.HasValue()) {
        processes = std::move(outcome).Value();
        logger->info() << "[RecoveryActionClient][Get process states successfully]";
        return {};
    }
    const ara::core::ErrorCode& error = outcome.Error();
    logger->error() << "[RecoveryActionClient][Failed to get process states][cm_or_em_error=" << MessageOf(error)
                    << "]";
    // Only Com code 2 (kMaxSamplesExceeded) reads as busy, whatever the code in another domain.
    const bool busy =
        IsComError(error) && error.Value() == static_cast<int>(kelp::brio::api::types::ComErrc::kMaxSamplesExceeded);
    logger->error() << "[RecoveryActionClient][Failed to get process states]";
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
    logger->verbose() << "[RecoveryActionClient][Get process name based on pid][pid=" << pid << "]";
    auto reply = Call<ara::core::String>(PROCESS_NAME_METHOD_ID, requested);
    logger->verbose() << "[RecoveryActionClient][Get process name, call method is returned on rpc client]";
    if (reply.wait_for(REPLY_WAIT) != ara::core::future_status::kReady) {
        const ara::core::ErrorCode error = GeneralError();
        logger->error() << "[RecoveryActionClient][Failed to get process name][error_data=" << MessageOf(error) << "]";
        return NameOutcome::FromError(error);
    }
    auto outcome = reply.GetResult();
    if (outcome.HasValue()) {
        return outcome;
    }
    logger->error() << "[RecoveryActionClient][Get process name failed][cm_or_em_error=" << MessageOf(outcome.Error())
                    << "]";
    logger->error() << "[RecoveryActionClient][Get process name failed, can't find process][process_pid=" << pid << "]";
    return NameOutcome::FromError(GeneralError());
}

}  // namespace ara::exec
