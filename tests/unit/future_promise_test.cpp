// ara::core::Future and Promise: results, standard future errors, continuations and their threads.
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

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
using ara_test::HasError;
using ara_test::IsOk;

constexpr std::chrono::seconds GENEROUS_WAIT{30};

std::future_errc StdFutureErrc(const std::future_error& error) {
    return static_cast<std::future_errc>(error.code().value());
}

// --- standard future errors and statuses ---------------------------------------------------------

TEST(FutureErrorMappingTest, StandardCodesMapToFutureDomainOthersToCoreInvalidArgument) {
    struct Row {
        std::error_code input;
        ErrorCode expected;
    };
    const Row rows[] = {
        {std::make_error_code(std::future_errc::broken_promise), future_errc::kBrokenPromise},
        {std::make_error_code(std::future_errc::future_already_retrieved), future_errc::kFutureAlreadyRetrieved},
        {std::make_error_code(std::future_errc::promise_already_satisfied), future_errc::kPromiseAlreadySatisfied},
        {std::make_error_code(std::future_errc::no_state), future_errc::kNoState},
        {std::error_code(99, std::future_category()), ara::core::CoreErrc::kInvalidArgument},
        {std::make_error_code(std::errc::invalid_argument), ara::core::CoreErrc::kInvalidArgument},
        // Same value as broken_promise, other category: must not be taken for it.
        {std::error_code(static_cast<int>(std::future_errc::broken_promise), std::generic_category()),
         ara::core::CoreErrc::kInvalidArgument},
    };
    for (const Row& row : rows) {
        const ErrorCode mapped = ara::core::internal::MapFutureError(row.input);
        EXPECT_EQ(mapped, row.expected) << row.input.message();
        EXPECT_EQ(mapped.Domain().Id(), row.expected.Domain().Id()) << row.input.message();
    }
    EXPECT_EQ(ErrorCode(future_errc::kBrokenPromise).Value(), 101);
    EXPECT_EQ(ErrorCode(future_errc::kNoState).Value(), 104);
}

TEST(FutureStatusMappingTest, DeferredPrintsTheDiagnosticAndTimesOut) {
    constexpr const char* DEFERRED_TEXT =
        "[CORETYPE Future]: Error, Invlid future_status of Future, rerutn default value: timeout\n";
    std::future<int> deferred = std::async(std::launch::deferred, [] { return 1; });
    const std::future_status deferredStatus = deferred.wait_for(std::chrono::milliseconds(0));
    ASSERT_EQ(deferredStatus, std::future_status::deferred);

    struct Row {
        std::future_status input;
        future_status expected;
        const char* printed;
    };
    const Row rows[] = {
        {std::future_status::ready, future_status::kReady, ""},
        {std::future_status::timeout, future_status::kTimeout, ""},
        {deferredStatus, future_status::kTimeout, DEFERRED_TEXT},
    };
    for (const Row& row : rows) {
        testing::internal::CaptureStdout();
        const future_status status = ara::core::internal::MapFutureStatus(row.input);
        const std::string out = testing::internal::GetCapturedStdout();
        EXPECT_EQ(status, row.expected) << static_cast<int>(row.input);
        EXPECT_EQ(out, row.printed) << static_cast<int>(row.input);
    }
}

TEST(FutureTest, WaitForReportsReadyOrTimeout) {
    Promise<int> promise;
    Future<int> future = promise.get_future();
    EXPECT_FALSE(future.is_ready());
    EXPECT_EQ(future.wait_for(std::chrono::milliseconds(5)), future_status::kTimeout);
    promise.set_value(7);
    EXPECT_TRUE(future.is_ready());
    EXPECT_EQ(future.wait_for(std::chrono::milliseconds(0)), future_status::kReady);
    // A ready future must not wait out the time-out.
    EXPECT_EQ(future.wait_for(std::chrono::hours(1)), future_status::kReady);
    EXPECT_EQ(future.get().Value(), 7);
}

TEST(FutureTest, WaitForWakesWhenAnotherThreadSets) {
    Promise<String> promise;
    Future<String> future = promise.get_future();
    std::thread setter([&promise] { promise.set_value(String("Running")); });
    EXPECT_EQ(future.wait_for(GENEROUS_WAIT), future_status::kReady);
    setter.join();
    EXPECT_EQ(future.get().Value(), "Running");
}

