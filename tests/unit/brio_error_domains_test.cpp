// Com, E2E and Dynamic domains: ids, names, message tables with their inserting lookup,
// exceptions; the request record's fixed values and the method UUID text.
#include <gtest/gtest.h>

#include "kelp/brio/api/types/entity_info.h"
#include "kelp/brio/api/types/error_domains.h"
#include "kelp/brio/api/types/method_msg.h"

namespace {

namespace types = kelp::brio::api::types;

struct Row {
    int code;
    const char* text;
};

TEST(ComErrorDomainTest, IdNameAndTableWithEmptyTextForOtherCodes) {
    const ara::core::ErrorDomain& domain = types::GetComErrorDomain();
    EXPECT_EQ(domain.Id(), 0x8000000000001267ULL);
    EXPECT_EQ(domain.Id(), 9223372036854780519ULL);
    EXPECT_STREQ(domain.Name(), "Com");
    const Row rows[] = {{0, "ok"},
                        {1, "kServiceNotAvailable"},
                        {2, "kMaxSamplesExceeded"},
                        {3, "kNetworkBindingFailure"},
                        {11, "kServiceNotOffered"},
                        {14, "kCommunicationStackError"},
                        {17, "kWrongMethodCallProcessingMode"},
                        {5, ""},
                        {4, ""},
                        {18, ""},
                        {-1, ""}};
    for (const Row& row : rows) {
        EXPECT_STREQ(domain.Message(row.code), row.text) << row.code;
    }
    EXPECT_STREQ(domain.Message(5), "") << "an inserted empty entry stays empty";
}

TEST(E2EErrorDomainTest, IdNameAndTableMatchingTheCheckStatuses) {
    const ara::core::ErrorDomain& domain = types::GetE2EErrorDomain();
    EXPECT_EQ(domain.Id(), 0x8000000000001268ULL);
    EXPECT_STREQ(domain.Name(), "E2E");
    const Row rows[] = {{1, "repeated"},
                        {2, "wrong_sequence_error"},
                        {3, "error"},
                        {4, "not_available"},
                        {5, "no_new_data"},
                        {6, "check_disable"},
                        {0, ""},
                        {7, ""}};
    for (const Row& row : rows) {
        EXPECT_STREQ(domain.Message(row.code), row.text) << row.code;
    }
}

TEST(DynamicErrorDomainTest, CarriesTheForeignIdAndHasOneText) {
    const types::DynamicErrorDomain domain(0x1234567890ULL);
    EXPECT_EQ(domain.Id(), 0x1234567890ULL);
    EXPECT_STREQ(domain.Name(), "Dynamic");
    for (const int code : {0, 1, 42, -7}) {
        EXPECT_STREQ(domain.Message(code), "Dynamic error domain doesn't support message output");
    }
    // Equal ids make equal domains, so a dynamic stand-in for the Com id equals Com.
    const types::DynamicErrorDomain standIn(types::ComErrorDomain::kId);
    EXPECT_EQ(ara::core::ErrorCode(3, standIn), ara::core::ErrorCode(types::ComErrc::kNetworkBindingFailure));
}

TEST(MiddlewareErrorDomainsTest, EachThrowsItsOwnException) {
    EXPECT_THROW(ara::core::ErrorCode(types::ComErrc::kServiceNotAvailable).ThrowAsException(), types::ComException);
    EXPECT_THROW(ara::core::ErrorCode(types::E2EErrorCode::kRepeated).ThrowAsException(), types::E2EException);
    const types::DynamicErrorDomain dynamic(77U);
    try {
        ara::core::ErrorCode(9, dynamic, 0).ThrowAsException();
        FAIL();
    } catch (const types::DynamicException& e) {
        EXPECT_EQ(e.Error().Value(), 9);
        EXPECT_EQ(e.Error().Domain().Id(), 77U);
    }
}

TEST(MethodMsgTest, RequestRecordHasTheFixedRequestValues) {
    const types::MethodMsg msg = types::MethodMsg::MakeRequest(513U);
    EXPECT_EQ(msg.sessionId, 513U);
    EXPECT_EQ(msg.entityField, 0xFFFFU);
    EXPECT_EQ(msg.messageType, 3U);
    EXPECT_EQ((msg.e2eCheckStatus << 8U) | msg.e2eState, 0x0604U) << "check status 6, state 4";
    EXPECT_EQ(msg.field64, 0x0FFFFFFF00000000ULL);
    EXPECT_EQ(msg.requestMarker, 1);
    EXPECT_EQ(msg.payload, nullptr);
    EXPECT_EQ(msg.payloadSize, 0U);
    EXPECT_EQ(msg.name, types::MethodMsg::DefaultName());
}

TEST(MethodInfoTest, UuidTextJoinsServiceInstanceNameIdAndTransport) {
    types::MethodInfo info;
    EXPECT_EQ(info.GetMethodUUIDInfo(), "0.65534..65535.DDS") << "descriptor defaults";
    info.SetServiceId(57361U);
    info.SetInstanceId("65534");
    info.SetEntityName("6");
    info.SetEntityId(6U);
    EXPECT_EQ(info.GetMethodUUIDInfo(), "57361.65534.6.6.DDS");
    const struct {
        types::DriverType type;
        const char* name;
    } kinds[] = {{types::DriverType::PROLOC, "PROLOC"},
                 {types::DriverType::DDS, "DDS"},
                 {types::DriverType::SOMEIP, "SOMEIP"},
                 {static_cast<types::DriverType>(9), "UNKNOWN"}};
    for (const auto& kind : kinds) {
        info.SetDriverType(kind.type);
        EXPECT_EQ(info.GetMethodUUIDInfo(), std::string("57361.65534.6.6.") + kind.name);
    }
    EXPECT_FALSE(info.IsE2EEnabled());
    info.SetE2EConfig(std::make_shared<types::E2EConfig>());
    EXPECT_FALSE(info.IsE2EEnabled()) << "present but disabled";
    info.GetE2EConfig()->enabled = true;
    EXPECT_TRUE(info.IsE2EEnabled());
}

}  // namespace
