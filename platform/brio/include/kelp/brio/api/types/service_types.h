// SPDX-License-Identifier: Apache-2.0
// Service-level types of the middleware: service handles, discovery handles, the transport-
// independent part of a service's discovery descriptor, the method-call processing modes and
// the middleware's predefined names.
#ifndef KELP_BRIO_API_TYPES_SERVICE_TYPES_H
#define KELP_BRIO_API_TYPES_SERVICE_TYPES_H

#include <cstdint>
#include <string>
#include <tuple>
#include <utility>

#include "ara/core/internal/export.h"

namespace kelp::brio::api::types {

/// One service instance as discovery reports it: service id, instance id, and a flag whose
/// meaning belongs to the caller (the RPC client passes true).
struct HandleType {
    std::uint16_t serviceId{0U};
    std::string instanceId;
    bool flag{true};

    friend bool operator==(const HandleType& a, const HandleType& b) {
        return std::tie(a.serviceId, a.instanceId, a.flag) == std::tie(b.serviceId, b.instanceId, b.flag);
    }
    friend bool operator<(const HandleType& a, const HandleType& b) {
        return std::tie(a.serviceId, a.instanceId, a.flag) < std::tie(b.serviceId, b.instanceId, b.flag);
    }
};

/// A running service discovery: its id (0xFFFFFFFF when none) and a flag.
struct FindServiceHandle {
    std::uint32_t id{0xFFFFFFFFU};
    bool flag{true};
};

/// How a skeleton runs its method handlers (the AUTOSAR numbering).
enum class MethodCallProcessingMode : std::uint8_t {
    kPoll = 0,                ///< on the owner's thread, one call per ProcessNextMethodCall()
    kEvent = 1,               ///< on the skeleton's dispatcher thread
    kEventSingleThread = 2,   ///< the same here: one dispatcher thread per skeleton
};

/// The transport-independent part of a service's discovery descriptor; each transport
/// derives its own (the DDS one adds domain, network and QoS).
class ARA_EXPORT ServiceDiscoveryInfo {
public:
    ServiceDiscoveryInfo() = default;
    ServiceDiscoveryInfo(const ServiceDiscoveryInfo&) = default;
    ServiceDiscoveryInfo& operator=(const ServiceDiscoveryInfo&) = default;
    virtual ~ServiceDiscoveryInfo();

    void SetServiceId(std::uint16_t serviceId) noexcept { serviceId_ = serviceId; }
    std::uint16_t GetServiceId() const noexcept { return serviceId_; }
    void SetInstanceId(const std::string& instanceId) { instanceId_ = instanceId; }
    const std::string& GetInstanceId() const noexcept { return instanceId_; }

protected:
    std::uint16_t serviceId_{0U};
    std::string instanceId_{"65534"};
};

/// Predefined values of the middleware.
inline const std::pair<std::string, bool> UNDEFINED_NETWORK{"UNDEFINED_NETWORK", false};
inline const std::pair<std::string, bool> BUILTIN_APP_CLIENT_FLAG{"BUILTIN_APP_CLIENT_FLAG", false};
inline const std::pair<std::string, bool> BUILTIN_APP_SERVER_FLAG{"BUILTIN_APP_SERVER_FLAG", false};
inline const std::string UNDEFINED_SERVICE_NAME{"UNDEFINED_SERVICE_NAME"};
inline const std::string UNDEFINED_QOS_PROFILE{"UNDEFINED_QOS_PROFILE"};

}  // namespace kelp::brio::api::types

#endif
