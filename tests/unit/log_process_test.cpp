// The log library in a process of its own: the environment choosing sinks and threshold, the
// console line, logging during static destruction, DLT output read back from a file, and
// prompt exit without a DLT daemon.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <string>

namespace {

const std::string LEVELS[] = {"fatal", "error", "warn", "info", "debug", "verbose"};

struct ChildRun {
    int status;
    std::string out;  // stdout of a run of dlt-convert, stderr of the emitter
    std::chrono::milliseconds wallTime;
};

std::string Slurp(const std::string& path) {
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    ::unlink(path.c_str());
    return text.str();
}

// Runs `command` through the shell without the caller's ARA_LOG_* settings plus `env`.
ChildRun RunShell(const std::string& command, const std::map<std::string, std::string>& env, const char* stream = "2") {
    const std::string outPath = "/tmp/ara_log_test_" + std::to_string(::getpid()) + ".out";
    std::string line = "env -u ARA_LOG_SINK -u ARA_LOG_LEVEL -u ARA_LOG_APP_ID -u ARA_LOG_DLT_FILE";
    for (const auto& [name, value] : env) {
        line += " " + name + "='" + value + "'";
    }
    line += " " + command + " " + stream + ">" + outPath;
    const auto start = std::chrono::steady_clock::now();
    const int status = std::system(line.c_str());
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    return ChildRun{status, Slurp(outPath), took};
}

ChildRun RunEmitter(const std::map<std::string, std::string>& env, const std::string& args = "APPT PROC emitted") {
    ChildRun run = RunShell(std::string(LOG_EMITTER_PATH) + " " + args, env);
    EXPECT_TRUE(WIFEXITED(run.status) && WEXITSTATUS(run.status) == 0) << run.status << "\n" << run.out;
    return run;
}

int CountOf(const std::string& text, const std::string& part) {
    int count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1U)) {
        ++count;
    }
    return count;
}

TEST(LogProcessTest, ConsoleThresholdAndSinksFromEnvironment) {
    struct Case {
        std::map<std::string, std::string> env;
        std::size_t emitted;  // the most severe this many levels reach the console
        int diagnostics;
    };
    const Case cases[] = {
        {{}, 3U, 0},
        {{{"ARA_LOG_LEVEL", "fatal"}}, 1U, 0},
        {{{"ARA_LOG_LEVEL", "Info"}}, 4U, 0},
        {{{"ARA_LOG_LEVEL", "verbose"}, {"ARA_LOG_SINK", "console"}}, 6U, 0},
        {{{"ARA_LOG_LEVEL", "chatty"}}, 3U, 1},
        {{{"ARA_LOG_SINK", "syslog"}, {"ARA_LOG_LEVEL", "error"}}, 2U, 2},
        {{{"ARA_LOG_SINK", "none"}, {"ARA_LOG_LEVEL", "verbose"}}, 0U, 0},
#ifndef ARA_LOG_TEST_WITH_DLT
        {{{"ARA_LOG_SINK", "dlt"}}, 3U, 2},
#endif
    };
    for (const auto& c : cases) {
        const ChildRun run = RunEmitter(c.env);
        SCOPED_TRACE(run.out);
        for (std::size_t i = 0U; i < 6U; ++i) {
            const std::string line = "[PROC] [" + LEVELS[i] + "] emitted at " + LEVELS[i] + "\n";
            EXPECT_EQ(CountOf(run.out, line), i < c.emitted ? 1 : 0) << LEVELS[i];
        }
        // The emitter logs once more from a static destructor, after the library's own teardown.
        EXPECT_EQ(CountOf(run.out, "[TEAR] [error] record from a static destructor\n"), c.emitted >= 2U ? 1 : 0);
        EXPECT_EQ(CountOf(run.out, "ara log: "), c.diagnostics);
    }
}

TEST(LogProcessTest, ConsoleLineHasUtcTimeContextLevelAndText) {
    const ChildRun run = RunEmitter({});
    const std::regex line(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z \[PROC\] \[warn\] emitted at warn\n)");
    EXPECT_TRUE(std::regex_search(run.out, line)) << run.out;
}

#ifdef ARA_LOG_TEST_WITH_DLT

TEST(LogDltTest, RecordsReadBackFromFileWithoutDaemon) {
    if (std::system("command -v dlt-convert >/dev/null 2>&1") != 0) {
        GTEST_SKIP() << "dlt-convert is not installed";
    }
    struct Case {
        std::string args;
        std::map<std::string, std::string> env;
        std::string ids;  // app and context id as dlt-convert prints them
    };
    const Case cases[] = {
        {"APPT CHECKER emitted", {}, " APPT CHKR "},
        {"- EM emitted", {{"ARA_LOG_APP_ID", "EXEC"}}, " EXEC EM-- "},
        {"- CM emitted", {}, " EMCL CM-- "},
        {"EXECUTION EMCL emitted", {}, " EXCT EMCL "},
    };
    const std::string file = "/tmp/ara_log_test_" + std::to_string(::getpid()) + ".dlt";
    for (auto c : cases) {
        SCOPED_TRACE(c.args);
        c.env.insert({{"ARA_LOG_SINK", "dlt"}, {"ARA_LOG_LEVEL", "info"}, {"ARA_LOG_DLT_FILE", file}});
        EXPECT_EQ(CountOf(RunEmitter(c.env, c.args).out, "emitted at"), 0);  // nothing on the console
        const std::string records = RunShell("dlt-convert -a " + file, {}, "").out;
        ::unlink(file.c_str());
        for (std::size_t i = 0U; i < 6U; ++i) {
            const std::string record = c.ids + "log " + LEVELS[i] + " V 1 [emitted at " + LEVELS[i] + "]";
            EXPECT_EQ(CountOf(records, record), i < 4U ? 1 : 0) << record << "\n" << records;
        }
    }
}

// The DLT library would wait 10 s at exit trying to resend the records no daemon took.
TEST(LogDltTest, ExitsPromptlyWithoutDaemon) {
    for (const char* args : {"APPT PROC emitted", "APPT PROC emitted busy"}) {
        const ChildRun run = RunEmitter({{"ARA_LOG_SINK", "dlt"}, {"ARA_LOG_LEVEL", "verbose"}}, args);
        EXPECT_LT(run.wallTime, std::chrono::milliseconds(5000)) << args;
    }
}

#endif

}  // namespace
