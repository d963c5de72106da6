// SPDX-License-Identifier: Apache-2.0
// The server end of one Execution Management RPC service: an endpoint configuration that
// owns a middleware skeleton and withdraws its offer when destroyed.
#ifndef TARN_EM_UTIL_RPC_SERVER_H
#define TARN_EM_UTIL_RPC_SERVER_H

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "ara/core/internal/export.h"
#include "kelp/brio/skeleton.h"
#include "kelp/driver/dds/dds_types.h"
#include "tarn/em/util/rpc_base.h"

namespace tarn::em::util {

/// @thread-safety configure and offer from one thread; handlers run on the skeleton's
/// dispatcher thread.
class ARA_EXPORT RpcServer : public RpcBase {
public:
    using DiscoveryMap =
        std::map<kelp::brio::api::types::DriverType, std::shared_ptr<kelp::brio::api::types::ServiceDiscoveryInfo>>;

    /// No skeleton: give one through `skeleton_` before serving.
    RpcServer();
    /// A skeleton named `name` in event mode.
    explicit RpcServer(const std::string& name);
    /// Withdraws the offer recorded in serviceDiscoveryInfo_ (nothing without a skeleton).
    ~RpcServer() override;
    RpcServer(const RpcServer&) = delete;
    RpcServer& operator=(const RpcServer&) = delete;

    /// The DDS descriptor of method `methodId` of this endpoint, as a client binds it.
    std::shared_ptr<kelp::driver::dds::DDSMethodInfo> MakeMethodInfo(unsigned int methodId) const;
    /// Serves method `methodId` through the skeleton (see Skeleton::RegisterMethod).
    template <typename R, typename... Args>
    bool RegisterMethod(
        unsigned int methodId,
        typename kelp::brio::detail::NonDeduced<std::function<void(kelp::brio::Replier<R>, const Args&...)>>::type
            handler) {
        return skeleton_ && skeleton_->RegisterMethod<R, Args...>(methodId, MakeMethodInfo(methodId), std::move(handler));
    }
    /// Records this endpoint's DDS discovery descriptor in serviceDiscoveryInfo_ (service id,
    /// EM instance "65534", domain, network, participant QoS, UDP) and offers it.
    bool OfferService();

    std::shared_ptr<kelp::brio::Skeleton> skeleton_;
    DiscoveryMap serviceDiscoveryInfo_;
};

}  // namespace tarn::em::util

#endif