// --- values, errors and misuse -------------------------------------------------------------------

TEST(PromiseTest, CarriesValuesOfTheInstantiatedTypes) {
    Promise<void> voidPromise;
    Future<void> voidFuture = voidPromise.get_future();
    voidPromise.set_value();
    EXPECT_THAT(voidFuture.get(), IsOk());

    Promise<String> stringPromise;
    Future<String> stringFuture = stringPromise.get_future();
    stringPromise.set_value("Startup");  // converts to String
    EXPECT_EQ(stringFuture.get().Value(), "Startup");

    const std::vector<ara::exec::Process> processes{{"em", "MachineFG", "Running", "kRunning", true},
                                                    {"app", "AppFG", "Idle", "", false}};
    Promise<std::vector<ara::exec::Process>> listPromise;
    Future<std::vector<ara::exec::Process>> listFuture = listPromise.get_future();
    listPromise.set_value(processes);
    EXPECT_EQ(listFuture.get().Value(), processes);
}

TEST(PromiseTest, SetErrorBothOverloadsReachTheFuture) {
    const ErrorCode busy(ara::exec::ExecErrc::kBusy);
    Promise<String> byRef;
    Future<String> byRefFuture = byRef.get_future();
    byRef.SetError(busy);
    EXPECT_THAT(byRefFuture.get(), HasError(ara::exec::ExecErrc::kBusy));

    Promise<void> byMove;
    Future<void> byMoveFuture = byMove.get_future();
    byMove.SetError(ErrorCode(ara::exec::ExecErrc::kCommunicationError));
    EXPECT_THAT(byMoveFuture.get(), HasError(ara::exec::ExecErrc::kCommunicationError));
}

TEST(PromiseTest, SecondResultIsRefusedAndTheFirstStays) {
    struct Row {
        const char* name;
        void (*second)(Promise<String>&);
    };
    const Row rows[] = {
        {"value", [](Promise<String>& p) { p.set_value(String("second")); }},
        {"error by reference",
         [](Promise<String>& p) {
             const ErrorCode code(ara::exec::ExecErrc::kGeneralError);
             p.SetError(code);
         }},
        {"error by move", [](Promise<String>& p) { p.SetError(ErrorCode(ara::exec::ExecErrc::kGeneralError)); }},
    };
    for (const Row& row : rows) {
        Promise<String> promise;
        Future<String> future = promise.get_future();
        promise.set_value(String("first"));
        try {
            row.second(promise);
            ADD_FAILURE() << row.name << ": second result accepted";
        } catch (const std::future_error& error) {
            EXPECT_EQ(StdFutureErrc(error), std::future_errc::promise_already_satisfied) << row.name;
        }
        EXPECT_EQ(future.get().Value(), "first") << row.name;
    }
}

TEST(PromiseTest, GetFutureTwiceAndMovedFromPromiseRaiseStandardErrors) {
    Promise<void> promise;
    Future<void> future = promise.get_future();
    try {
        (void)promise.get_future();
        ADD_FAILURE() << "second get_future accepted";
    } catch (const std::future_error& error) {
        EXPECT_EQ(StdFutureErrc(error), std::future_errc::future_already_retrieved);
    }

    Promise<void> taker(std::move(promise));
    try {
        promise.set_value();  // NOLINT(bugprone-use-after-move): the moved-from state is what is tested
        ADD_FAILURE() << "moved-from promise accepted a value";
    } catch (const std::future_error& error) {
        EXPECT_EQ(StdFutureErrc(error), std::future_errc::no_state);
    }
    try {
        (void)promise.get_future();
        ADD_FAILURE() << "moved-from promise handed out a future";
    } catch (const std::future_error& error) {
        EXPECT_EQ(StdFutureErrc(error), std::future_errc::no_state);
    }
    // The moved-to promise still completes the future taken before the move.
    taker.set_value();
    EXPECT_THAT(future.get(), IsOk());
}

