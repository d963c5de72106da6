// Where the three Execution Management services live, as both ends address them: the
// clients of this library and the daemon that serves them.
#ifndef ARA_EXEC_SRC_SERVICE_ADDRESS_H
#define ARA_EXEC_SRC_SERVICE_ADDRESS_H

#include "tarn/em/util/rpc_base.h"

namespace ara::exec::detail {

/// The compiled-in address of one service; the instance id is "1" for all of them.
struct ServiceAddress {
    short domainId;
    unsigned short serviceId;
    const char* requestTopicName;
    const char* replyTopicName;
};

constexpr ServiceAddress APPLICATION_SERVICE{2, 57360U, "EM_RPC_REQUEST_APPLICATION", "EM_RPC_REPLY_APPLICATION"};
constexpr ServiceAddress STATE_MANAGER_SERVICE{4, 57361U, "EM_RPC_REQUEST_STATE_MANAGER", "EM_RPC_REPLY_STATE_MANAGER"};
constexpr ServiceAddress HEALTH_MANAGER_SERVICE{
    4, 57362U, "EM_RPC_REQUEST_PLATFORM_HEALTH_MANAGER", "EM_RPC_REPLY_PLATFORM_HEALTH_MANAGER"};

/// Points an RPC endpoint, client or server, at `address` on the process's configured network.
inline void Address(tarn::em::util::RpcBase& endpoint, const ServiceAddress& address) {
    endpoint.SetDomainId(address.domainId);
    endpoint.SetServiceId(address.serviceId);
    endpoint.SetInstanceId("1");
    endpoint.SetRequestTopicName(address.requestTopicName);
    endpoint.SetReplyTopicName(address.replyTopicName);
    endpoint.ReadAndSetConfigIP();
}

}  // namespace ara::exec::detail

#endif
