// Descriptors of the test method and service shared by the DDS integration tests and their
// echo server: method "<prefix>_req_1" / "<prefix>_rep_1" of service `serviceId`, instance "1", domain 2.
#ifndef DDS_TEST_DESCRIPTORS_H
#define DDS_TEST_DESCRIPTORS_H

#include <cstdint>
#include <memory>
#include <string>

#include "kelp/driver/dds/dds_types.h"

namespace dds_test {

inline std::shared_ptr<kelp::driver::dds::DDSMethodInfo> Method(std::uint16_t serviceId, const std::string& prefix) {
    auto info = std::make_shared<kelp::driver::dds::DDSMethodInfo>();
    info->SetServiceId(serviceId);
    info->SetInstanceId("1");
    info->SetRequestTopicName(prefix + "_req_1");
    info->SetReplyTopicName(prefix + "_rep_1");
    info->SetDomainId(2);
    info->SetParticipantQos(kelp::driver::dds::qos::DefaultRpcParticipantQos());
    return info;
}

inline kelp::driver::dds::DDSServiceDiscoveryInfo Service(std::uint16_t serviceId) {
    kelp::driver::dds::DDSServiceDiscoveryInfo info;
    info.SetServiceId(serviceId);
    info.SetInstanceId("1");
    info.SetDomainId(2);
    info.SetParticipantQos(kelp::driver::dds::qos::DefaultRpcParticipantQos());
    return info;
}

}  // namespace dds_test

#endif
