// SPDX-License-Identifier: Apache-2.0
// emd in a process of its own supervising real processes, driven through the public clients.
// What runs is read from /proc (emd's children by parent pid), never from emd's answers; the
// refusals of unknown names, states and pids are emctl_test's. The clients' state is process-wide,
// so each test runs in a fresh copy of this program with a discovery tag of its own.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

#include "ara_test/emd_case.h"
#include "ara_test/temp_dir.h"

namespace {

using namespace std::chrono_literals;
using ara_test::Alive;
using ara_test::Code;
using ara_test::Emd;
using ara_test::InCopy;
using ara_test::Member;

class EmdTest : public ::testing::TestWithParam<const char*> {};

TEST_P(EmdTest, ExampleManifestThroughEveryMethod) {
    if (!InCopy(GetParam())) {
        return;
    }
    Emd emd(EXAMPLE_MANIFEST);
    EXPECT_EQ(Code(emd.state_.GetInitialMachineStateTransitionResult()), "ok");
    Alive alive = emd.Running();
    EXPECT_EQ(alive.size(), 2U);  // logger, and timekeeper which it needs
    EXPECT_EQ(emd.Listed("logger"), "Running " + std::to_string(alive["logger"]));
    EXPECT_EQ(emd.Listed("greeter"), "Idle");
    EXPECT_EQ(emd.GetState("MachineFG"), "Running");

    EXPECT_EQ(emd.SetState("Demo", "On"), "ok");
    alive = emd.Running();
    EXPECT_EQ(alive.size(), 4U);
    EXPECT_EQ(emd.Listed("counter"), "Running " + std::to_string(alive["counter"]));
    const auto name = emd.recovery_.GetProcessName(alive["greeter"]);
    EXPECT_TRUE(name && name.Value() == "greeter");

    EXPECT_EQ(Code(emd.recovery_.ProcessRestart("greeter", false)), "ok");
    EXPECT_NE(emd.Running()["greeter"], alive["greeter"]);
    EXPECT_EQ(Code(emd.recovery_.ProcessRestart("counter", true)), "ok");

    EXPECT_EQ(emd.SetState("Demo", "Off"), "ok");
    EXPECT_EQ(emd.Running().size(), 2U);
    EXPECT_EQ(emd.Listed("greeter"), "Idle");
    EXPECT_EQ(Code(emd.recovery_.ProcessRestart("greeter", false)), "Exec 6");  // does not run in Off
    EXPECT_EQ(emd.GetState("Demo"), "Off");

    emd.Process().Kill(SIGTERM);
    EXPECT_EQ(emd.Process().Wait(), 0);
    EXPECT_TRUE(emd.Running().empty());
    EXPECT_NE(kill(alive["logger"], 0), 0);
}

/// A Demo group whose states each start one emd_test_app: `members` are more of its members.
std::string TestManifest(const ara_test::TempDir& dir,
                         const std::vector<std::tuple<std::string, std::string, std::string>>& apps) {
    std::string processes;
    for (const auto& [name, mode, members] : apps) {
        processes +=
            (processes.empty() ? "" : ",") + ara_test::TestApp(name, mode, "Demo", "[\"" + name + "\"]", members);
    }
    const std::string demo =
        Member("Demo", R"({"states": ["Off", "Never", "Crash", "Later", "Stubborn", "Hang"], "initialState": "Off"})");
    return ara_test::WriteManifest(dir, ara_test::MachineGroup() + "," + demo, processes);
}

TEST(EmdFaultTest, FailuresRestartsAndCancellation) {
    if (!InCopy()) {
        return;
    }
    const ara_test::TempDir dir;
    Emd emd(TestManifest(dir,
                         {{"Never", "never", R"(, "startupTimeoutMs": 1500)"},
                          {"Crash", "crash-at-start", ""},
                          {"Later", "crash-after:1000", R"(, "restart": {"maxRestarts": 1, "backoffMs": 200})"},
                          {"Stubborn", "ignore-term", R"(, "terminationTimeoutMs": 300)"},
                          {"Hang", "report-terminating-and-hang", R"(, "terminationTimeoutMs": 300)"}}));
    // A newer request cancels the one under way.
    auto first = emd.Set("Demo", "Never");
    EXPECT_TRUE(ara_test::Eventually([&] { return emd.Running().count("Never") == 1U; }));
    EXPECT_EQ(emd.SetState("Demo", "Off"), "ok");
    EXPECT_EQ(Code(std::move(first)), "Exec 5");
    EXPECT_TRUE(emd.Running().empty());

    EXPECT_EQ(emd.SetState("Demo", "Never"), "Exec 6");  // no report within 1.5 s
    EXPECT_EQ(emd.GetState("Demo"), "Exec 6");
    EXPECT_TRUE(ara_test::Eventually([&] { return emd.Listed("Never") == "Failed"; }));
    EXPECT_EQ(emd.SetState("Demo", "Crash"), "Exec 6");
    EXPECT_EQ(emd.Listed("Crash"), "Failed");
    EXPECT_EQ(emd.Listed("Never"), "Idle");

    // Reports kTerminating and does not exit: killed 300 ms later, and not restarted.
    EXPECT_EQ(emd.SetState("Demo", "Hang"), "ok");
    EXPECT_TRUE(ara_test::Eventually([&] { return emd.Listed("Hang") == "Idle"; }));
    EXPECT_TRUE(emd.Running().empty());
    // Ignores SIGTERM: killed 300 ms after it.
    EXPECT_EQ(emd.SetState("Demo", "Stubborn"), "ok");
    EXPECT_EQ(emd.SetState("Demo", "Off"), "ok");
    EXPECT_TRUE(emd.Running().empty());

    // Crashes a second after reporting: restarted once, then the group is failed.
    EXPECT_EQ(emd.SetState("Demo", "Later"), "ok");
    EXPECT_EQ(emd.GetState("Demo"), "Later");
    const pid_t firstPid = emd.Running()["Later"];
    EXPECT_TRUE(ara_test::Eventually([&] {
        const Alive alive = emd.Running();
        return alive.count("Later") == 1U && alive.at("Later") != firstPid;
    }));
    EXPECT_TRUE(ara_test::Eventually([&] { return emd.Listed("Later") == "Failed"; }));
    EXPECT_EQ(emd.GetState("Demo"), "Exec 6");
    EXPECT_TRUE(emd.Running().empty());
}

TEST(EmdFaultTest, KilledDaemonLeavesNoProcess) {
    if (!InCopy()) {
        return;
    }
    Emd emd(EXAMPLE_MANIFEST);
    EXPECT_EQ(emd.SetState("Demo", "On"), "ok");
    const Alive alive = emd.Running();
    EXPECT_EQ(alive.size(), 4U);
    emd.Process().Kill(SIGKILL);
    for (const auto& [name, pid] : alive) {
        EXPECT_TRUE(ara_test::Eventually([pid = pid] { return ara_test::Gone(pid); })) << name;
    }
}

TEST(EmdFaultTest, RefusedManifestNamesFileAndPlace) {
    const ara_test::TempDir dir;
    const std::string path =
        dir.Write("m.json", R"({"functionGroups": {"MachineFG": {"states": ["On"], "initialState": "On"}},
        "processes": {"a": {"executable": "bin/app"}}})");
    ara_test::ChildProcess emd({"/bin/sh", "-c", std::string("exec ") + EMD + " --manifest " + path + " 2>&1"});
    EXPECT_TRUE(emd.WaitForLine("emd: manifest refused: " + path + ": /processes/a/executable: "))
        << ::testing::PrintToString(emd.Lines());
    EXPECT_EQ(emd.Wait(), 3);
}

INSTANTIATE_TEST_SUITE_P(Encodings, EmdTest, ::testing::Values("dds", "someip"));

}  // namespace
