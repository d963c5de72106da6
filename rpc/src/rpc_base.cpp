// SPDX-License-Identifier: Apache-2.0
// Endpoint defaults, the loopback address choice and the one-time start of the DDS driver.
#include "tarn/em/util/rpc_base.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <mutex>

#include "kelp/brio/api/types/service_types.h"
#include "kelp/driver/dds/dds_driver.h"
#include "local_ip.h"
#include "tarn/em/log_em.h"

namespace tarn::em::util {
namespace {
std::atomic<bool> g_driverInitialized{false};
// The address is chosen once for the whole process, and endpoints of several client classes
// may be addressed on several threads at once.
std::mutex g_ipChoiceMutex;

constexpr const char* LOOPBACK_NET = "127";
constexpr std::size_t NET_NUMBER_LENGTH = 3U;

/// Decimal text of `value` as the descriptor fields hold it (a 16-byte buffer, as ever).
std::string FormatUnsigned(unsigned int value) {
    std::array<char, 16> text{};
    (void)std::snprintf(text.data(), text.size(), "%u", value);
    return text.data();
}
}  // namespace

const std::string RpcBase::DEFAULT_INSTANCE_ID{"0"};
const std::string RpcBase::DEFAULT_REQUEST_TOPIC_NAME{"RPC_REQUEST"};
const std::string RpcBase::DEFAULT_REPLY_TOPIC_NAME{"RPC_REPLY"};
const std::string RpcBase::DEFAULT_QOS_PROFILE_PATH{"/"};
std::string RpcBase::ipAddress_;
bool RpcBase::isReadIpConfig_ = false;

RpcBase::RpcBase()
    : domainId_(DEFAULT_DOMAIN_ID),
      serviceId_(DEFAULT_SERVICE_ID),
      instanceId_(DEFAULT_INSTANCE_ID),
      requestTopicName_(DEFAULT_REQUEST_TOPIC_NAME),
      replyTopicName_(DEFAULT_REPLY_TOPIC_NAME),
      qosProfilePath_(DEFAULT_QOS_PROFILE_PATH),
      network_(kelp::brio::api::types::UNDEFINED_NETWORK) {}

RpcBase::~RpcBase() = default;

std::uint32_t RpcBase::GetEmInstanceId() {
    return 0xFFFFFFFEU;
}

std::string RpcBase::GetEmInstanceIdText() {
    std::array<char, 16> text{};
    (void)std::snprintf(text.data(), text.size(), "%d", static_cast<int>(GetEmInstanceId() & 0xFFFFU));
    return text.data();
}

bool RpcBase::Initialize() const {
    if (g_driverInitialized.load()) {
        return true;
    }
    // Not locked: two first callers may both start the driver, which tolerates it.
    g_driverInitialized.store(kelp::driver::dds::DDSDriver::Init());
    return g_driverInitialized.load();
}

void RpcBase::ReadAndSetConfigIP() {
    const auto log = GetEmLog();
    const std::lock_guard<std::mutex> lock(g_ipChoiceMutex);
    if (!isReadIpConfig_) {
        if (!GetLocalIp(ipAddress_, true)) {
            log->warn() << "[RpcBase][Get loopback ip failed]";
        }
        isReadIpConfig_ = true;
        log->info() << "[RpcBase][Get loopback ip address][ip=" << ipAddress_ << "]";
    }
    if (ipAddress_.empty()) {
        ipAddress_ = "127.0.0.1";
        log->warn() << "[RpcBase][Can't get loopback ip, use default IP 127.0.0.1]";
    }
    network_ = {ipAddress_, true};
}

bool RpcBase::GetLocalIp(std::string& ip, bool isLoopBack) {
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        GetEmLog()->warn() << "[RpcBase][Cannot access local net config]";
        return false;
    }
    const bool found = detail::ChooseLocalIp(detail::Ipv4Texts(list), ip, isLoopBack);
    freeifaddrs(list);
    return found;
}

void RpcBase::InitializeMethodBase(const unsigned int& methodId,
                                   bool methodFlag,
                                   const std::unique_ptr<kelp::driver::dds::DDSMethodInfo>& info) const {
    const std::string methodText = FormatUnsigned(methodId);
    info->SetDomainId(GetDomainId());
    info->SetInstanceId(GetEmInstanceIdText());
    info->SetServiceId(GetServiceId());
    info->SetEntityId(methodId);
    info->SetEntityName(methodText);
    info->SetRequestTopicName(GetRequestTopicName() + "_" + methodText);
    info->SetReplyTopicName(GetReplyTopicName() + "_" + methodText);
    info->SetMethodFlag(methodFlag);
    info->SetDriverType(kelp::brio::api::types::DriverType::DDS);
    info->SetNetwork(GetNetwork());
    info->SetValue16(0U);
}

namespace detail {

std::vector<std::string> Ipv4Texts(const ifaddrs* list) {
    std::vector<std::string> texts;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) {
            continue;
        }
        std::array<char, 16> text{};
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): the family says sockaddr_in
        const auto* address = reinterpret_cast<const sockaddr_in*>(entry->ifa_addr);
        if (inet_ntop(AF_INET, &address->sin_addr, text.data(), static_cast<socklen_t>(text.size())) == nullptr) {
            continue;
        }
        texts.emplace_back(text.data());
    }
    return texts;
}

bool ChooseLocalIp(const std::vector<std::string>& texts, std::string& ip, bool isLoopBack) {
    const auto log = GetEmLog();
    bool found = false;
    std::vector<std::string> candidates;
    for (const std::string& text : texts) {
        if (text.size() < NET_NUMBER_LENGTH) {
            // Names the output parameter, not the address: kept as the system always logged it.
            log->warn() << "[RpcBase][Get net number error][ip=" << ip << "]";
            continue;
        }
        const bool loopback = text.compare(0U, NET_NUMBER_LENGTH, LOOPBACK_NET) == 0;
        if (!isLoopBack && !loopback) {
            ip = text;
            found = true;
            break;
        }
        if (isLoopBack && loopback) {
            candidates.push_back(text);
        }
    }
    if (isLoopBack && !candidates.empty()) {
        ip = *std::min_element(candidates.begin(), candidates.end());
        found = true;
    }
    log->debug() << "[RpcBase][Get ip address][ip=" << ip << ", is_loop_back=" << (isLoopBack ? 1 : 0) << "]";
    return found;
}

}  // namespace detail
}  // namespace tarn::em::util
