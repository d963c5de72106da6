// SPDX-License-Identifier: Apache-2.0
// A skeleton destroyed by one of its own handlers, on the skeleton's dispatcher thread: the
// reply still goes out, and the dispatcher ends without touching what the skeleton owned.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <optional>

#include "ara/exec/exec_error_domain.h"
#include "ara_test/matchers.h"
#include "kelp/brio/driver/driver.h"
#include "kelp/brio/method_proxy_impl.h"
#include "kelp/brio/skeleton.h"
#include "kelp/serialize/serialize_config.h"

namespace {

namespace types = kelp::brio::api::types;
using kelp::brio::driver::MethodServerHandler;

// Method servers that never receive a request from the network: the skeleton's methods are
// reached through the process-local transport only.
class LocalOnlyServer final : public MethodServerHandler {
public:
    void RegisterRequestCallback(RequestCallback /*callback*/) override {}
    bool SendReply(const types::MethodMsg& /*request*/,
                   const unsigned char* /*payload*/,
                   std::uint32_t /*size*/,
                   bool /*isError*/) override {
        return false;
    }
    kelp::serialize::SerializeType GetSerializeType() const override { return kelp::serialize::SerializeType::kDds; }
    const kelp::serialize::SerializeConfig& GetSerializeConfig() const override { return config_; }

private:
    kelp::serialize::SerializeConfig config_;
};

class LocalOnlyDriver final : public kelp::brio::driver::Driver {
public:
    std::shared_ptr<kelp::brio::driver::MethodHandler> CreateMethodHandler(
        const std::shared_ptr<types::MethodInfo>& /*info*/) override {
        return nullptr;
    }
    std::shared_ptr<MethodServerHandler> CreateMethodServerHandler(
        const std::shared_ptr<types::MethodInfo>& /*info*/) override {
        return std::make_shared<LocalOnlyServer>();
    }
    bool OfferService(const types::ServiceDiscoveryInfo& /*info*/) override { return true; }
    void StopOfferService(const types::ServiceDiscoveryInfo& /*info*/) override {}
    std::optional<std::uint32_t> StartFindService(const types::ServiceDiscoveryInfo& /*info*/,
                                                  FindHandler /*handler*/) override {
        return std::nullopt;
    }
    void StopFindService(std::uint32_t /*id*/) override {}
};

// Runs `onExit` when the calling thread ends, after the thread's function has returned.
void OnThreadExit(std::function<void()> onExit) {
    struct AtExit {
        std::function<void()> run;
        ~AtExit() {
            if (run) {
                run();
            }
        }
    };
    thread_local AtExit atExit;
    atExit.run = std::move(onExit);
}

TEST(SkeletonSelfDestroyTest, AHandlerDestroysItsOwnSkeleton) {
    kelp::brio::driver::RegisterDriver(types::DriverType::DDS, std::make_shared<LocalOnlyDriver>());
    auto info = std::make_shared<types::MethodInfo>();
    info->SetServiceId(0xE012U);
    info->SetInstanceId("1");
    info->SetEntityId(7U);
    auto skeleton = std::make_unique<kelp::brio::Skeleton>("self-destroying", types::MethodCallProcessingMode::kEvent);
    std::promise<void> dispatcherEnded;
    ASSERT_TRUE((skeleton->RegisterMethod<void>(7U, info, [&](kelp::brio::Replier<void> replier) {
        replier.Reply({});
        OnThreadExit([&dispatcherEnded] { dispatcherEnded.set_value(); });
        skeleton.reset();
    })));

    const kelp::driver::proloc::ProlocEntityIndex index{0xE012U, "1", 7U};
    auto proxy = std::make_shared<kelp::brio::MethodProxyImpl<void>>(index.entityId);
    auto local = std::make_shared<types::MethodInfo>(*info);
    local->SetDriverType(types::DriverType::PROLOC);
    proxy->SetMethodInfo(local);
    proxy->SetDriver(std::make_shared<kelp::driver::proloc::ProlocMethodHandler>(index));
    proxy->RegisterError(ara::core::ErrorCode(ara::exec::ExecErrc::kFailed));
    EXPECT_THAT(proxy->Request().get(), ara_test::IsOk());

    // Whatever the dispatcher does after the handler returns, it has done once its thread ended.
    dispatcherEnded.get_future().wait();
    EXPECT_EQ(skeleton, nullptr);
    kelp::brio::driver::RegisterDriver(types::DriverType::DDS, nullptr);
}

}  // namespace
