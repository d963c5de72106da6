// emd in a process of its own, supervising emd_test_app processes, driven through the public
// clients. What runs is read from /proc, not from emd's answers. The clients' state is
// process-wide, so each test runs in a fresh copy of this program with its own discovery tag.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <list>
#include <map>
#include <sstream>
#include <thread>

#include "ara/exec/execution_client.h"
#include "ara/exec/recovery_action_client.h"
#include "ara/exec/state_client.h"
#include "ara_test/child_process.h"
#include "ara_test/temp_dir.h"

namespace {

using namespace std::chrono_literals;
using Alive = std::map<std::string, pid_t>;

/// In the test's own process: runs the test in a copy and returns false. In the copy: true.
bool InCopy(const std::vector<std::string>& env = {}) {
    if (std::getenv("EMD_TEST_COPY") != nullptr) {
        const std::string tag = "<Discovery><Tag>emd-" + std::to_string(getpid()) + "</Tag></Discovery>";
        setenv("KELP_DDS_CONFIG", tag.c_str(), 1);  // before any client exists; emd and its processes inherit it
        return true;
    }
    const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
    std::vector<std::string> copyEnv{"EMD_TEST_COPY=1"};
    copyEnv.insert(copyEnv.end(), env.begin(), env.end());
    ara_test::ChildProcess copy(
        {"/proc/self/exe", "--gtest_filter=" + std::string(test->test_suite_name()) + "." + test->name()}, copyEnv);
    EXPECT_TRUE(copy.WaitForLine("[  PASSED  ]", 240s) && copy.Wait() == 0) << ::testing::PrintToString(copy.Lines());
    return false;
}

struct App {
    std::string name, group, states, mode;  ///< states: a JSON list body, e.g. "\"On\""
    std::string extra;                      ///< more members, each starting with ","
};

std::string Entry(const std::string& key, const std::string& value) {
    return "{\"key\": \"" + key + "\", \"value\": " + value + "}";
}

/// A manifest with MachineFG (Startup, Running, Shutdown; starts in Running) and Demo
/// (Off, On, Never, Crash, Later; starts in Off).
std::string WriteManifest(const ara_test::TempDir& dir, const std::string& marker, const std::vector<App>& apps) {
    std::string processes;
    for (const App& app : apps) {
        processes +=
            (processes.empty() ? "" : ",") +
            Entry(
                app.name,
                "[" + Entry("executable", "\"" EMD_TEST_APP "\"") + "," +
                    Entry("arguments", "[\"" + marker + "\", \"" + app.name + "\", \"" + app.mode + "\"]") + "," +
                    Entry("functionGroup", "\"" + app.group + "\"") + "," + Entry("states", "[" + app.states + "]") +
                    (app.extra.find("startupTimeoutMs") == std::string::npos ? "," + Entry("startupTimeoutMs", "20000")
                                                                             : "") +
                    app.extra + "]");
    }
    const std::string groups = Entry("MachineFG",
                                     "[" + Entry("states", R"(["Startup", "Running", "Shutdown"])") + "," +
                                         Entry("initialState", "\"Running\"") + "]") +
                               "," +
                               Entry("Demo",
                                     "[" + Entry("states", R"(["Off", "On", "Never", "Crash", "Later"])") + "," +
                                         Entry("initialState", "\"Off\"") + "]");
    return dir.Write("manifest.json",
                     Entry("manifest",
                           "[" + Entry("functionGroups", "[" + groups + "]") + "," +
                               Entry("processes", "[" + processes + "]") + "]"));
}

/// The test apps carrying `marker` that exist and are not zombies, by name.
Alive AliveApps(const std::string& marker) {
    Alive alive;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        std::ifstream cmdline(entry.path() / "cmdline");
        std::vector<std::string> args;
        for (std::string arg; std::getline(cmdline, arg, '\0');) {
            args.push_back(arg);
        }
        std::ifstream stat(entry.path() / "stat");
        std::string pid, comm, state;
        stat >> pid >> comm >> state;
        if (args.size() == 4U && args[1] == marker && state != "Z") {
            alive[args[2]] = static_cast<pid_t>(std::stoi(pid));
        }
    }
    return alive;
}

bool Eventually(const std::function<bool()>& condition) {
    for (int i = 0; i < 600; ++i) {
        if (condition()) {
            return true;
        }
        std::this_thread::sleep_for(50ms);
    }
    return false;
}

/// 0 for success, the Exec code of an error, -1 when no answer came.
int Code(ara::core::Future<void, ara::core::ErrorCode> future) {
    if (future.wait_for(60s) != ara::core::future_status::kReady) {
        return -1;
    }
    const auto result = future.GetResult();
    return result ? 0 : (result.Error().Domain().Id() == 0x8000000000000300ULL ? result.Error().Value() : -2);
}

