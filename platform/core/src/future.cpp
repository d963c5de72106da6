// SPDX-License-Identifier: Apache-2.0
// Out-of-line parts of ara::core::Future: mapping standard future errors and statuses.
#include "ara/core/future.h"

#include <cstdio>

#include "ara/core/core_error_domain.h"
#include "ara/core/future_error_domain.h"

namespace ara::core::internal {

ErrorCode MapFutureError(const std::error_code& error) noexcept {
    if (error.category() == std::future_category()) {
        switch (static_cast<std::future_errc>(error.value())) {
            case std::future_errc::broken_promise:
                return MakeErrorCode(future_errc::kBrokenPromise, 0);
            case std::future_errc::future_already_retrieved:
                return MakeErrorCode(future_errc::kFutureAlreadyRetrieved, 0);
            case std::future_errc::promise_already_satisfied:
                return MakeErrorCode(future_errc::kPromiseAlreadySatisfied, 0);
            case std::future_errc::no_state:
                return MakeErrorCode(future_errc::kNoState, 0);
        }
    }
    return MakeErrorCode(CoreErrc::kInvalidArgument, 0);
}

future_status MapFutureStatus(std::future_status status) noexcept {
    switch (status) {
        case std::future_status::ready:
            return future_status::kReady;
        case std::future_status::timeout:
            return future_status::kTimeout;
        case std::future_status::deferred:
            break;
    }
    std::fputs("[CORETYPE Future]: Error, Invlid future_status of Future, rerutn default value: timeout\n", stdout);
    std::fflush(stdout);
    return future_status::kTimeout;
}

}  // namespace ara::core::internal
