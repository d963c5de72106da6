// Records as the capture sink sees them: exact texts, contexts and levels, value formatting,
// filtered streams, nested captures, and rate limits per log id.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ara/quill/common/log/log.h"

namespace {

using namespace ara::quill::common::log;
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

TEST(LogRateLimitTest, EmitsAgainAfterThePeriod) {
    CaptureSink capture;
    const auto log = Log::GetLog("RATE_T");
    log->warn("Timed", LimitConfig{50U, 1U}) << "first";
    std::this_thread::sleep_for(std::chrono::milliseconds(300));  // generous: the machine may be slow
    log->warn("Timed", LimitConfig{50U, 1U}) << "after the period";
    EXPECT_EQ(capture.Texts(), (Texts{"first", "after the period"}));
}

}  // namespace
