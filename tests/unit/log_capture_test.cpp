// SPDX-License-Identifier: Apache-2.0
// The log library without a process around it. Records as the capture sink sees them: exact
// texts, contexts and levels, value formatting, filtered streams, nested captures, rate limits per
// log id. Its rules: ARA_LOG_SINK / ARA_LOG_LEVEL settings, four-character DLT ids, and rate-limit
// windows on a synthetic clock.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ara/quill/common/log/log.h"
#include "log_config.h"
#include "rate_limiter.h"
#include "short_id.h"

namespace {

using namespace ara::quill::common::log;
using namespace ara::quill::common::log::internal;
using Texts = std::vector<std::string>;

enum class Colour : std::uint8_t { kRed = 7 };

TEST(LogCaptureTest, RecordsCarryContextLevelAndExactText) {
    CaptureSink capture;
    const auto log = Log::GetLog("CAPT");
    const char* state = "kRunning";
    log->fatal() << "[ExecutionClient][Report execution state info][state=" << state << "]";
    Log::GetLog("CAPT2")->error() << "second";
    log->verbose() << "third";
    const auto records = capture.Records();
    ASSERT_EQ(records.size(), 3U);
    EXPECT_EQ(records[0].text, "[ExecutionClient][Report execution state info][state=kRunning]");
    EXPECT_EQ(records[0].level, LogLevel::kFatal);
    EXPECT_EQ(records[1].ctxId, "CAPT2");
    EXPECT_EQ(records[1].level, LogLevel::kError);
    EXPECT_EQ(records[2].level, LogLevel::kVerbose);
    EXPECT_EQ(capture.Texts("CAPT"), (Texts{records[0].text, "third"}));
    EXPECT_FALSE(capture.Contains("thir"));
}

TEST(LogCaptureTest, StreamFormatsValuesAsText) {
    const std::pair<std::string, void (*)(LogStreamBuffer &&)> cases[] = {
        {"a1 true", [](LogStreamBuffer&& s) { s << "a" << 1 << ' ' << true; }},
        {"7", [](LogStreamBuffer&& s) { s << Colour::kRed; }},
        {"-5 200", [](LogStreamBuffer&& s) { s << std::int8_t{-5} << ' ' << std::uint8_t{200}; }},
        {"(null)", [](LogStreamBuffer&& s) { s << static_cast<const char*>(nullptr); }},
        {"4294967295", [](LogStreamBuffer&& s) { s << std::uint32_t{0xFFFFFFFFU}; }},
        {"", [](LogStreamBuffer&& s) { static_cast<void>(s); }},
        // A moved-from stream is inactive: the record is emitted once, by the new owner.
        {"one two",
         [](LogStreamBuffer&& s) {
             LogStreamBuffer moved(std::move(s << "one"));
             moved << " two";
             s << " lost";
         }},
    };
    for (const auto& [expected, write] : cases) {
        CaptureSink capture;
        write(Log::GetLog("FMT")->warn());
        EXPECT_EQ(capture.Texts(), Texts{expected});
    }
}

// Counts how often it is formatted, to show that filtered streams do no formatting work.
struct Probe {
    int* formatted;
};
std::ostream& operator<<(std::ostream& out, const Probe& probe) {
    return out << "probe" << ++*probe.formatted;
}

TEST(LogCaptureTest, FilteredStreamDoesNoFormatting) {
    int formatted = 0;
    CaptureSink capture;
    const auto log = Log::GetLog("PROBE");
    log->warn("probe", LimitConfig{60000U, 1U}) << Probe{&formatted};
    log->warn("probe", LimitConfig{60000U, 1U}) << Probe{&formatted};
    Log::GetLog("")->error() << Probe{&formatted};
    EXPECT_EQ(capture.Texts(), Texts{"probe1"});
}

TEST(LogCaptureTest, NewestCaptureTakesRecordsUntilItEnds) {
    const auto log = Log::GetLog("NEST");
    CaptureSink outer;
    log->info() << "to outer";
    {
        CaptureSink inner;
        log->info() << "to inner";
        EXPECT_EQ(inner.Texts(), Texts{"to inner"});
    }
    log->info() << "to outer again";
    EXPECT_EQ(outer.Texts(), (Texts{"to outer", "to outer again"}));
}

// Each new capture sink starts every window afresh, so both rounds see the same records.
TEST(LogRateLimitTest, LimitsRecordsPerLogIdThroughLog) {
    const auto log = Log::GetLog("RATE");
    for (int round = 0; round < 2; ++round) {
        CaptureSink capture;
        for (int i = 0; i < 4; ++i) {
            log->warn("Request_Failed", LimitConfig{60000U, 2U}) << "request " << i;
            log->error("Reply_Failed", LimitConfig{60000U, 2U}) << "reply " << i;
            log->info("", LimitConfig{60000U, 2U}) << i;
        }
        const Texts expected{"request 0", "reply 0", "0", "request 1", "reply 1", "1", "2", "3"};
        EXPECT_EQ(capture.Texts("RATE"), expected) << "round " << round;
    }
}

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
