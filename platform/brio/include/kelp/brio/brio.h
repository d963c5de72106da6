// SPDX-License-Identifier: Apache-2.0
// The middleware object of one service user: its method proxies, keyed by method id, and
// the binding of each proxy to the transport its descriptor names.
#ifndef KELP_BRIO_BRIO_H
#define KELP_BRIO_BRIO_H

#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "ara/core/internal/export.h"
#include "ara/quill/common/log/log.h"
#include "kelp/brio/api/types/entity_info.h"
#include "kelp/brio/method_proxy.h"
#include "kelp/brio/method_proxy_impl.h"

namespace kelp::brio {

/// @thread-safety every operation may be called from any thread.
class ARA_EXPORT Brio {
public:
    Brio();
    virtual ~Brio();
    Brio(const Brio&) = delete;
    Brio& operator=(const Brio&) = delete;

    /// Creates the proxy of `methodId` with result type T, hands it `info` and binds it to
    /// its transport (InitializeMethodHandler). False when the id is bound already ("Method
    /// <id> alreay initialized") or the transport cannot be bound.
    template <typename T>
    bool InitializeMethodProxy(unsigned int methodId, const std::shared_ptr<api::types::MethodInfo>& info);

    /// Binds the proxy of `info`'s entity id to a transport: the process-local one when this
    /// process serves that method itself (the descriptor's driver type becomes PROLOC), else
    /// the registered transport of the descriptor's driver type. False, with a log line,
    /// when there is no such proxy or transport or the transport refuses.
    bool InitializeMethodHandler(const std::shared_ptr<api::types::MethodInfo>& info);

    /// The proxy of `methodId` if it has result type T, else null.
    template <typename T>
    std::shared_ptr<MethodProxyImpl<T>> GetMethodProxy(unsigned int methodId) const {
        return std::dynamic_pointer_cast<MethodProxyImpl<T>>(FindMethodProxy(methodId));
    }

protected:
    std::shared_ptr<MethodProxy> FindMethodProxy(unsigned int methodId) const;
    std::vector<std::shared_ptr<MethodProxy>> AllMethodProxies() const;
    /// Entity name of a method's statistics: "<program name>/<method UUID text>".
    static std::string StatisticsName(const api::types::MethodInfo& info);

    std::shared_ptr<ara::quill::common::log::Log> logger_;

private:
    mutable std::mutex mutex_;
    std::map<unsigned int, std::shared_ptr<MethodProxy>> methodProxies_;
};

template <typename T>
bool Brio::InitializeMethodProxy(unsigned int methodId, const std::shared_ptr<api::types::MethodInfo>& info) {
    auto proxy = std::make_shared<MethodProxyImpl<T>>(methodId);
    proxy->SetMethodInfo(info);
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (methodProxies_.count(methodId) != 0U) {
            logger_->warn() << "Method " << methodId << " alreay initialized";
            return false;
        }
        logger_->verbose() << "New Method initialize prepare " << methodId;
        methodProxies_.emplace(methodId, proxy);
    }
    const bool bound = InitializeMethodHandler(info);
    if (info) {
        proxy->SetMethodProxyStats(std::make_shared<utils::stats::MethodProxyStats>(StatisticsName(*info)));
    }
    return bound;
}

}  // namespace kelp::brio

#endif
