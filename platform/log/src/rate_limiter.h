// SPDX-License-Identifier: Apache-2.0
// Per-log-id rate limiting of records: a fixed window of `period` ms admitting `count` records.
#ifndef ARA_QUILL_COMMON_LOG_SRC_RATE_LIMITER_H
#define ARA_QUILL_COMMON_LOG_SRC_RATE_LIMITER_H

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_map>

#include "ara/quill/common/log/log.h"

namespace ara::quill::common::log::internal {

/// Windows are kept per log id for the whole process, whichever context logs under the id; the
/// limit passed with each record applies to that record. A window opens with the first record
/// after the previous window has run out.
class RateLimiter {
public:
    using Clock = std::chrono::steady_clock;

    /// True when a record under `logId` may be emitted at `now`; counts it if so. An empty
    /// `logId` is always admitted and not counted.
    bool Admit(const std::string& logId, const LimitConfig& limit, Clock::time_point now);
    /// Forgets every window, so the next record of each log id is admitted.
    void Reset();

private:
    struct Window {
        Clock::time_point start;
        std::uint32_t used;
    };

    std::mutex mutex_;
    std::unordered_map<std::string, Window> windows_;
};

}  // namespace ara::quill::common::log::internal

#endif
