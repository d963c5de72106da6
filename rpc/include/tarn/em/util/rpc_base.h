// SPDX-License-Identifier: Apache-2.0
// Addressing of one Execution Management RPC service on the DDS middleware, the process-wide
// start of the DDS driver, and the process-wide choice of the loopback address it runs on.
#ifndef TARN_EM_UTIL_RPC_BASE_H
#define TARN_EM_UTIL_RPC_BASE_H

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "ara/core/internal/export.h"
#include "kelp/driver/dds/dds_types.h"

namespace tarn::em::util {

/// @thread-safety the setters and getters of one object are for one thread. ReadAndSetConfigIP
/// may run on several objects at once: the process-wide address choice is locked.
class ARA_EXPORT RpcBase {
public:
    static constexpr std::int16_t DEFAULT_DOMAIN_ID = 2;
    static constexpr std::uint16_t DEFAULT_SERVICE_ID = 57360U;  // 0xE010
    static const std::string DEFAULT_INSTANCE_ID;                // "0"
    static const std::string DEFAULT_REQUEST_TOPIC_NAME;         // "RPC_REQUEST"
    static const std::string DEFAULT_REPLY_TOPIC_NAME;           // "RPC_REPLY"
    static const std::string DEFAULT_QOS_PROFILE_PATH;           // "/"
    static constexpr std::uint32_t RECOVERY_FRAG_SIZE = 32768U;  // 0x8000
    static constexpr std::uint32_t RECOVERY_LIST_SIZE = 128U;    // 0x80

    /// The loopback address chosen by the first ReadAndSetConfigIP of the process.
    static std::string ipAddress_;
    /// Set by the first ReadAndSetConfigIP of the process.
    static bool isReadIpConfig_;

    RpcBase();
    virtual ~RpcBase();
    RpcBase(const RpcBase&) = default;
    RpcBase& operator=(const RpcBase&) = default;

    void SetDomainId(short domainId) { domainId_ = domainId; }
    void SetServiceId(unsigned short serviceId) { serviceId_ = serviceId; }
    void SetInstanceId(const std::string& instanceId) { instanceId_ = instanceId; }
    void SetRequestTopicName(const std::string& name) { requestTopicName_ = name; }
    void SetReplyTopicName(const std::string& name) { replyTopicName_ = name; }
    void SetQosProfilePath(const std::string& path) { qosProfilePath_ = path; }
    void SetNetwork(const std::pair<std::string, bool>& network) { network_ = network; }

    std::int16_t GetDomainId() const { return domainId_; }
    std::uint16_t GetServiceId() const { return serviceId_; }
    const std::string& GetInstanceId() const { return instanceId_; }
    const std::string& GetRequestTopicName() const { return requestTopicName_; }
    const std::string& GetReplyTopicName() const { return replyTopicName_; }
    const std::string& GetQosProfilePath() const { return qosProfilePath_; }
    std::pair<std::string, bool> GetNetwork() const { return network_; }
    std::uint32_t GetRecoveryFragSize() const { return RECOVERY_FRAG_SIZE; }
    std::uint32_t GetRecoveryListSize() const { return RECOVERY_LIST_SIZE; }

    /// 4294967294: the id of the EM service instance; its low 16 bits give "65534".
    static std::uint32_t GetEmInstanceId();

    /// Starts the DDS driver once per process; a failed start is tried again next time.
    bool Initialize() const;
    /// Chooses the loopback address once per process (falling back to 127.0.0.1) and makes
    /// it this endpoint's network.
    void ReadAndSetConfigIP();
    /// The smallest 127.x IPv4 address (isLoopBack), or the first other IPv4 address, of
    /// this host's interfaces. False when there is none; `ip` is then untouched.
    static bool GetLocalIp(std::string& ip, bool isLoopBack);

    /// Fills the identification, network, method flag, topic and domain fields of a method's
    /// DDS descriptor from this endpoint.
    void InitializeMethodBase(const unsigned int& methodId,
                              bool methodFlag,
                              const std::unique_ptr<kelp::driver::dds::DDSMethodInfo>& info) const;
    /// The low 16 bits of GetEmInstanceId() printed with "%d": "65534".
    static std::string GetEmInstanceIdText();

    std::int16_t domainId_;
    std::uint16_t serviceId_;
    std::string instanceId_;
    std::string requestTopicName_;
    std::string replyTopicName_;
    std::string qosProfilePath_;
    std::pair<std::string, bool> network_;
};

}  // namespace tarn::em::util

#endif
