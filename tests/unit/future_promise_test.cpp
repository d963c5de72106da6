// SPDX-License-Identifier: Apache-2.0
// ara::core::Future and Promise: results, standard future errors, continuations and their threads.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "ara/core/core_error_domain.h"
#include "ara/core/future.h"
#include "ara/core/future_error_domain.h"
#include "ara/core/promise.h"
#include "ara/core/string.h"
#include "ara/exec/exec_error_domain.h"
#include "ara_test/matchers.h"

namespace {

using ara::core::ErrorCode;
using ara::core::Future;
using ara::core::future_errc;
using ara::core::future_status;
using ara::core::Promise;
using ara::core::Result;
using ara::core::String;
using ara::exec::ExecErrc;
using ara_test::HasError;

/// Matches a call that throws the standard future error `code`.
auto ThrowsFutureError(std::future_errc code) {
    return testing::Throws<std::future_error>(
        testing::ResultOf([](const std::future_error& error) { return error.code(); }, std::make_error_code(code)));
}

TEST(FutureMappingTest, StandardCodesAndStatusesMapToTheirCounterparts) {
    const std::pair<std::error_code, ErrorCode> rows[] = {
        {std::make_error_code(std::future_errc::broken_promise), future_errc::kBrokenPromise},
        {std::make_error_code(std::future_errc::future_already_retrieved), future_errc::kFutureAlreadyRetrieved},
        {std::make_error_code(std::future_errc::promise_already_satisfied), future_errc::kPromiseAlreadySatisfied},
        {std::make_error_code(std::future_errc::no_state), future_errc::kNoState},
        {std::error_code(99, std::future_category()), ara::core::CoreErrc::kInvalidArgument},
        // Same value as broken_promise in another category: must not be taken for it.
        {std::error_code(static_cast<int>(std::future_errc::broken_promise), std::generic_category()),
         ara::core::CoreErrc::kInvalidArgument},
    };
    for (const auto& [input, expected] : rows) {
        EXPECT_EQ(ara::core::internal::MapFutureError(input), expected) << input.message();
    }
    testing::internal::CaptureStdout();
    EXPECT_EQ(ara::core::internal::MapFutureStatus(std::future_status::ready), future_status::kReady);
    EXPECT_EQ(ara::core::internal::MapFutureStatus(std::future_status::timeout), future_status::kTimeout);
    // Futures made by a Promise are never deferred; only this status prints the diagnostic.
    EXPECT_EQ(ara::core::internal::MapFutureStatus(std::future_status::deferred), future_status::kTimeout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "[CORETYPE Future]: Error, Invlid future_status of Future, rerutn default value: timeout\n");
}

TEST(PromiseTest, SecondResultOrFutureIsRefusedAndAMovedFromPromiseHasNoState) {
    Promise<String> promise;
    Future<String> future = promise.get_future();
    EXPECT_THAT([&] { (void)promise.get_future(); }, ThrowsFutureError(std::future_errc::future_already_retrieved));
    promise.set_value("first");
    const ErrorCode general(ExecErrc::kGeneralError);
    const auto satisfied = ThrowsFutureError(std::future_errc::promise_already_satisfied);
    EXPECT_THAT([&] { promise.set_value("second"); }, satisfied);
    EXPECT_THAT([&] { promise.SetError(general); }, satisfied);
    EXPECT_THAT([&] { promise.SetError(ErrorCode(general)); }, satisfied);
    Promise<String> taker(std::move(promise));
    EXPECT_THAT([&] { taker.set_value("second"); }, satisfied);  // the state moved with it
    // NOLINTNEXTLINE(bugprone-use-after-move): the moved-from state is what is tested
    EXPECT_THAT([&] { promise.set_value("second"); }, ThrowsFutureError(std::future_errc::no_state));
    EXPECT_THAT([&] { (void)promise.get_future(); }, ThrowsFutureError(std::future_errc::no_state));
    EXPECT_EQ(future.get().Value(), "first");
}

TEST(FutureTest, BrokenOrMissingStateReadsAsFutureDomainError) {
    std::optional<Promise<String>> promise(std::in_place);
    Future<String> future = promise->get_future();
    promise.reset();
    EXPECT_TRUE(future.is_ready());
    EXPECT_THAT(future.get(), HasError(future_errc::kBrokenPromise));
    EXPECT_THAT(future.GetResult(), HasError(future_errc::kNoState));  // consumed by get()
    Future<void> empty;
    EXPECT_FALSE(empty.is_ready());
    EXPECT_THAT(empty.get(), HasError(future_errc::kNoState));
    Promise<int> overwritten;
    Future<int> overwrittenFuture = overwritten.get_future();
    overwritten = Promise<int>();
    EXPECT_THAT(overwrittenFuture.get(), HasError(future_errc::kBrokenPromise));
}

// Registered after the value, a continuation runs at once on the registering thread; registered
// before it, every step of the chain runs on the thread that sets the value.
TEST(FutureThenTest, ContinuationRunsOnTheThreadThatCompletesIt) {
    Promise<int> ready;
    ready.set_value(20);
    std::vector<std::thread::id> steps;
    const auto step = [&steps](Future<int> f) {
        steps.push_back(std::this_thread::get_id());
        return f.get().Value() + 1;
    };
    EXPECT_EQ(ready.get_future().then(step).get().Value(), 21);
    EXPECT_THAT(steps, testing::ElementsAre(std::this_thread::get_id()));
    steps.clear();
    Promise<int> promise;
    Future<String> last = promise.get_future().then(step).then([&steps](Future<int> f) {
        steps.push_back(std::this_thread::get_id());
        return String(std::to_string(f.get().Value()));
    });
    EXPECT_FALSE(last.is_ready());
    std::thread setter([&promise] { promise.set_value(41); });
    const std::thread::id setterId = setter.get_id();
    setter.join();
    EXPECT_EQ(last.get().Value(), "42");
    EXPECT_THAT(steps, testing::ElementsAre(setterId, setterId));
}

TEST(FutureThenTest, DroppedFutureKeepsItsContinuationOnlyWhenTheRegisteringThreadDropsIt) {
    Promise<int> promise;
    auto future = std::make_unique<Future<int>>(promise.get_future());
    std::atomic<int> runs{0};
    Future<void> next = future->then([&runs](Future<int>) { ++runs; });
    // Dropped by a thread that neither set the value nor registered the continuation.
    std::thread([&future] { future.reset(); }).join();
    promise.set_value(1);
    EXPECT_EQ(runs.load(), 0);
    EXPECT_THAT(next.get(), HasError(future_errc::kBrokenPromise));  // its promise went with it

    Promise<void> local;
    // The clients' pattern: continue a local future and return only the follow-up.
    Future<void> kept = [&local] { return local.get_future().then([](Future<void> f) { return f.get(); }); }();
    const ErrorCode failure(ExecErrc::kGeneralError);
    std::thread([&local, &failure] { local.SetError(failure); }).join();
    EXPECT_THAT(kept.get(), HasError(ExecErrc::kGeneralError));
}

TEST(FutureThenTest, ContinuationDestroyingItsOwnFutureDoesNotDeadlock) {
    // Completed on another thread by set_value, before then() (so the callback runs at once inside it) and
    // by ~Promise: each holds the promise and holder locks while the callback drops the future.
    enum class Completion { kSetter, kRegistration, kBreak };
    for (Completion how : {Completion::kSetter, Completion::kRegistration, Completion::kBreak}) {
        auto promise = std::make_unique<Promise<int>>();
        auto future = std::make_unique<Future<int>>(promise->get_future());
        const auto complete = [&promise, how] { how == Completion::kBreak ? promise.reset() : promise->set_value(5); };
        if (how == Completion::kRegistration) {
            std::thread(complete).join();
        }
        Future<int> next = future->then([&future](Future<int> completed) {
            future.reset();
            return completed.get();
        });
        if (how != Completion::kRegistration) {
            std::thread(complete).join();
        }
        EXPECT_EQ(future, nullptr) << static_cast<int>(how);
        const Result<int> outcome = next.get();
        EXPECT_TRUE(how == Completion::kBreak ? outcome.CheckError(future_errc::kBrokenPromise)
                                              : outcome.ValueOr(0) == 5)
            << static_cast<int>(how);
    }
}

TEST(FutureThenTest, ThenRunsAtOnceOnAConsumedFutureAndOnTheHandedOverOne) {
    Promise<int> promise;
    Future<int> future = promise.get_future();
    int inner = 0;
    Future<int> first = future.then([&inner](Future<int> completed) {
        // The setter still holds this pair's locks here.
        inner = completed.then([](Future<int> f) { return f.get().Value() + 100; }).get().Value();
        return inner;
    });
    Future<void> second = future.then([](Future<int> completed) { return Result<void>(completed.get().Error()); });
    ASSERT_TRUE(second.is_ready());  // before any value was set
    EXPECT_THAT(second.get(), HasError(future_errc::kNoState));
    std::thread([&promise] { promise.set_value(1); }).join();
    EXPECT_EQ(first.get().Value(), 101);  // the first continuation is untouched
}

/// A running thread that starts `task` once `go` is set, at the same time as the thread setting it.
template <typename F>
std::thread StartedBy(const std::atomic<bool>& go, F task) {
    std::atomic<bool> running{false};
    std::thread thread([&go, &running, task] {
        running = true;
        while (!go.load()) {
            std::this_thread::yield();
        }
        task();
    });
    while (!running.load()) {
        std::this_thread::yield();
    }
    return thread;
}

constexpr int RACES = 4000;

TEST(FutureConcurrencyTest, ThenRacesWithSet) {
    for (int i = 0; i < RACES; ++i) {
        Promise<int> promise;
        Future<int> future = promise.get_future();
        std::atomic<bool> go{false};
        std::thread setter = StartedBy(go, [&promise, i] { promise.set_value(i); });
        std::thread::id ranOn;
        go = true;
        Future<int> next = future.then([&ranOn](Future<int> f) {
            ranOn = std::this_thread::get_id();
            return f.get().Value() * 2;
        });
        const std::thread::id setterId = setter.get_id();
        setter.join();
        ASSERT_TRUE(ranOn == setterId || ranOn == std::this_thread::get_id()) << i;
        ASSERT_TRUE(next.is_ready()) << i;
        ASSERT_EQ(next.get().ValueOr(-1), i * 2);
    }
}

// A future dropped on one thread while its value is set on another: the continuation runs
// exactly when the follow-up carries the value, and never once the drop has returned.
TEST(FutureConcurrencyTest, DropRacesWithSet) {
    for (int i = 0; i < RACES; ++i) {
        Promise<int> promise;
        auto future = std::make_unique<Future<int>>(promise.get_future());
        std::atomic<bool> gone{false};
        std::optional<bool> ranAfterDrop;  // set if the continuation ran
        Future<int> next = future->then([&](Future<int> f) {
            ranAfterDrop = ranAfterDrop.has_value() || gone.load();
            return f.get();
        });
        std::atomic<bool> go{false};
        std::thread setter = StartedBy(go, [&promise, i] { promise.set_value(i); });
        std::thread dropper = StartedBy(go, [&future, &gone] {
            future.reset();
            gone = true;
        });
        go = true;
        setter.join();
        dropper.join();
        ASSERT_TRUE(next.is_ready()) << i;
        const Result<int> outcome = next.get();
        ASSERT_NE(ranAfterDrop, true) << "ran after the drop or twice: " << i;
        ASSERT_TRUE(ranAfterDrop ? outcome.ValueOr(-1) == i : outcome.CheckError(future_errc::kBrokenPromise)) << i;
    }
}

}  // namespace
