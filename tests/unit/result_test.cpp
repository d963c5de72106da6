// SPDX-License-Identifier: Apache-2.0
// ara::core::Result: thrown domain exceptions and the abort paths of the accessors.
#include "ara/core/result.h"

#include <gtest/gtest.h>

#include "ara/core/core_error_domain.h"
#include "ara/core/future_error_domain.h"
#include "ara/core/string.h"
#include "ara/exec/exec_error_domain.h"

namespace {

using ara::core::ErrorCode;
using ara::core::Result;
using ara::exec::ExecErrc;

// Each domain throws its own exception type.
TEST(ResultTest, ValueOrThrowRaisesTheExceptionOfTheErrorsDomain) {
    EXPECT_EQ(Result<int>(5).ValueOrThrow(), 5);
    EXPECT_THROW((void)Result<int>(ErrorCode(ExecErrc::kBusy)).ValueOrThrow(), ara::exec::ExecException);
    EXPECT_THROW(Result<void>(ErrorCode(ara::core::future_errc::kBrokenPromise)).ValueOrThrow(),
                 ara::core::FutureException);
    EXPECT_THROW(Result<void>(ErrorCode(ara::core::CoreErrc::kInvalidArgument)).ValueOrThrow(),
                 ara::core::CoreException);
}

// The text goes to standard error twice: the Result's own line, then the abort line.
constexpr const char* ERROR_ON_VALUE =
    "\\[CORETYPE Result\\] : Error, Error\\(\\) called but NOT a error!\n"
    "\\[ara::core::Abort\\] \\[CORETYPE Result\\] : Error, Error\\(\\) called but NOT a error!";
constexpr const char* VALUE_ON_ERROR =
    "\\[CORETYPE Result\\] : Error, Value\\(\\) called but NOT a value!\n"
    "\\[ara::core::Abort\\] \\[CORETYPE Result\\] : Error, Value\\(\\) called but NOT a value!";

TEST(ResultDeathTest, ReadingTheAlternativeNotHeldAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const Result<ara::core::String> value("Running");
    EXPECT_DEATH((void)value.Error(), ERROR_ON_VALUE);
    EXPECT_DEATH((void)Result<ara::core::String>("Running").Error(), ERROR_ON_VALUE);
    EXPECT_DEATH((void)Result<void>().Error(), ERROR_ON_VALUE);
    const Result<ara::core::String> failed{ErrorCode(ExecErrc::kGeneralError)};
    EXPECT_DEATH((void)failed.Value(), VALUE_ON_ERROR);
    EXPECT_DEATH((void)*failed, VALUE_ON_ERROR);
    EXPECT_DEATH(Result<void>(ErrorCode(ExecErrc::kGeneralError)).Value(), VALUE_ON_ERROR);
}

}  // namespace
