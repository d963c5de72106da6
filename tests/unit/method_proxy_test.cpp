// Request path of the method proxy: session ids, failures, fire-and-forget, error
// registration, waiting-promise release, driver hand-over.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ara/core/future_error_domain.h"
#include "ara/exec/exec_error_domain.h"
#include "ara/exec/execution_state.h"
#include "ara_test/fake_method_handler.h"
#include "ara_test/matchers.h"
#include "kelp/brio/method_proxy_impl.h"

namespace {

using ara::exec::ExecutionState;
using ara_test::FakeMethodHandler;
using ara_test::HasError;
using ara_test::IsOk;
using kelp::brio::MethodProxyImpl;
using kelp::brio::api::types::ComErrc;
namespace log = ara::quill::common::log;

constexpr std::chrono::milliseconds kNoWait{0};

template <typename T>
struct Bound {
    std::shared_ptr<MethodProxyImpl<T>> proxy;
    std::shared_ptr<FakeMethodHandler> driver;
};

template <typename T>
Bound<T> MakeBound(std::uint32_t entityId = 7U) {
    Bound<T> bound{std::make_shared<MethodProxyImpl<T>>(entityId), std::make_shared<FakeMethodHandler>()};
    auto info = std::make_shared<kelp::brio::api::types::MethodInfo>();
    info->SetServiceId(57360U);
    info->SetEntityId(entityId);
    info->SetEntityName(std::to_string(entityId));
    bound.proxy->SetMethodInfo(info);
    bound.proxy->SetDriver(bound.driver);
    return bound;
}

TEST(MethodProxyRequestTest, SessionIdsStartAtOneAndSkipZeroAndOneAfterTheWrap) {
    auto bound = MakeBound<void>();
    bound.proxy->SetFireAndForget(true);  // keeps the promise map empty across 65537 requests
    for (std::uint32_t i = 1U; i <= 65537U; ++i) {
        (void)bound.proxy->Request(4711, ExecutionState::kRunning);
    }
    const auto sent = bound.driver->SentRequests();
    ASSERT_EQ(sent.size(), 65537U);
    EXPECT_EQ(sent[0].sessionId, 1U);
    EXPECT_EQ(sent[1].sessionId, 2U);
    EXPECT_EQ(sent[65533].sessionId, 65534U);
    EXPECT_EQ(sent[65534].sessionId, 65535U) << "request 65535";
    EXPECT_EQ(sent[65535].sessionId, 2U) << "request 65536";
    EXPECT_EQ(sent[65536].sessionId, 3U) << "request 65537";
    EXPECT_EQ(bound.proxy->GetSessionId(), 3U);
}

TEST(MethodProxyRequestTest, RequestBytesAreTheSerializedArguments) {
    auto bound = MakeBound<void>();
    (void)bound.proxy->Request(0x01020304, ExecutionState::kTerminating);
    bound.driver->SetSerializeType(kelp::serialize::SerializeType::kDds);
    (void)bound.proxy->Request(0x01020304, ExecutionState::kRunning);
    const auto sent = bound.driver->SentRequests();
    ASSERT_EQ(sent.size(), 2U);
    EXPECT_EQ(sent[0].bytes, (std::vector<std::uint8_t>{0x01, 0x02, 0x03, 0x04, 0x01})) << "SOME/IP, big-endian";
    EXPECT_EQ(sent[1].bytes, (std::vector<std::uint8_t>{0x04, 0x03, 0x02, 0x01, 0x00})) << "DDS, host order";
    EXPECT_EQ(bound.driver->OutstandingRequestBuffers(), 0U);
}

TEST(MethodProxyRequestTest, WithoutDriverTheFutureFailsAtOnceAndNoSessionIsDrawn) {
    log::CaptureSink capture;
    auto proxy = std::make_shared<MethodProxyImpl<ara::core::String>>(12U);
    auto future = proxy->Request(ara::core::String("MachineFG"));
    ASSERT_EQ(future.wait_for(kNoWait), ara::core::future_status::kReady);
    EXPECT_THAT(future.get(), HasError(ComErrc::kNetworkBindingFailure));
    EXPECT_EQ(proxy->GetSessionId(), 0U);
    EXPECT_TRUE(capture.Contains("[MethodProxyImpl][Method driver is nullptr, request failed][id=12]"));
}

TEST(MethodProxyRequestTest, RefusedSendFailsOnlyItsOwnRequest) {
    log::CaptureSink capture;
    auto bound = MakeBound<ara::core::String>(5U);
    auto first = bound.proxy->Request(ara::core::String("a"));
    auto second = bound.proxy->Request(ara::core::String("b"));
    bound.driver->SetRefuseSend(true);
    auto refused = bound.proxy->Request(ara::core::String("c"));
    ASSERT_EQ(refused.wait_for(kNoWait), ara::core::future_status::kReady);
    EXPECT_THAT(refused.get(), HasError(ComErrc::kNetworkBindingFailure));
    EXPECT_EQ(bound.proxy->GetWaitingCount(), 2U);
    EXPECT_EQ(first.wait_for(kNoWait), ara::core::future_status::kTimeout);
    EXPECT_EQ(second.wait_for(kNoWait), ara::core::future_status::kTimeout);
    EXPECT_TRUE(capture.Contains("[MethodProxyImpl][Method request failed][id=5]"));
    EXPECT_EQ(bound.driver->OutstandingRequestBuffers(), 0U) << "the refused buffer was released";
}

TEST(MethodProxyRequestTest, RefusedBufferFailsTheRequest) {
    auto bound = MakeBound<void>();
    bound.driver->SetRefuseBuffer(true);
    auto future = bound.proxy->Request(1, ExecutionState::kRunning);
    EXPECT_THAT(future.get(), HasError(ComErrc::kNetworkBindingFailure));
    EXPECT_EQ(bound.driver->SentCount(), 0U);
    EXPECT_EQ(bound.proxy->GetWaitingCount(), 0U);
}

TEST(MethodProxyRequestTest, UnserializableArgumentsFailWithoutSending) {
    log::CaptureSink capture;
    auto bound = MakeBound<void>(9U);
    bound.driver->SetSerializeType(static_cast<kelp::serialize::SerializeType>(1));
    auto future = bound.proxy->Request(1, ExecutionState::kRunning);
    EXPECT_THAT(future.get(), HasError(ComErrc::kNetworkBindingFailure));
    EXPECT_EQ(bound.driver->SentCount(), 0U);
    EXPECT_TRUE(capture.Contains(
        "[MethodProxyImpl][Method request serialize failed, maybe length filed is less than actual size]"
        "[methodEntityId=9]"));
}

TEST(MethodProxyRequestTest, FireAndForgetIsReadyOnSendAndFailsOnRefusal) {
    log::CaptureSink capture;
    auto bound = MakeBound<void>();
    bound.proxy->SetFireAndForget(true);
    bound.proxy->SetFireAndForget(true);
    std::vector<std::string> changes;
    for (const auto& text : capture.Texts("CM")) {
        if (text.find("isFireForget") != std::string::npos) {
            changes.push_back(text);
        }
    }
    EXPECT_EQ(changes, std::vector<std::string>{"Method 57360.65534.7.7.DDS isFireForget state set to true"})
        << "only a change is logged";
    auto sent = bound.proxy->Request(1, ExecutionState::kRunning);
    ASSERT_EQ(sent.wait_for(kNoWait), ara::core::future_status::kReady);
    EXPECT_THAT(sent.get(), IsOk());
    EXPECT_EQ(bound.proxy->GetWaitingCount(), 0U);
    bound.driver->SetRefuseSend(true);
    EXPECT_THAT(bound.proxy->Request(1, ExecutionState::kRunning).get(), HasError(ComErrc::kNetworkBindingFailure));
}

TEST(MethodProxyRequestTest, ReusedSessionIdReplacesAndBreaksTheLostRequest) {
    log::CaptureSink capture;
    auto bound = MakeBound<ara::core::String>(3U);
    auto lost = bound.proxy->Request(ara::core::String("x"));
    // A new request whose session id is still waiting (the id wrapped round to it).
    auto promise = std::make_shared<MethodProxyImpl<ara::core::String>::PromiseType>();
    auto replacing = bound.proxy->SavePromiseAndSendRequest(promise, 1U, 0U, nullptr);
    ASSERT_EQ(lost.wait_for(kNoWait), ara::core::future_status::kReady);
    EXPECT_THAT(lost.get(), HasError(ara::core::future_errc::kBrokenPromise));
    EXPECT_EQ(replacing.wait_for(kNoWait), ara::core::future_status::kTimeout);
    EXPECT_TRUE(capture.Contains(
        "[MethodProxyImpl][Method has been lost, and the new request will replace the old one][entityId=3, "
        "sessionId=1]"));
}

TEST(MethodProxyRequestTest, WarningsAreRateLimitedPerLogId) {
    log::CaptureSink capture;
    auto bound = MakeBound<void>(4U);
    bound.driver->SetRefuseSend(true);
    for (int i = 0; i < 5; ++i) {
        (void)bound.proxy->Request(1, ExecutionState::kRunning);
    }
    auto unbound = std::make_shared<MethodProxyImpl<void>>(8U);
    (void)unbound->Request(1, ExecutionState::kRunning);
    std::size_t failed = 0U;
    std::size_t nullDriver = 0U;
    for (const auto& text : capture.Texts("CM")) {
        failed += text == "[MethodProxyImpl][Method request failed][id=4]" ? 1U : 0U;
        nullDriver += text == "[MethodProxyImpl][Method driver is nullptr, request failed][id=8]" ? 1U : 0U;
    }
    EXPECT_EQ(failed, 1U) << "one line per 500 ms for one log id";
    EXPECT_EQ(nullDriver, 1U) << "another log id is limited on its own";
}

TEST(MethodProxyLifecycleTest, DestroyWaitingPromiseFailsEveryWaitingCall) {
    auto bound = MakeBound<ara::core::String>();
    std::vector<MethodProxyImpl<ara::core::String>::FutureType> futures;
    for (int i = 0; i < 5; ++i) {
        futures.push_back(bound.proxy->Request(ara::core::String("p")));
    }
    bound.proxy->DestroyWaitingPromise(ara::core::ErrorCode(ComErrc::kServiceNotAvailable));
    EXPECT_EQ(bound.proxy->GetWaitingCount(), 0U);
    for (auto& future : futures) {
        EXPECT_THAT(future.get(), HasError(ComErrc::kServiceNotAvailable));
    }
}

TEST(MethodProxyLifecycleTest, StopReceiveDataUnhooksTheDriverButKeepsIt) {
    auto bound = MakeBound<void>();
    ASSERT_TRUE(bound.driver->HasReplyCallback());
    bound.proxy->StopReceiveData();
    EXPECT_FALSE(bound.driver->HasReplyCallback());
    EXPECT_EQ(bound.proxy->GetDriver(), bound.driver);
    auto waiting = bound.proxy->Request(1, ExecutionState::kRunning);
    EXPECT_FALSE(bound.driver->Deliver(bound.driver->MakeReply(1U, {})));
    EXPECT_EQ(waiting.wait_for(kNoWait), ara::core::future_status::kTimeout);
}

TEST(MethodProxyLifecycleTest, ReplyAfterTheProxyIsGoneIsDropped) {
    auto bound = MakeBound<ara::core::String>();
    auto future = bound.proxy->Request(ara::core::String("q"));
    bound.proxy.reset();
    EXPECT_THAT(future.get(), HasError(ara::core::future_errc::kBrokenPromise));
    EXPECT_TRUE(bound.driver->Deliver(bound.driver->MakeReply(1U, {0, 0, 0, 0})));
}

TEST(MethodProxyLifecycleTest, SetDriverNeedsSharedOwnership) {
    MethodProxyImpl<void> unowned(1U);
    EXPECT_THROW(unowned.SetDriver(std::make_shared<FakeMethodHandler>()), std::bad_weak_ptr);
}

TEST(MethodProxyLifecycleTest, StateHandlerAndStatisticsGoToTheDriver) {
    auto bound = MakeBound<void>();
    int calls = 0;
    bound.proxy->SetMethodStateChangeHandler([&calls](kelp::brio::api::types::MethodState) { ++calls; });
    bound.driver->NotifyState(kelp::brio::api::types::MethodState::kAvailable);
    EXPECT_EQ(calls, 1);
    bound.proxy->UnsetMethodStateChangeHandler();
    EXPECT_FALSE(bound.driver->HasStateHandler());
    auto stats = std::make_shared<kelp::brio::utils::stats::MethodProxyStats>("app/method");
    bound.proxy->SetMethodProxyStats(stats);
    EXPECT_EQ(bound.driver->Stats(), stats);
    (void)bound.proxy->Request(1, ExecutionState::kRunning);
    EXPECT_EQ(stats->RequestSent(), 1U);
    const std::string text = bound.proxy->MakePlogStatisticsStr();
    EXPECT_NE(text.find("requests sent: 1"), std::string::npos);
    EXPECT_EQ(text.substr(text.size() - 28U), "---------------------------\n");
}

TEST(MethodProxyLifecycleTest, E2EResultDependsOnDriverAndDescriptor) {
    using kelp::com::e2exf::ProfileCheckStatus;
    auto unbound = std::make_shared<MethodProxyImpl<void>>(1U);
    EXPECT_EQ(unbound->GetE2EResult(), (kelp::com::e2exf::E2EResult{ProfileCheckStatus::kNotAvailable, 4U}));
    EXPECT_EQ(unbound->GetSMState(), 4U);
    auto bound = MakeBound<void>();
    EXPECT_EQ(bound.proxy->GetE2EResult(), (kelp::com::e2exf::E2EResult{ProfileCheckStatus::kCheckDisabled, 4U}));
    EXPECT_EQ(bound.proxy->GetSMState(), 4U);
}

}  // namespace