TEST(FutureTest, BrokenOrMissingStateReadsAsFutureDomainError) {
    {
        std::optional<Promise<String>> promise(std::in_place);
        Future<String> future = promise->get_future();
        promise.reset();
        EXPECT_TRUE(future.is_ready());
        EXPECT_THAT(future.get(), HasError(future_errc::kBrokenPromise));
        EXPECT_FALSE(future.valid());
        EXPECT_THAT(future.GetResult(), HasError(future_errc::kNoState));  // state consumed by get()
    }
    {
        Future<void> empty;
        EXPECT_FALSE(empty.valid());
        EXPECT_FALSE(empty.is_ready());
        EXPECT_THAT(empty.get(), HasError(future_errc::kNoState));
    }
    {
        // Move-assigning over a promise without result breaks its future.
        Promise<int> first;
        Future<int> firstFuture = first.get_future();
        first = Promise<int>();
        EXPECT_THAT(firstFuture.get(), HasError(future_errc::kBrokenPromise));
    }
}

// --- continuations -------------------------------------------------------------------------------

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

TEST(FutureThenTest, RegisteredBeforeTheValueRunsOnTheSettingThread) {
    Promise<String> promise;
    Future<String> future = promise.get_future();
    std::atomic<std::thread::id> ranOn{};
    Future<void> next = future.then([&ranOn](Future<String> completed) {
        ranOn = std::this_thread::get_id();
        EXPECT_EQ(completed.get().Value(), "Off");
    });
    EXPECT_FALSE(next.is_ready());

    std::thread::id setterId;
    std::thread setter([&promise, &setterId] {
        setterId = std::this_thread::get_id();
        promise.set_value(String("Off"));
    });
    setter.join();
    EXPECT_EQ(ranOn.load(), setterId);
    EXPECT_NE(ranOn.load(), std::this_thread::get_id());
    EXPECT_THAT(next.get(), IsOk());
}

// A result handler that maps the outcome the way the clients' handlers do.
Result<void> ClientStyleHandler(Future<void> completed) {
    Result<void> result = completed.get();
    if (result.HasValue()) {
        return result;
    }
    return Result<void>(ErrorCode(ara::exec::ExecErrc::kCommunicationError));
}

TEST(FutureThenTest, CallbackReturnTypeDecidesTheFollowUpFuture) {
    {
        Promise<void> promise;
        Future<void> future = promise.get_future();
        Future<void> next = future.then(&ClientStyleHandler);
        promise.SetError(ErrorCode(ara::exec::ExecErrc::kBusy));
        EXPECT_THAT(next.get(), HasError(ara::exec::ExecErrc::kCommunicationError));
    }
    {
        Promise<int> promise;
        Future<int> future = promise.get_future();
        Future<String> next = future.then([](Future<int> completed) -> Result<String> {
            const Result<int> value = completed.get();
            if (value.Value() < 0) {
                return Result<String>(ErrorCode(ara::exec::ExecErrc::kInvalidArguments));
            }
            return String(static_cast<std::size_t>(value.Value()), 'x');
        });
        promise.set_value(-1);
        EXPECT_THAT(next.get(), HasError(ara::exec::ExecErrc::kInvalidArguments));
    }
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
    // The follow-up promise went with the continuation.
    EXPECT_THAT(next.get(), HasError(future_errc::kBrokenPromise));
}

TEST(FutureThenTest, FutureDroppedByTheRegisteringThreadKeepsItsContinuation) {
    Promise<void> promise;
    // The clients' pattern: continue a local future and return only the follow-up.
    auto continueLocal = [&promise]() {
        Future<void> local = promise.get_future();
        return local.then(&ClientStyleHandler);
    };
    Future<void> next = continueLocal();
    std::thread setter([&promise] { promise.SetError(ErrorCode(ara::exec::ExecErrc::kGeneralError)); });
    setter.join();
    EXPECT_THAT(next.get(), HasError(ara::exec::ExecErrc::kCommunicationError));
}

