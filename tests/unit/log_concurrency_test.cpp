// Many threads logging at once: every record arrives whole, per-thread order holds, and the
// rate limit holds across threads.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "ara/quill/common/log/log.h"

namespace {

using ara::quill::common::log::CaptureSink;
using ara::quill::common::log::LimitConfig;
using ara::quill::common::log::Log;
using ara::quill::common::log::LogLevel;

constexpr int THREADS = 8;

TEST(LogConcurrencyTest, RecordsFromManyThreadsArriveWhole) {
    constexpr int RECORDS = 500;
    const std::string payload(64, 'x');
    CaptureSink capture;
    std::vector<std::thread> threads;
    for (int t = 0; t < THREADS; ++t) {
        threads.emplace_back([t, &payload] {
            const auto log = Log::GetLog("CONC" + std::to_string(t % 2));
            for (int r = 0; r < RECORDS; ++r) {
                log->info() << "thread " << t << " record " << r << ' ' << payload;
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }

    const auto records = capture.Records();
    ASSERT_EQ(records.size(), static_cast<std::size_t>(THREADS * RECORDS));
    std::map<int, int> nextRecord;
    for (const auto& record : records) {
        int t = -1;
        int r = -1;
        char tail[80] = {};
        ASSERT_EQ(std::sscanf(record.text.c_str(), "thread %d record %d %79s", &t, &r, tail), 3) << record.text;
        ASSERT_EQ(record.text, "thread " + std::to_string(t) + " record " + std::to_string(r) + ' ' + payload);
        EXPECT_EQ(record.ctxId, "CONC" + std::to_string(t % 2));
        EXPECT_EQ(record.level, LogLevel::kInfo);
        EXPECT_EQ(r, nextRecord[t]) << "records of thread " << t << " out of order";
        nextRecord[t] = r + 1;
    }
}

TEST(LogConcurrencyTest, RateLimitHoldsAcrossThreads) {
    CaptureSink capture;
    static std::atomic<unsigned> round{0U};
    const std::string id = "Concurrent_" + std::to_string(round.fetch_add(1U));
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < THREADS; ++t) {
        threads.emplace_back([&go, &id] {
            const auto log = Log::GetLog("CONC_RATE");
            while (!go.load()) {
                std::this_thread::yield();
            }
            for (int r = 0; r < 200; ++r) {
                log->warn(id, LimitConfig{600000U, 5U}) << "limited";
            }
        });
    }
    go.store(true);
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(capture.Texts("CONC_RATE").size(), 5U);
}

}  // namespace
