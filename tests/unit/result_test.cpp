// ara::core::Result: thrown domain exceptions and the abort paths of the accessors.
#include "ara/core/result.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ara/core/future_error_domain.h"
#include "ara/core/string.h"
#include "ara/exec/exec_error_domain.h"

namespace {

using ara::core::ErrorCode;
using ara::core::Result;
using ara::core::String;
using ara::exec::ExecErrc;

TEST(ResultTest, ValueOrThrowRaisesTheExceptionOfTheErrorsDomain) {
    try {
        (void)Result<int>(ErrorCode(ExecErrc::kBusy)).ValueOrThrow();
        ADD_FAILURE() << "no exception";
    } catch (const ara::exec::ExecException& e) {
        EXPECT_EQ(e.Error(), ErrorCode(ExecErrc::kBusy));
    }
    try {
        Result<void>(ErrorCode(ara::core::future_errc::kBrokenPromise)).ValueOrThrow();
        ADD_FAILURE() << "no exception";
    } catch (const ara::core::FutureException& e) {
        EXPECT_EQ(e.Error(), ErrorCode(ara::core::future_errc::kBrokenPromise));
    }
    EXPECT_EQ(Result<int>(5).ValueOrThrow(), 5);
}

// The text goes to standard error twice: the Result's own line, then the abort line.
constexpr const char* ERROR_ON_VALUE =
    "\\[CORETYPE Result\\] : Error, Error\\(\\) called but NOT a error!\n"
    "\\[ara::core::Abort\\] \\[CORETYPE Result\\] : Error, Error\\(\\) called but NOT a error!";
constexpr const char* VALUE_ON_ERROR =
    "\\[CORETYPE Result\\] : Error, Value\\(\\) called but NOT a value!\n"
    "\\[ara::core::Abort\\] \\[CORETYPE Result\\] : Error, Value\\(\\) called but NOT a value!";

TEST(ResultDeathTest, ErrorOnAValueAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const Result<String> value("Running");
    EXPECT_DEATH((void)value.Error(), ERROR_ON_VALUE);
    EXPECT_DEATH((void)Result<String>("Running").Error(), ERROR_ON_VALUE);
    const Result<void> ok;
    EXPECT_DEATH((void)ok.Error(), ERROR_ON_VALUE);
}

TEST(ResultDeathTest, ValueOnAnErrorAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const Result<String> failed{ErrorCode(ExecErrc::kGeneralError)};
    EXPECT_DEATH((void)failed.Value(), VALUE_ON_ERROR);
    EXPECT_DEATH((void)*failed, VALUE_ON_ERROR);
    const Result<void> voidFailed{ErrorCode(ExecErrc::kGeneralError)};
    EXPECT_DEATH(voidFailed.Value(), VALUE_ON_ERROR);
}

}  // namespace
