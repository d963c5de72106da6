// SPDX-License-Identifier: Apache-2.0
// Out-of-line parts of the DDS descriptors.
#include "kelp/driver/dds/dds_types.h"

namespace kelp::driver::dds {
namespace qos {
DiscoveryFilter::~DiscoveryFilter() = default;
ParticipantQos::~ParticipantQos() = default;

ParticipantQos DefaultRpcParticipantQos() {
    return ParticipantQos(DiscoveryFilter(2U, "[1]"), true, 500U, 1000U, 60000U, 24000U);
}
}  // namespace qos

DDSMethodInfo::~DDSMethodInfo() = default;
DDSServiceDiscoveryInfo::~DDSServiceDiscoveryInfo() = default;

}  // namespace kelp::driver::dds
