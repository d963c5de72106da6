// SPDX-License-Identifier: Apache-2.0
// Client side of one service: discovery over the transports, error registration and the
// release of waiting calls per method.
#include "kelp/brio/proxy.h"

#include <atomic>

#include "kelp/brio/driver/driver.h"

namespace kelp::brio {
namespace {
std::atomic<std::uint32_t> g_nextFindId{0U};
}  // namespace

Proxy::Proxy(const api::types::HandleType& handle, const bool& flag) : handle_(handle), flag_(flag) {}

Proxy::~Proxy() {
    StopAllFindService();
    // Transports may still deliver while this object goes: unhook every proxy first.
    for (const auto& proxy : AllMethodProxies()) {
        proxy->StopReceiveData();
        proxy->UnsetMethodStateChangeHandler();
    }
}

std::optional<api::types::FindServiceHandle> Proxy::StartFindService(const FindServiceHandler& handler,
                                                                      const DiscoveryRequest& info) {
    const std::uint32_t id = g_nextFindId.fetch_add(1U);
    const api::types::FindServiceHandle findHandle{id, true};
    std::vector<std::pair<api::types::DriverType, std::uint32_t>> started;
    for (const auto& [type, request] : info) {
        const auto transport = driver::GetDriver(type);
        if (!transport || !request) {
            logger_->warn() << "[Proxy][Transport is not started, cannot find service][driverType="
                            << api::types::DriverTypeName(type) << ", serviceId=" << handle_.serviceId << "]";
            continue;
        }
        const auto transportId = transport->StartFindService(
            *request, [handler, findHandle](std::vector<api::types::HandleType> handles) {
                if (handler) {
                    handler(std::move(handles), findHandle);
                }
            });
        if (transportId) {
            started.emplace_back(type, *transportId);
        }
    }
    if (started.empty()) {
        return std::nullopt;
    }
    const std::lock_guard<std::mutex> lock(findMutex_);
    finds_.emplace(id, std::move(started));
    return findHandle;
}

void Proxy::StopFindService(const api::types::FindServiceHandle& handle) {
    std::vector<std::pair<api::types::DriverType, std::uint32_t>> started;
    {
        const std::lock_guard<std::mutex> lock(findMutex_);
        const auto it = finds_.find(handle.id);
        if (it == finds_.end()) {
            return;
        }
        started = std::move(it->second);
        finds_.erase(it);
    }
    // Outside the lock: a transport waits here for a running handler to return.
    for (const auto& [type, transportId] : started) {
        if (const auto transport = driver::GetDriver(type)) {
            transport->StopFindService(transportId);
        }
    }
}

void Proxy::StopAllFindService() {
    std::vector<std::uint32_t> ids;
    {
        const std::lock_guard<std::mutex> lock(findMutex_);
        for (const auto& entry : finds_) {
            ids.push_back(entry.first);
        }
    }
    for (const std::uint32_t id : ids) {
        StopFindService(api::types::FindServiceHandle{id, true});
    }
}

bool Proxy::RegisterError(const unsigned int& methodId, const ara::core::ErrorCode& errorCode) {
    const auto proxy = FindMethodProxy(methodId);
    if (!proxy) {
        logger_->warn() << "[Proxy][Cannot register error for unknown method][methodEntityId=" << methodId << "]";
        return false;
    }
    proxy->RegisterError(errorCode);
    return true;
}

void Proxy::DestroyWaitingMethodPromise(const ara::core::ErrorCode& errorCode, const unsigned int& methodId) {
    if (const auto proxy = FindMethodProxy(methodId)) {
        proxy->DestroyWaitingPromise(errorCode);
    }
}

}  // namespace kelp::brio
