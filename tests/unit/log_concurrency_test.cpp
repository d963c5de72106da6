// SPDX-License-Identifier: Apache-2.0
// Many threads logging at once: every record arrives whole, per-thread order holds, and the
// rate limit holds across threads.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <map>
#include <thread>
#include <vector>

#include "ara/quill/common/log/log.h"

namespace {

using ara::quill::common::log::CaptureSink;
using ara::quill::common::log::LimitConfig;
using ara::quill::common::log::Log;

constexpr int THREADS = 8;

void OnThreads(const std::function<void(int)>& body) {
    std::vector<std::thread> threads;
    for (int t = 0; t < THREADS; ++t) {
        threads.emplace_back(body, t);
    }
    for (auto& thread : threads) {
        thread.join();
    }
}

TEST(LogConcurrencyTest, RecordsFromManyThreadsArriveWholeAndInOrder) {
    constexpr int RECORDS = 500;
    const std::string payload(64, 'x');
    CaptureSink capture;
    OnThreads([&payload](int t) {
        const auto log = Log::GetLog("CONC" + std::to_string(t % 2));
        for (int r = 0; r < RECORDS; ++r) {
            log->info() << t << " record " << r << ' ' << payload;
        }
    });
    const auto records = capture.Records();
    ASSERT_EQ(records.size(), static_cast<std::size_t>(THREADS * RECORDS));
    std::map<int, int> next;  // per thread: the record expected next
    for (const auto& record : records) {
        const int t = record.text[0] - '0';  // fewer than ten threads
        EXPECT_EQ(record.text, std::to_string(t) + " record " + std::to_string(next[t]++) + ' ' + payload);
        EXPECT_EQ(record.ctxId, "CONC" + std::to_string(t % 2));
    }
}

TEST(LogConcurrencyTest, RateLimitHoldsAcrossThreads) {
    CaptureSink capture;
    std::atomic<int> ready{0};
    OnThreads([&ready](int) {
        const auto log = Log::GetLog("CONC_RATE");
        for (ready.fetch_add(1); ready.load() < THREADS;) {
            std::this_thread::yield();  // start together
        }
        for (int r = 0; r < 200; ++r) {
            log->warn("Concurrent", LimitConfig{600000U, 5U}) << "limited";
        }
    });
    EXPECT_EQ(capture.Texts("CONC_RATE").size(), 5U);
}

}  // namespace
