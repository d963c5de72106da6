// SPDX-License-Identifier: Apache-2.0
// Identity of one method of one service instance on the process-local transport.
#ifndef KELP_DRIVER_PROLOC_PROLOC_ENTITY_INDEX_H
#define KELP_DRIVER_PROLOC_PROLOC_ENTITY_INDEX_H

#include <string>
#include <tuple>

namespace kelp::driver::proloc {

struct ProlocEntityIndex {
    unsigned int serviceId{0U};
    std::string instanceId;
    unsigned int entityId{0U};

    bool operator<(const ProlocEntityIndex& other) const {
        return std::tie(serviceId, instanceId, entityId) < std::tie(other.serviceId, other.instanceId, other.entityId);
    }
    bool operator==(const ProlocEntityIndex& other) const {
        return serviceId == other.serviceId && instanceId == other.instanceId && entityId == other.entityId;
    }
};

/// "serviceId=<s>, instanceId=<i>, entityId=<e>", for log texts.
inline std::string GetProlocInfo(const ProlocEntityIndex& index) {
    return "serviceId=" + std::to_string(index.serviceId) + ", instanceId=" + index.instanceId +
           ", entityId=" + std::to_string(index.entityId);
}

}  // namespace kelp::driver::proloc

#endif
