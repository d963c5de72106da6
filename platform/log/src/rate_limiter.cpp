// SPDX-License-Identifier: Apache-2.0
// Fixed-window rate limiting per log id.
#include "rate_limiter.h"

namespace ara::quill::common::log::internal {

bool RateLimiter::Admit(const std::string& logId, const LimitConfig& limit, Clock::time_point now) {
    if (logId.empty()) {
        return true;
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    auto found = windows_.find(logId);
    if (found == windows_.end()) {
        found = windows_.emplace(logId, Window{now, 0U}).first;
    } else if (now - found->second.start >= std::chrono::milliseconds(limit.period)) {
        found->second = Window{now, 0U};
    }
    if (found->second.used >= limit.count) {
        return false;
    }
    ++found->second.used;
    return true;
}

void RateLimiter::Reset() {
    const std::lock_guard<std::mutex> lock(mutex_);
    windows_.clear();
}

}  // namespace ara::quill::common::log::internal
