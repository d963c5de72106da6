// ara::core::Future and Promise: results, standard future errors, continuations and their threads.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <future>
#include <memory>
#include <mutex>
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
#include "ara/exec/process.h"
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
using ara_test::IsOk;

constexpr std::chrono::seconds GENEROUS_WAIT{30};

/// The standard future error code `call` throws, or nothing.
template <typename F>
std::optional<std::future_errc> ThrownFutureErrc(F&& call) {
    try {
        std::forward<F>(call)();
    } catch (const std::future_error& error) {
        return static_cast<std::future_errc>(error.code().value());
    }
    return std::nullopt;
}

// A result handler that maps the outcome the way the clients' handlers do.
Result<void> ClientStyleHandler(Future<void> completed) {
    Result<void> result = completed.get();
    return result.HasValue() ? result : Result<void>(ErrorCode(ExecErrc::kCommunicationError));
}

TEST(FutureErrorMappingTest, StandardCodesMapToFutureDomainOthersToCoreInvalidArgument) {
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
        const ErrorCode mapped = ara::core::internal::MapFutureError(input);
        EXPECT_EQ(mapped, expected) << input.message();
        EXPECT_EQ(mapped.Domain().Id(), expected.Domain().Id()) << input.message();
    }
    EXPECT_EQ(ErrorCode(future_errc::kBrokenPromise).Value(), 101);
    EXPECT_EQ(ErrorCode(future_errc::kNoState).Value(), 104);
}

TEST(FutureStatusMappingTest, DeferredPrintsTheDiagnosticAndTimesOut) {
    // Futures made by a Promise are never deferred; the status comes from a real deferred state.
    std::future<int> deferred = std::async(std::launch::deferred, [] { return 1; });
    const std::future_status deferredStatus = deferred.wait_for(std::chrono::milliseconds(0));
    ASSERT_EQ(deferredStatus, std::future_status::deferred);
    const struct {
        std::future_status input;
        future_status expected;
        const char* printed;
    } rows[] = {
        {std::future_status::ready, future_status::kReady, ""},
        {std::future_status::timeout, future_status::kTimeout, ""},
        {deferredStatus,
         future_status::kTimeout,
         "[CORETYPE Future]: Error, Invlid future_status of Future, rerutn default value: timeout\n"},
    };
    for (const auto& row : rows) {
        testing::internal::CaptureStdout();
        EXPECT_EQ(ara::core::internal::MapFutureStatus(row.input), row.expected);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), row.printed);
    }
}

TEST(FutureTest, WaitForReportsTimeoutThenReady) {
    Promise<int> promise;
    Future<int> future = promise.get_future();
    EXPECT_FALSE(future.is_ready());
    EXPECT_EQ(future.wait_for(std::chrono::milliseconds(5)), future_status::kTimeout);
    promise.set_value(7);
    EXPECT_TRUE(future.is_ready());
    EXPECT_EQ(future.wait_for(std::chrono::hours(1)), future_status::kReady);  // must not wait it out
    EXPECT_EQ(future.get().Value(), 7);
}

TEST(PromiseTest, CarriesValuesAndErrorsOfTheInstantiatedTypes) {
    Promise<void> voidPromise;
    Future<void> voidFuture = voidPromise.get_future();
    voidPromise.set_value();
    EXPECT_THAT(voidFuture.get(), IsOk());

    Promise<String> stringPromise;
    Future<String> stringFuture = stringPromise.get_future();
    stringPromise.set_value("Startup");  // converts to String
    EXPECT_EQ(stringFuture.get().Value(), "Startup");

    const std::vector<ara::exec::Process> processes{{"em", "MachineFG", "Running", "kRunning", true}};
    Promise<std::vector<ara::exec::Process>> listPromise;
    Future<std::vector<ara::exec::Process>> listFuture = listPromise.get_future();
    listPromise.set_value(processes);
    EXPECT_EQ(listFuture.get().Value(), processes);

    const ErrorCode busy(ExecErrc::kBusy);
    Promise<String> byRef;
    Future<String> byRefFuture = byRef.get_future();
    byRef.SetError(busy);
    EXPECT_THAT(byRefFuture.get(), HasError(ExecErrc::kBusy));
    Promise<void> byMove;
    Future<void> byMoveFuture = byMove.get_future();
    byMove.SetError(ErrorCode(ExecErrc::kCommunicationError));
    EXPECT_THAT(byMoveFuture.get(), HasError(ExecErrc::kCommunicationError));
}

