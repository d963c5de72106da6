// The log library's rules without a process around them: ARA_LOG_SINK / ARA_LOG_LEVEL
// settings, four-character DLT ids, and rate-limit windows on a synthetic clock.
#include "log_config.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "rate_limiter.h"
#include "short_id.h"

namespace {

using namespace ara::quill::common::log;
using namespace ara::quill::common::log::internal;

TEST(LogConfigTest, SinkAndLevelSettings) {
    struct Case {
        const char* sink;
        const char* level;
        bool dltBuiltIn;
        unsigned sinks;
        LogLevel expectedLevel;
        std::size_t complaints;
    };
    const Case cases[] = {
        {nullptr, nullptr, true, SINK_CONSOLE, LogLevel::kWarn, 0U},
        {" Console , DLT ", "INFO", true, SINK_CONSOLE | SINK_DLT, LogLevel::kInfo, 0U},
        {"console,,", "debug", true, SINK_CONSOLE, LogLevel::kDebug, 0U},
        {"none", "verbose", true, 0U, LogLevel::kVerbose, 0U},
        {"console,syslog", "warning", true, SINK_CONSOLE, LogLevel::kWarn, 2U},
        {"none,syslog", nullptr, true, SINK_CONSOLE, LogLevel::kWarn, 2U},
        {"dlt", "fatal", false, SINK_CONSOLE, LogLevel::kFatal, 2U},
        {"dlt,none", nullptr, false, SINK_CONSOLE, LogLevel::kWarn, 2U},
    };
    for (const auto& c : cases) {
        const LogConfig config = ParseLogConfig(c.sink, c.level, c.dltBuiltIn);
        const std::string name = std::string(c.sink != nullptr ? c.sink : "-") + "/" + (c.level ? c.level : "-");
        EXPECT_EQ(config.sinks, c.sinks) << name;
        EXPECT_EQ(config.level, c.expectedLevel) << name;
        EXPECT_EQ(config.complaints.size(), c.complaints) << name;
    }
}

TEST(LogConfigTest, ShortIds) {
    const std::tuple<const char*, std::set<std::string>, const char*> cases[] = {
        {"EMCL", {}, "EMCL"},
        {"CHECKER", {}, "CHKR"},
        {"EM_CLIENT", {}, "EMCL"},
        {"AUDIO", {}, "AUDI"},
        {"CHECKERS", {"CHKR", "CHK1"}, "CHK2"},
        {"EM", {"EM"}, "EM1"},
        {"X", {"X", "X1", "X2", "X3", "X4", "X5", "X6", "X7", "X8", "X9"}, "X"},
    };
    for (const auto& [name, taken, expected] : cases) {
        EXPECT_EQ(ShortId(name, taken), expected) << name;
    }
}

TEST(LogRateLimitTest, WindowBoundariesOnSyntheticClock) {
    struct Step {
        int atMs;
        const char* logId;
        LimitConfig limit;
        bool admitted;
    };
    const LimitConfig one{500U, 1U};
    const LimitConfig two{100U, 2U};
    const LimitConfig none{500U, 0U};
    const LimitConfig endless{0U, 1U};
    const std::vector<std::vector<Step>> cases{
        // one per window; a window reopens exactly at the period, counted from its first record
        {{0, "A", one, true}, {499, "A", one, false}, {500, "A", one, true}},
        {{1200, "A", one, true}, {1699, "A", one, false}, {1700, "A", one, true}},
        {{0, "A", two, true}, {10, "A", two, true}, {99, "A", two, false}, {100, "A", two, true}},
        // ids are independent; the empty id is never limited and never counted
        {{0, "A", one, true}, {0, "B", one, true}, {1, "B", one, false}, {1, "", none, true}},
        // count zero suppresses, period zero does not limit
        {{0, "A", none, false}, {0, "B", endless, true}, {0, "B", endless, true}},
    };
    for (std::size_t c = 0U; c < cases.size(); ++c) {
        RateLimiter limiter;
        for (std::size_t i = 0U; i < cases[c].size(); ++i) {
            const Step& step = cases[c][i];
            const RateLimiter::Clock::time_point at{std::chrono::hours(1) + std::chrono::milliseconds(step.atMs)};
            EXPECT_EQ(limiter.Admit(step.logId, step.limit, at), step.admitted) << "case " << c << ", step " << i;
        }
    }
}

}  // namespace
