// SPDX-License-Identifier: Apache-2.0
// Com, E2E and Dynamic domains; the request record's fixed values (they go on the DDS wire)
// and the method UUID text.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "kelp/brio/api/types/entity_info.h"
#include "kelp/brio/api/types/error_domains.h"
#include "kelp/brio/api/types/method_msg.h"

namespace {

namespace types = kelp::brio::api::types;

TEST(MiddlewareErrorDomainsTest, IdsNamesTablesWithAStableEmptyTextForOtherCodesAndExceptions) {
    const ara::core::ErrorDomain& com = types::GetComErrorDomain();
    const ara::core::ErrorDomain& e2e = types::GetE2EErrorDomain();
    const types::DynamicErrorDomain dynamic(0x1234567890ULL);  // stands in for a foreign domain
    EXPECT_EQ(com.Id(), 0x8000000000001267ULL);
    EXPECT_STREQ(com.Name(), "Com");
    EXPECT_EQ(e2e.Id(), 0x8000000000001268ULL);
    EXPECT_STREQ(e2e.Name(), "E2E");
    EXPECT_STREQ(dynamic.Name(), "Dynamic");
    // The ends of each table and the gaps in it.
    const std::tuple<const ara::core::ErrorDomain&, int, const char*> rows[] = {
        {com, 0, "ok"},
        {com, 3, "kNetworkBindingFailure"},
        {com, 4, ""},
        {com, 17, "kWrongMethodCallProcessingMode"},
        {com, 18, ""},
        {e2e, 0, ""},
        {e2e, 1, "repeated"},
        {e2e, 6, "check_disable"},
        {e2e, 7, ""},
        {dynamic, 42, "Dynamic error domain doesn't support message output"},
    };
    for (const auto& [domain, code, text] : rows) {
        const char* first = domain.Message(code);
        EXPECT_STREQ(first, text) << domain.Name() << " " << code;
        EXPECT_EQ(domain.Message(code), first) << "a repeated lookup returns the same entry";
    }
    // Each throws its own exception.
    EXPECT_THROW(ara::core::ErrorCode(types::ComErrc::kServiceNotAvailable).ThrowAsException(), types::ComException);
    EXPECT_THROW(ara::core::ErrorCode(types::E2EErrorCode::kRepeated).ThrowAsException(), types::E2EException);
    EXPECT_THROW(ara::core::ErrorCode(9, dynamic, 0).ThrowAsException(), types::DynamicException);
}

TEST(MethodMsgTest, RequestRecordHasTheFixedRequestValues) {
    const types::MethodMsg msg = types::MethodMsg::MakeRequest(513U);
    EXPECT_EQ(std::tie(msg.sessionId, msg.entityField, msg.messageType, msg.e2eCheckStatus, msg.e2eState),
              std::make_tuple(513, 0xFFFF, 3, 6, 4));
    EXPECT_EQ(std::tie(msg.field64, msg.requestMarker, msg.name),
              std::make_tuple(0x0FFFFFFF00000000ULL, 1, std::string("MethodMsg")));
}

TEST(MethodInfoTest, UuidTextJoinsServiceInstanceNameIdAndTransport) {
    types::MethodInfo info;
    info.SetServiceId(57361U);
    info.SetInstanceId("3");
    info.SetEntityName("Start");
    info.SetEntityId(6U);
    for (const auto& [type, name] :
         {std::pair<int, const char*>{0, "PROLOC"}, {1, "DDS"}, {2, "SOMEIP"}, {9, "UNKNOWN"}}) {
        info.SetDriverType(static_cast<types::DriverType>(type));
        EXPECT_EQ(info.GetMethodUUIDInfo(), std::string("57361.3.Start.6.") + name);
    }
}

}  // namespace
