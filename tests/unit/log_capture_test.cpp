// Records as the capture sink sees them: exact texts, contexts and levels, value formatting,
// filtered streams (also of the invalid logger) and nested captures.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>

#include "ara/quill/common/log/log.h"

namespace {

using namespace ara::quill::common::log;

enum class Colour : std::uint8_t { kRed = 7 };

// Counts how often it is formatted, to show that filtered streams do no formatting work.
struct Probe {
    int* formatted;
};
std::ostream& operator<<(std::ostream& out, const Probe& probe) {
    return out << "probe" << ++*probe.formatted;
}

TEST(LogCaptureTest, RecordsCarryContextLevelAndExactText) {
    CaptureSink capture;
    const auto log = Log::GetLog("CAPT");
    log->fatal() << "[ExecutionClient][Report execution state info][state="
                 << "kRunning"
                 << "]";
    Log::GetLog("CAPT2")->error() << "second";
    log->verbose() << "third";

    const auto records = capture.Records();
    ASSERT_EQ(records.size(), 3U);
    EXPECT_EQ(records[0].text, "[ExecutionClient][Report execution state info][state=kRunning]");
    EXPECT_EQ(records[0].level, LogLevel::kFatal);
    EXPECT_EQ(records[1].ctxId, "CAPT2");
    EXPECT_EQ(records[1].level, LogLevel::kError);
    EXPECT_EQ(records[2].level, LogLevel::kVerbose);
    EXPECT_EQ(capture.Texts("CAPT"), (std::vector<std::string>{records[0].text, "third"}));
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
    };
    for (const auto& [expected, write] : cases) {
        CaptureSink capture;
        write(Log::GetLog("FMT")->warn());
        EXPECT_EQ(capture.Texts(), std::vector<std::string>{expected});
    }
}

TEST(LogCaptureTest, MovedStreamEmitsExactlyOnce) {
    CaptureSink capture;
    {
        LogStreamBuffer first = Log::GetLog("MOVE")->error();
        first << "one ";
        LogStreamBuffer second(std::move(first));
        second << "two";
        first << "lost";
    }
    EXPECT_EQ(capture.Texts(), std::vector<std::string>{"one two"});
}

TEST(LogCaptureTest, FilteredStreamDoesNoFormatting) {
    int formatted = 0;
    {
        CaptureSink capture;
        const auto log = Log::GetLog("PROBE");
        static int round = 0;  // a fresh log id for each --gtest_repeat round
        const std::string id = "probe-" + std::to_string(round++);
        log->warn(id, LimitConfig{60000U, 1U}) << Probe{&formatted};
        log->warn(id, LimitConfig{60000U, 1U}) << Probe{&formatted};
        Log::GetLog("")->error() << Probe{&formatted};
        EXPECT_EQ(capture.Texts(), std::vector<std::string>{"probe1"});
    }
    auto stream = Log::GetLog("PROBE")->verbose();
    if (stream.IsActive()) {
        GTEST_SKIP() << "ARA_LOG_LEVEL enables verbose records here";
    }
    stream << Probe{&formatted};
    EXPECT_EQ(formatted, 1);
}

TEST(LogCaptureTest, NewestCaptureTakesRecordsUntilItEnds) {
    const auto log = Log::GetLog("NEST");
    CaptureSink outer;
    log->info() << "to outer";
    {
        CaptureSink inner;
        log->info() << "to inner";
        EXPECT_EQ(inner.Texts(), std::vector<std::string>{"to inner"});
    }
    log->info() << "to outer again";
    EXPECT_EQ(outer.Texts(), (std::vector<std::string>{"to outer", "to outer again"}));
}

}  // namespace
