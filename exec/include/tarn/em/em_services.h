// SPDX-License-Identifier: Apache-2.0
// The contract of the three Execution Management services, stated once for both ends: where
// each service lives, its methods (id, argument types, result type) and the error codes its
// replies may carry, and how a server serves one of them. The clients of this library, emd,
// emctl and the benchmarks use it; no method id is written anywhere else.
#ifndef TARN_EM_EM_SERVICES_H
#define TARN_EM_EM_SERVICES_H

#include <cstdint>
#include <tuple>
#include <utility>
#include <vector>

#include "ara/core/string.h"
#include "ara/exec/exec_error_domain.h"
#include "ara/exec/execution_state.h"
#include "ara/exec/process.h"  // with its codecs
#include "tarn/em/util/rpc_client.h"
#include "tarn/em/util/rpc_server.h"

namespace tarn::em::services {

/// The compiled-in address of one service; the instance id is "1" for all of them.
struct ServiceAddress {
    short domainId;
    unsigned short serviceId;
    const char* requestTopicName;
    const char* replyTopicName;
};

inline constexpr ServiceAddress APPLICATION_SERVICE{
    2, 57360U, "EM_RPC_REQUEST_APPLICATION", "EM_RPC_REPLY_APPLICATION"};
inline constexpr ServiceAddress STATE_MANAGER_SERVICE{
    4, 57361U, "EM_RPC_REQUEST_STATE_MANAGER", "EM_RPC_REPLY_STATE_MANAGER"};
inline constexpr ServiceAddress HEALTH_MANAGER_SERVICE{
    4, 57362U, "EM_RPC_REQUEST_PLATFORM_HEALTH_MANAGER", "EM_RPC_REPLY_PLATFORM_HEALTH_MANAGER"};

/// One remote method: its id, the service that serves it, its argument types in order and
/// its result type.
template <std::uint32_t Id, const ServiceAddress& Service, typename R, typename... Args>
struct Method {
    static constexpr std::uint32_t ID = Id;
    static constexpr const ServiceAddress& SERVICE = Service;
    using Result = R;
    using Arguments = std::tuple<Args...>;
};

// The application service.
/// (process id, state reached) -> nothing.
using ReportExecutionState = Method<0U, APPLICATION_SERVICE, void, int, ara::exec::ExecutionState>;

// The state manager service.
/// () -> nothing, once the machine's initial transition has ended.
using GetInitialMachineStateTransitionResult = Method<1U, STATE_MANAGER_SERVICE, void>;
/// (Function Group name, state name) -> nothing, once the transition has ended.
using SetState = Method<2U, STATE_MANAGER_SERVICE, void, ara::core::String, ara::core::String>;
/// (Function Group name) -> its state name.
using GetState = Method<6U, STATE_MANAGER_SERVICE, ara::core::String, ara::core::String>;

// The platform health manager service.
/// (process name, kill at once) -> nothing, once the process runs again.
using ProcessRestart = Method<3U, HEALTH_MANAGER_SERVICE, void, ara::core::String, bool>;
/// (client name) -> every configured process and its state.
using GetProcessStates = Method<4U, HEALTH_MANAGER_SERVICE, std::vector<ara::exec::Process>, ara::core::String>;
/// (process id) -> the configured name of that process.
using GetProcessName = Method<5U, HEALTH_MANAGER_SERVICE, ara::core::String, int>;

/// The error codes of every method: a reply may carry Exec codes 1 to 7; a call that waits
/// when the service goes offline ends with kCommunicationError.
inline tarn::em::util::RpcErrorCodes ErrorCodes() {
    tarn::em::util::RpcErrorCodes codes{{}, ara::core::ErrorCode(ara::exec::ExecErrc::kCommunicationError, 0)};
    for (int code = 1; code <= 7; ++code) {
        codes.methodErrors.emplace_back(static_cast<ara::exec::ExecErrc>(code), 0);
    }
    return codes;
}

/// Points an RPC endpoint, client or server, at `address` on the process's configured network.
inline void Address(tarn::em::util::RpcBase& endpoint, const ServiceAddress& address) {
    endpoint.SetDomainId(address.domainId);
    endpoint.SetServiceId(address.serviceId);
    endpoint.SetInstanceId("1");
    endpoint.SetRequestTopicName(address.requestTopicName);
    endpoint.SetReplyTopicName(address.replyTopicName);
    endpoint.ReadAndSetConfigIP();
}

namespace detail {
template <typename R, typename Arguments>
struct Serving;
template <typename R, typename... Args>
struct Serving<R, std::tuple<Args...>> {
    template <typename Handler>
    static bool On(tarn::em::util::RpcServer& server, std::uint32_t id, Handler handler) {
        return server.RegisterMethod<R, Args...>(id, std::move(handler));
    }
};
}  // namespace detail

/// Serves method M on `server`: `handler` is called with a kelp::brio::Replier<M::Result> and
/// M's arguments, in order.
template <typename M, typename Handler>
bool Serve(tarn::em::util::RpcServer& server, Handler handler) {
    return detail::Serving<typename M::Result, typename M::Arguments>::On(server, M::ID, std::move(handler));
}

}  // namespace tarn::em::services

#endif
