// SPDX-License-Identifier: Apache-2.0
// emctl against emd on the example manifest, end to end: every verb's output, error line
// and exit code, and the --json output read back with the JSON parser; manifests validated
// as emd --check validates them.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <set>

#include "ara/quill/common/jsonParser/document.h"
#include "ara_test/em_client_case.h"
#include "ara_test/emd_case.h"
#include "ara_test/temp_dir.h"

namespace {

struct Outcome {
    int code;
    std::vector<std::string> out;
    std::string err;  ///< standard error, without its final line feed
};

Outcome RunCommand(const std::string& command, const std::string& config) {
    const ara_test::TempDir dir;
    ara_test::ChildProcess emctl({"/bin/sh", "-c", "exec " + command + " 2>" + dir / "err"},
                                 {"KELP_DDS_CONFIG=" + config});
    emctl.WaitForLine("\x01", std::chrono::seconds(120));  // reads every line until the end
    const int code = emctl.Wait();
    std::ifstream errFile(dir / "err");
    const std::string err((std::istreambuf_iterator<char>(errFile)), std::istreambuf_iterator<char>());
    return {code, emctl.Lines(), err.empty() || err.back() != '\n' ? err : err.substr(0U, err.size() - 1U)};
}

Outcome Emctl(const std::string& args, const std::string& config) {
    return RunCommand(EMCTL " " + args, config);
}

TEST(EmctlTest, EveryVerbAgainstEmd) {
    const std::string tag = ara_test::OwnTag("emctl");
    setenv("KELP_DDS_CONFIG", tag.c_str(), 1);
    ara_test::ChildProcess emd({EMD, "--manifest", EXAMPLE_MANIFEST, "--log", "none"});
    ASSERT_TRUE(emd.WaitForLine("ready"));
    const std::string unknown = "Invalid argument was passed", general = "Some unspecified error occurred";
    struct Case {
        std::string args;
        int code;
        std::string out, err;  ///< the first line of standard output; all of standard error
    };
    const Case cases[] = {
        {"wait-ready", 0, "the initial machine state transition has completed", ""},
        {"state get MachineFG", 0, "Running", ""},
        {"state set Demo On", 0, "Demo is in state On", ""},
        {"state get Demo --json", 0, R"({"functionGroup": "Demo", "state": "On"})", ""},
        {"restart greeter", 0, "greeter restarted", ""},
        {"restart counter --kill --timeout 60", 0, "counter restarted", ""},
        {"ps --help", 0, "usage: emctl ps [--json]", ""},
        {"restart nobody", 1, "", "emctl: restart nobody: " + unknown},
        {"state set Demo Nowhere", 1, "", "emctl: state set Demo Nowhere: " + unknown},
        {"state get NoGroup", 1, "", "emctl: state get NoGroup: " + unknown},
        {"name 1", 1, "", "emctl: name 1: " + general},
        {"report running", 1, "", "emctl: report running: " + general},  // emctl is not one of emd's processes
        {"name abc", 2, "", "emctl: name: not a process id: abc"},
        {"state get", 2, "", "usage: emctl state get FUNCTION_GROUP [--json]"},
        {"ps --timeout 0", 2, "", "emctl: --timeout: takes 1 to 86400 seconds, not 0"},
        {"status logger", 0, "logger (process of MachineFG)", ""},
        {"status Demo", 0, "Demo (function group)", ""},
        {"status nobody", 1, "", "emctl: status nobody: no process or function group is named nobody"},
        {"blame NoGroup", 1, "", "emctl: blame NoGroup: no function group is named NoGroup"},
        {"graph", 0, "digraph emd {", ""},
        {"blame Demo Off", 2, "", "usage: emctl blame [FUNCTION_GROUP] [--json]"},
        {"status", 2, "", "usage: emctl status NAME [--json]"},
    };
    for (const Case& c : cases) {
        const Outcome run = Emctl(c.args, tag);
        EXPECT_EQ(run.code, c.code) << c.args;
        EXPECT_EQ(run.out.empty() ? "" : run.out[0], c.out) << c.args;
        EXPECT_EQ(run.err, c.err) << c.args;
    }

    const pid_t greeter = ara_test::Children(emd.Pid())["greeter"];
    const Outcome name = Emctl("name " + std::to_string(greeter), tag);
    EXPECT_EQ(name.out, std::vector<std::string>{"greeter"});
    const Outcome table = Emctl("ps", tag);
    ASSERT_EQ(table.out.size(), 5U);
    EXPECT_EQ(table.out[0], "NAME        GROUP      STATE    PID");
    EXPECT_EQ(table.out[3], "greeter     Demo       Running  " + std::to_string(greeter));
    // list: the names ps shows, in its order; the groups, MachineFG first.
    std::vector<std::string> names;
    for (std::size_t i = 1U; i < table.out.size(); ++i) {
        names.push_back(table.out[i].substr(0U, table.out[i].find(' ')));
    }
    EXPECT_EQ(Emctl("list processes", tag).out, names);
    EXPECT_EQ(Emctl("list groups", tag).out, (std::vector<std::string>{"MachineFG", "Demo"}));

    ara::quill::common::jsonParser::Document json;
    const Outcome list = Emctl("ps --json", tag);
    ASSERT_EQ(list.out.size(), 1U);
    ASSERT_EQ(json.ParseText(list.out[0]), ara::quill::common::jsonParser::PARSE_SUCCESS);
    ASSERT_EQ(json.Size(), 4U);
    EXPECT_EQ(json.Element(2).Member("name").GetString(), "greeter");
    EXPECT_EQ(json.Element(2).Member("pid").GetInt(), greeter);
    EXPECT_TRUE(json.Element(2).Member("running").GetBool());

    const Outcome status = Emctl("status greeter --json", tag);
    ASSERT_EQ(json.ParseText(status.out.at(0)), ara::quill::common::jsonParser::PARSE_SUCCESS);
    EXPECT_EQ(json.Member("functionGroup").GetString(), "Demo");
    EXPECT_EQ(json.Member("phase").GetString(), "Running");
    EXPECT_EQ(json.Member("pid").GetInt(), greeter);
    EXPECT_EQ(json.Member("readiness").GetString(), "report");
    EXPECT_EQ(json.Member("dependsOn").Element(0).Member("process").GetString(), "counter");
    const Outcome graph = Emctl("graph", tag);
    EXPECT_NE(std::find(graph.out.begin(), graph.out.end(), R"(  "greeter" -> "counter" [label="running"];)"),
              graph.out.end());
    const Outcome group = Emctl("status Demo --json", tag);
    ASSERT_EQ(json.ParseText(group.out.at(0)), ara::quill::common::jsonParser::PARSE_SUCCESS);
    EXPECT_EQ(json.Member("state").GetString(), "On");
    EXPECT_TRUE(json.Member("target").IsNull());
    EXPECT_FALSE(json.Member("failed").GetBool());
    // The last transition of Demo started greeter and counter (the restarts are not transitions).
    const Outcome blame = Emctl("blame Demo", tag);
    EXPECT_EQ(blame.out.size(), 2U);
    std::set<std::string> blamed;
    for (const std::string& line : blame.out) {
        const auto last = line.rfind(' ');
        EXPECT_NE(line.find("s "), std::string::npos) << line;  // "  1.234s greeter"
        blamed.insert(line.substr(last + 1U));
    }
    EXPECT_EQ(blamed, (std::set<std::string>{"counter", "greeter"}));

    EXPECT_EQ(Emctl("state set Demo Off", tag).code, 0);
    const Outcome off = Emctl("ps --json", tag);
    ASSERT_EQ(json.ParseText(off.out.at(0)), ara::quill::common::jsonParser::PARSE_SUCCESS);
    EXPECT_TRUE(json.Element(2).Member("pid").IsNull());
    EXPECT_EQ(json.Element(2).Member("state").GetString(), "Idle");

    // No Execution Management on another discovery tag.
    for (const std::string args : {"state get MachineFG", "ps", "status logger"}) {
        const Outcome run = Emctl(args, ara_test::OwnTag("emctl-nobody"));
        EXPECT_EQ(run.code, 3) << args;
        EXPECT_EQ(run.err, "emctl: " + args + ": Communication error occurred (ARA_LOG_SINK=console shows why)");
    }
    emd.Kill(SIGTERM);
    EXPECT_EQ(emd.Wait(), 0);
}

// emctl validate gives emd --check's verdict: its line for a valid manifest, and its refusal
// (with the place) as emctl's error line and exit code 1.
TEST(EmctlTest, ValidateAgreesWithEmdCheck) {
    const ara_test::TempDir dir;
    const std::string broken = dir.Write("broken.json", "{\n  \"functionGroups\": [\n");
    const std::string wrong = ara_test::WriteManifest(
        dir, ara_test::MachineGroup(), ara_test::TestApp("p", "run", "MachineFG", "[\"Running\", \"Nowhere\"]"));
    const std::pair<std::string, std::string> cases[] = {
        {EXAMPLE_MANIFEST, ""}, {broken, broken + ": line "}, {wrong, "states"}, {dir / "missing.json", "missing"}};
    for (const auto& [file, place] : cases) {
        const Outcome emd = RunCommand(EMD " --log none --check --manifest " + file, "");
        const Outcome run = Emctl("validate " + file, "");
        if (place.empty()) {
            EXPECT_EQ(emd.code, 0) << file;
            EXPECT_EQ(run.code, 0) << file;
            EXPECT_EQ(run.out, emd.out) << file;
            continue;
        }
        EXPECT_EQ(emd.code, 3) << file;
        EXPECT_EQ(run.code, 1) << file;
        EXPECT_EQ(run.err, "emctl: validate: " + emd.err.substr(std::string("emd: ").size())) << file;
        EXPECT_NE(run.err.find(place), std::string::npos) << run.err;
    }
}

}  // namespace
