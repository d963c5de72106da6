// Request path of the method proxy: session ids, request bytes, failures and their log ids,
// fire-and-forget, lost requests, waiting-promise release, driver hand-over.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ara/core/future_error_domain.h"
#include "ara/exec/execution_state.h"
#include "ara_test/fake_method_handler.h"
#include "ara_test/matchers.h"

namespace {

using ara::core::future_status;
using ara::exec::ExecutionState;
using ara_test::BoundProxy;
using ara_test::HasError;
using ara_test::IsOk;
using kelp::brio::MethodProxyImpl;
using kelp::brio::api::types::ComErrc;
using kelp::serialize::SerializeType;
namespace log = ara::quill::common::log;

constexpr std::chrono::milliseconds kNoWait{0};

std::size_t CountOf(const log::CaptureSink& capture, const std::string& text) {
    const auto texts = capture.Texts("CM");
    return static_cast<std::size_t>(std::count(texts.begin(), texts.end(), text));
}

TEST(MethodProxyRequestTest, SessionIdsStartAtOneAndSkipZeroAndOneAfterTheWrap) {
    BoundProxy<void> bound;
    bound.proxy->SetFireAndForget(true);  // keeps the promise map empty across 65537 requests
    for (std::uint32_t i = 1U; i <= 65537U; ++i) {
        (void)bound.proxy->Request(4711, ExecutionState::kRunning);
    }
    const auto sent = bound.driver->SentRequests();
    ASSERT_EQ(sent.size(), 65537U);
    EXPECT_EQ(sent[0].sessionId, 1U);
    EXPECT_EQ(sent[65534].sessionId, 65535U) << "request 65535";
    EXPECT_EQ(sent[65535].sessionId, 2U) << "request 65536";
    EXPECT_EQ(sent[65536].sessionId, 3U) << "request 65537";
}

TEST(MethodProxyRequestTest, RequestBytesAndTheEndLineOfEachEncoding) {
    log::CaptureSink capture;
    BoundProxy<void> bound;
    (void)bound.proxy->Request(0x01020304, ExecutionState::kTerminating);
    bound.driver->SetSerializeType(SerializeType::kDds);
    (void)bound.proxy->Request(0x01020304, ExecutionState::kRunning);
    const auto sent = bound.driver->SentRequests();
    ASSERT_EQ(sent.size(), 2U);
    EXPECT_EQ(sent[0].bytes, (std::vector<std::uint8_t>{0x01, 0x02, 0x03, 0x04, 0x01})) << "SOME/IP, big-endian";
    EXPECT_EQ(sent[1].bytes, (std::vector<std::uint8_t>{0x04, 0x03, 0x02, 0x01, 0x00})) << "DDS, host order";
    EXPECT_EQ(bound.driver->OutstandingRequestBuffers(), 0U);
    EXPECT_TRUE(
        capture.Contains("Method proxy send request end[type=void, methodUUID=57360.65534.6.6.DDS, sessionId=2]"));

    BoundProxy<ara::core::String> text(7U, SerializeType::kDds);
    (void)text.proxy->Request(ara::core::String("ab"));
    EXPECT_TRUE(
        capture.Contains("Method proxy send request end[methodUUID=57360.65534.7.7.DDS, sessionId=1, dataSize=6]"));
}

TEST(MethodProxyRequestTest, EachFailureSettlesOnlyItsOwnCallWithComErrc3) {
    enum class Fault { kNoDriver, kRefusedSend, kRefusedBuffer, kUnserializable };
    const struct {
        Fault fault;
        const char* logged;
    } rows[] = {
        {Fault::kNoDriver, "[MethodProxyImpl][Method driver is nullptr, request failed][id=9]"},
        {Fault::kRefusedSend, "[MethodProxyImpl][Method request failed][id=9]"},
        {Fault::kRefusedBuffer, "[MethodProxyImpl][Method request buffer allocation failed][id=9, size=5]"},
        {Fault::kUnserializable,
         "[MethodProxyImpl][Method request serialize failed, maybe length filed is less than actual size]"
         "[methodEntityId=9]"},
    };
    for (const auto& row : rows) {
        log::CaptureSink capture;
        BoundProxy<void> bound(9U);
        auto pending = bound.proxy->Request(1, ExecutionState::kRunning);
        auto proxy = bound.proxy;
        switch (row.fault) {
            case Fault::kNoDriver:
                proxy = std::make_shared<MethodProxyImpl<void>>(9U);
                break;
            case Fault::kRefusedSend:
                bound.driver->refuseSend = true;
                break;
            case Fault::kRefusedBuffer:
                bound.driver->refuseBuffer = true;
                break;
            case Fault::kUnserializable:
                bound.driver->SetSerializeType(static_cast<SerializeType>(1));
                break;
        }
        auto failed = proxy->Request(1, ExecutionState::kRunning);
        ASSERT_EQ(failed.wait_for(kNoWait), future_status::kReady) << row.logged;
        EXPECT_THAT(failed.get(), HasError(ComErrc::kNetworkBindingFailure));
        EXPECT_TRUE(capture.Contains(row.logged));
        EXPECT_EQ(proxy->GetSessionId(), proxy == bound.proxy ? 2U : 0U) << "no session without a driver";
        EXPECT_EQ(bound.driver->SentRequests().size(), 1U) << row.logged;
        EXPECT_EQ(bound.driver->OutstandingRequestBuffers(), 0U) << row.logged;
        EXPECT_EQ(bound.proxy->GetWaitingCount(), 1U) << row.logged;
        EXPECT_EQ(pending.wait_for(kNoWait), future_status::kTimeout) << row.logged;
    }
}

TEST(MethodProxyRequestTest, WarningsAreRateLimitedPerLogId) {
    log::CaptureSink capture;
    BoundProxy<void> bound(4U);
    for (int i = 0; i < 6; ++i) {
        bound.driver->refuseBuffer = i % 2 == 0;
        bound.driver->refuseSend = i % 2 == 1;
        (void)bound.proxy->Request(1, ExecutionState::kRunning);
    }
    EXPECT_EQ(CountOf(capture, "[MethodProxyImpl][Method request failed][id=4]"), 1U);
    EXPECT_EQ(CountOf(capture, "[MethodProxyImpl][Method request buffer allocation failed][id=4, size=5]"), 1U)
        << "a refused buffer and a refused send do not silence each other";
}

TEST(MethodProxyRequestTest, FireAndForgetIsReadyOnSendAndFailsOnRefusal) {
    log::CaptureSink capture;
    BoundProxy<void> bound(7U);
    bound.proxy->SetFireAndForget(true);
    bound.proxy->SetFireAndForget(true);
    EXPECT_EQ(CountOf(capture, "Method 57360.65534.7.7.DDS isFireForget state set to true"), 1U)
        << "only a change is logged";
    auto sent = bound.proxy->Request(1, ExecutionState::kRunning);
    ASSERT_EQ(sent.wait_for(kNoWait), future_status::kReady);
    EXPECT_THAT(sent.get(), IsOk());
    EXPECT_EQ(bound.proxy->GetWaitingCount(), 0U);
    bound.driver->refuseSend = true;
    EXPECT_THAT(bound.proxy->Request(1, ExecutionState::kRunning).get(), HasError(ComErrc::kNetworkBindingFailure));
}

TEST(MethodProxyRequestTest, ReusedSessionIdReplacesAndBreaksTheLostRequest) {
    log::CaptureSink capture;
    BoundProxy<ara::core::String> bound(3U);
    auto lost = bound.proxy->Request(ara::core::String("x"));
    // A new request whose session id is still waiting (the id wrapped round to it).
    auto promise = std::make_shared<MethodProxyImpl<ara::core::String>::PromiseType>();
    auto replacing = bound.proxy->SavePromiseAndSendRequest(promise, 1U, 0U, nullptr);
    ASSERT_EQ(lost.wait_for(kNoWait), future_status::kReady);
    EXPECT_THAT(lost.get(), HasError(ara::core::future_errc::kBrokenPromise));
    EXPECT_EQ(replacing.wait_for(kNoWait), future_status::kTimeout);
    EXPECT_TRUE(capture.Contains(
        "[MethodProxyImpl][Method has been lost, and the new request will replace the old one][entityId=3, "
        "sessionId=1]"));
}

TEST(MethodProxyLifecycleTest, DestroyWaitingPromiseFailsEveryWaitingCallInSessionOrder) {
    log::CaptureSink capture;
    BoundProxy<ara::core::String> bound;
    std::vector<MethodProxyImpl<ara::core::String>::FutureType> futures;
    for (int i = 0; i < 3; ++i) {
        futures.push_back(bound.proxy->Request(ara::core::String("p")));
    }
    bound.proxy->DestroyWaitingPromise(ara::core::ErrorCode(ComErrc::kServiceNotAvailable));
    EXPECT_EQ(bound.proxy->GetWaitingCount(), 0U);
    for (auto& future : futures) {
        EXPECT_THAT(future.get(), HasError(ComErrc::kServiceNotAvailable));
    }
    std::vector<std::string> lines;
    for (const auto& text : capture.Texts("CM")) {
        if (text.rfind("Server is disappeared", 0) == 0) {
            lines.push_back(text);
        }
    }
    EXPECT_EQ(lines,
              (std::vector<std::string>{"Server is disappeared, promise for session 1 is destroyed",
                                        "Server is disappeared, promise for session 2 is destroyed",
                                        "Server is disappeared, promise for session 3 is destroyed"}));
}

TEST(MethodProxyLifecycleTest, StopReceiveDataAndADestroyedProxyDropReplies) {
    BoundProxy<void> stopped;
    stopped.proxy->StopReceiveData();
    EXPECT_EQ(stopped.proxy->GetDriver(), stopped.driver) << "the driver stays";
    auto waiting = stopped.proxy->Request(1, ExecutionState::kRunning);
    EXPECT_FALSE(stopped.driver->Deliver(stopped.driver->MakeReply(1U, {})));
    EXPECT_EQ(waiting.wait_for(kNoWait), future_status::kTimeout);

    BoundProxy<ara::core::String> gone;
    auto future = gone.proxy->Request(ara::core::String("q"));
    gone.proxy.reset();
    EXPECT_THAT(future.get(), HasError(ara::core::future_errc::kBrokenPromise));
    EXPECT_TRUE(gone.driver->Deliver(gone.driver->MakeReply(1U, {0, 0, 0, 0})));

    MethodProxyImpl<void> unowned(1U);
    EXPECT_THROW(unowned.SetDriver(gone.driver), std::bad_weak_ptr);
}

TEST(MethodProxyLifecycleTest, StateHandlerStatisticsAndE2EResultFollowTheDriver) {
    using kelp::com::e2exf::E2EResult;
    using kelp::com::e2exf::ProfileCheckStatus;
    auto unbound = std::make_shared<MethodProxyImpl<void>>(1U);
    EXPECT_EQ(unbound->GetE2EResult(), (E2EResult{ProfileCheckStatus::kNotAvailable, 4U}));
    EXPECT_EQ(unbound->GetSMState(), 4U);

    BoundProxy<void> bound;
    EXPECT_EQ(bound.proxy->GetE2EResult(), (E2EResult{ProfileCheckStatus::kCheckDisabled, 4U}));
    int calls = 0;
    bound.proxy->SetMethodStateChangeHandler([&calls](kelp::brio::api::types::MethodState) { ++calls; });
    bound.driver->NotifyState(kelp::brio::api::types::MethodState::kAvailable);
    EXPECT_EQ(calls, 1);
    bound.proxy->UnsetMethodStateChangeHandler();
    EXPECT_FALSE(bound.driver->HasStateHandler());
    auto stats = std::make_shared<kelp::brio::utils::stats::MethodProxyStats>("app/method");
    bound.proxy->SetMethodProxyStats(stats);
    EXPECT_EQ(bound.driver->GetStats(), stats);
    (void)bound.proxy->Request(1, ExecutionState::kRunning);
    const std::string text = bound.proxy->MakePlogStatisticsStr();
    EXPECT_NE(text.find("requests sent: 1"), std::string::npos);
    EXPECT_EQ(text.substr(text.size() - 28U), "---------------------------\n");
}

}  // namespace