TEST(PromiseTest, SecondResultIsRefusedAndTheFirstStays) {
    const ErrorCode general(ExecErrc::kGeneralError);
    const std::pair<const char*, void (*)(Promise<String>&, const ErrorCode&)> rows[] = {
        {"value", [](Promise<String>& p, const ErrorCode&) { p.set_value(String("second")); }},
        {"error by reference", [](Promise<String>& p, const ErrorCode& e) { p.SetError(e); }},
        {"error by move", [](Promise<String>& p, const ErrorCode& e) { p.SetError(ErrorCode(e)); }},
    };
    for (const auto& row : rows) {
        Promise<String> promise;
        Future<String> future = promise.get_future();
        promise.set_value(String("first"));
        EXPECT_EQ(ThrownFutureErrc([&] { row.second(promise, general); }), std::future_errc::promise_already_satisfied)
            << row.first;
        EXPECT_EQ(future.get().Value(), "first") << row.first;
    }
}

TEST(PromiseTest, GetFutureTwiceAndMovedFromPromiseRaiseStandardErrors) {
    Promise<void> promise;
    Future<void> future = promise.get_future();
    EXPECT_EQ(ThrownFutureErrc([&] { (void)promise.get_future(); }), std::future_errc::future_already_retrieved);

    Promise<void> taker(std::move(promise));
    // NOLINTNEXTLINE(bugprone-use-after-move): the moved-from state is what is tested
    EXPECT_EQ(ThrownFutureErrc([&] { promise.set_value(); }), std::future_errc::no_state);
    EXPECT_EQ(ThrownFutureErrc([&] { (void)promise.get_future(); }), std::future_errc::no_state);
    taker.set_value();  // still completes the future taken before the move
    EXPECT_THAT(future.get(), IsOk());
}

TEST(FutureTest, BrokenOrMissingStateReadsAsFutureDomainError) {
    std::optional<Promise<String>> promise(std::in_place);
    Future<String> future = promise->get_future();
    promise.reset();
    EXPECT_TRUE(future.is_ready());
    EXPECT_THAT(future.get(), HasError(future_errc::kBrokenPromise));
    EXPECT_FALSE(future.valid());
    EXPECT_THAT(future.GetResult(), HasError(future_errc::kNoState));  // consumed by get()

    Future<void> empty;
    EXPECT_FALSE(empty.is_ready());
    EXPECT_THAT(empty.get(), HasError(future_errc::kNoState));

    Promise<int> overwritten;
    Future<int> overwrittenFuture = overwritten.get_future();
    overwritten = Promise<int>();
    EXPECT_THAT(overwrittenFuture.get(), HasError(future_errc::kBrokenPromise));
}

TEST(FutureThenTest, RegisteredAfterTheValueRunsAtOnceOnTheRegisteringThread) {
    Promise<int> promise;
    Future<int> future = promise.get_future();
    promise.set_value(20);
    std::thread::id ranOn;
    Future<int> next = future.then([&ranOn](Future<int> completed) {
        ranOn = std::this_thread::get_id();
        return completed.get().Value() + 1;
    });
    EXPECT_EQ(ranOn, std::this_thread::get_id());
    ASSERT_TRUE(next.is_ready());
    EXPECT_EQ(next.get().Value(), 21);
    EXPECT_FALSE(future.valid());  // the state went to the callback
}

