// Reply path of the method proxy: values and errors in both encodings, malformed payloads,
// unknown and repeated sessions, TLS notices, E2E results, registered / dynamic /
// unregistered error codes.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "ara/exec/exec_error_domain.h"
#include "ara_test/fake_method_handler.h"
#include "ara_test/matchers.h"

namespace {

using ara::core::ErrorCode;
using ara::exec::ExecutionState;
using ara_test::BoundProxy;
using ara_test::HasError;
using kelp::brio::MethodProxyImpl;
using kelp::brio::api::types::ComErrc;
using kelp::brio::api::types::DynamicErrorDomain;
using kelp::serialize::SerializeType;
using Bytes = std::vector<std::uint8_t>;
namespace log = ara::quill::common::log;

constexpr std::chrono::milliseconds kNoWait{0};

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
        {SerializeType::kSomeip, {}, nullptr, nullptr},
        {SerializeType::kSomeip, {0, 0, 0, 6, 0xEF, 0xBB, 0xBF, 'o'}, nullptr, nullptr},
        {SerializeType::kSomeip, {0xFF, 0xFF, 0xFF, 0xFF, 0xEF, 0xBB, 0xBF, 0}, nullptr, nullptr},
        {SerializeType::kSomeip, {0, 0, 0, 5, 0xEF, 0xBB, 0xBE, 'x', 0}, nullptr, nullptr},
        {SerializeType::kDds, {2, 0, 0, 0, 'o', 'k'}, "ok", nullptr},
        {SerializeType::kDds, {0, 0, 0, 0}, "", nullptr},
        {SerializeType::kDds, {9, 0, 0, 0, 'o', 'k'}, nullptr, nullptr},
        {SerializeType::kDds, {1, 0, 0}, nullptr, nullptr},
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

TEST(ProcessListReplyTest, DecodesBothEncodings) {
    Bytes someip{0, 0, 0, 0x21};
    for (int i = 0; i < 4; ++i) {
        someip.insert(someip.end(), {0, 0, 0, 4, 0xEF, 0xBB, 0xBF, 0});
    }
    someip.push_back(1);
    Bytes dds{1, 0, 0, 0};
    for (const std::string text : {"a", "fg", "Running", "kRunning"}) {
        dds.insert(dds.end(), {static_cast<std::uint8_t>(text.size()), 0, 0, 0});
        dds.insert(dds.end(), text.begin(), text.end());
    }
    dds.push_back(0);
    const struct {
        SerializeType type;
        Bytes payload;
        ara::exec::Process expected;
    } rows[] = {{SerializeType::kSomeip, someip, {"", "", "", "", true}},
                {SerializeType::kDds, dds, {"a", "fg", "Running", "kRunning", false}}};
    for (const auto& c : rows) {
        BoundProxy<std::vector<ara::exec::Process>> bound(6U, c.type);
        auto future = bound.proxy->Request(ara::core::String("phm"));
        ASSERT_TRUE(bound.driver->Deliver(bound.driver->MakeReply(1U, c.payload)));
        EXPECT_EQ(future.get().ValueOr(std::vector<ara::exec::Process>{}), std::vector<ara::exec::Process>{c.expected});
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
    EXPECT_STREQ(ErrorCode(ComErrc::kPeerIsUnreachable).Domain().Message(5), "");
    EXPECT_TRUE(capture.Contains(
        "[MethodProxyImpl][TLS error code kPeerIsUnreachable is set][methodEntityId=11, sessionId=2]"));
    const log::CaptureSink fresh;  // a new capture opens new rate-limit windows
    bound.driver->Deliver(bound.driver->MakeReply(42U, {}, false, false));
    EXPECT_TRUE(fresh.Contains("[MethodProxyImpl][Unexpected session id][sessionId=42, methodEntityId=11]"));
}

TEST(E2EReplyTest, FailedCheckBecomesTheE2ECodeOnlyWhenProtectionIsOn) {
    const struct {
        bool enabled;
        std::uint8_t status;
        int expected;  // 0: the value; -1: ComErrc 3; otherwise the E2E code
    } rows[] = {{true, 0U, 0},
                {true, 1U, 1},
                {true, 2U, 2},
                {true, 3U, 3},
                {true, 4U, 4},
                {true, 5U, 5},
                {true, 6U, 6},
                {false, 3U, 0},
                {true, 9U, -1}};
    for (const auto& c : rows) {
        SCOPED_TRACE(static_cast<int>(c.status));
        BoundProxy<ara::core::String> bound(6U, SerializeType::kDds);
        auto config = std::make_shared<kelp::brio::api::types::E2EConfig>();
        config->enabled = c.enabled;
        bound.info->SetE2EConfig(config);
        auto future = bound.proxy->Request(ara::core::String("x"));
        auto reply = bound.driver->MakeReply(1U, {1, 0, 0, 0, 'v'});
        reply->e2eCheckStatus = c.status;
        reply->e2eState = 0U;
        bound.driver->Deliver(reply);
        auto result = future.get();
        if (c.expected == 0) {
            EXPECT_EQ(result.ValueOr(""), "v");
        } else if (c.expected < 0) {
            EXPECT_THAT(result, HasError(ComErrc::kNetworkBindingFailure));
        } else {
            EXPECT_EQ(result.ErrorOr(ErrorCode(ComErrc::kServiceNotAvailable)),
                      ErrorCode(static_cast<kelp::brio::api::types::E2EErrorCode>(c.expected)));
        }
        if (c.enabled) {
            EXPECT_EQ(static_cast<int>(bound.proxy->GetE2EResult().checkStatus), c.status);
            EXPECT_EQ(bound.proxy->GetSMState(), 0U);
        }
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
    std::size_t fullLines = 0U;
    for (const auto& text : capture.Texts("CM")) {
        fullLines += text.rfind("[DynamicErrorDomain][Too many foreign error domains", 0) == 0 ? 1U : 0U;
    }
    EXPECT_EQ(fullLines, 1U);
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
