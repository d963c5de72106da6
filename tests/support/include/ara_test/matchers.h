// SPDX-License-Identifier: Apache-2.0
// Matchers for results and error codes: EXPECT_THAT(result, HasError(ExecErrc::kBusy)).
#ifndef ARA_TEST_MATCHERS_H
#define ARA_TEST_MATCHERS_H

#include <gmock/gmock.h>

namespace ara_test {

/// Matches an ara::core::Result (or anything with HasValue()) that holds a value.
MATCHER(IsOk, "holds a value") {
    if (!arg.HasValue()) {
        *result_listener << "holds error " << arg.Error().Value() << " of domain " << arg.Error().Domain().Name();
        return false;
    }
    return true;
}

/// Matches a Result holding exactly `code` (domain and value), or an ErrorCode equal to it.
MATCHER_P(HasError, code, "holds the error " + ::testing::PrintToString(static_cast<int>(code))) {
    const ara::core::ErrorCode expected{code};
    if constexpr (std::is_same_v<std::decay_t<decltype(arg)>, ara::core::ErrorCode>) {
        return arg == expected;
    } else {
        if (arg.HasValue()) {
            *result_listener << "holds a value";
            return false;
        }
        *result_listener << "holds error " << arg.Error().Value() << " of domain " << arg.Error().Domain().Name();
        return arg.Error() == expected;
    }
}

}  // namespace ara_test

#endif
