// Rate limiting per log id: window boundaries on a synthetic clock, and the limits as seen
// through Log and the capture sink.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "ara/quill/common/log/log.h"
#include "rate_limiter.h"

namespace {

using namespace ara::quill::common::log;
using std::chrono::milliseconds;

// The limiter is process-wide; fresh ids keep repeated runs (--gtest_repeat) apart.
std::string FreshId(const std::string& stem) {
    static std::atomic<unsigned> next{0U};
    return stem + "_" + std::to_string(next.fetch_add(1U));
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
    const std::vector<std::vector<Step>> cases{
        // one per window; a window reopens exactly at the period, counted from its first record
        {{0, "A", one, true},
         {499, "A", one, false},
         {500, "A", one, true},
         {1200, "A", one, true},
         {1699, "A", one, false},
         {1700, "A", one, true}},
        {{0, "A", two, true}, {10, "A", two, true}, {99, "A", two, false}, {100, "A", two, true}},
        // ids are independent; the empty id is never limited and never counted
        {{0, "A", one, true}, {0, "B", one, true}, {1, "B", one, false}, {1, "", LimitConfig{500U, 0U}, true}},
        // count zero suppresses, period zero does not limit
        {{0, "A", LimitConfig{500U, 0U}, false},
         {0, "B", LimitConfig{0U, 1U}, true},
         {0, "B", LimitConfig{0U, 1U}, true}},
    };
    for (std::size_t c = 0U; c < cases.size(); ++c) {
        internal::RateLimiter limiter;
        const internal::RateLimiter::Clock::time_point origin{std::chrono::hours(1)};
        for (std::size_t i = 0U; i < cases[c].size(); ++i) {
            const Step& step = cases[c][i];
            EXPECT_EQ(limiter.Admit(step.logId, step.limit, origin + milliseconds(step.atMs)), step.admitted)
                << "case " << c << ", step " << i;
        }
    }
}

TEST(LogRateLimitTest, LimitsRecordsPerLogIdThroughLog) {
    CaptureSink capture;
    const auto log = Log::GetLog("RATE");
    const std::string first = FreshId("MethodProxy_Request_Failed");
    const std::string second = FreshId("MethodProxy_Reply_Failed");
    for (int i = 0; i < 10; ++i) {
        log->warn(first, LimitConfig{60000U, 2U}) << "first " << i;
        log->error(second, LimitConfig{60000U, 2U}) << "second " << i;
        log->info("", LimitConfig{60000U, 2U}) << "unlimited " << i;
    }
    std::vector<std::string> expected{"first 0", "second 0", "unlimited 0", "first 1", "second 1", "unlimited 1"};
    for (int i = 2; i < 10; ++i) {
        expected.push_back("unlimited " + std::to_string(i));
    }
    EXPECT_EQ(capture.Texts("RATE"), expected);
}

TEST(LogRateLimitTest, EmitsAgainAfterThePeriod) {
    CaptureSink capture;
    const auto log = Log::GetLog("RATE_T");
    const std::string id = FreshId("Timed");
    log->warn(id, LimitConfig{50U, 1U}) << "first";
    std::this_thread::sleep_for(milliseconds(300));  // generous: the machine may be slow
    log->warn(id, LimitConfig{50U, 1U}) << "after the period";
    EXPECT_EQ(capture.Texts(), (std::vector<std::string>{"first", "after the period"}));
}

}  // namespace
