// SPDX-License-Identifier: Apache-2.0
// Process-local transport: round trips for every argument list through the parked-object
// memories, loans handed back, and the memories' own bookkeeping.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "ara/exec/exec_error_domain.h"
#include "ara/exec/execution_state.h"
#include "ara/exec/process.h"
#include "ara_test/fake_method_handler.h"
#include "ara_test/matchers.h"
#include "kelp/brio/method_proxy_impl.h"
#include "kelp/driver/proloc/proloc_memory.h"
#include "kelp/driver/proloc/proloc_method_handler.h"

namespace {

using ara_test::HasError;
using ara_test::IsOk;
using kelp::brio::MethodProxyImpl;
using kelp::driver::proloc::ProlocEntityIndex;
using kelp::driver::proloc::ProlocMemoryFactory;
using kelp::driver::proloc::ProlocMethodHandler;
using kelp::driver::proloc::ProlocServerMethod;
using kelp::driver::proloc::ProlocServerRegistry;
namespace log = ara::quill::common::log;

// Registers a server that takes the parked arguments, runs `handler` and parks its result.
template <typename R, typename... Args, typename Handler>
void RegisterServer(const ProlocEntityIndex& index, Handler handler) {
    auto server = std::make_shared<ProlocServerMethod>();
    server->onRequest = [index, handler](const unsigned char* request,
                                         std::uint16_t /*sessionId*/,
                                         const ProlocServerMethod::ReplySender& reply) {
        const auto requests = ProlocMemoryFactory::GetMethodRequestInstance<Args...>();
        const auto arguments = requests->Get(request, index);
        ASSERT_NE(arguments, nullptr);
        requests->ReturnLoan(request, index);
        auto result = std::make_shared<ara::core::Result<R, ara::core::ErrorCode>>(std::apply(handler, *arguments));
        const bool isError = !result->HasValue();
        const unsigned char* address = ProlocMemoryFactory::GetMethodReplyInstance<R>()->Store(index, result);
        reply(address, isError);
    };
    server->returnReplyLoan = [index](const unsigned char* address) {
        ProlocMemoryFactory::GetMethodReplyInstance<R>()->ReturnLoan(address, index);
    };
    ASSERT_TRUE(ProlocServerRegistry::Instance().Register(index, server));
}

template <typename T>
std::shared_ptr<MethodProxyImpl<T>> MakeProlocProxy(const ProlocEntityIndex& index) {
    auto proxy = std::make_shared<MethodProxyImpl<T>>(index.entityId);
    auto info = std::make_shared<kelp::brio::api::types::MethodInfo>();
    info->SetDriverType(kelp::brio::api::types::DriverType::PROLOC);
    info->SetServiceId(static_cast<std::uint16_t>(index.serviceId));
    info->SetInstanceId(index.instanceId);
    info->SetEntityId(index.entityId);
    proxy->SetMethodInfo(info);
    proxy->SetDriver(std::make_shared<ProlocMethodHandler>(index));
    proxy->RegisterError(ara::core::ErrorCode(ara::exec::ExecErrc::kFailed));
    return proxy;
}

class ProlocRoundTripTest : public ::testing::Test {
protected:
    void TearDown() override {
        for (const auto& index : registered_) {
            ProlocServerRegistry::Instance().Unregister(index);
        }
    }
    ProlocEntityIndex Index(unsigned int entityId) {
        registered_.push_back({0xE011U, "1", entityId});
        return registered_.back();
    }
    std::vector<ProlocEntityIndex> registered_;
};

TEST_F(ProlocRoundTripTest, EveryArgumentListAndResultTypeTravelsWithoutSerialization) {
    using ara::core::Result;
    using ara::core::String;
    using ara::exec::ExecutionState;
    using VoidResult = Result<void, ara::core::ErrorCode>;
    std::vector<std::string> seen;
    RegisterServer<void, int, ExecutionState>(Index(0U), [&seen](const int& pid, const ExecutionState& state) {
        seen.push_back(std::to_string(pid) + "/" + std::to_string(static_cast<int>(state)));
        return VoidResult();
    });
    EXPECT_THAT(MakeProlocProxy<void>(registered_.back())->Request(4242, ExecutionState::kTerminating).get(), IsOk());
    RegisterServer<void>(Index(1U), [&seen] {
        seen.push_back("initial");
        return VoidResult();
    });
    EXPECT_THAT(MakeProlocProxy<void>(registered_.back())->Request().get(), IsOk());
    RegisterServer<void, String, String>(Index(2U), [&seen](const String& group, const String& state) {
        seen.push_back(group + "/" + state);
        return VoidResult(ara::core::ErrorCode(ara::exec::ExecErrc::kFailed));
    });
    EXPECT_THAT(MakeProlocProxy<void>(registered_.back())->Request(String("MachineFG"), String("Off")).get(),
                HasError(ara::exec::ExecErrc::kFailed));
    RegisterServer<void, String, bool>(Index(3U), [&seen](const String& name, const bool& flag) {
        seen.push_back(name + "/" + (flag ? "true" : "false"));
        return VoidResult();
    });
    EXPECT_THAT(MakeProlocProxy<void>(registered_.back())->Request(String("app"), true).get(), IsOk());
    EXPECT_EQ(seen, (std::vector<std::string>{"4242/1", "initial", "MachineFG/Off", "app/true"}));

    RegisterServer<String, String>(Index(6U), [](const String& group) { return Result<String>(group + ":Running"); });
    EXPECT_EQ(MakeProlocProxy<String>(registered_.back())->Request(String("MachineFG")).get().ValueOr(""),
              "MachineFG:Running");
    const std::vector<ara::exec::Process> list{{"app", "MachineFG", "Running", "kRunning", true},
                                               {"tool", "MachineFG", "Idle", "", false}};
    RegisterServer<std::vector<ara::exec::Process>, std::string>(Index(4U), [&list](const std::string& client) {
        return Result<std::vector<ara::exec::Process>>(client == "phm" ? list : std::vector<ara::exec::Process>{});
    });
    auto listResult = MakeProlocProxy<std::vector<ara::exec::Process>>(registered_.back())->Request(std::string("phm"));
    EXPECT_EQ(listResult.get().ValueOr(std::vector<ara::exec::Process>{}), list);

    // Every loan came back.
    for (const auto& index : registered_) {
        EXPECT_EQ(ProlocMemoryFactory::GetMethodReplyInstance<void>()->Count(index), 0U);
        EXPECT_EQ(ProlocMemoryFactory::GetMethodReplyInstance<String>()->Count(index), 0U);
    }
    EXPECT_EQ((ProlocMemoryFactory::GetMethodRequestInstance<int, ExecutionState>()->Count(registered_[0])), 0U);
    EXPECT_EQ((ProlocMemoryFactory::GetMethodRequestInstance<String, String>()->Count(registered_[2])), 0U);
}

TEST_F(ProlocRoundTripTest, WithoutServerTheCallFailsAndTheArgumentsAreNotLeft) {
    const auto index = Index(9U);
    auto proxy = MakeProlocProxy<ara::core::String>(index);
    EXPECT_THAT(proxy->Request(ara::core::String("x")).get(),
                HasError(kelp::brio::api::types::ComErrc::kNetworkBindingFailure));
    EXPECT_EQ(ProlocMemoryFactory::GetMethodRequestInstance<ara::core::String>()->Count(index), 0U);
}

TEST(ProlocReplyTest, AReplyThatIsNotParkedFailsTheCallWithComErrc3) {
    log::CaptureSink capture;
    ara_test::BoundProxy<ara::core::String> bound(5U);
    bound.info->SetDriverType(kelp::brio::api::types::DriverType::PROLOC);
    auto future = bound.proxy->Request(ara::core::String("x"));
    bound.driver->Deliver(bound.driver->MakeReply(1U, {}));
    EXPECT_THAT(future.get(), HasError(kelp::brio::api::types::ComErrc::kNetworkBindingFailure));
    EXPECT_TRUE(
        capture.Contains("Proloc get reply value cannot find index [serviceId=57360, instanceId=65534, entityId=5]"));
}

TEST(ProlocMemoryTest, LoansUnregisterAndUnknownIndexes) {
    log::CaptureSink capture;
    kelp::driver::proloc::ProlocReplyMemory<ara::core::String> memory;
    const ProlocEntityIndex index{1U, "7", 3U};
    const ProlocEntityIndex never{2U, "7", 3U};
    const auto* first = memory.Store(index, std::make_shared<ara::core::Result<ara::core::String>>("a"));
    const auto* second = memory.Store(index, std::make_shared<ara::core::Result<ara::core::String>>("b"));
    EXPECT_EQ(memory.GetReplyResult(first, index)->Value(), "a");
    memory.ReturnLoan(first, index);
    memory.ReturnLoan(first, index);
    EXPECT_TRUE(capture.Contains("Proloc reply return loan unknon address[serviceId=1, instanceId=7, entityId=3]"));
    EXPECT_EQ(memory.GetReplyResult(first, index), nullptr);
    EXPECT_TRUE(capture.Contains("Proloc get unknow reply value [serviceId=1, instanceId=7, entityId=3]"));
    memory.ReturnLoan(second, never);
    EXPECT_TRUE(capture.Contains("Proloc reply return loan cannot find index [serviceId=2, instanceId=7, entityId=3]"));
    EXPECT_EQ(memory.GetReplyResult(second, never), nullptr);
    EXPECT_TRUE(capture.Contains("Proloc get reply value cannot find index [serviceId=2, instanceId=7, entityId=3]"));
    EXPECT_EQ(memory.Count(index), 1U);
    memory.UnRegisterMethod(index);
    EXPECT_EQ(memory.Count(index), 0U);
    EXPECT_TRUE(capture.Contains("Proloc unregister method server index [serviceId=1, instanceId=7, entityId=3]"));
    capture.Clear();
    memory.UnRegisterMethod(index);
    EXPECT_TRUE(capture.Texts().empty()) << "an absent index is ignored silently";

    kelp::driver::proloc::ProlocRequestMemory<int> requests;
    const auto* parked = requests.Store(index, std::make_shared<std::tuple<int>>(5));
    requests.ReturnLoan(parked, index);
    requests.ReturnLoan(parked, index);
    EXPECT_TRUE(capture.Contains("Proloc request return loan unknon address[serviceId=1, instanceId=7, entityId=3]"));
}

}  // namespace
