// SPDX-License-Identifier: Apache-2.0
// Counters of one method proxy, updated by the proxy and its driver from any thread.
#ifndef KELP_BRIO_UTILS_STATS_METHOD_PROXY_STATS_H
#define KELP_BRIO_UTILS_STATS_METHOD_PROXY_STATS_H

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>

#include "ara/core/internal/export.h"

namespace kelp::brio::utils::stats {

class ARA_EXPORT MethodProxyStats {
public:
    explicit MethodProxyStats(std::string entityName = {}) : entityName_(std::move(entityName)) {}

    void IncRequestSent() noexcept { requestSent_.fetch_add(1U, std::memory_order_relaxed); }
    void IncRequestFailed() noexcept { requestFailed_.fetch_add(1U, std::memory_order_relaxed); }
    void IncReplyReceived() noexcept { replyReceived_.fetch_add(1U, std::memory_order_relaxed); }
    void IncReplyInvalid() noexcept { replyInvalid_.fetch_add(1U, std::memory_order_relaxed); }
    void IncErrorReplyReceived() noexcept { errorReplyReceived_.fetch_add(1U, std::memory_order_relaxed); }

    std::uint64_t RequestSent() const noexcept { return requestSent_.load(std::memory_order_relaxed); }
    std::uint64_t RequestFailed() const noexcept { return requestFailed_.load(std::memory_order_relaxed); }
    std::uint64_t ReplyReceived() const noexcept { return replyReceived_.load(std::memory_order_relaxed); }
    std::uint64_t ReplyInvalid() const noexcept { return replyInvalid_.load(std::memory_order_relaxed); }
    std::uint64_t ErrorReplyReceived() const noexcept { return errorReplyReceived_.load(std::memory_order_relaxed); }
    const std::string& EntityName() const noexcept { return entityName_; }

private:
    std::string entityName_;
    std::atomic<std::uint64_t> requestSent_{0U};
    std::atomic<std::uint64_t> requestFailed_{0U};
    std::atomic<std::uint64_t> replyReceived_{0U};
    std::atomic<std::uint64_t> replyInvalid_{0U};
    std::atomic<std::uint64_t> errorReplyReceived_{0U};
};

}  // namespace kelp::brio::utils::stats

#endif
