// SPDX-License-Identifier: Apache-2.0
// Discovery of the Execution Management service, the one-shot ready signal, the offline
// handling and the method descriptors of the RPC client.
#include "tarn/em/util/rpc_client.h"

#include <chrono>
#include <map>

#include "kelp/brio/api/types/error_domains.h"
#include "tarn/em/log_em.h"

namespace tarn::em::util {
namespace {
constexpr std::int64_t FIRST_CHECK_WAIT_NS = 80000000;
constexpr std::int64_t FIND_SERVICE_WAIT_NS = 1400000000;
constexpr std::int64_t CHECK_SERVICE_WAIT_NS = 10000000;
constexpr std::uint32_t METHOD_DEPTH = 10U;
}  // namespace

const std::string RpcClient::DEFAULT_INSTANCE_ID{"0"};

namespace {
std::mutex& DefaultCodesMutex() {
    static std::mutex mutex;
    return mutex;
}
RpcErrorCodes& DefaultCodes() {
    static RpcErrorCodes codes{{}, ara::core::ErrorCode(kelp::brio::api::types::ComErrc::kServiceNotAvailable, 0)};
    return codes;
}
}  // namespace

RpcErrorCodes RpcErrorCodes::Default() {
    const std::lock_guard<std::mutex> lock(DefaultCodesMutex());
    return DefaultCodes();
}

void RpcErrorCodes::SetDefault(RpcErrorCodes codes) {
    const std::lock_guard<std::mutex> lock(DefaultCodesMutex());
    DefaultCodes() = std::move(codes);
}

RpcClient::RpcClient(bool flag)
    : handle_{RpcBase::DEFAULT_SERVICE_ID, RpcClient::DEFAULT_INSTANCE_ID, true},
      proxy_(handle_, flag),
      isFindServiceStarted_(flag) {}

RpcClient::RpcClient(bool flag, RpcErrorCodes codes) : RpcClient(flag) {
    codes_ = std::move(codes);
}

RpcClient::~RpcClient() {
    // A discovery started by a method binding is not stopped through its handle here: the
    // two flags pair up that way on purpose.
    if (!isFindServiceStarted_ && isFindServiceHandleSet_) {
        proxy_.StopFindService(findServiceHandle_);
    }
    // The notification handler uses the members below, which go before the proxy does:
    // detach it from every discovery of the proxy now.
    proxy_.StopAllFindService();
}

std::shared_ptr<ara::quill::common::log::Log> RpcClient::Logger() {
    return GetEmLog();
}

kelp::driver::dds::qos::ParticipantQos RpcClient::GetParticipantQos() const {
    return kelp::driver::dds::qos::DefaultRpcParticipantQos();
}

std::unique_ptr<kelp::driver::dds::DDSMethodInfo> RpcClient::MakeMethodInfo(
    const unsigned int& methodId, bool methodFlag, std::set<kelp::driver::dds::qos::TransportQos>& transportQos) {
    auto info = std::make_unique<kelp::driver::dds::DDSMethodInfo>();
    InitializeMethodBase(methodId, methodFlag, info);
    info->SetRequestDepth(METHOD_DEPTH);
    info->SetReplyDepth(METHOD_DEPTH);
    info->SetParticipantQos(GetParticipantQos());
    transportQos = {kelp::driver::dds::qos::TransportQos::UDP};
    Logger()->info() << "[RpcClient][Rpc client using UDP transport mode][method_id=" << methodId << "]";
    info->SetTransportQos(transportQos);
    return info;
}

void RpcClient::StartClientFindService(const std::set<kelp::driver::dds::qos::TransportQos>& transportQos) {
    auto request = std::make_shared<kelp::driver::dds::DDSServiceDiscoveryInfo>();
    request->SetServiceId(GetServiceId());
    request->SetInstanceId(GetEmInstanceIdText());
    request->SetDomainId(GetDomainId());
    request->SetQosProfile(kelp::brio::api::types::UNDEFINED_QOS_PROFILE);
    request->SetNetwork(GetNetwork());
    request->SetFlag(true);
    request->SetParticipantQos(GetParticipantQos());
    request->SetTransportQos(transportQos);
    const kelp::brio::Proxy::DiscoveryRequest discovery{{kelp::brio::api::types::DriverType::DDS, request}};

    const auto log = Logger();
    log->info() << "[RpcClient][Rpc client begin to find service]";
    // Taken before discovery starts, so that a notification arriving at once never races it.
    findServiceFuture_ = findServicePromise_.get_future();
    const auto handle =
        proxy_.StartFindService([this](std::vector<kelp::brio::api::types::HandleType> handles,
                                       kelp::brio::api::types::FindServiceHandle) { OnFindService(handles); },
                                discovery);
    if (findServiceFuture_.wait_for(std::chrono::nanoseconds(FIRST_CHECK_WAIT_NS)) == std::future_status::ready) {
        log->debug() << "[RpcClient][Rpc client try check service successfully]";
    } else {
        log->warn() << "[RpcClient][Rpc client try check service failed]";
    }
    if (handle) {
        findServiceHandle_ = *handle;
        isFindServiceHandleSet_ = true;
        log->debug() << "[RpcClient][Find service handle is set]";
    }
}

void RpcClient::OnFindService(const std::vector<kelp::brio::api::types::HandleType>& handles) {
    if (!handles.empty()) {
        isServiceOffline_.store(false);
        bool expected = false;
        if (!isServiceFound_.compare_exchange_strong(expected, true)) {
            return;
        }
        findServicePromise_.set_value();
        Logger()->info() << "[RpcClient][Rpc client service has been found]";
        return;
    }
    isServiceOffline_.store(true);
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        const ara::core::ErrorCode lost = ErrorCodes().offline;
        for (const std::uint32_t methodId : methodIds_) {
            proxy_.DestroyWaitingMethodPromise(lost, methodId);
        }
    }
    Logger()->warn() << "[RpcClient][Rpc client service offline]";
}

bool RpcClient::WaitFindService(std::int64_t timeoutNs, const char* foundText, const char* failedText) {
    if (!findServiceFuture_.valid()) {
        throw std::future_error(std::future_errc::no_state);
    }
    if (findServiceFuture_.wait_for(std::chrono::nanoseconds(timeoutNs)) == std::future_status::ready) {
        Logger()->info() << foundText;
        return true;
    }
    Logger()->error() << failedText;
    return false;
}

bool RpcClient::GetFindServiceResult() {
    return WaitFindService(FIND_SERVICE_WAIT_NS,
                           "[RpcClient][Rpc client first find service successfully]",
                           "[RpcClient][Rpc client first find service failed]");
}

bool RpcClient::CheckFindServiceResult() {
    return WaitFindService(CHECK_SERVICE_WAIT_NS,
                           "[RpcClient][Rpc client check service successfully]",
                           "[RpcClient][Rpc client check service failed]");
}

void RpcClient::ClientFindService(std::once_flag& once, bool& result) {
    std::call_once(once, [this, &result] { result = GetFindServiceResult(); });
}

}  // namespace tarn::em::util
