// The log library in a process of its own: the environment choosing sinks and threshold, the
// console line, DLT output read back from a file, prompt exit without a DLT daemon, and logging
// during static destruction.
#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "child_process.h"

namespace {

using ara_test::ChildResult;
using ara_test::RunChild;

const std::vector<std::string> LEVELS{"fatal", "error", "warn", "info", "debug", "verbose"};

int CountOf(const std::string& text, const std::string& part) {
    int count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) {
        ++count;
    }
    return count;
}

ChildResult RunEmitter(const std::map<std::string, std::string>& env, const std::string& appId = "APPT",
                       const std::string& ctxId = "PROC", const std::string& extra = {}) {
    std::vector<std::string> argv{LOG_EMITTER_PATH, appId, ctxId, "emitted"};
    if (!extra.empty()) {
        argv.push_back(extra);
    }
    return RunChild(argv, env);
}

void ExpectCleanExit(const ChildResult& result) {
    ASSERT_TRUE(result.started);
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.termSignal, 0) << result.err;
    EXPECT_EQ(result.exitCode, 0) << result.err;
}

std::string TempPath(const std::string& stem) {
    const char* dir = std::getenv("TMPDIR");
    return std::string(dir != nullptr ? dir : "/tmp") + "/" + stem + "_" + std::to_string(::getpid()) + ".dlt";
}

TEST(LogProcessTest, ConsoleThresholdFromEnvironment) {
    struct Case {
        std::map<std::string, std::string> env;
        std::size_t emittedLevels;  // the most severe this many of LEVELS reach the console
        int diagnostics;
    };
    const Case cases[] = {
        {{}, 3U, 0},
        {{{"ARA_LOG_LEVEL", "fatal"}}, 1U, 0},
        {{{"ARA_LOG_LEVEL", "error"}}, 2U, 0},
        {{{"ARA_LOG_LEVEL", "Info"}}, 4U, 0},
        {{{"ARA_LOG_LEVEL", "debug"}}, 5U, 0},
        {{{"ARA_LOG_LEVEL", "verbose"}, {"ARA_LOG_SINK", "console"}}, 6U, 0},
        {{{"ARA_LOG_LEVEL", "chatty"}}, 3U, 1},
        {{{"ARA_LOG_SINK", "syslog"}, {"ARA_LOG_LEVEL", "error"}}, 2U, 2},
        {{{"ARA_LOG_SINK", "none"}, {"ARA_LOG_LEVEL", "verbose"}}, 0U, 0},
    };
    for (const auto& c : cases) {
        const ChildResult result = RunEmitter(c.env);
        std::string name;
        for (const auto& [key, value] : c.env) {
            name += key + "=" + value + " ";
        }
        SCOPED_TRACE(name);
        ExpectCleanExit(result);
        for (std::size_t i = 0U; i < LEVELS.size(); ++i) {
            const std::string line = "[PROC] [" + LEVELS[i] + "] emitted at " + LEVELS[i] + "\n";
            EXPECT_EQ(CountOf(result.err, line), i < c.emittedLevels ? 1 : 0) << LEVELS[i] << "\n" << result.err;
        }
        EXPECT_EQ(CountOf(result.err, "ara log: "), c.diagnostics) << result.err;
        EXPECT_TRUE(result.out.empty()) << result.out;
    }
}

TEST(LogProcessTest, ConsoleLineHasTimeContextLevelAndText) {
    const ChildResult result = RunEmitter({{"ARA_LOG_LEVEL", "warn"}});
    ExpectCleanExit(result);
    const std::size_t at = result.err.find("[PROC] [warn] emitted at warn\n");
    ASSERT_NE(at, std::string::npos) << result.err;
    const std::size_t lineStart = result.err.rfind('\n', at);
    const std::string stamp =
        result.err.substr(lineStart == std::string::npos ? 0U : lineStart + 1U, at - (lineStart + 1U));
    // e.g. "2026-11-22T18:53:56.741327Z "
    ASSERT_EQ(stamp.size(), 28U) << stamp;
    EXPECT_EQ(stamp[4], '-');
    EXPECT_EQ(stamp[10], 'T');
    EXPECT_EQ(stamp[19], '.');
    EXPECT_EQ(stamp.substr(26), "Z ");
}

