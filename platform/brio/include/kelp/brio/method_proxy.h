// SPDX-License-Identifier: Apache-2.0
// The type-erased client half of one remote method, as the middleware holds it.
#ifndef KELP_BRIO_METHOD_PROXY_H
#define KELP_BRIO_METHOD_PROXY_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "ara/core/error_code.h"
#include "ara/core/internal/export.h"
#include "kelp/brio/api/types/entity_info.h"
#include "kelp/brio/driver/method_handler.h"
#include "kelp/com/e2exf/e2e_result.h"

namespace kelp::brio {

class ARA_EXPORT MethodProxy {
public:
    MethodProxy() = default;
    MethodProxy(const MethodProxy&) = delete;
    MethodProxy& operator=(const MethodProxy&) = delete;
    virtual ~MethodProxy();

    // Virtual slots, in this order.
    virtual void SetDriver(const std::shared_ptr<driver::MethodHandler>& driver) = 0;
    virtual std::shared_ptr<driver::MethodHandler> GetDriver() const = 0;
    virtual com::e2exf::E2EResult GetE2EResult() const = 0;
    virtual void SetFireAndForget(bool isFireAndForget) = 0;
    /// Declares an error code that replies of this method may carry.
    virtual void RegisterError(const ara::core::ErrorCode& errorCode) = 0;
    /// Fails every call still waiting for its reply with `errorCode`.
    virtual void DestroyWaitingPromise(const ara::core::ErrorCode& errorCode) = 0;
    virtual void SetMethodStateChangeHandler(const std::function<void(api::types::MethodState)>& handler) = 0;
    virtual void UnsetMethodStateChangeHandler() = 0;
    /// The driver delivers no more replies; the driver itself stays set.
    virtual void StopReceiveData() = 0;
    virtual void SetMethodInfo(const std::shared_ptr<api::types::MethodInfo>& info) = 0;
    virtual std::uint8_t GetSMState() const = 0;
    virtual void SetMethodProxyStats(const std::shared_ptr<utils::stats::MethodProxyStats>& stats) = 0;
    virtual std::string MakePlogStatisticsStr() const = 0;
};

}  // namespace kelp::brio

#endif
