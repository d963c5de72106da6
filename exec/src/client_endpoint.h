// SPDX-License-Identifier: Apache-2.0
// What each client class keeps for the whole process: its RPC endpoint on one Execution
// Management service, the "EMCL" logger, whether the one-time set-up left it usable, and its
// discovery wait; plus the steps every client shares (set-up, readiness, sending a request).
#ifndef ARA_EXEC_SRC_CLIENT_ENDPOINT_H
#define ARA_EXEC_SRC_CLIENT_ENDPOINT_H

#include <atomic>
#include <chrono>
#include <iostream>
#include <memory>
#include <mutex>
#include <tuple>
#include <type_traits>

#include "ara/core/promise.h"
#include "kelp/brio/api/types/error_domains.h"
#include "tarn/em/em_services.h"
#include "tarn/em/log_em.h"
#include "tarn/em/util/rpc_client.h"

namespace ara::exec::detail {

/// Execution Management expects this pause before a request (the name lookup of the
/// recovery action client goes without it); it is part of the protocol.
constexpr std::chrono::microseconds PAUSE_BEFORE_REQUEST{50000};
/// How long a client that waits for its reply waits.
constexpr std::chrono::milliseconds REPLY_WAIT{1900};

/// One per client class, made on first use (see exec/README.md).
/// @thread-safety Construct() and the calls below may run on any thread; the one-time set-up
/// runs once, and the discovery outcome is written once and read often. Constructions of one
/// class wait for each other while they re-apply the address and, the first time, the set-up.
class ClientEndpoint {
public:
    ClientEndpoint() : rpc_(false, tarn::em::services::ErrorCodes()) {}

    /// Re-applies the address (every construction of a client does), then runs `setUp` once
    /// per process. Both under settingsMutex_: the set-up reads the endpoint settings that a
    /// construction on another thread rewrites.
    template <typename SetUp>
    void Construct(const tarn::em::services::ServiceAddress& address, SetUp setUp) {
        const std::lock_guard<std::mutex> lock(settingsMutex_);
        tarn::em::services::Address(rpc_, address);
        std::call_once(setUpOnce_, setUp);
    }

    /// The first steps of the one-time set-up: the log contexts, the "EMCL" logger (with
    /// `invalidLoggerText` on standard output when it is invalid) and the transport's start.
    /// False, with "[<className>][Client failed to be initialized]", when the transport does
    /// not start; the client then stays unusable.
    bool StartTransport(const char* className, const char* invalidLoggerText) {
        using ara::quill::common::log::Log;
        Log::InitLog("", "EM", "");
        Log::InitLog("", "EMCL", "");
        Log::InitLog("", "CM", "");
        logger_ = Log::GetLog("EMCL");
        if (!logger_->IsValid()) {
            std::cout << invalidLoggerText << std::endl;
        }
        usable_.store(rpc_.Initialize());
        if (!usable_.load()) {
            logger_->error() << "[" << className << "][Client failed to be initialized]";
        }
        return usable_.load();
    }

    /// The last step: usable only when every method was bound, with the line of the outcome.
    void FinishSetUp(const char* className, bool bound) {
        usable_.store(bound);
        if (bound) {
            logger_->info() << "[" << className << "][Client method initialized successfully]";
        } else {
            logger_->error() << "[" << className << "][Client method failed to be initialized]";
        }
    }

    /// Whether the service is known: after the one-time wait of the process (up to 1.4 s), or
    /// once a 10 ms check on this or an earlier call has seen it. Logs when it is not.
    bool ServiceFound() {
        rpc_.ClientFindService(findServiceOnce_, findServiceDone_);
        if (findServiceDone_ || serviceConfirmed_.load()) {
            return true;
        }
        if (rpc_.CheckFindServiceResult()) {
            serviceConfirmed_.store(true);
            return true;
        }
        tarn::em::GetEmLog()->error() << "[RpcClient][Service is unavailable]";
        return false;
    }

    /// Binds method M; true when it was bound.
    template <typename M>
    bool Bind() {
        return rpc_.InitializeMethod<typename M::Result>(M::ID, false, false);
    }

    /// Sends `args` to method M; an unbound method gives a future holding Com code 3, as a
    /// request the transport cannot take does.
    template <typename M, typename... Args>
    ara::core::Future<typename M::Result, ara::core::ErrorCode> Call(const Args&... args) {
        using T = typename M::Result;
        static_assert(std::is_same_v<std::tuple<Args...>, typename M::Arguments>, "the arguments are the method's own");
        const auto method = rpc_.proxy_.GetMethodProxy<T>(M::ID);
        if (method == nullptr) {
            return Failed<T>(ara::core::ErrorCode(kelp::brio::api::types::ComErrc::kNetworkBindingFailure, 0));
        }
        return method->Request(args...);
    }

    /// A future that already holds `error`.
    template <typename T>
    static ara::core::Future<T, ara::core::ErrorCode> Failed(const ara::core::ErrorCode& error) {
        ara::core::Promise<T, ara::core::ErrorCode> promise;
        auto future = promise.get_future();
        promise.SetError(error);
        return future;
    }

    /// The "EMCL" logger; looked up on the spot before the one-time set-up ran.
    std::shared_ptr<ara::quill::common::log::Log> Logger() const {
        return logger_ != nullptr ? logger_ : ara::quill::common::log::Log::GetLog("EMCL");
    }
    bool Usable() const noexcept { return usable_.load(); }
    tarn::em::util::RpcClient& Rpc() noexcept { return rpc_; }

private:
    std::mutex settingsMutex_;  // the endpoint settings of rpc_: their writes and the set-up's reads
    tarn::em::util::RpcClient rpc_;
    std::shared_ptr<ara::quill::common::log::Log> logger_;
    // Decided once, inside setUpOnce_; atomic because CommunicationProcessing() may read it on
    // a thread that constructed no client while another thread runs the set-up.
    std::atomic<bool> usable_{false};
    std::once_flag setUpOnce_;
    bool findServiceDone_{false};  // written only inside findServiceOnce_
    std::once_flag findServiceOnce_;
    std::atomic<bool> serviceConfirmed_{false};  // concurrent callers may confirm it at once
};

/// Whether `error` belongs to the middleware's Com domain (a transport failure).
inline bool IsComError(const ara::core::ErrorCode& error) {
    return error.Domain().Id() == kelp::brio::api::types::ComErrorDomain::kId;
}

}  // namespace ara::exec::detail

#endif
