// SPDX-License-Identifier: Apache-2.0
// The method proxies of one service user and their binding to transports.
#include "kelp/brio/brio.h"

#include <cerrno>

#include "kelp/brio/driver/driver.h"
#include "kelp/driver/proloc/proloc_method_handler.h"

namespace kelp::brio {

Brio::Brio() : logger_(ara::quill::common::log::Log::GetLog("CM")) {}

Brio::~Brio() = default;

bool Brio::InitializeMethodHandler(const std::shared_ptr<api::types::MethodInfo>& info) {
    if (!info) {
        logger_->warn() << "[Brio][Method descriptor is missing]";
        return false;
    }
    const std::uint32_t methodId = info->GetEntityId();
    const auto proxy = FindMethodProxy(methodId);
    if (!proxy) {
        logger_->warn() << "[Brio][No method proxy for method][methodEntityId=" << methodId << "]";
        return false;
    }
    const ::kelp::driver::proloc::ProlocEntityIndex index{info->GetServiceId(), info->GetInstanceId(), methodId};
    std::shared_ptr<driver::MethodHandler> handler;
    if (::kelp::driver::proloc::ProlocServerRegistry::Instance().Find(index)) {
        // This process serves the method itself: hand arguments and results over directly.
        info->SetDriverType(api::types::DriverType::PROLOC);
        handler = std::make_shared<::kelp::driver::proloc::ProlocMethodHandler>(index);
    } else {
        const auto transport = driver::GetDriver(info->GetDriverType());
        if (!transport) {
            logger_->warn() << "[Brio][Transport is not started][driverType="
                            << api::types::DriverTypeName(info->GetDriverType()) << ", methodEntityId=" << methodId
                            << "]";
            return false;
        }
        handler = transport->CreateMethodHandler(info);
        if (!handler) {
            return false;  // the transport logged why
        }
    }
    proxy->SetDriver(handler);
    logger_->debug() << "[Brio][Method bound][method=" << info->GetMethodUUIDInfo() << "]";
    return true;
}

std::shared_ptr<MethodProxy> Brio::FindMethodProxy(unsigned int methodId) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto it = methodProxies_.find(methodId);
    return it == methodProxies_.end() ? nullptr : it->second;
}

std::vector<std::shared_ptr<MethodProxy>> Brio::AllMethodProxies() const {
    std::vector<std::shared_ptr<MethodProxy>> proxies;
    const std::lock_guard<std::mutex> lock(mutex_);
    proxies.reserve(methodProxies_.size());
    for (const auto& entry : methodProxies_) {
        proxies.push_back(entry.second);
    }
    return proxies;
}

std::string Brio::StatisticsName(const api::types::MethodInfo& info) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): set once by the C library before main
    return std::string(program_invocation_short_name) + "/" + info.GetMethodUUIDInfo();
}

}  // namespace kelp::brio
