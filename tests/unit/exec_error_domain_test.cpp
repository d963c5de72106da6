// Message tables, names, ids and exceptions of the Exec, Core and Future domains.
#include "ara/exec/exec_error_domain.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "ara/core/core_error_domain.h"
#include "ara/core/future_error_domain.h"
#include "ara/exec/execution_state.h"

namespace {

using ara::core::ErrorDomain;

struct MessageRow {
    ErrorDomain::CodeType code;
    const char* text;
};

TEST(ExecErrorDomainTest, NameIdAndMessageTable) {
    const ErrorDomain& domain = ara::exec::GetExecErrorDomain();
    EXPECT_STREQ(domain.Name(), "Exec");
    EXPECT_EQ(domain.Id(), 0x8000000000000300ULL);
    EXPECT_EQ(domain.Id(), 9223372036854776576ULL);
    const MessageRow rows[] = {
        {1, "Some unspecified error occurred"},
        {2, "Invalid argument was passed"},
        {3, "Communication error occurred"},
        {4, "Wrong meta model identifier passed to a function"},
        {5, "Transition to the requested Function Group state was cancelled by a newer request"},
        {6, "Transition to the requested Function Group state failed"},
        {7, "Execution Management is busy and cannot provide requested information"},
    };
    for (const MessageRow& row : rows) {
        EXPECT_STREQ(domain.Message(row.code), row.text) << "code " << row.code;
        EXPECT_EQ(ara::core::ErrorCode(static_cast<ara::exec::ExecErrc>(row.code)).Message(), row.text);
    }
}

TEST(ExecErrorDomainTest, UnknownCodesGiveEmptyTextAndStayStable) {
    const ErrorDomain& domain = ara::exec::GetExecErrorDomain();
    for (const ErrorDomain::CodeType code : {0, 8, -1, 2147483647}) {
        const char* first = domain.Message(code);
        EXPECT_STREQ(first, "") << "code " << code;
        EXPECT_EQ(domain.Message(code), first) << "a repeated lookup returns the same entry";
    }
    EXPECT_STREQ(domain.Message(1), "Some unspecified error occurred") << "known entries unaffected";
}

TEST(ExecErrorDomainTest, ConcurrentLookupsOfNewCodesAreSafe) {
    const ErrorDomain& domain = ara::exec::GetExecErrorDomain();
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&domain, t] {
            for (int i = 0; i < 500; ++i) {
                EXPECT_STREQ(domain.Message(1000 + (i * 4) + t), "");
                EXPECT_STREQ(domain.Message(7),
                             "Execution Management is busy and cannot provide requested information");
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
}

TEST(CoreErrorDomainTest, NameIdAndMessageTable) {
    const ErrorDomain& domain = ara::core::GetCoreErrorDomain();
    EXPECT_STREQ(domain.Name(), "Core");
    EXPECT_EQ(domain.Id(), 0x8000000000000014ULL);
    const MessageRow rows[] = {
        {22, "Invalid argument"},
        {137, "Invalid meta model short name"},
        {138, "Invalid meta model path"},
    };
    for (const MessageRow& row : rows) {
        EXPECT_STREQ(domain.Message(row.code), row.text) << "code " << row.code;
    }
}

TEST(FutureErrorDomainTest, NameIdAndMessageTable) {
    const ErrorDomain& domain = ara::core::GetFutureErrorDomain();
    EXPECT_STREQ(domain.Name(), "Future");
    EXPECT_EQ(domain.Id(), 0x8000000000000013ULL);
    const MessageRow rows[] = {
        {101, "broken promise"},
        {102, "future already retrieved"},
        {103, "promise already satisfied"},
        {104, "no state"},
    };
    for (const MessageRow& row : rows) {
        EXPECT_STREQ(domain.Message(row.code), row.text) << "code " << row.code;
    }
}

TEST(ErrorDomainDeathTest, UnknownCoreAndFutureCodesAbortWithTheFallbackText) {
    EXPECT_DEATH(ara::core::GetCoreErrorDomain().Message(1), "Unknown core error");
    EXPECT_DEATH(ara::core::GetCoreErrorDomain().Message(0), "Unknown core error");
    EXPECT_DEATH(ara::core::GetFutureErrorDomain().Message(100), "unknown future error");
    EXPECT_DEATH(ara::core::GetFutureErrorDomain().Message(105), "unknown future error");
}

TEST(ErrorDomainTest, DomainsAreDistinctAndEqualByIdOnly) {
    const ara::exec::ExecErrorDomain local;  // another object with the Exec id
    EXPECT_EQ(local, ara::exec::GetExecErrorDomain());
    EXPECT_NE(ara::exec::GetExecErrorDomain(), ara::core::GetCoreErrorDomain());
    EXPECT_NE(ara::core::GetCoreErrorDomain(), ara::core::GetFutureErrorDomain());
    EXPECT_EQ(ara::core::ErrorCode(3, local), ara::core::ErrorCode(ara::exec::ExecErrc::kCommunicationError));
    EXPECT_NE(ara::core::ErrorCode(ara::exec::ExecErrc::kGeneralError),
              ara::core::ErrorCode(1, ara::core::GetCoreErrorDomain()));
}

// Each domain throws its own exception type holding the whole code.
TEST(ErrorDomainTest, ThrowAsExceptionThrowsTheDomainsException) {
    try {
        ara::core::ErrorCode(ara::exec::ExecErrc::kBusy, 9).ThrowAsException();
        FAIL();
    } catch (const ara::exec::ExecException& e) {
        EXPECT_EQ(e.Error().Value(), 7);
        EXPECT_EQ(e.Error().SupportData(), 9);
        EXPECT_EQ(e.Error().Domain().Id(), ara::exec::ExecErrorDomain::kId);
        EXPECT_STREQ(e.what(), "Execution Management is busy and cannot provide requested information");
    }
    EXPECT_THROW(ara::core::ErrorCode(ara::core::CoreErrc::kInvalidArgument).ThrowAsException(),
                 ara::core::CoreException);
    EXPECT_THROW(ara::core::ErrorCode(ara::core::future_errc::kNoState).ThrowAsException(), ara::core::FutureException);
    try {
        ara::core::ErrorCode(ara::core::future_errc::kBrokenPromise).ThrowAsException();
    } catch (const std::exception& e) {
        EXPECT_STREQ(e.what(), "broken promise");
    }
}

TEST(ExecErrorDomainTest, ExceptionOfAnUnknownCodeHasEmptyText) {
    const ara::exec::ExecException e(ara::core::ErrorCode(42, ara::exec::GetExecErrorDomain()));
    EXPECT_STREQ(e.what(), "");
}

TEST(ExecutionStateTest, NamesHoldExactlyTheTwoStates) {
    ASSERT_EQ(ara::exec::ExecutionStateNames.size(), 2U);
    EXPECT_EQ(ara::exec::ExecutionStateNames.at(ara::exec::ExecutionState::kRunning), "kRunning");
    EXPECT_EQ(ara::exec::ExecutionStateNames.at(ara::exec::ExecutionState::kTerminating), "kTerminating");
    EXPECT_EQ(ara::exec::ExecutionStateNames.count(static_cast<ara::exec::ExecutionState>(2)), 0U);
    EXPECT_EQ(sizeof(ara::exec::ExecutionState), 1U);
}

}  // namespace