TEST(FutureThenTest, ContinuationDestroyingItsOwnFutureDoesNotDeadlock) {
    // Run on the setting thread: the setter holds both locks when the future goes.
    {
        Promise<int> promise;
        auto future = std::make_unique<Future<int>>(promise.get_future());
        Future<int> next = future->then([&future](Future<int> completed) {
            future.reset();
            return completed.get().Value() * 2;
        });
        std::thread setter([&promise] { promise.set_value(4); });
        setter.join();
        EXPECT_EQ(future, nullptr);
        EXPECT_EQ(next.get().Value(), 8);
    }
    // Run at once on the registering thread: then() holds both locks when the future goes.
    {
        Promise<int> promise;
        auto future = std::make_unique<Future<int>>(promise.get_future());
        promise.set_value(5);
        Future<int> next = future->then([&future](Future<int> completed) {
            future.reset();
            return completed.get().Value() * 2;
        });
        EXPECT_EQ(future, nullptr);
        EXPECT_EQ(next.get().Value(), 10);
    }
    // Broken by the promise's destructor while the continuation drops the future.
    {
        auto promise = std::make_unique<Promise<void>>();
        auto future = std::make_unique<Future<void>>(promise->get_future());
        Future<void> next = future->then([&future](Future<void> completed) {
            future.reset();
            return completed.get();
        });
        std::thread breaker([&promise] { promise.reset(); });
        breaker.join();
        EXPECT_THAT(next.get(), HasError(future_errc::kBrokenPromise));
    }
}

TEST(FutureThenTest, ThenOnAConsumedFutureRunsAtOnceWithNoState) {
    Promise<int> promise;
    Future<int> future = promise.get_future();
    Future<int> first = future.then([](Future<int> completed) { return completed.get().Value(); });
    // The state went to the first continuation; a second one has nothing to wait for.
    bool ranAtOnce = false;
    Future<void> second = future.then([&ranAtOnce](Future<int> completed) {
        ranAtOnce = true;
        return Result<void>(completed.get().Error());
    });
    EXPECT_TRUE(ranAtOnce);
    EXPECT_THAT(second.get(), HasError(future_errc::kNoState));
    promise.set_value(3);
    EXPECT_EQ(first.get().Value(), 3);
}

TEST(FutureThenTest, ContinuingTheHandedOverFutureInsideTheCallbackRunsAtOnce) {
    Promise<int> promise;
    Future<int> future = promise.get_future();
    std::optional<int> inner;
    Future<void> next = future.then([&inner](Future<int> completed) {
        // The setter still holds this pair's locks here.
        Future<int> nested = completed.then([](Future<int> f) { return f.get().Value() + 100; });
        EXPECT_TRUE(nested.is_ready());
        inner = nested.get().Value();
    });
    std::thread setter([&promise] { promise.set_value(1); });
    setter.join();
    EXPECT_EQ(inner, 101);
    EXPECT_THAT(next.get(), IsOk());
}

TEST(FutureThenTest, ChainRunsEveryStepOnTheSettingThread) {
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
    std::thread::id setterId;
    std::thread setter([&promise, &setterId] {
        setterId = std::this_thread::get_id();
        promise.set_value(41);
    });
    setter.join();
    EXPECT_EQ(last.get().Value(), "42");
    EXPECT_THAT(steps, testing::ElementsAre(setterId, setterId));
}

// --- many threads ----------------------------------------------------------------------------------

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

constexpr int PAIRS_PER_WORKER = 4000;  // 4 producer/setter pairs: 8 threads, 16000 promise/future pairs
constexpr int WORKER_PAIRS = 4;

// Registration on one thread races with the value being set on another.
TEST(FutureConcurrencyTest, ThenRacesWithSetAcrossThreadPairs) {
    std::atomic<int> firstSteps{0};
    std::atomic<int> wrongThread{0};
    std::atomic<int> wrongValue{0};
    std::vector<std::thread> threads;
    for (int pair = 0; pair < WORKER_PAIRS; ++pair) {
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
                                           if (ranOn != setter && ranOn != self) {
                                               ++wrongThread;
                                           }
                                           ++firstSteps;
                                           return f.get().Value() * 2;
                                       })
                                       .then([](Future<int> f) { return Result<int>(f.get().Value() + 1); });
                if (last.wait_for(GENEROUS_WAIT) != future_status::kReady || last.get().Value() != i * 2 + 1) {
                    ++wrongValue;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(firstSteps.load(), WORKER_PAIRS * PAIRS_PER_WORKER);
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
    for (int group = 0; group < WORKER_PAIRS / 2; ++group) {
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
                    if (gone->load()) {
                        ++runsAfterDrop;
                    }
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
