// SPDX-License-Identifier: Apache-2.0
// What the tests of emd share: each runs in a fresh copy of the test program (the clients'
// state is process-wide) with a discovery tag and ports of its own; emd in a process of its
// own, with the state manager's and health manager's clients; manifest members; /proc checks.
#ifndef ARA_TEST_EMD_CASE_H
#define ARA_TEST_EMD_CASE_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <list>
#include <map>
#include <sstream>
#include <string>

#include "ara/exec/recovery_action_client.h"
#include "ara/exec/state_client.h"
#include "ara_test/em_client_case.h"
#include "ara_test/temp_dir.h"

namespace ara_test {

using namespace std::chrono_literals;
using Alive = std::map<std::string, pid_t>;

/// In the test's own process: runs the test in a copy and returns false. In the copy: true.
inline bool InCopy(const std::string& encoding = "dds", std::chrono::seconds timeout = 120s) {
    const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
    if (ara_test::RanInCopy(
            std::string(test->test_suite_name()) + "." + test->name(), {"KELP_SERIALIZE_TYPE=" + encoding}, timeout)) {
        return false;
    }
    setenv("KELP_DDS_CONFIG", ara_test::OwnTag("emd").c_str(), 1);  // before any client exists
    return true;
}

/// "ok", "Exec N" or "no answer".
inline std::string Code(ara::core::Future<void, ara::core::ErrorCode> future) {
    return future.wait_for(60s) == ara::core::future_status::kReady ? ara_test::Outcome(future.GetResult())
                                                                    : "no answer";
}

/// emd on `manifest`, and the state manager's and health manager's clients, made once emd is
/// ready (a client made before finds it only with its next announcement, up to 4 s later).
class Emd {
public:
    /// With `withLog`, emd's log joins its output, for WaitForText (which must then keep
    /// reading, or a full pipe stops emd).
    explicit Emd(const std::string& manifest, bool withLog = false)
        : process_(withLog
                       ? std::vector<std::string>{"/bin/sh", "-c", "exec \"$0\" --manifest \"$1\" 2>&1", EMD, manifest}
                       : std::vector<std::string>{EMD, "--manifest", manifest}),
          ready_(process_.WaitForLine("ready")) {
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

/// The member `"name": value` of a JSON object.
inline std::string Member(const std::string& name, const std::string& value) {
    return "\"" + name + "\": " + value;
}

/// The process `name`: an emd_test_app in `mode`, run in `states` (a JSON array) of `group`;
/// `more` are further members, each led by a comma.
inline std::string TestApp(const std::string& name,
                           const std::string& mode,
                           const std::string& group,
                           const std::string& states,
                           const std::string& more = {}) {
    return Member(name,
                  "{" + Member("executable", "\"" EMD_TEST_APP "\"") + ", " +
                      Member("arguments", "[\"" + name + "\", \"" + mode + "\"]") + ", " +
                      Member("functionGroup", "\"" + group + "\"") + ", " + Member("states", states) + more + "}");
}

/// A manifest file in `dir` of `groups` and `processes` (members joined by commas).
inline std::string WriteManifest(const TempDir& dir, const std::string& groups, const std::string& processes) {
    return dir.Write(
        "manifest.json",
        "{" + Member("functionGroups", "{" + groups + "}") + ", " + Member("processes", "{" + processes + "}") + "}");
}

/// MachineFG with its one state Running, which it starts in.
inline std::string MachineGroup() {
    return Member("MachineFG", R"({"states": ["Running"], "initialState": "Running"})");
}

/// The process `name`: `/bin/sh -c script`, ready once it runs, in MachineFG's Running; `more`
/// are further members, each led by a comma.
inline std::string Shell(const std::string& name, const std::string& script, const std::string& more = {}) {
    return Member(name,
                  R"({"executable": "/bin/sh", "arguments": ["-c", ")" + script +
                      R"("], "functionGroup": "MachineFG", "states": ["Running"], "readiness": "spawn")" + more + "}");
}

/// The pid emd lists for `name` once it runs, or -1.
inline pid_t PidOf(Emd& emd, const std::string& name) {
    pid_t pid = -1;
    Eventually([&] {
        const std::string listed = emd.Listed(name);
        pid = listed.rfind("Running ", 0) == 0 ? static_cast<pid_t>(std::stoi(listed.substr(8U))) : -1;
        return pid > 0;
    });
    return pid;
}

/// The file's text; "" for one that is gone (a /proc file of a process that ended meanwhile).
inline std::string ReadText(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

/// Field `number` (1-based, as in proc(5)) of /proc/PID/stat; "" once it is gone.
inline std::string StatField(pid_t pid, int number) {
    const std::string text = ReadText("/proc/" + std::to_string(pid) + "/stat");
    std::istringstream fields(text.substr(std::min(text.size(), text.rfind(')') + 2U)));
    std::string field;
    for (int i = 3; i <= number && fields >> field; ++i) {
    }
    return field;
}

/// For each of `keys`, its line of /proc/PID/status or /proc/PID/limits ("Uid:", "Max open
/// files"), the words joined by single spaces and the line ended by a line feed.
inline std::string ProcLines(pid_t pid, std::initializer_list<const char*> keys) {
    const std::string proc = "/proc/" + std::to_string(pid);
    const std::string text = "\n" + ReadText(proc + "/status") + ReadText(proc + "/limits");
    std::string seen;
    for (const std::string key : keys) {
        const std::size_t at = text.find("\n" + key);
        std::istringstream words(at == std::string::npos ? "(none)"
                                                         : text.substr(at + 1U, text.find('\n', at + 1U) - at - 1U));
        std::string word, line;
        while (words >> word) {
            line += (line.empty() ? "" : " ") + word;
        }
        seen += line + "\n";
    }
    return seen;
}

/// `emd --check` on `manifest`, with `env`: its exit status and what it wrote (and logged).
inline std::pair<int, std::string> CheckManifest(const std::string& manifest,
                                                 const std::vector<std::string>& env = {}) {
    ChildProcess check({"/bin/sh", "-c", "exec \"$0\" --manifest \"$1\" --check 2>&1", EMD, manifest}, env);
    (void)check.WaitForText("(reads to the end)");
    std::string output;
    for (const std::string& line : check.Lines()) {
        output += line + "\n";
    }
    return {check.Wait(), output};
}

/// The process has ended (gone, or a zombie nobody reaped yet).
inline bool Gone(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string field, state;
    return !(stat >> field >> field >> state) || state == "Z";
}

}  // namespace ara_test

#endif
