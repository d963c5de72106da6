// SPDX-License-Identifier: Apache-2.0
// The method proxy under concurrency: many callers against a driver that answers from its own
// thread in random order, and continuations that send the next request on the same proxy.
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "ara/exec/execution_state.h"
#include "ara_test/fake_method_handler.h"

namespace {

using ara_test::BoundProxy;
using ara_test::FakeMethodHandler;

// Each request is answered with its own argument bytes (a SOME/IP string argument and a
// SOME/IP string result have the same form), in random order: every future gets its own reply.
TEST(MethodProxyStressTest, EveryFutureGetsItsOwnReply) {
    constexpr int kThreads = 8;
    constexpr int kRequestsPerThread = 10000;
    constexpr std::size_t kWindow = 100U;  // requests in flight per thread before it collects them
    BoundProxy<ara::core::String> bound;
    FakeMethodHandler& driver = *bound.driver;
    std::mutex mutex;
    std::condition_variable wake;
    std::deque<FakeMethodHandler::Sent> queue;
    bool stop = false;
    driver.SetOnSend([&](const FakeMethodHandler::Sent& sent) {
        const std::lock_guard<std::mutex> lock(mutex);
        queue.push_back(sent);
        wake.notify_one();
    });
    std::thread responder([&] {
        std::mt19937 random(7U);
        std::unique_lock<std::mutex> lock(mutex);
        while (wake.wait(lock, [&] { return stop || !queue.empty(); }), !queue.empty()) {
            const auto pick = queue.begin() + static_cast<std::ptrdiff_t>(random() % queue.size());
            const FakeMethodHandler::Sent sent = *pick;
            queue.erase(pick);
            lock.unlock();
            driver.Deliver(driver.MakeReply(sent.sessionId, sent.bytes));
            lock.lock();
        }
    });
    std::atomic<int> mismatches{0};
    std::atomic<int> completed{0};
    std::vector<std::thread> callers;
    for (int t = 0; t < kThreads; ++t) {
        callers.emplace_back([&, t] {
            std::vector<std::pair<std::string, ara::core::Future<ara::core::String>>> inFlight;
            for (int i = 0; i < kRequestsPerThread; ++i) {
                std::string text = "t" + std::to_string(t) + "-" + std::to_string(i);
                inFlight.emplace_back(text, bound.proxy->Request(ara::core::String(text)));
                if (inFlight.size() == kWindow || i + 1 == kRequestsPerThread) {
                    for (auto& [expected, pending] : inFlight) {
                        mismatches += pending.get().ValueOr("") == expected ? 0 : 1;
                        ++completed;
                    }
                    inFlight.clear();
                }
            }
        });
    }
    for (auto& caller : callers) {
        caller.join();
    }
    {
        const std::lock_guard<std::mutex> lock(mutex);
        stop = true;
    }
    wake.notify_one();
    responder.join();
    driver.SetOnSend(nullptr);
    EXPECT_EQ(completed.load(), kThreads * kRequestsPerThread);
    EXPECT_EQ(mismatches.load(), 0);
    EXPECT_EQ(bound.proxy->GetWaitingCount(), 0U);
    EXPECT_EQ(driver.OutstandingReplyBuffers(), 0U);
}

// A continuation sends the next request on the same proxy and the driver answers inside
// SendRequest, as an in-process transport does: a proxy lock held while settling deadlocks.
TEST(MethodProxyStressTest, ContinuationsChainRequestsThatAreAnsweredInsideTheSend) {
    BoundProxy<void> bound(8U, kelp::serialize::SerializeType::kDds);
    FakeMethodHandler& driver = *bound.driver;
    int answered = 0;
    std::function<void(ara::core::Future<void>)> next = [&](ara::core::Future<void> done) {
        if (done.get().HasValue() && ++answered < 10) {
            (void)bound.proxy->Request(answered, ara::exec::ExecutionState::kRunning).then(next);
        }
    };
    auto first = bound.proxy->Request(0, ara::exec::ExecutionState::kRunning);
    auto chain = first.then(next);
    driver.SetOnSend(
        [&driver](const FakeMethodHandler::Sent& sent) { driver.Deliver(driver.MakeReply(sent.sessionId, {})); });
    std::thread replier([&driver] { driver.Deliver(driver.MakeReply(1U, {})); });
    replier.join();
    driver.SetOnSend(nullptr);
    EXPECT_EQ(answered, 10);
    EXPECT_EQ(driver.SentRequests().size(), 10U);
    EXPECT_EQ(bound.proxy->GetWaitingCount(), 0U);
}

}  // namespace