class Emd {
public:
    explicit Emd(const std::string& manifest) {
        process_ = std::make_unique<ara_test::ChildProcess>(std::vector<std::string>{EMD, "--manifest", manifest});
        EXPECT_TRUE(process_->WaitForLine("ready"));
    }
    ara_test::ChildProcess& Process() { return *process_; }
    int SetState(const std::string& group, const std::string& state) { return Code(Set(group, state)); }
    ara::core::Future<void, ara::core::ErrorCode> Set(const std::string& group, const std::string& state) {
        groups_.push_back(group);
        states_.push_back(state);
        const ara::exec::FunctionGroup functionGroup(ara::exec::FunctionGroup::Preconstruct(groups_.back()).Value());
        return state_.SetState(ara::exec::FunctionGroupState(
            ara::exec::FunctionGroupState::Preconstruct(functionGroup, states_.back()).Value()));
    }
    int GetState(const std::string& group, std::string& state) {
        ara::core::String text;
        const int code = Code(state_.GetState(group, text));
        state = text;
        return code;
    }
    std::string PhaseOf(const std::string& name) {
        std::vector<ara::exec::Process> list;
        if (!recovery_.GetProcessStates(list)) {
            return "(no answer)";
        }
        for (const auto& process : list) {
            if (process.processName == name) {
                return process.processState + (process.isRunning ? " " + process.processId : "");
            }
        }
        return "(not listed)";
    }
    ara::exec::StateClient state_;
    ara::exec::RecoveryActionClient recovery_{"emd_test"};

private:
    std::unique_ptr<ara_test::ChildProcess> process_;
    std::list<std::string> groups_, states_;  // the views of a FunctionGroupState must outlive the call
};

class EmdTest : public ::testing::TestWithParam<const char*> {};

TEST_P(EmdTest, StateChangesStartAndStopProcesses) {
    if (!InCopy({std::string("KELP_SERIALIZE_TYPE=") + GetParam()})) {
        return;
    }
    const ara_test::TempDir dir;
    const std::string marker = "emd-test-" + std::to_string(getpid());
    Emd emd(
        WriteManifest(dir,
                      marker,
                      {{"a", "MachineFG", "\"Running\"", "run", ""},
                       {"b", "Demo", "\"On\"", "run", ""},
                       {"c", "Demo", "\"On\"", "ignore-term", R"(, {"key": "terminationTimeoutMs", "value": 300})"}}));
    EXPECT_EQ(Code(emd.state_.GetInitialMachineStateTransitionResult()), 0);
    Alive alive = AliveApps(marker);
    EXPECT_EQ(alive.size(), 1U);
    EXPECT_EQ(emd.PhaseOf("a"), "Running " + std::to_string(alive["a"]));
    EXPECT_EQ(emd.PhaseOf("b"), "Idle");

    EXPECT_EQ(emd.SetState("Demo", "On"), 0);
    alive = AliveApps(marker);
    EXPECT_EQ(alive.size(), 3U);
    EXPECT_EQ(emd.PhaseOf("c"), "Running " + std::to_string(alive["c"]));
    const auto name = emd.recovery_.GetProcessName(alive["b"]);
    EXPECT_TRUE(name && name.Value() == "b");
    const auto unknown = emd.recovery_.GetProcessName(getpid());
    EXPECT_TRUE(!unknown && unknown.Error().Value() == 1);

    EXPECT_EQ(emd.SetState("Demo", "Off"), 0);  // c ignores SIGTERM and is killed after 300 ms
    EXPECT_EQ(AliveApps(marker).count("c"), 0U);
    EXPECT_EQ(emd.PhaseOf("c"), "Idle");
    EXPECT_EQ(emd.SetState("Demo", "Nowhere"), 2);
    EXPECT_EQ(emd.SetState("NoGroup", "On"), 2);
    std::string state;
    EXPECT_EQ(emd.GetState("Demo", state), 0);
    EXPECT_EQ(state, "Off");

    EXPECT_EQ(Code(emd.recovery_.ProcessRestart("a", false)), 0);
    EXPECT_NE(AliveApps(marker)["a"], alive["a"]);
    EXPECT_EQ(Code(emd.recovery_.ProcessRestart("zzz", false)), 2);
    EXPECT_EQ(Code(emd.recovery_.ProcessRestart("b", false)), 6);  // not wanted in Demo's state Off
    // This process was not started by emd: its report is refused.
    EXPECT_FALSE(ara::exec::ExecutionClient().ReportExecutionState(ara::exec::ExecutionState::kRunning));

    emd.Process().Kill(SIGTERM);
    EXPECT_EQ(emd.Process().Wait(), 0);
    EXPECT_TRUE(AliveApps(marker).empty());
}

