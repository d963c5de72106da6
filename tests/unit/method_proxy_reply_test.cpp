// Reply path of the method proxy: values and errors in both encodings, malformed payloads,
// unknown and repeated sessions, TLS notices, E2E results, registered / dynamic /
// unregistered error codes.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "ara/exec/exec_error_domain.h"
#include "ara_test/fake_method_handler.h"
#include "ara_test/matchers.h"
#include "kelp/brio/method_proxy_impl.h"

namespace {

using ara_test::FakeMethodHandler;
using ara_test::HasError;
using kelp::brio::MethodProxyImpl;
using kelp::brio::api::types::ComErrc;
using kelp::serialize::SerializeType;
using Bytes = std::vector<std::uint8_t>;
namespace log = ara::quill::common::log;

constexpr std::chrono::milliseconds kNoWait{0};

template <typename T>
struct Bound {
    std::shared_ptr<MethodProxyImpl<T>> proxy;
    std::shared_ptr<FakeMethodHandler> driver;
    std::shared_ptr<kelp::brio::api::types::MethodInfo> info;
};

template <typename T>
Bound<T> MakeBound(SerializeType type = SerializeType::kSomeip, std::uint32_t entityId = 6U) {
    Bound<T> bound{std::make_shared<MethodProxyImpl<T>>(entityId),
                   std::make_shared<FakeMethodHandler>(type),
                   std::make_shared<kelp::brio::api::types::MethodInfo>()};
    bound.info->SetEntityId(entityId);
    bound.proxy->SetMethodInfo(bound.info);
    bound.proxy->SetDriver(bound.driver);
    return bound;
}

// 17-byte error payload: 4 bytes not interpreted, kind 1, domain id, code.
Bytes ErrorPayload(std::uint64_t domain, std::int32_t code, bool bigEndian) {
    Bytes bytes{0, 0, 0, 0, 1};
    for (int i = 0; i < 8; ++i) {
        const int shift = bigEndian ? (56 - 8 * i) : (8 * i);
        bytes.push_back(static_cast<std::uint8_t>(domain >> shift));
    }
    const auto value = static_cast<std::uint32_t>(code);
    for (int i = 0; i < 4; ++i) {
        const int shift = bigEndian ? (24 - 8 * i) : (8 * i);
        bytes.push_back(static_cast<std::uint8_t>(value >> shift));
    }
    return bytes;
}

struct StringReplyCase {
    const char* name;
    SerializeType type;
    Bytes payload;
    bool ok;
    const char* value;
};

class StringReplyTest : public ::testing::TestWithParam<StringReplyCase> {};

TEST_P(StringReplyTest, DecodesOrFailsWithComErrorAndReturnsTheBuffer) {
    const StringReplyCase& c = GetParam();
    log::CaptureSink capture;
    auto bound = MakeBound<ara::core::String>(SerializeType::kSomeip);
    auto future = bound.proxy->Request(ara::core::String("MachineFG"));
    bound.driver->SetSerializeType(c.type);  // the reply is read in this encoding
    ASSERT_TRUE(bound.driver->Deliver(bound.driver->MakeReply(1U, c.payload)));
    ASSERT_EQ(future.wait_for(kNoWait), ara::core::future_status::kReady);
    auto result = future.get();
    if (c.ok) {
        ASSERT_TRUE(result.HasValue());
        EXPECT_EQ(result.Value(), c.value);
    } else {
        EXPECT_THAT(result, HasError(ComErrc::kNetworkBindingFailure));
        EXPECT_TRUE(capture.Contains(
            "[MethodProxyImpl][Invalid return value for method. Please check the consistency of the return data "
            "type][methodEntityId=6, sessionId=1]"));
    }
    EXPECT_EQ(bound.driver->OutstandingReplyBuffers(), 0U);
    EXPECT_EQ(bound.proxy->GetWaitingCount(), 0U);
}

INSTANTIATE_TEST_SUITE_P(
    Payloads,
    StringReplyTest,
    ::testing::Values(
        StringReplyCase{"someip_ok", SerializeType::kSomeip, {0, 0, 0, 6, 0xEF, 0xBB, 0xBF, 'o', 'k', 0}, true, "ok"},
        StringReplyCase{"someip_empty_string", SerializeType::kSomeip, {0, 0, 0, 4, 0xEF, 0xBB, 0xBF, 0}, true, ""},
        StringReplyCase{"someip_trailing_bytes_tolerated",
                        SerializeType::kSomeip,
                        {0, 0, 0, 6, 0xEF, 0xBB, 0xBF, 'o', 'k', 0, 0xAA, 0xBB},
                        true,
                        "ok"},
        StringReplyCase{"someip_empty_payload", SerializeType::kSomeip, {}, false, ""},
        StringReplyCase{"someip_truncated", SerializeType::kSomeip, {0, 0, 0, 6, 0xEF, 0xBB, 0xBF, 'o'}, false, ""},
        StringReplyCase{"someip_length_beyond_payload",
                        SerializeType::kSomeip,
                        {0xFF, 0xFF, 0xFF, 0xFF, 0xEF, 0xBB, 0xBF, 0},
                        false,
                        ""},
        StringReplyCase{"someip_bad_mark", SerializeType::kSomeip, {0, 0, 0, 5, 0xEF, 0xBB, 0xBE, 'x', 0}, false, ""},
        StringReplyCase{"dds_ok", SerializeType::kDds, {2, 0, 0, 0, 'o', 'k'}, true, "ok"},
        StringReplyCase{"dds_empty", SerializeType::kDds, {0, 0, 0, 0}, true, ""},
        StringReplyCase{"dds_count_beyond_payload", SerializeType::kDds, {9, 0, 0, 0, 'o', 'k'}, false, ""},
        StringReplyCase{"dds_three_bytes", SerializeType::kDds, {1, 0, 0}, false, ""},
        StringReplyCase{"wrong_serialize_type", static_cast<SerializeType>(1), {2, 0, 0, 0, 'o', 'k'}, false, ""}),
    [](const ::testing::TestParamInfo<StringReplyCase>& param) { return std::string(param.param.name); });

TEST(ProcessListReplyTest, DecodesBothEncodings) {
    {
        auto bound = MakeBound<std::vector<ara::exec::Process>>(SerializeType::kSomeip);
        auto future = bound.proxy->Request(ara::core::String("phm"));
        Bytes payload{0, 0, 0, 0x21};
        for (int i = 0; i < 4; ++i) {
            payload.insert(payload.end(), {0, 0, 0, 4, 0xEF, 0xBB, 0xBF, 0});
        }
        payload.push_back(1);
        ASSERT_TRUE(bound.driver->Deliver(bound.driver->MakeReply(1U, payload)));
        auto result = future.get();
        ASSERT_TRUE(result.HasValue());
        ASSERT_EQ(result.Value().size(), 1U);
        EXPECT_EQ(result.Value()[0], (ara::exec::Process{"", "", "", "", true}));
    }
    {
        auto bound = MakeBound<std::vector<ara::exec::Process>>(SerializeType::kDds);
        auto future = bound.proxy->Request(ara::core::String("phm"));
        Bytes payload{1, 0, 0, 0};
        for (const char* text : {"a", "fg", "Running", "kRunning"}) {
            const std::string s(text);
            payload.insert(payload.end(), {static_cast<std::uint8_t>(s.size()), 0, 0, 0});
            payload.insert(payload.end(), s.begin(), s.end());
        }
        payload.push_back(0);
        ASSERT_TRUE(bound.driver->Deliver(bound.driver->MakeReply(1U, payload)));
        auto result = future.get();
        ASSERT_TRUE(result.HasValue());
        ASSERT_EQ(result.Value().size(), 1U);
        EXPECT_EQ(result.Value()[0], (ara::exec::Process{"a", "fg", "Running", "kRunning", false}));
    }
}

// Whatever a peer sends, every call is settled, nothing crashes, every buffer comes back.
TEST(MethodProxyReplyTest, RandomPayloadsAlwaysSettleTheCall) {
    std::mt19937 random(12345U);
    for (const SerializeType type : {SerializeType::kSomeip, SerializeType::kDds}) {
        auto strings = MakeBound<ara::core::String>(type);
        auto lists = MakeBound<std::vector<ara::exec::Process>>(type);
        for (std::uint16_t i = 1U; i <= 300U; ++i) {
            const std::size_t size = random() % 4U == 0U ? 4096U + random() % 4096U : random() % 48U;
            Bytes payload(size);
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

TEST(MethodProxyReplyTest, UnknownAndRepeatedSessionsOnlyWarn) {
    log::CaptureSink capture;
    auto bound = MakeBound<ara::core::String>(SerializeType::kDds, 11U);
    auto future = bound.proxy->Request(ara::core::String("x"));
    const Bytes ok{1, 0, 0, 0, 'y'};
    bound.driver->Deliver(bound.driver->MakeReply(1U, ok));
    EXPECT_EQ(future.get().Value(), "y");
    bound.driver->Deliver(bound.driver->MakeReply(1U, ok));
    EXPECT_TRUE(capture.Contains("[MethodProxyImpl][Invalid method reply for method][methodEntityId=11, sessionId=1]"));
    EXPECT_EQ(bound.driver->OutstandingReplyBuffers(), 0U);
}

TEST(MethodProxyReplyTest, TlsFailureNoticeFailsItsSessionWithPeerUnreachable) {
    log::CaptureSink capture;
    auto bound = MakeBound<void>(SerializeType::kSomeip, 2U);
    auto future = bound.proxy->Request(1, ara::exec::ExecutionState::kRunning);
    bound.driver->Deliver(bound.driver->MakeReply(1U, {}, false, false));
    EXPECT_THAT(future.get(), HasError(ComErrc::kPeerIsUnreachable));
    EXPECT_STREQ(ara::core::ErrorCode(ComErrc::kPeerIsUnreachable).Domain().Message(5), "");
    EXPECT_TRUE(
        capture.Contains("[MethodProxyImpl][TLS error code kPeerIsUnreachable is set][methodEntityId=2, sessionId=1]"));
    const log::CaptureSink fresh;  // a new capture opens new rate-limit windows
    bound.driver->Deliver(bound.driver->MakeReply(42U, {}, false, false));
    EXPECT_TRUE(fresh.Contains("[MethodProxyImpl][Unexpected session id][sessionId=42, methodEntityId=2]"));
}

struct E2ECase {
    const char* name;
    bool enabled;
    std::uint8_t status;
    int expectedE2ECode;  // 0: a normal value
};

class E2EReplyTest : public ::testing::TestWithParam<E2ECase> {};

TEST_P(E2EReplyTest, FailedCheckBecomesTheE2ECodeOnlyWhenProtectionIsOn) {
    const E2ECase& c = GetParam();
    auto bound = MakeBound<ara::core::String>(SerializeType::kDds);
    auto config = std::make_shared<kelp::brio::api::types::E2EConfig>();
    config->enabled = c.enabled;
    bound.info->SetE2EConfig(config);
    auto future = bound.proxy->Request(ara::core::String("x"));
    auto reply = bound.driver->MakeReply(1U, {1, 0, 0, 0, 'v'});
    reply->e2eCheckStatus = c.status;
    reply->e2eState = 0U;
    bound.driver->Deliver(reply);
    auto result = future.get();
    if (c.expectedE2ECode == 0) {
        ASSERT_TRUE(result.HasValue());
        EXPECT_EQ(result.Value(), "v");
    } else {
        ASSERT_FALSE(result.HasValue());
        EXPECT_EQ(result.Error().Domain().Id(), kelp::brio::api::types::E2EErrorDomain::kId);
        EXPECT_EQ(result.Error().Value(), c.expectedE2ECode);
    }
    if (c.enabled) {
        EXPECT_EQ(static_cast<int>(bound.proxy->GetE2EResult().checkStatus), c.status);
        EXPECT_EQ(bound.proxy->GetSMState(), 0U);
    }
}

INSTANTIATE_TEST_SUITE_P(Statuses,
                         E2EReplyTest,
                         ::testing::Values(E2ECase{"on_ok", true, 0U, 0},
                                           E2ECase{"on_repeated", true, 1U, 1},
                                           E2ECase{"on_wrong_sequence", true, 2U, 2},
                                           E2ECase{"on_error", true, 3U, 3},
                                           E2ECase{"on_not_available", true, 4U, 4},
                                           E2ECase{"on_no_new_data", true, 5U, 5},
                                           E2ECase{"on_check_disabled", true, 6U, 6},
                                           E2ECase{"off_error", false, 3U, 0}),
                         [](const ::testing::TestParamInfo<E2ECase>& param) { return std::string(param.param.name); });

TEST(E2EReplyOutsideTableTest, IsAMalformedReply) {
    auto bound = MakeBound<ara::core::String>(SerializeType::kDds);
    auto config = std::make_shared<kelp::brio::api::types::E2EConfig>();
    config->enabled = true;
    bound.info->SetE2EConfig(config);
    auto future = bound.proxy->Request(ara::core::String("x"));
    auto reply = bound.driver->MakeReply(1U, {1, 0, 0, 0, 'v'});
    reply->e2eCheckStatus = 9U;
    bound.driver->Deliver(reply);
    EXPECT_THAT(future.get(), HasError(ComErrc::kNetworkBindingFailure));
}

TEST(ErrorReplyTest, RegisteredCodesDynamicWildcardAndUnregistered) {
    log::CaptureSink capture;
    for (const SerializeType type : {SerializeType::kSomeip, SerializeType::kDds}) {
        const bool bigEndian = type == SerializeType::kSomeip;
        auto bound = MakeBound<ara::core::String>(type, 4U);
        bound.proxy->RegisterError(ara::core::ErrorCode(ara::exec::ExecErrc::kBusy));

        auto registered = bound.proxy->Request(ara::core::String("x"));
        bound.driver->Deliver(bound.driver->MakeReply(1U, ErrorPayload(0x8000000000000300ULL, 7, bigEndian), true));
        EXPECT_THAT(registered.get(), HasError(ara::exec::ExecErrc::kBusy));

        auto preRegistered = bound.proxy->Request(ara::core::String("x"));
        bound.driver->Deliver(bound.driver->MakeReply(2U, ErrorPayload(0x8000000000001267ULL, 1, bigEndian), true));
        EXPECT_THAT(preRegistered.get(), HasError(ComErrc::kServiceNotAvailable));

        auto unregistered = bound.proxy->Request(ara::core::String("x"));
        bound.driver->Deliver(bound.driver->MakeReply(3U, ErrorPayload(0x77ULL, 3, bigEndian), true));
        EXPECT_THAT(unregistered.get(), HasError(ComErrc::kNetworkBindingFailure));

        auto malformed = bound.proxy->Request(ara::core::String("x"));
        Bytes eighteen = ErrorPayload(0x8000000000000300ULL, 7, bigEndian);
        eighteen.push_back(0);
        bound.driver->Deliver(bound.driver->MakeReply(4U, eighteen, true));
        EXPECT_THAT(malformed.get(), HasError(ComErrc::kNetworkBindingFailure));

        static const kelp::brio::api::types::DynamicErrorDomain wildcard(0xC000000000000001ULL);
        bound.proxy->RegisterError(ara::core::ErrorCode(0, wildcard, 0));
        auto dynamic = bound.proxy->Request(ara::core::String("x"));
        bound.driver->Deliver(bound.driver->MakeReply(5U, ErrorPayload(0x77ULL, 3, bigEndian), true));
        auto result = dynamic.get();
        ASSERT_FALSE(result.HasValue());
        EXPECT_EQ(result.Error().Domain().Id(), 0x77ULL);
        EXPECT_EQ(result.Error().Value(), 3);
        EXPECT_STREQ(result.Error().Domain().Name(), "Dynamic");
        EXPECT_EQ(bound.driver->OutstandingReplyBuffers(), 0U);
    }
    EXPECT_TRUE(capture.Contains(
        "[MethodProxyImpl][Receive unregistered error][errorDomain=119, errorCode=3, methodMessage=methodUUID="
        "0.65534..4.DDS, entityId=4]"));
}

TEST(ErrorReplyTest, DynamicDomainsAreBoundedOldestFirst) {
    auto bound = MakeBound<void>(SerializeType::kDds);
    static const kelp::brio::api::types::DynamicErrorDomain wildcard(
        kelp::brio::api::types::internal::WILDCARD_ERROR_INDEX.first);
    bound.proxy->RegisterError(ara::core::ErrorCode(0, wildcard, 0));
    for (std::uint16_t i = 1U; i <= 33U; ++i) {
        auto future = bound.proxy->Request(1, ara::exec::ExecutionState::kRunning);
        bound.driver->Deliver(bound.driver->MakeReply(i, ErrorPayload(1000U + i, 1, false), true));
        auto result = future.get();
        ASSERT_FALSE(result.HasValue());
        EXPECT_EQ(result.Error().Domain().Id(), 1000U + i);
        EXPECT_EQ(bound.proxy->GetDynamicDomainCount(), std::min<std::size_t>(i, 32U));
    }
    // A foreign id still held reuses its domain object.
    auto again = bound.proxy->Request(1, ara::exec::ExecutionState::kRunning);
    bound.driver->Deliver(bound.driver->MakeReply(34U, ErrorPayload(1033U, 2, false), true));
    EXPECT_EQ(again.get().Error().Domain().Id(), 1033U);
    EXPECT_EQ(bound.proxy->GetDynamicDomainCount(), 32U);
}

TEST(ErrorReplyTest, SecondRegistrationWarnsButTheFirstStays) {
    log::CaptureSink capture;
    auto bound = MakeBound<void>(SerializeType::kSomeip);
    bound.proxy->RegisterError(ara::core::ErrorCode(ara::exec::ExecErrc::kFailed, 1));
    bound.proxy->RegisterError(ara::core::ErrorCode(ara::exec::ExecErrc::kFailed, 2));
    EXPECT_TRUE(
        capture.Contains("The same error code with domain Id 9223372036854776576 error code 6 is already "
                         "registered. New error code will replace the old one"));
    auto future = bound.proxy->Request(1, ara::exec::ExecutionState::kRunning);
    bound.driver->Deliver(bound.driver->MakeReply(1U, ErrorPayload(0x8000000000000300ULL, 6, true), true));
    auto result = future.get();
    ASSERT_FALSE(result.HasValue());
    EXPECT_EQ(result.Error().SupportData(), 1) << "the first registration is in force";
}

}  // namespace
