// SPDX-License-Identifier: Apache-2.0
// Out-of-line parts of the middleware's descriptor and message types.
#include <map>

#include "kelp/brio/api/types/entity_info.h"
#include "kelp/brio/api/types/method_msg.h"
#include "kelp/brio/driver/method_handler.h"
#include "kelp/brio/method_proxy.h"

namespace kelp::brio::api::types {

MethodMsg::~MethodMsg() = default;

const std::string& MethodMsg::DefaultName() {
    static const std::string name{"MethodMsg"};
    return name;
}

MethodMsg MethodMsg::MakeRequest(std::uint16_t sessionId) {
    MethodMsg msg;
    msg.sessionId = sessionId;
    msg.entityField = REQUEST_ENTITY_FIELD;
    msg.messageType = REQUEST_MESSAGE_TYPE;
    msg.e2eCheckStatus = REQUEST_E2E_CHECK_STATUS;
    msg.e2eState = REQUEST_E2E_STATE;
    msg.field64 = REQUEST_FIELD64;
    msg.requestMarker = REQUEST_MARKER;
    msg.name = DefaultName();
    return msg;
}

const std::string& DriverTypeName(DriverType type) {
    static const std::map<DriverType, std::string> names{
        {DriverType::PROLOC, "PROLOC"},
        {DriverType::DDS, "DDS"},
        {DriverType::SOMEIP, "SOMEIP"},
    };
    static const std::string unknown{"UNKNOWN"};
    const auto it = names.find(type);
    return it != names.end() ? it->second : unknown;
}

EntityInfo::~EntityInfo() = default;
MethodInfo::~MethodInfo() = default;

std::string MethodInfo::GetMethodUUIDInfo() const {
    return std::to_string(serviceId_) + "." + instanceId_ + "." + entityName_ + "." + std::to_string(entityId_) + "." +
           DriverTypeName(driverType_);
}

}  // namespace kelp::brio::api::types

namespace kelp::brio::driver {
MethodHandler::~MethodHandler() = default;
}  // namespace kelp::brio::driver

namespace kelp::brio {
MethodProxy::~MethodProxy() = default;
}  // namespace kelp::brio
