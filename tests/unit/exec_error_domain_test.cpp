// SPDX-License-Identifier: Apache-2.0
// Names, ids and message tables of the Exec, Core and Future domains; function groups and their states.
#include "ara/exec/exec_error_domain.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "ara/core/core_error_domain.h"
#include "ara/core/future_error_domain.h"
#include "ara/exec/function_group.h"
#include "ara/exec/function_group_state.h"

namespace {

using ara::core::ErrorDomain;
using ara::exec::FunctionGroup;
using ara::exec::FunctionGroupState;

const ErrorDomain& exec = ara::exec::GetExecErrorDomain();

TEST(ErrorDomainTest, NamesIdsAndMessageTables) {
    const ErrorDomain& core = ara::core::GetCoreErrorDomain();
    const ErrorDomain& future = ara::core::GetFutureErrorDomain();
    EXPECT_STREQ(exec.Name(), "Exec");
    EXPECT_EQ(exec.Id(), 0x8000000000000300ULL);
    EXPECT_STREQ(core.Name(), "Core");
    EXPECT_EQ(core.Id(), 0x8000000000000014ULL);
    EXPECT_STREQ(future.Name(), "Future");
    EXPECT_EQ(future.Id(), 0x8000000000000013ULL);
    // The ends of each table; an unknown Exec code gives an empty text, the same entry each time.
    const std::tuple<const ErrorDomain&, ErrorDomain::CodeType, const char*> rows[] = {
        {exec, 1, "Some unspecified error occurred"},
        {exec, 7, "Execution Management is busy and cannot provide requested information"},
        {exec, 0, ""},
        {exec, 8, ""},
        {exec, -1, ""},
        {exec, 2147483647, ""},
        {core, 22, "Invalid argument"},
        {core, 138, "Invalid meta model path"},
        {future, 101, "broken promise"},
        {future, 104, "no state"},
    };
    for (const auto& [domain, code, text] : rows) {
        const char* first = domain.Message(code);
        EXPECT_STREQ(first, text) << domain.Name() << " " << code;
        EXPECT_EQ(domain.Message(code), first) << "a repeated lookup returns the same entry";
    }
    EXPECT_STREQ(exec.Message(1), "Some unspecified error occurred") << "known entries unaffected";
}

TEST(ErrorDomainDeathTest, UnknownCoreAndFutureCodesAbortWithTheFallbackText) {
    EXPECT_DEATH(ara::core::GetCoreErrorDomain().Message(1), "Unknown core error");
    EXPECT_DEATH(ara::core::GetFutureErrorDomain().Message(105), "unknown future error");
}

TEST(FunctionGroupTest, GroupsAndStatesViewTheCallersTextAndCompareItByteWise) {
    const std::string machine = "/fg/Machine";
    const std::string running = "Running";
    const FunctionGroup group(FunctionGroup::Preconstruct(machine).Value());
    const FunctionGroupState state(FunctionGroupState::Preconstruct(group, running).Value());
    EXPECT_EQ(state.FunctionGroupMetaModel().data(), machine.data()) << "the text is viewed, not copied";
    EXPECT_EQ(state.State().data(), running.data());
    // Another group and state, each text in a buffer of its own; whether each equals the first.
    const std::tuple<std::string, std::string, bool, bool> rows[] = {
        {"/fg/Machine", "Running", true, true},
        {"/fg/Machine", "Off", true, false},
        {"/fg/Machine", "Running ", true, false},
        {"/fg/Machin", "Running", false, false},
        {"/fg/Machine/", "Running", false, false},
        {"/FG/Machine", "Running", false, false},
        {"/fg//Machine", "Running", false, false},
    };
    for (const auto& [otherPath, otherName, sameGroup, sameState] : rows) {
        const FunctionGroup otherGroup(FunctionGroup::Preconstruct(otherPath).Value());
        const FunctionGroupState otherState(FunctionGroupState::Preconstruct(otherGroup, otherName).Value());
        EXPECT_EQ(group == otherGroup, sameGroup) << otherPath;
        EXPECT_EQ(group != otherGroup, !sameGroup) << otherPath;
        EXPECT_EQ(state == otherState, sameState) << otherPath << "/" << otherName;
        EXPECT_EQ(state != otherState, !sameState) << otherPath << "/" << otherName;
    }
}

}  // namespace
