// Many callers against one proxy whose driver answers from its own thread in random order:
// every future gets exactly its own reply.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "ara_test/fake_method_handler.h"
#include "kelp/brio/method_proxy_impl.h"

namespace {

using ara_test::FakeMethodHandler;
using kelp::brio::MethodProxyImpl;

// Answers every recorded request with its own argument bytes (a SOME/IP string argument and
// a SOME/IP string result have the same form), picking requests in random order.
class EchoResponder {
public:
    explicit EchoResponder(std::shared_ptr<FakeMethodHandler> driver) : driver_(std::move(driver)) {
        driver_->SetOnSend([this](const FakeMethodHandler::Sent& sent) {
            const std::lock_guard<std::mutex> lock(mutex_);
            queue_.push_back(sent);
            wake_.notify_one();
        });
        thread_ = std::thread([this] { Run(); });
    }
    ~EchoResponder() {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            stop_ = true;
        }
        wake_.notify_one();
        thread_.join();
        driver_->SetOnSend(nullptr);
    }
    EchoResponder(const EchoResponder&) = delete;
    EchoResponder& operator=(const EchoResponder&) = delete;

private:
    void Run() {
        std::mt19937 random(7U);
        std::unique_lock<std::mutex> lock(mutex_);
        while (true) {
            wake_.wait(lock, [this] { return stop_ || !queue_.empty(); });
            if (queue_.empty()) {
                return;
            }
            const std::size_t pick = random() % queue_.size();
            const FakeMethodHandler::Sent sent = queue_[pick];
            queue_.erase(queue_.begin() + static_cast<std::ptrdiff_t>(pick));
            lock.unlock();
            driver_->Deliver(driver_->MakeReply(sent.sessionId, sent.bytes));
            lock.lock();
        }
    }

    std::shared_ptr<FakeMethodHandler> driver_;
    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<FakeMethodHandler::Sent> queue_;
    bool stop_{false};
    std::thread thread_;
};

TEST(MethodProxyStressTest, EveryFutureGetsItsOwnReply) {
    constexpr int kThreads = 8;
    constexpr int kRequestsPerThread = 10000;
    constexpr int kWindow = 100;  // requests in flight per thread before it collects them

    auto proxy = std::make_shared<MethodProxyImpl<ara::core::String>>(6U);
    auto driver = std::make_shared<FakeMethodHandler>();
    proxy->SetDriver(driver);
    std::atomic<int> mismatches{0};
    std::atomic<int> completed{0};
    {
        EchoResponder responder(driver);
        std::vector<std::thread> callers;
        for (int t = 0; t < kThreads; ++t) {
            callers.emplace_back([&, t] {
                std::vector<std::pair<std::string, MethodProxyImpl<ara::core::String>::FutureType>> inFlight;
                for (int i = 0; i < kRequestsPerThread; ++i) {
                    std::string text = "t" + std::to_string(t) + "-" + std::to_string(i);
                    auto future = proxy->Request(ara::core::String(text));
                    inFlight.emplace_back(std::move(text), std::move(future));
                    if (inFlight.size() == kWindow || i + 1 == kRequestsPerThread) {
                        for (auto& [expected, pending] : inFlight) {
                            auto result = pending.get();
                            if (!result.HasValue() || result.Value() != expected) {
                                mismatches.fetch_add(1);
                            }
                            completed.fetch_add(1);
                        }
                        inFlight.clear();
                    }
                }
            });
        }
        for (auto& caller : callers) {
            caller.join();
        }
    }
    EXPECT_EQ(completed.load(), kThreads * kRequestsPerThread);
    EXPECT_EQ(mismatches.load(), 0);
    EXPECT_EQ(proxy->GetWaitingCount(), 0U);
    EXPECT_EQ(driver->OutstandingReplyBuffers(), 0U);
}

}  // namespace