TEST(FutureThenTest, RegisteredBeforeTheValueRunsOnTheSettingThreadForEveryStep) {
    Promise<int> promise;
    Future<int> future = promise.get_future();
    std::vector<std::thread::id> steps;
    Future<String> last = future
                              .then([&steps](Future<int> f) {
                                  steps.push_back(std::this_thread::get_id());
                                  return f.get().Value() + 1;
                              })
                              .then([&steps](Future<int> f) {
                                  steps.push_back(std::this_thread::get_id());
                                  return String(std::to_string(f.get().Value()));
                              });
    EXPECT_FALSE(last.is_ready());
    std::thread::id setterId;
    std::thread setter([&promise, &setterId] {
        setterId = std::this_thread::get_id();
        promise.set_value(41);
    });
    setter.join();
    EXPECT_EQ(last.get().Value(), "42");
    EXPECT_THAT(steps, testing::ElementsAre(setterId, setterId));
}

TEST(FutureThenTest, CallbackReturnTypeDecidesTheFollowUpFuture) {
    Promise<void> voidPromise;
    Future<void> voidFuture = voidPromise.get_future();
    Future<void> mapped = voidFuture.then(&ClientStyleHandler);
    voidPromise.SetError(ErrorCode(ExecErrc::kBusy));
    EXPECT_THAT(mapped.get(), HasError(ExecErrc::kCommunicationError));

    Promise<int> intPromise;
    Future<int> intFuture = intPromise.get_future();
    Future<String> text = intFuture.then([](Future<int> completed) -> Result<String> {
        const int value = completed.get().Value();
        if (value < 0) {
            return Result<String>(ErrorCode(ExecErrc::kInvalidArguments));
        }
        return String(static_cast<std::size_t>(value), 'x');
    });
    intPromise.set_value(-1);
    EXPECT_THAT(text.get(), HasError(ExecErrc::kInvalidArguments));
}

TEST(FutureThenTest, BrokenPromiseRunsTheContinuationWithTheMappedError) {
    auto promise = std::make_unique<Promise<void>>();
    Future<void> future = promise->get_future();
    std::optional<ErrorCode> seen;
    Future<void> next = future.then([&seen](Future<void> completed) {
        const Result<void> result = completed.get();
        if (!result.HasValue()) {
            seen = result.Error();
        }
    });
    promise.reset();
    ASSERT_TRUE(seen.has_value());
    EXPECT_THAT(*seen, HasError(future_errc::kBrokenPromise));
    EXPECT_EQ(seen->Domain().Id(), ara::core::FutureErrorDomain::kId);
    EXPECT_THAT(next.get(), IsOk());
}

TEST(FutureThenTest, FutureDestroyedBeforeTheValueNeverRunsItsContinuation) {
    Promise<int> promise;
    auto future = std::make_unique<Future<int>>(promise.get_future());
    std::atomic<int> runs{0};
    Future<void> next = future->then([&runs](Future<int>) { ++runs; });
    // Dropped by a thread that neither set the value nor registered the continuation.
    std::thread dropper([&future] { future.reset(); });
    dropper.join();
    promise.set_value(1);
    EXPECT_EQ(runs.load(), 0);
    EXPECT_THAT(next.get(), HasError(future_errc::kBrokenPromise));  // its promise went with it
}

TEST(FutureThenTest, FutureDroppedByTheRegisteringThreadKeepsItsContinuation) {
    Promise<void> promise;
    // The clients' pattern: continue a local future and return only the follow-up.
    auto continueLocal = [&promise]() {
        Future<void> local = promise.get_future();
        return local.then(&ClientStyleHandler);
    };
    Future<void> next = continueLocal();
    std::thread setter([&promise] { promise.SetError(ErrorCode(ExecErrc::kGeneralError)); });
    setter.join();
    EXPECT_THAT(next.get(), HasError(ExecErrc::kCommunicationError));
}