TEST(LogProcessTest, RecordFromStaticDestructorStillReachesConsole) {
    const ChildResult result = RunEmitter({});
    ExpectCleanExit(result);
    EXPECT_EQ(CountOf(result.err, "[TEAR] [error] record from a static destructor\n"), 1) << result.err;
}

#ifdef ARA_LOG_TEST_WITH_DLT

class LogDltTest : public ::testing::Test {
protected:
    void SetUp() override {
        dltConvert_ = ara_test::FindOnPath("dlt-convert");
        if (dltConvert_.empty()) {
            GTEST_SKIP() << "dlt-convert is not installed";
        }
    }

    /// The records of `file` as dlt-convert -a prints them, one per line.
    std::string Convert(const std::string& file) {
        const ChildResult result = RunChild({dltConvert_, "-a", file}, {});
        EXPECT_EQ(result.exitCode, 0) << result.err;
        return result.out;
    }

    std::string dltConvert_;
};

TEST_F(LogDltTest, RecordsReadBackFromFileWithoutDaemon) {
    struct Case {
        std::string appArg;
        std::string ctxId;
        std::map<std::string, std::string> env;
        std::string expectedIds;  // "<app> <ctx>" as dlt-convert prints them, padded with '-'
    };
    const Case cases[] = {
        {"APPT", "CHECKER", {}, " APPT CHKR "},
        {"-", "EM", {{"ARA_LOG_APP_ID", "EXEC"}}, " EXEC EM-- "},
        {"-", "CM", {}, " EMCL CM-- "},
        {"EXECUTION", "EMCL", {}, " EXCT EMCL "},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.appArg + " " + c.ctxId);
        const std::string file = TempPath("log_dlt_file");
        std::map<std::string, std::string> env = c.env;
        env["ARA_LOG_SINK"] = "dlt";
        env["ARA_LOG_LEVEL"] = "info";
        env["ARA_LOG_DLT_FILE"] = file;
        const ChildResult result = RunEmitter(env, c.appArg, c.ctxId);
        ExpectCleanExit(result);
        const std::string records = Convert(file);
        ::unlink(file.c_str());

        for (std::size_t i = 0U; i < LEVELS.size(); ++i) {
            const std::string text = "[emitted at " + LEVELS[i] + "]";
            EXPECT_EQ(CountOf(records, text), i < 4U ? 1 : 0) << LEVELS[i] << "\n" << records;
        }
        // Each emitted record is tagged with the app and context id and the DLT level.
        EXPECT_EQ(CountOf(records, c.expectedIds + "log fatal V 1 [emitted at fatal]"), 1) << records;
        EXPECT_EQ(CountOf(records, c.expectedIds + "log warn V 1 [emitted at warn]"), 1) << records;
        EXPECT_EQ(CountOf(records, c.expectedIds + "log info V 1 [emitted at info]"), 1) << records;
        // The console stays silent when only DLT is chosen.
        EXPECT_EQ(CountOf(result.err, "emitted at"), 0) << result.err;
    }
}

TEST_F(LogDltTest, UnwritableFileIsReportedAndHarmless) {
    const ChildResult result = RunEmitter(
        {{"ARA_LOG_SINK", "dlt,console"}, {"ARA_LOG_DLT_FILE", "/nonexistent-dir/records.dlt"}});
    ExpectCleanExit(result);
    EXPECT_EQ(CountOf(result.err, "[PROC] [warn] emitted at warn\n"), 1) << result.err;
    EXPECT_EQ(CountOf(result.err, "ara log: cannot open DLT file"), 1) << result.err;
}

// Without a daemon the DLT library would wait 10 s at exit trying to resend buffered records.
TEST(LogDltExitTest, ExitsPromptlyWithoutDaemon) {
    for (const std::string extra : {"", "busy"}) {
        SCOPED_TRACE(extra);
        const ChildResult result =
            RunEmitter({{"ARA_LOG_SINK", "dlt"}, {"ARA_LOG_LEVEL", "verbose"}}, "APPT", "PROC", extra);
        ExpectCleanExit(result);
        EXPECT_LT(result.wallTime, std::chrono::milliseconds(5000));
    }
}

#endif

}  // namespace
