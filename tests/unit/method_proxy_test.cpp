// SPDX-License-Identifier: Apache-2.0
// The method proxy over the scripted driver. Request path: session ids, request bytes, failures
// and their log ids, fire-and-forget, lost requests, waiting-promise release, driver hand-over.
// Reply path: values and errors in both encodings, malformed payloads, unknown and repeated
// sessions, TLS notices, E2E results, registered / dynamic / unregistered error codes.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "ara/core/future_error_domain.h"
#include "ara/exec/exec_error_domain.h"
#include "ara/exec/execution_state.h"
#include "ara/exec/process.h"
#include "ara_test/fake_method_handler.h"
#include "ara_test/matchers.h"

namespace {

using ara::core::ErrorCode;
using ara::core::future_status;
using ara::exec::ExecutionState;
using ara_test::BoundProxy;
using ara_test::HasError;
using ara_test::IsOk;
using kelp::brio::MethodProxyImpl;
using kelp::brio::api::types::ComErrc;
using kelp::brio::api::types::DynamicErrorDomain;
using kelp::serialize::SerializeType;
using Bytes = std::vector<std::uint8_t>;
namespace log = ara::quill::common::log;

constexpr std::chrono::milliseconds kNoWait{0};

/// The texts of the proxy's context that start with `prefix`.
std::vector<std::string> StartingWith(const log::CaptureSink& capture, const std::string& prefix) {
    std::vector<std::string> texts = capture.Texts("CM");
    const auto other = [&prefix](const std::string& text) { return text.rfind(prefix, 0) != 0; };
    texts.erase(std::remove_if(texts.begin(), texts.end(), other), texts.end());
    return texts;
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

TEST(MethodProxyRequestTest, RequestBytesTheEndLineOfEachEncodingAndTheStatistics) {
    log::CaptureSink capture;
    BoundProxy<void> bound;
    bound.proxy->SetMethodProxyStats(std::make_shared<kelp::brio::utils::stats::MethodProxyStats>());
    (void)bound.proxy->Request(0x01020304, ExecutionState::kTerminating);
    bound.driver->SetSerializeType(SerializeType::kDds);
    (void)bound.proxy->Request(0x01020304, ExecutionState::kRunning);
    const auto sent = bound.driver->SentRequests();
    ASSERT_EQ(sent.size(), 2U);
    EXPECT_EQ(sent[0].bytes, (Bytes{0x01, 0x02, 0x03, 0x04, 0x01})) << "SOME/IP, big-endian";
    EXPECT_EQ(sent[1].bytes, (Bytes{0x04, 0x03, 0x02, 0x01, 0x00})) << "DDS, host order";
    EXPECT_EQ(bound.driver->OutstandingRequestBuffers(), 0U);
    EXPECT_TRUE(
        capture.Contains("Method proxy send request end[type=void, methodUUID=57360.65534.6.6.DDS, sessionId=2]"));
    const std::string statistics = bound.proxy->MakePlogStatisticsStr();
    EXPECT_NE(statistics.find("\n  requests sent: 2\n"), std::string::npos) << statistics;

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
    EXPECT_EQ(StartingWith(capture, "[MethodProxyImpl][Method request failed][id=4]").size(), 1U);
    EXPECT_EQ(StartingWith(capture, "[MethodProxyImpl][Method request buffer allocation failed][id=4, size=5]").size(),
              1U)
        << "a refused buffer and a refused send do not silence each other";
}

TEST(MethodProxyRequestTest, FireAndForgetIsReadyOnSendAndFailsOnRefusal) {
    log::CaptureSink capture;
    BoundProxy<void> bound(7U);
    bound.proxy->SetFireAndForget(true);
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
    bound.proxy->DestroyWaitingPromise(ErrorCode(ComErrc::kServiceNotAvailable));
    EXPECT_EQ(bound.proxy->GetWaitingCount(), 0U);
    for (auto& future : futures) {
        EXPECT_THAT(future.get(), HasError(ComErrc::kServiceNotAvailable));
    }
    EXPECT_EQ(StartingWith(capture, "Server is disappeared"),
              (std::vector<std::string>{"Server is disappeared, promise for session 1 is destroyed",
                                        "Server is disappeared, promise for session 2 is destroyed",
                                        "Server is disappeared, promise for session 3 is destroyed"}));
}

TEST(MethodProxyLifecycleTest, AfterStopDestroyOrUnsetRepliesAndStateChangesAreDropped) {
    BoundProxy<void> stopped;
    int changes = 0;
    stopped.proxy->SetMethodStateChangeHandler([&changes](kelp::brio::api::types::MethodState) { ++changes; });
    stopped.driver->NotifyState(kelp::brio::api::types::MethodState::kAvailable);
    stopped.proxy->UnsetMethodStateChangeHandler();
    stopped.driver->NotifyState(kelp::brio::api::types::MethodState::kAvailable);
    EXPECT_EQ(changes, 1);
    stopped.proxy->StopReceiveData();
    auto waiting = stopped.proxy->Request(1, ExecutionState::kRunning);
    EXPECT_FALSE(stopped.driver->Deliver(stopped.driver->MakeReply(1U, {})));
    EXPECT_EQ(waiting.wait_for(kNoWait), future_status::kTimeout);

    BoundProxy<ara::core::String> gone;
    auto future = gone.proxy->Request(ara::core::String("q"));
    gone.proxy.reset();
    EXPECT_THAT(future.get(), HasError(ara::core::future_errc::kBrokenPromise));
    EXPECT_TRUE(gone.driver->Deliver(gone.driver->MakeReply(1U, {0, 0, 0, 0})));

    MethodProxyImpl<void> unowned(1U);
    EXPECT_EQ(unowned.GetE2EResult().checkStatus, kelp::com::e2exf::ProfileCheckStatus::kNotAvailable) << "no driver";
    EXPECT_THROW(unowned.SetDriver(gone.driver), std::bad_weak_ptr);
}

// 17-byte error payload: 4 bytes not interpreted, kind 1, domain id, code.
Bytes ErrorPayload(std::uint64_t domain, std::int32_t code, bool bigEndian) {
    Bytes bytes{0, 0, 0, 0, 1};
    for (int i = 0; i < 8; ++i) {
        bytes.push_back(static_cast<std::uint8_t>(domain >> (bigEndian ? (56 - 8 * i) : (8 * i))));
    }
    for (int i = 0; i < 4; ++i) {
        bytes.push_back(
            static_cast<std::uint8_t>(static_cast<std::uint32_t>(code) >> (bigEndian ? (24 - 8 * i) : (8 * i))));
    }
    return bytes;
}

void RegisterWildcard(MethodProxyImpl<void>& proxy) {
    static const DynamicErrorDomain wildcard(kelp::brio::api::types::internal::WILDCARD_ERROR_INDEX.first);
    proxy.RegisterError(ErrorCode(0, wildcard, 0));
}

const char* const kInvalidReturn =
    "[MethodProxyImpl][Invalid return value for method. Please check the consistency of the return data "
    "type][methodEntityId=6, sessionId=1]";

TEST(StringReplyTest, DecodesOrFailsWithComErrorAndReturnsTheBuffer) {
    const auto wrongType = static_cast<SerializeType>(1);
    const struct {
        SerializeType type;
        Bytes payload;
        const char* value;   // nullptr: the call fails with ComErrc 3
        const char* logged;  // a further line the failure writes
    } rows[] = {
        {SerializeType::kSomeip, {0, 0, 0, 6, 0xEF, 0xBB, 0xBF, 'o', 'k', 0}, "ok", nullptr},
        {SerializeType::kSomeip, {0, 0, 0, 4, 0xEF, 0xBB, 0xBF, 0}, "", nullptr},
        {SerializeType::kSomeip, {0, 0, 0, 6, 0xEF, 0xBB, 0xBF, 'o', 'k', 0, 0xAA, 0xBB}, "ok", nullptr},
        {SerializeType::kSomeip, {0, 0, 0, 6, 0xEF, 0xBB, 0xBF, 'o'}, nullptr, nullptr},
        {SerializeType::kDds, {2, 0, 0, 0, 'o', 'k'}, "ok", nullptr},
        {SerializeType::kDds, {0, 0, 0, 0}, "", nullptr},
        {SerializeType::kDds, {9, 0, 0, 0, 'o', 'k'}, nullptr, nullptr},
        {wrongType, {2, 0, 0, 0, 'o', 'k'}, nullptr, "[MethodProxyImpl][Wrong serialize type]"},
    };
    int row = 0;
    for (const auto& c : rows) {
        SCOPED_TRACE(++row);
        log::CaptureSink capture;
        BoundProxy<ara::core::String> bound;
        auto future = bound.proxy->Request(ara::core::String("MachineFG"));
        bound.driver->SetSerializeType(c.type);  // the reply is read in this encoding
        ASSERT_TRUE(bound.driver->Deliver(bound.driver->MakeReply(1U, c.payload)));
        ASSERT_EQ(future.wait_for(kNoWait), ara::core::future_status::kReady);
        auto result = future.get();
        if (c.value != nullptr) {
            EXPECT_EQ(result.ValueOr("<error>"), c.value);
        } else {
            EXPECT_THAT(result, HasError(ComErrc::kNetworkBindingFailure));
            EXPECT_TRUE(capture.Contains(kInvalidReturn));
            EXPECT_TRUE(c.logged == nullptr || capture.Contains(c.logged));
        }
        EXPECT_EQ(bound.driver->OutstandingReplyBuffers(), 0U);
        EXPECT_EQ(bound.proxy->GetWaitingCount(), 0U);
    }
}

// Whatever a peer sends, every call is settled, nothing crashes, every buffer comes back.
TEST(MethodProxyReplyTest, RandomPayloadsAlwaysSettleTheCall) {
    std::mt19937 random(12345U);
    for (const SerializeType type : {SerializeType::kSomeip, SerializeType::kDds}) {
        BoundProxy<ara::core::String> strings(6U, type);
        BoundProxy<std::vector<ara::exec::Process>> lists(6U, type);
        for (std::uint16_t i = 1U; i <= 300U; ++i) {
            Bytes payload(random() % 4U == 0U ? 4096U + random() % 4096U : random() % 48U);
            for (auto& byte : payload) {
                byte = static_cast<std::uint8_t>(random());
            }
            const bool isError = random() % 3U == 0U;
            auto first = strings.proxy->Request(ara::core::String("s"));
            auto second = lists.proxy->Request(ara::core::String("l"));
            strings.driver->Deliver(strings.driver->MakeReply(i, payload, isError));
            lists.driver->Deliver(lists.driver->MakeReply(i, payload, isError));
            ASSERT_EQ(first.wait_for(kNoWait), ara::core::future_status::kReady);
            ASSERT_EQ(second.wait_for(kNoWait), ara::core::future_status::kReady);
        }
        EXPECT_EQ(strings.driver->OutstandingReplyBuffers(), 0U);
        EXPECT_EQ(lists.driver->OutstandingReplyBuffers(), 0U);
    }
}

TEST(MethodProxyReplyTest, RepeatedSessionsAndTlsNoticesOnlyWarn) {
    log::CaptureSink capture;
    BoundProxy<ara::core::String> bound(11U, SerializeType::kDds);
    auto future = bound.proxy->Request(ara::core::String("x"));
    bound.driver->Deliver(bound.driver->MakeReply(1U, {1, 0, 0, 0, 'y'}));
    EXPECT_EQ(future.get().Value(), "y");
    bound.driver->Deliver(bound.driver->MakeReply(1U, {1, 0, 0, 0, 'y'}));
    EXPECT_TRUE(capture.Contains("[MethodProxyImpl][Invalid method reply for method][methodEntityId=11, sessionId=1]"));
    EXPECT_EQ(bound.driver->OutstandingReplyBuffers(), 0U);

    auto tls = bound.proxy->Request(ara::core::String("x"));
    bound.driver->Deliver(bound.driver->MakeReply(2U, {}, false, false));
    EXPECT_THAT(tls.get(), HasError(ComErrc::kPeerIsUnreachable));
    EXPECT_TRUE(capture.Contains(
        "[MethodProxyImpl][TLS error code kPeerIsUnreachable is set][methodEntityId=11, sessionId=2]"));
    const log::CaptureSink fresh;  // a new capture opens new rate-limit windows
    bound.driver->Deliver(bound.driver->MakeReply(42U, {}, false, false));
    EXPECT_TRUE(fresh.Contains("[MethodProxyImpl][Unexpected session id][sessionId=42, methodEntityId=11]"));
}

// Check statuses 1 to 6 fail the call with the E2E code of the same value, others with ComErrc 3.
TEST(E2EReplyTest, FailedCheckBecomesTheE2ECodeOnlyWhenProtectionIsOn) {
    std::vector<std::pair<bool, int>> rows = {{false, 3}, {true, 9}};
    for (int status = 0; status <= 6; ++status) {
        rows.emplace_back(true, status);
    }
    for (const auto& [enabled, status] : rows) {
        SCOPED_TRACE(std::to_string(status) + (enabled ? " on" : " off"));
        BoundProxy<ara::core::String> bound(6U, SerializeType::kDds);
        auto config = std::make_shared<kelp::brio::api::types::E2EConfig>();
        config->enabled = enabled;
        bound.info->SetE2EConfig(config);
        auto future = bound.proxy->Request(ara::core::String("x"));
        auto reply = bound.driver->MakeReply(1U, {1, 0, 0, 0, 'v'});
        reply->e2eCheckStatus = static_cast<std::uint8_t>(status);
        reply->e2eState = 0U;
        bound.driver->Deliver(reply);
        auto result = future.get();
        if (!enabled || status == 0) {
            EXPECT_EQ(result.ValueOr(""), "v");
        } else if (status > 6) {
            EXPECT_THAT(result, HasError(ComErrc::kNetworkBindingFailure));
        } else {
            EXPECT_EQ(result.ErrorOr(ErrorCode(ComErrc::kServiceNotAvailable)),
                      ErrorCode(static_cast<kelp::brio::api::types::E2EErrorCode>(status)));
        }
        // Without protection the result reads as check disabled, state machine disabled.
        EXPECT_EQ(static_cast<int>(bound.proxy->GetE2EResult().checkStatus), enabled ? status : 6);
        EXPECT_EQ(bound.proxy->GetSMState(), enabled ? 0U : 4U);
    }
}

TEST(ErrorReplyTest, RegisteredUnregisteredAndMalformedCodesInBothEncodings) {
    log::CaptureSink capture;
    for (const SerializeType type : {SerializeType::kSomeip, SerializeType::kDds}) {
        const bool bigEndian = type == SerializeType::kSomeip;
        BoundProxy<ara::core::String> bound(4U, type);
        bound.proxy->RegisterError(ErrorCode(ara::exec::ExecErrc::kBusy));
        Bytes eighteen = ErrorPayload(0x8000000000000300ULL, 7, bigEndian);
        eighteen.push_back(0);
        const struct {
            Bytes payload;
            ErrorCode expected;
        } rows[] = {
            {ErrorPayload(0x8000000000000300ULL, 7, bigEndian), ErrorCode(ara::exec::ExecErrc::kBusy)},
            {ErrorPayload(0x8000000000001267ULL, 1, bigEndian), ErrorCode(ComErrc::kServiceNotAvailable)},
            {ErrorPayload(0x77ULL, 3, bigEndian), ErrorCode(ComErrc::kNetworkBindingFailure)},
            {eighteen, ErrorCode(ComErrc::kNetworkBindingFailure)},
        };
        std::uint16_t session = 0U;
        for (const auto& c : rows) {
            auto future = bound.proxy->Request(ara::core::String("x"));
            bound.driver->Deliver(bound.driver->MakeReply(++session, c.payload, true));
            EXPECT_EQ(future.get().ErrorOr(ErrorCode(ara::exec::ExecErrc::kGeneralError)), c.expected) << session;
        }
        EXPECT_EQ(bound.driver->OutstandingReplyBuffers(), 0U);
    }
    EXPECT_TRUE(capture.Contains(
        "[MethodProxyImpl][Receive unregistered error][errorDomain=119, errorCode=3, methodMessage=methodUUID="
        "57360.65534.4.4.DDS, entityId=4]"));
}

// The decode steps of the reply path, as callers with a promise of their own use them.
TEST(MethodProxyReplyTest, DecodeStepsSettleAGivenPromiseOnlyWhenTheReplyIsAccepted) {
    BoundProxy<ara::core::String> bound(4U, SerializeType::kDds);
    bound.proxy->RegisterError(ErrorCode(ara::exec::ExecErrc::kBusy));
    MethodProxyImpl<ara::core::String>::PromiseType value;
    MethodProxyImpl<ara::core::String>::PromiseType error;
    MethodProxyImpl<ara::core::String>::PromiseType untouched;
    auto valueFuture = value.get_future();
    auto errorFuture = error.get_future();
    auto untouchedFuture = untouched.get_future();
    const auto reply = [&bound](const Bytes& payload, bool isError) {
        return *bound.driver->MakeReply(1U, payload, isError);
    };
    EXPECT_TRUE(bound.proxy->DeserializeAndSetPromise(value, reply({2, 0, 0, 0, 'o', 'k'}, false)));
    EXPECT_TRUE(bound.proxy->DeserializeErrorCodeAndSetPromise(
        error, reply(ErrorPayload(0x8000000000000300ULL, 7, false), true)));
    EXPECT_FALSE(bound.proxy->DeserializeAndSetPromise(untouched, reply({9, 0, 0, 0, 'o', 'k'}, false)));
    EXPECT_FALSE(bound.proxy->DeserializeErrorCodeAndSetPromise(untouched, reply(ErrorPayload(0x77U, 3, false), true)));
    ASSERT_EQ(valueFuture.wait_for(kNoWait), future_status::kReady);
    ASSERT_EQ(errorFuture.wait_for(kNoWait), future_status::kReady);
    EXPECT_EQ(valueFuture.get().ValueOr(""), "ok");
    EXPECT_EQ(errorFuture.get().ErrorOr(ErrorCode(ComErrc::kServiceNotAvailable)),
              ErrorCode(ara::exec::ExecErrc::kBusy));
    EXPECT_EQ(untouchedFuture.wait_for(kNoWait), future_status::kTimeout);
}

// A caller may keep an error code as long as it likes, however many foreign domains a peer
// sends afterwards; and a peer cannot make the process keep an unbounded number of them.
TEST(ErrorReplyTest, DynamicDomainsOutliveTheirCodesAndAreBounded) {
    using kelp::brio::api::types::GetDynamicErrorDomainCount;
    using kelp::brio::api::types::MAX_DYNAMIC_ERROR_DOMAINS;
    log::CaptureSink capture;
    BoundProxy<void> bound(5U, SerializeType::kDds);
    RegisterWildcard(*bound.proxy);
    std::uint16_t session = 0U;
    auto errorFor = [&](std::uint64_t domain, std::int32_t code) {
        auto future = bound.proxy->Request(1, ExecutionState::kRunning);
        bound.driver->Deliver(bound.driver->MakeReply(++session, ErrorPayload(domain, code, false), true));
        return future.get();
    };
    const std::size_t before = GetDynamicErrorDomainCount();
    const ErrorCode held = errorFor(0x5000U, 3).Error();
    std::size_t accepted = 1U;
    for (std::uint64_t id = 0x5001U; id < 0x5001U + 2U * MAX_DYNAMIC_ERROR_DOMAINS; ++id) {
        const auto result = errorFor(id, 1);
        if (result.Error().Domain().Id() == id) {
            ++accepted;
        } else {
            EXPECT_THAT(result, HasError(ComErrc::kNetworkBindingFailure)) << id;
        }
        EXPECT_EQ(&errorFor(0x5000U, 4).Error().Domain(), &held.Domain()) << "a repeated id reuses its domain";
    }
    EXPECT_EQ(accepted, MAX_DYNAMIC_ERROR_DOMAINS - before);
    EXPECT_EQ(GetDynamicErrorDomainCount(), MAX_DYNAMIC_ERROR_DOMAINS);
    EXPECT_EQ(held.Domain().Id(), 0x5000U);
    EXPECT_EQ(held.Value(), 3);
    EXPECT_STREQ(held.Domain().Name(), "Dynamic");
    EXPECT_EQ(held.Message(), "Dynamic error domain doesn't support message output");
    EXPECT_EQ(StartingWith(capture, "[DynamicErrorDomain][Too many foreign error domains").size(), 1U);
}

TEST(ErrorReplyTest, SecondRegistrationWarnsButTheFirstStays) {
    log::CaptureSink capture;
    BoundProxy<void> bound;
    bound.proxy->RegisterError(ErrorCode(ara::exec::ExecErrc::kFailed, 1));
    bound.proxy->RegisterError(ErrorCode(ara::exec::ExecErrc::kFailed, 2));
    EXPECT_TRUE(
        capture.Contains("The same error code with domain Id 9223372036854776576 error code 6 is already "
                         "registered. New error code will replace the old one"));
    auto future = bound.proxy->Request(1, ExecutionState::kRunning);
    bound.driver->Deliver(bound.driver->MakeReply(1U, ErrorPayload(0x8000000000000300ULL, 6, true), true));
    EXPECT_EQ(future.get().Error().SupportData(), 1) << "the first registration is in force";
}

}  // namespace
