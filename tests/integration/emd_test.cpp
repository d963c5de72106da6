// emd in a process of its own supervising real processes, driven through the public clients.
// What runs is read from /proc (emd's children by parent pid), never from emd's answers; the
// refusals of unknown names, states and pids are emctl_test's. The clients' state is process-wide,
// so each test runs in a fresh copy of this program with a discovery tag of its own.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <list>
#include <map>

#include "ara/exec/recovery_action_client.h"
#include "ara/exec/state_client.h"
#include "ara_test/em_client_case.h"
#include "ara_test/temp_dir.h"

namespace {

using namespace std::chrono_literals;
using Alive = std::map<std::string, pid_t>;

/// In the test's own process: runs the test in a copy and returns false. In the copy: true.
bool InCopy(const std::string& encoding = "dds") {
    const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
    if (ara_test::RanInCopy(std::string(test->test_suite_name()) + "." + test->name(),
                            {"KELP_SERIALIZE_TYPE=" + encoding})) {
        return false;
    }
    setenv("KELP_DDS_CONFIG", ara_test::OwnTag("emd").c_str(), 1);  // before any client exists
    return true;
}

/// "ok", "Exec N" or "no answer".
std::string Code(ara::core::Future<void, ara::core::ErrorCode> future) {
    return future.wait_for(60s) == ara::core::future_status::kReady ? ara_test::Outcome(future.GetResult())
                                                                    : "no answer";
}

/// emd on `manifest`, and the state manager's and health manager's clients, made once emd is
/// ready (a client made before finds it only with its next announcement, up to a second later).
class Emd {
public:
    explicit Emd(const std::string& manifest)
        : process_({EMD, "--manifest", manifest}), ready_(process_.WaitForLine("ready")) {
        EXPECT_TRUE(ready_);
    }
    ara_test::ChildProcess& Process() { return process_; }
    Alive Running() { return ara_test::Children(process_.Pid()); }
    ara::core::Future<void, ara::core::ErrorCode> Set(const std::string& group, const std::string& state) {
        texts_.push_back(group);  // the views of a FunctionGroupState must outlive the call
        texts_.push_back(state);
        const ara::exec::FunctionGroup fg(ara::exec::FunctionGroup::Preconstruct(*std::prev(texts_.end(), 2)).Value());
        return state_.SetState(
            ara::exec::FunctionGroupState(ara::exec::FunctionGroupState::Preconstruct(fg, texts_.back()).Value()));
    }
    std::string SetState(const std::string& group, const std::string& state) { return Code(Set(group, state)); }
    /// The state, or "Exec N".
    std::string GetState(const std::string& group) {
        ara::core::String text;
        const std::string code = Code(state_.GetState(group, text));
        return code == "ok" ? std::string(text) : code;
    }
    /// "STATE" or "STATE PID" as emd lists the process.
    std::string Listed(const std::string& name) {
        std::vector<ara::exec::Process> list;
        EXPECT_TRUE(recovery_.GetProcessStates(list));
        for (const auto& p : list) {
            if (p.processName == name) {
                return p.processState + (p.isRunning ? " " + p.processId : "");
            }
        }
        return "(not listed)";
    }

private:
    ara_test::ChildProcess process_;
    bool ready_;
    std::list<std::string> texts_;

public:
    ara::exec::StateClient state_;
    ara::exec::RecoveryActionClient recovery_{"emd_test"};
};

class EmdTest : public ::testing::TestWithParam<const char*> {};

TEST_P(EmdTest, ExampleManifestThroughEveryMethod) {
    if (!InCopy(GetParam())) {
        return;
    }
    Emd emd(EXAMPLE_MANIFEST);
    EXPECT_EQ(Code(emd.state_.GetInitialMachineStateTransitionResult()), "ok");
    Alive alive = emd.Running();
    EXPECT_EQ(alive.size(), 1U);
    EXPECT_EQ(emd.Listed("logger"), "Running " + std::to_string(alive["logger"]));
    EXPECT_EQ(emd.Listed("greeter"), "Idle");
    EXPECT_EQ(emd.GetState("MachineFG"), "Running");

    EXPECT_EQ(emd.SetState("Demo", "On"), "ok");
    alive = emd.Running();
    EXPECT_EQ(alive.size(), 3U);
    EXPECT_EQ(emd.Listed("counter"), "Running " + std::to_string(alive["counter"]));
    const auto name = emd.recovery_.GetProcessName(alive["greeter"]);
    EXPECT_TRUE(name && name.Value() == "greeter");

    EXPECT_EQ(Code(emd.recovery_.ProcessRestart("greeter", false)), "ok");
    EXPECT_NE(emd.Running()["greeter"], alive["greeter"]);
    EXPECT_EQ(Code(emd.recovery_.ProcessRestart("counter", true)), "ok");

    EXPECT_EQ(emd.SetState("Demo", "Off"), "ok");
    EXPECT_EQ(emd.Running().size(), 1U);
    EXPECT_EQ(emd.Listed("greeter"), "Idle");
    EXPECT_EQ(Code(emd.recovery_.ProcessRestart("greeter", false)), "Exec 6");  // does not run in Off
    EXPECT_EQ(emd.GetState("Demo"), "Off");

    emd.Process().Kill(SIGTERM);
    EXPECT_EQ(emd.Process().Wait(), 0);
    EXPECT_TRUE(emd.Running().empty());
    EXPECT_NE(kill(alive["logger"], 0), 0);
}

std::string Entry(const std::string& key, const std::string& value) {
    return "{\"key\": \"" + key + "\", \"value\": " + value + "}";
}

/// A Demo group whose states each start one emd_test_app: `members` are more of its entries.
std::string TestManifest(const ara_test::TempDir& dir,
                         const std::vector<std::tuple<std::string, std::string, std::string>>& apps) {
    std::string processes;
    for (const auto& [name, mode, members] : apps) {
        processes +=
            (processes.empty() ? "" : ",") +
            Entry(name,
                  "[" + Entry("executable", "\"" EMD_TEST_APP "\"") + "," +
                      Entry("arguments", "[\"" + name + "\", \"" + mode + "\"]") + "," +
                      Entry("functionGroup", "\"Demo\"") + "," + Entry("states", "[\"" + name + "\"]") + members + "]");
    }
    const std::string groups =
        Entry("MachineFG", "[" + Entry("states", "[\"Running\"]") + "," + Entry("initialState", "\"Running\"") + "]") +
        "," + Entry("Demo", R"([{"key": "states", "value": ["Off", "Never", "Crash", "Later", "Stubborn", "Hang"]},
                         {"key": "initialState", "value": "Off"}])");
    return dir.Write("manifest.json",
                     Entry("manifest",
                           "[" + Entry("functionGroups", "[" + groups + "]") + "," +
                               Entry("processes", "[" + processes + "]") + "]"));
}

