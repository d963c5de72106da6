// SPDX-License-Identifier: Apache-2.0
// Abort paths of ara::core::Result.
#include "ara/core/result.h"

#include <cstdio>

#include "ara/core/abort.h"

namespace ara::core::internal {

void ResultErrorOnValue() noexcept {
    static constexpr const char* kText = "[CORETYPE Result] : Error, Error() called but NOT a error!";
    std::fprintf(stderr, "%s\n", kText);
    std::fflush(stderr);
    Abort(kText);
}

void ResultValueOnError() noexcept {
    static constexpr const char* kText = "[CORETYPE Result] : Error, Value() called but NOT a value!";
    std::fprintf(stderr, "%s\n", kText);
    std::fflush(stderr);
    Abort(kText);
}

}  // namespace ara::core::internal