TEST_P(EmdTest, FailuresRestartsAndCancellation) {
    if (GetParam() != std::string("dds") || !InCopy()) {
        return;
    }
    const ara_test::TempDir dir;
    const std::string marker = "emd-test-" + std::to_string(getpid());
    Emd emd(WriteManifest(
        dir,
        marker,
        {{"never", "Demo", "\"Never\"", "never", R"(, {"key": "startupTimeoutMs", "value": 1500})"},
         {"crash", "Demo", "\"Crash\"", "crash-at-start", ""},
         {"later",
          "Demo",
          "\"Later\"",
          "crash-after:1000",
          R"(, {"key": "restart", "value": [{"key": "maxRestarts", "value": 1}, {"key": "backoffMs", "value": 200}]})"}}));
    // A newer request cancels the one under way.
    auto first = emd.Set("Demo", "Never");
    EXPECT_TRUE(Eventually([&] { return AliveApps(marker).count("never") == 1U; }));
    EXPECT_EQ(emd.SetState("Demo", "Off"), 0);
    EXPECT_EQ(Code(std::move(first)), 5);
    EXPECT_TRUE(AliveApps(marker).empty());

    EXPECT_EQ(emd.SetState("Demo", "Never"), 6);  // no report within 1.5 s
    std::string state;
    EXPECT_EQ(emd.GetState("Demo", state), 6);
    EXPECT_TRUE(Eventually([&] { return emd.PhaseOf("never") == "Failed"; }));
    EXPECT_EQ(emd.SetState("Demo", "Crash"), 6);
    EXPECT_EQ(emd.PhaseOf("crash"), "Failed");
    EXPECT_EQ(emd.PhaseOf("never"), "Idle");

    // Crashes a second after reporting: restarted once, then the group is failed.
    EXPECT_EQ(emd.SetState("Demo", "Later"), 0);
    EXPECT_EQ(emd.GetState("Demo", state), 0);
    const pid_t firstPid = AliveApps(marker)["later"];
    EXPECT_TRUE(Eventually([&] {
        const Alive alive = AliveApps(marker);
        return alive.count("later") == 1U && alive.at("later") != firstPid;
    }));
    EXPECT_TRUE(Eventually([&] { return emd.PhaseOf("later") == "Failed"; }));
    EXPECT_EQ(emd.GetState("Demo", state), 6);
    EXPECT_TRUE(AliveApps(marker).empty());
}

TEST_P(EmdTest, KilledDaemonLeavesNoProcess) {
    if (GetParam() != std::string("dds") || !InCopy()) {
        return;
    }
    const ara_test::TempDir dir;
    const std::string marker = "emd-test-" + std::to_string(getpid());
    Emd emd(WriteManifest(
        dir,
        marker,
        {{"a", "MachineFG", "\"Running\"", "run", ""}, {"b", "MachineFG", "\"Running\"", "ignore-term", ""}}));
    EXPECT_EQ(Code(emd.state_.GetInitialMachineStateTransitionResult()), 0);
    EXPECT_EQ(AliveApps(marker).size(), 2U);
    emd.Process().Kill(SIGKILL);
    EXPECT_TRUE(Eventually([&] { return AliveApps(marker).empty(); }));
}

TEST(EmdManifestTest, RefusedWithFileAndPlace) {
    const ara_test::TempDir dir;
    const std::string path = dir.Write(
        "m.json",
        Entry("manifest",
              "[" +
                  Entry("functionGroups",
                        "[" +
                            Entry("MachineFG",
                                  "[" + Entry("states", "[\"On\"]") + "," + Entry("initialState", "\"On\"") + "]") +
                            "]") +
                  "," + Entry("processes", "[" + Entry("a", "[" + Entry("executable", "\"bin/app\"") + "]") + "]") +
                  "]"));
    ara_test::ChildProcess emd({"/bin/sh", "-c", std::string("exec ") + EMD + " --manifest " + path + " 2>&1"});
    EXPECT_TRUE(emd.WaitForLine("emd: manifest refused: " + path + ": manifest/processes/a/executable: "))
        << ::testing::PrintToString(emd.Lines());
    EXPECT_EQ(emd.Wait(), 3);
}

INSTANTIATE_TEST_SUITE_P(Encodings, EmdTest, ::testing::Values("dds", "someip"));

}  // namespace