TEST(FutureThenTest, ContinuationDestroyingItsOwnFutureDoesNotDeadlock) {
    // Completed by set_value on another thread, at once inside then(), and by ~Promise: each
    // holds the promise and holder locks while the callback drops the future.
    enum class Completion { kSetter, kRegistration, kBreak };
    for (Completion how : {Completion::kSetter, Completion::kRegistration, Completion::kBreak}) {
        auto promise = std::make_unique<Promise<int>>();
        auto future = std::make_unique<Future<int>>(promise->get_future());
        if (how == Completion::kRegistration) {
            promise->set_value(5);
        }
        Future<int> next = future->then([&future](Future<int> completed) {
            future.reset();
            return completed.get();
        });
        if (how == Completion::kSetter) {
            std::thread([&promise] { promise->set_value(5); }).join();
        } else if (how == Completion::kBreak) {
            std::thread([&promise] { promise.reset(); }).join();
        }
        EXPECT_EQ(future, nullptr) << static_cast<int>(how);
        const Result<int> outcome = next.get();
        if (how == Completion::kBreak) {
            EXPECT_THAT(outcome, HasError(future_errc::kBrokenPromise));
        } else {
            EXPECT_EQ(outcome.ValueOr(0), 5) << static_cast<int>(how);
        }
    }
}

TEST(FutureThenTest, ThenOnAConsumedFutureRunsAtOnceWithNoState) {
    Promise<int> promise;
    Future<int> future = promise.get_future();
    Future<int> first = future.then([](Future<int> completed) { return completed.get(); });
    bool ranAtOnce = false;
    Future<void> second = future.then([&ranAtOnce](Future<int> completed) {
        ranAtOnce = true;
        return Result<void>(completed.get().Error());
    });
    EXPECT_TRUE(ranAtOnce);
    EXPECT_THAT(second.get(), HasError(future_errc::kNoState));
    promise.set_value(3);
    EXPECT_EQ(first.get().Value(), 3);  // the first continuation is untouched
}

TEST(FutureThenTest, ContinuingTheHandedOverFutureInsideTheCallbackRunsAtOnce) {
    Promise<int> promise;
    Future<int> future = promise.get_future();
    std::optional<int> inner;
    Future<void> next = future.then([&inner](Future<int> completed) {
        // The setter still holds this pair's locks here.
        Future<int> nested = completed.then([](Future<int> f) { return f.get().Value() + 100; });
        inner = nested.get().Value();
    });
    std::thread([&promise] { promise.set_value(1); }).join();
    EXPECT_EQ(inner, 101);
    EXPECT_THAT(next.get(), IsOk());
}

/// A queue handing work from one thread to another.
template <typename Item>
class Handoff {
public:
    void Push(Item item) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            items_.push_back(std::move(item));
        }
        ready_.notify_one();
    }
    Item Pop() {
        std::unique_lock<std::mutex> lock(mutex_);
        ready_.wait(lock, [this] { return !items_.empty(); });
        Item item = std::move(items_.front());
        items_.pop_front();
        return item;
    }

private:
    std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<Item> items_;
};

constexpr int PAIRS_PER_WORKER = 4000;
constexpr int WORKERS = 4;

