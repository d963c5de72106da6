// The state client: the process-wide endpoint on Execution Management's state manager service,
// its one-time set-up, the readiness check, and the three calls: the initial transition result
// (method 1, no arguments), a state change (method 2, group path and state name) and a state
// read (method 6, group name, returns the state name).
#include "ara/exec/state_client.h"

#include <atomic>
#include <chrono>
#include <iostream>
#include <memory>
#include <mutex>
#include <thread>

#include "ara/core/promise.h"
#include "ara/core/result.h"
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

constexpr short DOMAIN_ID = 4;
constexpr unsigned short SERVICE_ID = 57361U;  // 0xE011
constexpr const char* INSTANCE_ID = "1";
constexpr const char* REQUEST_TOPIC_NAME = "EM_RPC_REQUEST_STATE_MANAGER";
constexpr const char* REPLY_TOPIC_NAME = "EM_RPC_REPLY_STATE_MANAGER";
constexpr unsigned int INITIAL_RESULT_METHOD_ID = 1U;
constexpr unsigned int SET_STATE_METHOD_ID = 2U;
constexpr unsigned int GET_STATE_METHOD_ID = 6U;
// Execution Management expects this pause before every request; it is part of the protocol.
constexpr std::chrono::microseconds PAUSE_BEFORE_REQUEST{50000};
constexpr std::chrono::milliseconds REPLY_WAIT{1900};

std::shared_ptr<Log> logger;
bool clientUsable = false;  // decided once, inside initOnce
std::once_flag initOnce;
bool findServiceDone = false;  // outcome of the one-time discovery wait, written inside findServiceOnce
std::once_flag findServiceOnce;
// Discovery confirmed by a later 10 ms check; concurrent callers may confirm it at once.
std::atomic<bool> serviceConfirmed{false};

/// The endpoint shared by every state client of the process. Made on first use: its members
/// refer to constants of other translation units, which a namespace-scope object could meet
/// before they are initialised.
tarn::em::util::RpcClient& Endpoint() {
    static tarn::em::util::RpcClient client(false);
    return client;
}

/// The "EMCL" logger; also usable by a readiness check made before any client was constructed.
std::shared_ptr<Log> Logger() {
    return logger != nullptr ? logger : Log::GetLog("EMCL");
}

void InitializeOnce() {
    Log::InitLog("", "EM", "");
    Log::InitLog("", "EMCL", "");
    Log::InitLog("", "CM", "");
    logger = Log::GetLog("EMCL");
    if (!logger->IsValid()) {
        std::cout << "get logInstanceEMCL error, logInstance is inValid in StateClient" << std::endl;
    }
    tarn::em::util::RpcClient& endpoint = Endpoint();
    if (!endpoint.Initialize()) {
        clientUsable = false;
        logger->error() << "[StateClient][Client failed to be initialized]";
        return;
    }
    clientUsable = true;
    const bool bound = endpoint.InitializeMethod<void>(INITIAL_RESULT_METHOD_ID, false, false) &&
                       endpoint.InitializeMethod<void>(SET_STATE_METHOD_ID, false, false) &&
                       endpoint.InitializeMethod<ara::core::String>(GET_STATE_METHOD_ID, false, false);
    if (bound) {
        logger->info() << "[StateClient][Client method initialized successfully]";
    } else {
        clientUsable = false;
        logger->error() << "[StateClient][Client method failed to be initialized]";
    }
}

ara::core::ErrorCode CommunicationError() {
    return MakeErrorCode(ExecErrc::kCommunicationError, 0);
}

bool IsComError(const ara::core::ErrorCode& error) {
    return error.Domain().Id() == kelp::brio::api::types::ComErrorDomain::kId;
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
    if (IsComError(outcome.Error())) {
        log->debug() << "[StateClient][Failed to set state or get result due to communication error]";
        return Outcome::FromError(CommunicationError());
    }
    log->debug() << "[StateClient][Failed to set state or get result due to other errors]";
    return outcome;
}

/// Pauses as Execution Management expects, sends, and returns the converted outcome.
template <typename... Args>
Pending SendStateRequest(unsigned int methodId, const Args&... args) {
    std::this_thread::sleep_for(PAUSE_BEFORE_REQUEST);
    Pending reply = Call<void>(methodId, args...);
    Logger()->info() << "[StateClient][Call method is returned on rpc client]";
    return reply.then(ToStateResult);
}

}  // namespace

bool CommunicationProcessing() noexcept {
    tarn::em::util::RpcClient& endpoint = Endpoint();
    if (!clientUsable || endpoint.isServiceOffline_.load()) {
        Logger()->error() << "[StateClient][Not usable]";
        return false;
    }
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

StateClient::StateClient() noexcept {
    tarn::em::util::RpcClient& endpoint = Endpoint();
    endpoint.SetDomainId(DOMAIN_ID);
    endpoint.SetServiceId(SERVICE_ID);
    endpoint.SetInstanceId(INSTANCE_ID);
    endpoint.SetRequestTopicName(REQUEST_TOPIC_NAME);
    endpoint.SetReplyTopicName(REPLY_TOPIC_NAME);
    endpoint.ReadAndSetConfigIP();
    std::call_once(initOnce, InitializeOnce);
}

StateClient::~StateClient() noexcept = default;

Pending StateClient::SetState(const FunctionGroupState& state) const noexcept {
    if (!CommunicationProcessing()) {
        return Failed<void>(CommunicationError());
    }
    const ara::core::String group(state.FunctionGroupMetaModel());
    const ara::core::String target(state.State());
    logger->info() << "[StateClient][Begin setting function group state][function_group_name=" << group
                   << ", target_state=" << target << "]";
    return SendStateRequest(SET_STATE_METHOD_ID, group, target);
}

Pending StateClient::GetInitialMachineStateTransitionResult() const noexcept {
    if (!CommunicationProcessing()) {
        return Failed<void>(CommunicationError());
    }
    logger->info() << "[StateClient][Begin getting machine state initial transition result]";
    return SendStateRequest(INITIAL_RESULT_METHOD_ID);
}

Pending StateClient::GetState(const ara::core::String& functionGroup, ara::core::String& state) const noexcept {
    ara::core::Promise<void, ara::core::ErrorCode> promise;
    Pending future = promise.get_future();
    tarn::em::util::RpcClient& endpoint = Endpoint();
    // Checked on every call: the one-time discovery wait belongs to the other two calls.
    if (!clientUsable || !endpoint.CheckFindServiceResult() || endpoint.isServiceOffline_.load()) {
        promise.SetError(CommunicationError());
        logger->error() << "[StateClient][Not usable]";
        return future;
    }
    logger->info() << "[StateClient][Begin getting function group state][function_group_name=" << functionGroup << "]";
    std::this_thread::sleep_for(PAUSE_BEFORE_REQUEST);
    auto reply = Call<ara::core::String>(GET_STATE_METHOD_ID, functionGroup);
    if (reply.wait_for(REPLY_WAIT) != ara::core::future_status::kReady) {
        promise.SetError(CommunicationError());
        logger->error() << "[StateClient][Waiting for method time out while getting state]";
        return future;
    }
    auto outcome = reply.GetResult();
    if (outcome.HasValue()) {
        state = std::move(outcome).Value();
        promise.set_value();
        logger->debug() << "[StateClient][Get state successfully]";
    } else if (IsComError(outcome.Error())) {
        promise.SetError(CommunicationError());
        logger->error() << "[StateClient][Failed to get state due to communication error]";
    } else {
        promise.SetError(outcome.Error());
        logger->error() << "[StateClient][Failed to get state due to other errors]";
    }
    return future;
}

}  // namespace ara::exec
