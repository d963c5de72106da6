// SPDX-License-Identifier: Apache-2.0
// Descriptors of the DDS transport: participant and transport QoS, the DDS method
// descriptor and the DDS service discovery descriptor.
#ifndef KELP_DRIVER_DDS_DDS_TYPES_H
#define KELP_DRIVER_DDS_DDS_TYPES_H

#include <cstdint>
#include <set>
#include <string>
#include <utility>

#include "ara/core/internal/export.h"
#include "kelp/brio/api/types/entity_info.h"
#include "kelp/brio/api/types/service_types.h"

namespace kelp::driver::dds {
namespace qos {

/// Which transports a method may use.
enum class TransportQos : std::uint8_t {
    UDP = 0,
    TCP = 1,
    SHM = 2,
};

/// Selects the peers a participant discovers: a kind and a filter text.
class ARA_EXPORT DiscoveryFilter {
public:
    DiscoveryFilter() = default;
    DiscoveryFilter(std::uint8_t kind, std::string filter) : kind_(kind), filter_(std::move(filter)) {}
    DiscoveryFilter(const DiscoveryFilter&) = default;
    DiscoveryFilter& operator=(const DiscoveryFilter&) = default;
    virtual ~DiscoveryFilter();

    std::uint8_t GetKind() const noexcept { return kind_; }
    const std::string& GetFilter() const noexcept { return filter_; }

private:
    std::uint8_t kind_{0U};
    std::string filter_{"UNDEFINED_DISCOVERY_FILTER"};
};

/// Participant settings. The four timing values, in order: writer liveliness lease of reply
/// and offer writers (ms), participant lease (ms), and two values carried unused.
class ARA_EXPORT ParticipantQos {
public:
    ParticipantQos() = default;
    ParticipantQos(DiscoveryFilter filter,
                   bool flag,
                   std::uint32_t livelinessLeaseMs,
                   std::uint32_t participantLeaseMs,
                   std::uint32_t value3,
                   std::uint32_t value4)
        : filter_(std::move(filter)),
          flag_(flag),
          livelinessLeaseMs_(livelinessLeaseMs),
          participantLeaseMs_(participantLeaseMs),
          value3_(value3),
          value4_(value4) {}
    ParticipantQos(const ParticipantQos&) = default;
    ParticipantQos& operator=(const ParticipantQos&) = default;
    virtual ~ParticipantQos();

    const DiscoveryFilter& GetDiscoveryFilter() const noexcept { return filter_; }
    bool GetFlag() const noexcept { return flag_; }
    std::uint32_t GetLivelinessLeaseMs() const noexcept { return livelinessLeaseMs_; }
    std::uint32_t GetParticipantLeaseMs() const noexcept { return participantLeaseMs_; }
    std::uint32_t GetValue3() const noexcept { return value3_; }
    std::uint32_t GetValue4() const noexcept { return value4_; }

private:
    DiscoveryFilter filter_;
    bool flag_{false};
    std::uint32_t livelinessLeaseMs_{0U};
    std::uint32_t participantLeaseMs_{0U};
    std::uint32_t value3_{0U};
    std::uint32_t value4_{0U};
};

/// The settings every method and discovery of the EM RPC uses: filter kind 2 "[1]", true,
/// 500, 1000, 60000, 24000.
ARA_EXPORT ParticipantQos DefaultRpcParticipantQos();

}  // namespace qos

/// The DDS part of a method descriptor.
class ARA_EXPORT DDSMethodInfo : public brio::api::types::MethodInfo {
public:
    DDSMethodInfo() = default;
    DDSMethodInfo(const DDSMethodInfo&) = default;
    DDSMethodInfo& operator=(const DDSMethodInfo&) = default;
    ~DDSMethodInfo() override;

    void SetRequestTopicName(const std::string& name) { requestTopicName_ = name; }
    const std::string& GetRequestTopicName() const noexcept { return requestTopicName_; }
    void SetReplyTopicName(const std::string& name) { replyTopicName_ = name; }
    const std::string& GetReplyTopicName() const noexcept { return replyTopicName_; }
    /// Request and reply reader depths.
    void SetRequestDepth(std::uint32_t depth) noexcept { requestDepth_ = depth; }
    std::uint32_t GetRequestDepth() const noexcept { return requestDepth_; }
    void SetReplyDepth(std::uint32_t depth) noexcept { replyDepth_ = depth; }
    std::uint32_t GetReplyDepth() const noexcept { return replyDepth_; }
    void SetValue16(std::uint16_t value) noexcept { value16_ = value; }
    std::uint16_t GetValue16() const noexcept { return value16_; }
    void SetDomainId(std::int16_t domainId) noexcept { domainId_ = domainId; }
    std::int16_t GetDomainId() const noexcept { return domainId_; }
    void SetParticipantQos(const qos::ParticipantQos& qos) { participantQos_ = qos; }
    const qos::ParticipantQos& GetParticipantQos() const noexcept { return participantQos_; }
    void SetTransportQos(const std::set<qos::TransportQos>& transportQos) { transportQos_ = transportQos; }
    const std::set<qos::TransportQos>& GetTransportQos() const noexcept { return transportQos_; }

private:
    std::string requestTopicName_;
    std::string replyTopicName_;
    std::uint32_t requestDepth_{0U};
    std::uint32_t replyDepth_{0U};
    std::uint16_t value16_{0U};
    std::int16_t domainId_{0};
    qos::ParticipantQos participantQos_;
    std::set<qos::TransportQos> transportQos_;
};

/// The DDS part of a service's discovery descriptor.
class ARA_EXPORT DDSServiceDiscoveryInfo : public brio::api::types::ServiceDiscoveryInfo {
public:
    DDSServiceDiscoveryInfo() = default;
    DDSServiceDiscoveryInfo(const DDSServiceDiscoveryInfo&) = default;
    DDSServiceDiscoveryInfo& operator=(const DDSServiceDiscoveryInfo&) = default;
    ~DDSServiceDiscoveryInfo() override;

    void SetDomainId(std::int16_t domainId) noexcept { domainId_ = domainId; }
    std::int16_t GetDomainId() const noexcept { return domainId_; }
    void SetQosProfile(const std::string& profile) { qosProfile_ = profile; }
    const std::string& GetQosProfile() const noexcept { return qosProfile_; }
    void SetNetwork(const std::pair<std::string, bool>& network) { network_ = network; }
    const std::pair<std::string, bool>& GetNetwork() const noexcept { return network_; }
    void SetFlag(bool flag) noexcept { flag_ = flag; }
    bool GetFlag() const noexcept { return flag_; }
    void SetParticipantQos(const qos::ParticipantQos& qos) { participantQos_ = qos; }
    const qos::ParticipantQos& GetParticipantQos() const noexcept { return participantQos_; }
    void SetTransportQos(const std::set<qos::TransportQos>& transportQos) { transportQos_ = transportQos; }
    const std::set<qos::TransportQos>& GetTransportQos() const noexcept { return transportQos_; }

private:
    std::int16_t domainId_{0};
    std::string qosProfile_{brio::api::types::UNDEFINED_QOS_PROFILE};
    std::pair<std::string, bool> network_{brio::api::types::UNDEFINED_NETWORK};
    bool flag_{false};
    qos::ParticipantQos participantQos_;
    std::set<qos::TransportQos> transportQos_;
};

}  // namespace kelp::driver::dds

#endif
