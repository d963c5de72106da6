// SPDX-License-Identifier: Apache-2.0
// Descriptors of middleware entities: the transport kinds, and the method descriptor a
// method proxy and its driver are built from.
#ifndef KELP_BRIO_API_TYPES_ENTITY_INFO_H
#define KELP_BRIO_API_TYPES_ENTITY_INFO_H

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "ara/core/internal/export.h"

namespace kelp::serialize {
struct SerializationNode;
}  // namespace kelp::serialize

namespace kelp::brio::api::types {

/// Transport kind of a method.
enum class DriverType : std::uint8_t {
    PROLOC = 0,
    DDS = 1,
    SOMEIP = 2,
};

/// "PROLOC", "DDS", "SOMEIP"; "UNKNOWN" for any other value.
ARA_EXPORT const std::string& DriverTypeName(DriverType type);

/// What a driver reports to a method's state-change handler.
enum class MethodState : std::uint8_t {
    kUnavailable = 0,  ///< no server is matched; requests cannot be delivered
    kAvailable = 1,    ///< a server is matched
};

/// End-to-end protection of a method's replies.
struct E2EConfig {
    bool enabled{false};
};

class ARA_EXPORT EntityInfo {
public:
    EntityInfo() = default;
    EntityInfo(const EntityInfo&) = default;
    EntityInfo& operator=(const EntityInfo&) = default;
    virtual ~EntityInfo();

    void SetInstanceId(const std::string& instanceId) { instanceId_ = instanceId; }
    const std::string& GetInstanceId() const noexcept { return instanceId_; }
    /// (address, multicast) of the network interface the entity uses.
    void SetNetwork(const std::pair<std::string, bool>& network) { network_ = network; }
    const std::pair<std::string, bool>& GetNetwork() const noexcept { return network_; }
    void SetServiceId(std::uint16_t serviceId) noexcept { serviceId_ = serviceId; }
    std::uint16_t GetServiceId() const noexcept { return serviceId_; }
    void SetEntityId(std::uint32_t entityId) noexcept { entityId_ = entityId; }
    std::uint32_t GetEntityId() const noexcept { return entityId_; }
    void SetEntityName(const std::string& name) { entityName_ = name; }
    const std::string& GetEntityName() const noexcept { return entityName_; }
    void SetDriverType(DriverType type) noexcept { driverType_ = type; }
    DriverType GetDriverType() const noexcept { return driverType_; }

protected:
    std::uint32_t entityId_{65535U};
    std::uint16_t serviceId_{0U};
    std::string instanceId_{"65534"};
    std::string entityName_;
    DriverType driverType_{DriverType::DDS};
    std::pair<std::string, bool> network_{"127.0.0.1", true};
};

class ARA_EXPORT MethodInfo : public EntityInfo {
public:
    MethodInfo() = default;
    MethodInfo(const MethodInfo&) = default;
    MethodInfo& operator=(const MethodInfo&) = default;
    ~MethodInfo() override;

    /// "<service id>.<instance id>.<entity name>.<entity id>.<driver type name>"
    std::string GetMethodUUIDInfo() const;

    void SetMethodFlag(bool flag) noexcept { methodFlag_ = flag; }
    bool GetMethodFlag() const noexcept { return methodFlag_; }

    void SetE2EConfig(std::shared_ptr<E2EConfig> config) { e2eConfig_ = std::move(config); }
    const std::shared_ptr<E2EConfig>& GetE2EConfig() const noexcept { return e2eConfig_; }
    /// True when an E2E configuration is present and enabled.
    bool IsE2EEnabled() const noexcept { return e2eConfig_ != nullptr && e2eConfig_->enabled; }

    /// Deployment of the request arguments (one child per argument) and of the result; null
    /// when the method has none.
    void SetRequestNode(std::shared_ptr<serialize::SerializationNode> node) { requestNode_ = std::move(node); }
    const std::shared_ptr<serialize::SerializationNode>& GetRequestNode() const noexcept { return requestNode_; }
    void SetReplyNode(std::shared_ptr<serialize::SerializationNode> node) { replyNode_ = std::move(node); }
    const std::shared_ptr<serialize::SerializationNode>& GetReplyNode() const noexcept { return replyNode_; }

protected:
    bool methodFlag_{false};
    std::shared_ptr<E2EConfig> e2eConfig_;
    std::shared_ptr<serialize::SerializationNode> requestNode_;
    std::shared_ptr<serialize::SerializationNode> replyNode_;
};

}  // namespace kelp::brio::api::types

#endif
