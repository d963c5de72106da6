// SPDX-License-Identifier: Apache-2.0
// The client end of one Execution Management RPC service: binds its methods, starts service
// discovery once, turns the first "found" into a one-shot ready signal, and fails the
// waiting calls of every bound method when the service goes offline.
#ifndef TARN_EM_UTIL_RPC_CLIENT_H
#define TARN_EM_UTIL_RPC_CLIENT_H

#include <atomic>
#include <cstdint>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "ara/core/error_code.h"
#include "ara/core/internal/export.h"
#include "ara/quill/common/log/log.h"
#include "kelp/brio/api/types/service_types.h"
#include "kelp/brio/proxy.h"
#include "kelp/driver/dds/dds_types.h"
#include "tarn/em/util/rpc_base.h"

namespace tarn::em::util {

/// The error codes an RPC client reports, given by the layer that owns them: those every
/// bound method may receive from the server (registered with each method, in order), and
/// the one that ends every waiting call when the service goes offline.
struct ARA_EXPORT RpcErrorCodes {
    std::vector<ara::core::ErrorCode> methodErrors;
    ara::core::ErrorCode offline;

    /// What a client built without codes of its own uses: the codes the owning layer
    /// installed with SetDefault() (the client library installs its Exec codes when it is
    /// loaded), else none registered and Com kServiceNotAvailable when the service goes.
    static RpcErrorCodes Default();
    static void SetDefault(RpcErrorCodes codes);
};

/// @thread-safety methods are bound from one thread (the owner's one-time initialisation);
/// the waits and the proxy may be used from any thread; discovery notifications arrive on
/// transport threads.
class ARA_EXPORT RpcClient : public RpcBase {
public:
    static const std::string DEFAULT_INSTANCE_ID;  // "0"

    /// `flag` goes to the proxy and presets isFindServiceStarted_ (true: never start discovery).
    explicit RpcClient(bool flag);
    /// As above, reporting `codes` instead of the process default.
    RpcClient(bool flag, RpcErrorCodes codes);
    /// Discovery is stopped here only when it was not started by a binding (see the .cpp).
    ~RpcClient() override;
    RpcClient(const RpcClient&) = delete;
    RpcClient& operator=(const RpcClient&) = delete;

    /// Binds method `methodId` with result type T (void, ara::core::String or
    /// std::vector<ara::exec::Process>); the first binding starts discovery. `reservedFlag`
    /// is accepted and has no effect.
    template <class T>
    bool InitializeMethod(const unsigned int& methodId, bool methodFlag, bool reservedFlag);

    /// Starts discovery of this endpoint's service (the first binding calls it).
    void StartClientFindService(const std::set<kelp::driver::dds::qos::TransportQos>& transportQos);
    /// Waits up to 1.4 s for the service. @throws std::future_error no state before discovery started.
    bool GetFindServiceResult();
    /// Waits up to 10 ms for the service. @throws std::future_error no state before discovery started.
    bool CheckFindServiceResult();
    /// `result = GetFindServiceResult()`, once per `once` flag.
    void ClientFindService(std::once_flag& once, bool& result);
    /// Filter kind 2 "[1]", true, 500, 1000, 60000, 24000.
    kelp::driver::dds::qos::ParticipantQos GetParticipantQos() const;

    kelp::brio::api::types::HandleType handle_;
    kelp::brio::Proxy proxy_;
    bool reservedFlag_{false};
    bool isFindServiceStarted_;
    std::atomic<bool> isServiceFound_{false};
    bool isFindServiceHandleSet_{false};
    std::atomic<bool> isServiceOffline_{false};
    std::promise<void> findServicePromise_;
    std::future<void> findServiceFuture_;
    std::mutex mutex_;
    kelp::brio::api::types::FindServiceHandle findServiceHandle_{0xFFFFFFFFU, true};
    std::vector<std::uint32_t> methodIds_;

private:
    void OnFindService(const std::vector<kelp::brio::api::types::HandleType>& handles);
    bool WaitFindService(std::int64_t timeoutNs, const char* foundText, const char* failedText);
    std::unique_ptr<kelp::driver::dds::DDSMethodInfo> MakeMethodInfo(
        const unsigned int& methodId, bool methodFlag, std::set<kelp::driver::dds::qos::TransportQos>& transportQos);
    static std::shared_ptr<ara::quill::common::log::Log> Logger();
    RpcErrorCodes ErrorCodes() const { return codes_ ? *codes_ : RpcErrorCodes::Default(); }

    std::optional<RpcErrorCodes> codes_;
};

template <class T>
bool RpcClient::InitializeMethod(const unsigned int& methodId, bool methodFlag, bool /*reservedFlag*/) {
    std::set<kelp::driver::dds::qos::TransportQos> transportQos;
    std::shared_ptr<kelp::brio::api::types::MethodInfo> info = MakeMethodInfo(methodId, methodFlag, transportQos);
    if (!isFindServiceStarted_) {
        StartClientFindService(transportQos);
        isFindServiceStarted_ = true;
    }
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (proxy_.InitializeMethodProxy<T>(methodId, info)) {
            for (const ara::core::ErrorCode& code : ErrorCodes().methodErrors) {
                (void)proxy_.RegisterError(methodId, code);
            }
            methodIds_.push_back(methodId);
            return true;
        }
    }
    Logger()->warn() << "[RpcClient][Rpc client failed to initialize method with method id][method_id=" << methodId
                     << "]";
    return false;
}

}  // namespace tarn::em::util

#endif
