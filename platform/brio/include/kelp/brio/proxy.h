// SPDX-License-Identifier: Apache-2.0
// Client side of one service: the method proxies of a Brio plus service discovery, error
// registration per method and the release of waiting calls when the service goes away.
#ifndef KELP_BRIO_PROXY_H
#define KELP_BRIO_PROXY_H

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "ara/core/error_code.h"
#include "kelp/brio/api/types/service_types.h"
#include "kelp/brio/brio.h"

namespace kelp::brio {

/// @thread-safety every operation may be called from any thread. Discovery handlers run on
/// transport threads.
class ARA_EXPORT Proxy : public Brio {
public:
    using FindServiceHandler =
        std::function<void(std::vector<api::types::HandleType>, api::types::FindServiceHandle)>;
    using DiscoveryRequest =
        std::multimap<api::types::DriverType, std::shared_ptr<api::types::ServiceDiscoveryInfo>>;

    Proxy(const api::types::HandleType& handle, const bool& flag);
    /// Stops the discoveries still running and unhooks every method proxy from its transport
    /// before the proxies go.
    ~Proxy() override;

    /// Starts discovery on the transport of each entry of `info`; `handler` receives the
    /// alive matching instances whenever availability changes (an empty list: gone). The
    /// handle to stop it with, or nullopt when no transport could start it.
    std::optional<api::types::FindServiceHandle> StartFindService(const FindServiceHandler& handler,
                                                                  const DiscoveryRequest& info);
    /// Once this returns, the discovery's handler is not running and will not run.
    void StopFindService(const api::types::FindServiceHandle& handle);
    /// Stops every discovery this proxy started.
    void StopAllFindService();

    /// Declares that replies of `methodId` may carry `errorCode`. False when the method is
    /// not bound.
    bool RegisterError(const unsigned int& methodId, const ara::core::ErrorCode& errorCode);
    /// Fails every call of `methodId` that waits for its reply with `errorCode`.
    void DestroyWaitingMethodPromise(const ara::core::ErrorCode& errorCode, const unsigned int& methodId);

    const api::types::HandleType& GetHandle() const noexcept { return handle_; }
    bool GetFlag() const noexcept { return flag_; }

private:
    const api::types::HandleType handle_;
    const bool flag_;
    std::mutex findMutex_;
    /// Our handle id -> the (transport, transport discovery id) pairs it started.
    std::map<std::uint32_t, std::vector<std::pair<api::types::DriverType, std::uint32_t>>> finds_;
};

}  // namespace kelp::brio

#endif