TEST(EmdFaultTest, FailuresRestartsAndCancellation) {
    if (!InCopy()) {
        return;
    }
    const ara_test::TempDir dir;
    Emd emd(
        TestManifest(dir,
                     {{"Never", "never", R"(, {"key": "startupTimeoutMs", "value": 1500})"},
                      {"Crash", "crash-at-start", ""},
                      {"Later", "crash-after:1000", R"(, {"key": "restart", "value": [
                              {"key": "maxRestarts", "value": 1}, {"key": "backoffMs", "value": 200}]})"},
                      {"Stubborn", "ignore-term", R"(, {"key": "terminationTimeoutMs", "value": 300})"},
                      {"Hang", "report-terminating-and-hang", R"(, {"key": "terminationTimeoutMs", "value": 300})"}}));
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
    EXPECT_EQ(alive.size(), 3U);
    emd.Process().Kill(SIGKILL);
    for (const auto& [name, pid] : alive) {
        EXPECT_TRUE(ara_test::Eventually([pid = pid] {
            std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
            std::string field, state;
            return !(stat >> field >> field >> state) || state == "Z";
        })) << name;
    }
}

TEST(EmdFaultTest, RefusedManifestNamesFileAndPlace) {
    const ara_test::TempDir dir;
    const std::string path = dir.Write("m.json", Entry("manifest", R"([{"key": "functionGroups", "value": [
        {"key": "MachineFG", "value": [{"key": "states", "value": ["On"]}, {"key": "initialState", "value": "On"}]}]},
        {"key": "processes", "value": [{"key": "a", "value": [{"key": "executable", "value": "bin/app"}]}]}])"));
    ara_test::ChildProcess emd({"/bin/sh", "-c", std::string("exec ") + EMD + " --manifest " + path + " 2>&1"});
    EXPECT_TRUE(emd.WaitForLine("emd: manifest refused: " + path + ": manifest/processes/a/executable: "))
        << ::testing::PrintToString(emd.Lines());
    EXPECT_EQ(emd.Wait(), 3);
}

INSTANTIATE_TEST_SUITE_P(Encodings, EmdTest, ::testing::Values("dds", "someip"));

}  // namespace