// Four registering threads, each racing then() against its own setting thread: 16000 pairs.
TEST(FutureConcurrencyTest, ThenRacesWithSetAcrossThreadPairs) {
    std::atomic<int> firstSteps{0};
    std::atomic<int> wrongThread{0};
    std::atomic<int> wrongValue{0};
    std::vector<std::thread> threads;
    for (int worker = 0; worker < WORKERS; ++worker) {
        auto handoff = std::make_shared<Handoff<std::shared_ptr<Promise<int>>>>();
        auto setterId = std::make_shared<std::promise<std::thread::id>>();
        std::shared_future<std::thread::id> setterIdFuture = setterId->get_future().share();
        threads.emplace_back([handoff, setterId] {
            setterId->set_value(std::this_thread::get_id());
            for (int i = 0; i < PAIRS_PER_WORKER; ++i) {
                handoff->Pop()->set_value(i);
            }
        });
        threads.emplace_back([&, handoff, setterIdFuture] {
            const std::thread::id setter = setterIdFuture.get();
            const std::thread::id self = std::this_thread::get_id();
            for (int i = 0; i < PAIRS_PER_WORKER; ++i) {
                auto promise = std::make_shared<Promise<int>>();
                Future<int> future = promise->get_future();
                handoff->Push(std::move(promise));
                Future<int> last = future
                                       .then([&, setter, self](Future<int> f) {
                                           const std::thread::id ranOn = std::this_thread::get_id();
                                           wrongThread += (ranOn != setter && ranOn != self) ? 1 : 0;
                                           ++firstSteps;
                                           return f.get().Value() * 2;
                                       })
                                       .then([](Future<int> f) { return Result<int>(f.get().Value() + 1); });
                if (last.wait_for(GENEROUS_WAIT) != future_status::kReady || last.get().ValueOr(-1) != i * 2 + 1) {
                    ++wrongValue;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(firstSteps.load(), WORKERS * PAIRS_PER_WORKER);
    EXPECT_EQ(wrongThread.load(), 0);
    EXPECT_EQ(wrongValue.load(), 0);
}

// A future dropped on one thread while its value is set on another: the continuation runs
// exactly when the follow-up carries the value, and never once the drop has returned.
TEST(FutureConcurrencyTest, DropRacesWithSet) {
    struct Dropped {
        std::unique_ptr<Future<int>> future;
        std::shared_ptr<std::atomic<bool>> gone;
    };
    std::atomic<int> continuationRuns{0};
    std::atomic<int> runsAfterDrop{0};
    std::atomic<int> valueOutcomes{0};
    std::atomic<int> badOutcomes{0};
    std::vector<std::thread> threads;
    for (int group = 0; group < WORKERS / 2; ++group) {
        auto setters = std::make_shared<Handoff<std::shared_ptr<Promise<int>>>>();
        auto droppers = std::make_shared<Handoff<Dropped>>();
        threads.emplace_back([setters] {
            for (int i = 0; i < PAIRS_PER_WORKER; ++i) {
                setters->Pop()->set_value(i);
            }
        });
        threads.emplace_back([droppers] {
            for (int i = 0; i < PAIRS_PER_WORKER; ++i) {
                Dropped item = droppers->Pop();
                item.future.reset();
                item.gone->store(true);
            }
        });
        threads.emplace_back([&, setters, droppers] {
            for (int i = 0; i < PAIRS_PER_WORKER; ++i) {
                auto promise = std::make_shared<Promise<int>>();
                auto future = std::make_unique<Future<int>>(promise->get_future());
                auto gone = std::make_shared<std::atomic<bool>>(false);
                Future<int> next = future->then([&continuationRuns, &runsAfterDrop, gone](Future<int> f) {
                    ++continuationRuns;
                    runsAfterDrop += gone->load() ? 1 : 0;
                    return f.get();
                });
                // Alternating the hand-over order gives both ends the chance to go first.
                if (i % 2 == 0) {
                    droppers->Push(Dropped{std::move(future), gone});
                    setters->Push(std::move(promise));
                } else {
                    setters->Push(std::move(promise));
                    droppers->Push(Dropped{std::move(future), gone});
                }
                if (next.wait_for(GENEROUS_WAIT) != future_status::kReady) {
                    ++badOutcomes;
                    continue;
                }
                const Result<int> outcome = next.get();
                if (outcome.HasValue() && outcome.Value() == i) {
                    ++valueOutcomes;
                } else if (outcome.HasValue() || outcome.Error() != ErrorCode(future_errc::kBrokenPromise)) {
                    ++badOutcomes;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(badOutcomes.load(), 0);
    EXPECT_EQ(runsAfterDrop.load(), 0);
    EXPECT_EQ(continuationRuns.load(), valueOutcomes.load());
}

}  // namespace
