// FunctionGroup and FunctionGroupState: tokens, views that copy nothing, comparison.
#include "ara/exec/function_group.h"

#include <gtest/gtest.h>

#include <string>

#include "ara/exec/function_group_state.h"

namespace {

using ara::exec::FunctionGroup;
using ara::exec::FunctionGroupState;

FunctionGroup MakeGroup(ara::core::StringView path) {
    auto token = FunctionGroup::Preconstruct(path);
    EXPECT_TRUE(token.HasValue());
    return FunctionGroup(std::move(token).Value());
}

FunctionGroupState MakeState(const FunctionGroup& group, ara::core::StringView state) {
    auto token = FunctionGroupState::Preconstruct(group, state);
    EXPECT_TRUE(token.HasValue());
    return FunctionGroupState(std::move(token).Value());
}

TEST(FunctionGroupTest, PreconstructAlwaysSucceedsAndKeepsAViewOfTheCallersText) {
    const std::string path = "MachineFG";
    const FunctionGroup group = MakeGroup(path);
    EXPECT_EQ(group.MetaModel().data(), path.data()) << "the path is viewed, not copied";
    EXPECT_EQ(group.MetaModel().size(), path.size());

    const FunctionGroup empty = MakeGroup("");
    EXPECT_TRUE(empty.MetaModel().empty());
    const FunctionGroup odd = MakeGroup("not/a valid\\path");
    EXPECT_EQ(odd.MetaModel(), "not/a valid\\path");
}

TEST(FunctionGroupTest, EqualityIsByteWise) {
    const std::string a = "/fg/Machine";
    const std::string sameTextOtherBuffer = std::string("/fg/") + "Machine";
    struct Row {
        const char* other;
        bool equal;
    };
    const Row rows[] = {{"/fg/Machine", true},
                        {"/fg/Machin", false},
                        {"/fg/Machine/", false},
                        {"/FG/Machine", false},
                        {"/fg//Machine", false},
                        {"", false}};
    const FunctionGroup group = MakeGroup(a);
    EXPECT_TRUE(group == MakeGroup(sameTextOtherBuffer));
    for (const Row& row : rows) {
        const FunctionGroup other = MakeGroup(row.other);
        EXPECT_EQ(group == other, row.equal) << row.other;
        EXPECT_EQ(group != other, !row.equal) << row.other;
    }
    EXPECT_TRUE(MakeGroup("") == MakeGroup(""));
}

TEST(FunctionGroupStateTest, CopiesBothViewsAndComparesGroupThenState) {
    const std::string machine = "MachineFG";
    const std::string machinePrefix = "Machine";
    const std::string other = "OtherFG";
    const std::string running = "Running";
    const FunctionGroup machineGroup = MakeGroup(machine);
    const FunctionGroupState state = MakeState(machineGroup, running);
    EXPECT_EQ(state.FunctionGroupMetaModel().data(), machine.data());
    EXPECT_EQ(state.State().data(), running.data());

    struct Row {
        const std::string* group;
        const char* state;
        bool equal;
    };
    const Row rows[] = {
        {&machine, "Running", true},
        {&machine, "Off", false},
        {&other, "Running", false},
        {&machinePrefix, "Running", false},
        {&machine, "Running ", false},
        {&machine, "", false},
    };
    for (const Row& row : rows) {
        const FunctionGroup group = MakeGroup(*row.group);
        const FunctionGroupState candidate = MakeState(group, row.state);
        EXPECT_EQ(state == candidate, row.equal) << *row.group << "/" << row.state;
        EXPECT_EQ(state != candidate, !row.equal) << *row.group << "/" << row.state;
    }
}

}  // namespace
