// SPDX-License-Identifier: Apache-2.0
// The server end of an RPC service: its skeleton, the method descriptors it serves and the
// offer it withdraws when it goes.
#include "tarn/em/util/rpc_server.h"


#include "tarn/em/log_em.h"

namespace tarn::em::util {

RpcServer::RpcServer() = default;

RpcServer::RpcServer(const std::string& name)
    : skeleton_(std::make_shared<kelp::brio::Skeleton>(name, kelp::brio::api::types::MethodCallProcessingMode::kEvent)) {}

RpcServer::~RpcServer() {
    // A server made without a skeleton has nothing to withdraw.
    if (skeleton_) {
        skeleton_->StopOfferService(serviceDiscoveryInfo_);
    }
}

std::shared_ptr<kelp::driver::dds::DDSMethodInfo> RpcServer::MakeMethodInfo(unsigned int methodId) const {
    auto info = std::make_unique<kelp::driver::dds::DDSMethodInfo>();
    InitializeMethodBase(methodId, false, info);
    info->SetRequestDepth(10U);
    info->SetReplyDepth(10U);
    info->SetParticipantQos(kelp::driver::dds::qos::DefaultRpcParticipantQos());
    info->SetTransportQos({kelp::driver::dds::qos::TransportQos::UDP});
    return info;
}

bool RpcServer::OfferService() {
    if (!skeleton_) {
        GetEmLog()->error() << "[RpcServer][No skeleton to offer the service with]";
        return false;
    }
    auto offer = std::make_shared<kelp::driver::dds::DDSServiceDiscoveryInfo>();
    offer->SetServiceId(GetServiceId());
    offer->SetInstanceId(GetEmInstanceIdText());
    offer->SetDomainId(GetDomainId());
    offer->SetNetwork(GetNetwork());
    offer->SetFlag(true);
    offer->SetParticipantQos(kelp::driver::dds::qos::DefaultRpcParticipantQos());
    offer->SetTransportQos({kelp::driver::dds::qos::TransportQos::UDP});
    serviceDiscoveryInfo_[kelp::brio::api::types::DriverType::DDS] = offer;
    return skeleton_->OfferService(serviceDiscoveryInfo_);
}

}  // namespace tarn::em::util
