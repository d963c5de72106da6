// SPDX-License-Identifier: Apache-2.0
// A scripted transport for middleware tests: method handlers are FakeMethodHandlers, and the
// test announces the service's coming and going to every running discovery.
#ifndef ARA_TEST_FAKE_DRIVER_H
#define ARA_TEST_FAKE_DRIVER_H

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "ara_test/fake_method_handler.h"
#include "kelp/brio/driver/driver.h"

namespace ara_test {

class FakeDriver final : public kelp::brio::driver::Driver {
public:
    using HandleType = kelp::brio::api::types::HandleType;

    std::shared_ptr<kelp::brio::driver::MethodHandler> CreateMethodHandler(
        const std::shared_ptr<kelp::brio::api::types::MethodInfo>& /*info*/) override {
        return std::make_shared<FakeMethodHandler>();
    }
    std::shared_ptr<kelp::brio::driver::MethodServerHandler> CreateMethodServerHandler(
        const std::shared_ptr<kelp::brio::api::types::MethodInfo>& /*info*/) override {
        return nullptr;
    }
    bool OfferService(const kelp::brio::api::types::ServiceDiscoveryInfo& /*info*/) override { return true; }
    void StopOfferService(const kelp::brio::api::types::ServiceDiscoveryInfo& /*info*/) override {}
    std::optional<std::uint32_t> StartFindService(const kelp::brio::api::types::ServiceDiscoveryInfo& /*info*/,
                                                  FindHandler handler) override {
        const std::lock_guard<std::mutex> lock(mutex_);
        finds_.emplace(++lastFind_, std::move(handler));
        return lastFind_;
    }
    void StopFindService(std::uint32_t id) override {
        const std::lock_guard<std::mutex> lock(mutex_);
        finds_.erase(id);
    }

    /// Reports `handles` to every running discovery (an empty list: the service is gone).
    void Announce(const std::vector<HandleType>& handles) {
        std::map<std::uint32_t, FindHandler> finds;
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            finds = finds_;
        }
        for (auto& entry : finds) {
            entry.second(handles);
        }
    }
    std::size_t RunningFinds() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return finds_.size();
    }

private:
    mutable std::mutex mutex_;
    std::uint32_t lastFind_{0U};
    std::map<std::uint32_t, FindHandler> finds_;
};

}  // namespace ara_test

#endif
