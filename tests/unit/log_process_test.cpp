// SPDX-License-Identifier: Apache-2.0
// The log library in a process of its own: the environment choosing sinks and threshold, the
// console line, logging during static destruction, DLT output read back from a file, and
// prompt exit without a DLT daemon.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <string>

namespace {

using Env = std::map<std::string, std::string>;
const std::string LEVELS[] = {"fatal", "error", "warn", "info", "debug", "verbose"};

// Runs `command` through the shell with `env` instead of the caller's ARA_LOG_* settings, and
// returns its exit status and what it wrote to `stream` (2: stderr, empty: stdout).
std::pair<int, std::string> RunShell(const std::string& command, const Env& env, const char* stream) {
    const std::string outPath = "/tmp/ara_log_test_" + std::to_string(::getpid()) + ".out";
    std::string line = "env -u ARA_LOG_SINK -u ARA_LOG_LEVEL -u ARA_LOG_APP_ID -u ARA_LOG_DLT_FILE";
    for (const auto& [name, value] : env) {
        line += " " + name + "='" + value + "'";
    }
    const int status = std::system((line + " " + command + " " + stream + ">" + outPath).c_str());
    std::ostringstream out;
    out << std::ifstream(outPath).rdbuf();
    ::unlink(outPath.c_str());
    return {status, out.str()};
}

// The console output of the emitter, which must exit well before `timeout` would end it: the
// DLT library would wait 10 s at exit trying to resend the records no daemon took.
std::string RunEmitter(const Env& env, const std::string& args = "APPT PROC emitted") {
    const auto [status, out] = RunShell("timeout 5 " LOG_EMITTER_PATH " " + args, env, "2");
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status << "\n" << out;
    return out;
}

int CountOf(const std::string& text, const std::string& part) {
    int count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1U)) {
        ++count;
    }
    return count;
}

TEST(LogProcessTest, ConsoleLineThresholdAndSinksFromEnvironment) {
    struct Case {
        Env env;
        std::size_t emitted;  // the most severe this many levels reach the console
        int diagnostics;
    };
    const Case cases[] = {
        {{}, 3U, 0},
        {{{"ARA_LOG_LEVEL", "Info"}}, 4U, 0},
        {{{"ARA_LOG_LEVEL", "chatty"}}, 3U, 1},
        {{{"ARA_LOG_SINK", "syslog"}, {"ARA_LOG_LEVEL", "error"}}, 2U, 2},
        {{{"ARA_LOG_SINK", "none"}, {"ARA_LOG_LEVEL", "verbose"}}, 0U, 0},
#ifndef ARA_LOG_TEST_WITH_DLT
        {{{"ARA_LOG_SINK", "dlt"}}, 3U, 2},
#endif
    };
    // A console line: UTC time, context, level and text.
    const std::regex warnLine(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z \[PROC\] \[warn\] emitted at warn\n)");
    for (const auto& c : cases) {
        const std::string out = RunEmitter(c.env);
        SCOPED_TRACE(out);
        EXPECT_EQ(std::regex_search(out, warnLine), c.emitted >= 3U);
        for (std::size_t i = 0U; i < 6U; ++i) {
            const std::string line = "[PROC] [" + LEVELS[i] + "] emitted at " + LEVELS[i] + "\n";
            EXPECT_EQ(CountOf(out, line), i < c.emitted ? 1 : 0) << LEVELS[i];
        }
        // The emitter logs once more from a static destructor, after the library's own teardown.
        EXPECT_EQ(CountOf(out, "[TEAR] [error] record from a static destructor\n"), c.emitted >= 2U ? 1 : 0);
        EXPECT_EQ(CountOf(out, "ara log: "), c.diagnostics);
    }
}

#ifdef ARA_LOG_TEST_WITH_DLT

TEST(LogDltTest, RecordsReadBackFromFileWithoutDaemon) {
    if (std::system("command -v dlt-convert >/dev/null 2>&1") != 0) {
        GTEST_SKIP() << "dlt-convert is not installed";
    }
    // emitter arguments, extra environment, app and context id as dlt-convert prints them
    const std::tuple<std::string, Env, std::string> cases[] = {
        {"APPT CHECKER emitted", {}, " APPT CHKR "},
        {"- EM emitted", {{"ARA_LOG_APP_ID", "EXEC"}}, " EXEC EM-- "},
        {"- CM emitted", {}, " EMCL CM-- "},
        {"EXECUTION EMCL emitted", {}, " EXCT EMCL "},
    };
    const std::string file = "/tmp/ara_log_test_" + std::to_string(::getpid()) + ".dlt";
    for (auto [args, env, ids] : cases) {
        SCOPED_TRACE(args);
        env.insert({{"ARA_LOG_SINK", "dlt"}, {"ARA_LOG_LEVEL", "info"}, {"ARA_LOG_DLT_FILE", file}});
        EXPECT_EQ(CountOf(RunEmitter(env, args), "emitted at"), 0);  // nothing on the console
        const std::string records = RunShell("dlt-convert -a " + file, {}, "").second;
        ::unlink(file.c_str());
        for (std::size_t i = 0U; i < 6U; ++i) {
            const std::string record = ids + "log " + LEVELS[i] + " V 1 [emitted at " + LEVELS[i] + "]";
            EXPECT_EQ(CountOf(records, record), i < 4U ? 1 : 0) << record << "\n" << records;
        }
    }
}

TEST(LogDltTest, ExitsPromptlyWithoutDaemon) {
    for (const char* args : {"APPT PROC emitted", "APPT PROC emitted busy"}) {
        RunEmitter({{"ARA_LOG_SINK", "dlt"}, {"ARA_LOG_LEVEL", "verbose"}}, args);
    }
}

#endif

}  // namespace
