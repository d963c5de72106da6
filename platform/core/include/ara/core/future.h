// SPDX-License-Identifier: Apache-2.0
// ara::core::Future: the reading end of one asynchronous ara::core::Result, with continuations.
#ifndef ARA_CORE_FUTURE_H
#define ARA_CORE_FUTURE_H

#include <chrono>
#include <cstdint>
#include <future>
#include <memory>
#include <mutex>
#include <system_error>
#include <type_traits>

#include "ara/core/detail/continuation_holder.h"
#include "ara/core/error_code.h"
#include "ara/core/internal/export.h"
#include "ara/core/result.h"

namespace ara::core {

template <typename T, typename E = ErrorCode>
class Promise;
template <typename T, typename E = ErrorCode>
class Future;

/// Outcome of a bounded wait on a Future.
enum class future_status : std::uint8_t {  // NOLINT(readability-identifier-naming): AUTOSAR name
    kReady = 1,
    kTimeout = 2,
};

namespace internal {

/// The ErrorCode that stands for a standard future error: broken promise, future already
/// retrieved, promise already satisfied and no state become Future-domain codes 101 to 104;
/// any other code becomes Core-domain kInvalidArgument (22).
ARA_EXPORT ErrorCode MapFutureError(const std::error_code& error) noexcept;

/// ready -> kReady, timeout -> kTimeout. Any other status (a deferred state) prints
/// "[CORETYPE Future]: Error, Invlid future_status of Future, rerutn default value: timeout"
/// and a line end to standard output and gives kTimeout.
ARA_EXPORT future_status MapFutureStatus(std::future_status status) noexcept;

/// The value type of the future that `then` returns for a callback result R: Result<U, E>
/// gives U, void gives void, any other R is the value itself.
template <typename R, typename E>
struct ContinuationValue {
    using type = R;
};
template <typename U, typename E>
struct ContinuationValue<Result<U, E>, E> {
    using type = U;
};

template <typename R>
struct IsFuture : std::false_type {};
template <typename U, typename G>
struct IsFuture<Future<U, G>> : std::true_type {};

}  // namespace internal

/// The caller's side of one result. Made by Promise::get_future(); movable, not copyable.
///
/// A future stays attached to its promise's mutex and continuation holder until it is destroyed
/// or moved from, also after get() or then() have taken its shared state. Destroying it drops a
/// continuation that has not run yet, so the callback never runs after its future is gone,
/// except when it is destroyed on the thread that set the result or registered the
/// continuation: there the continuation is left in place. That exception is what lets a continuation destroy its own
/// future without deadlock, and what lets a caller return `f.then(...)` and drop its local f.
///
/// @thread-safety One future is used by one thread at a time; it may be used while another
/// thread completes its promise.
template <typename T, typename E>
class Future final {
    using ResultType = Result<T, E>;

    template <typename F>
    using CallbackResult = std::invoke_result_t<std::decay_t<F>&, Future&&>;

public:
    using ValueType = T;
    using ErrorType = E;

    /// A future without shared state: valid() is false and get() gives kNoState.
    Future() noexcept = default;
    ~Future();
    Future(const Future&) = delete;
    Future& operator=(const Future&) = delete;
    Future(Future&& other) noexcept;
    Future& operator=(Future&& other) noexcept;

    /// Waits for the result and returns it; the shared state is consumed (valid() is false
    /// afterwards). A standard future error is returned as an error, see MapFutureError:
    /// a broken promise reads kBrokenPromise, a future without state kNoState.
    ResultType get();

    /// Same as get().
    ResultType GetResult() noexcept;

    /// True while the future has a shared state that get() has not consumed.
    bool valid() const noexcept { return future_.valid(); }

    /// Blocks until the result is there.
    /// @throws std::future_error (no state) when valid() is false.
    void wait() const { future_.wait(); }

    /// Blocks until the result is there or the time has passed.
    /// @throws std::future_error (no state) when valid() is false.
    template <typename Rep, typename Period>
    future_status wait_for(const std::chrono::duration<Rep, Period>& timeoutDuration) const {
        return internal::MapFutureStatus(future_.wait_for(timeoutDuration));
    }

    /// True when the result is there; false also without shared state.
    bool is_ready() const;

    /// Registers `func`, called with this future (moved) once the result is there, and returns
    /// the future of what `func` returns: Result<U, E> gives Future<U, E>, void gives
    /// Future<void, E>, any other U gives Future<U, E>. The callback runs on the thread that
    /// completes the promise, or at once on this thread when the result is already there or
    /// this future has no shared state. This future's state passes to the callback: valid()
    /// is false afterwards.
    template <typename F>
    Future<typename internal::ContinuationValue<CallbackResult<F>, E>::type, E> then(F&& func);

    /// The registration step of then(): stores a continuation that calls `callback` with this
    /// future and puts its outcome into `promise`.
    template <typename U, typename F>
    void SetCallbackForResult(const std::shared_ptr<Promise<U, E>>& promise, F&& callback);

private:
    template <typename U, typename G>
    friend class Promise;

    Future(std::future<ResultType>&& future,
           std::shared_ptr<std::recursive_mutex> promiseMutex,
           std::shared_ptr<internal::ContinuationHolder> holder) noexcept;

    /// A future detached from any promise: the one a continuation hands to its callback.
    explicit Future(std::future<ResultType>&& future) noexcept : future_(std::move(future)) {}

    /// Drops a continuation that has not run yet (see the class comment) and detaches.
    void Detach() noexcept;

    std::future<ResultType> future_;
    std::shared_ptr<std::recursive_mutex> promiseMutex_;  ///< shared: the future may outlive its promise
    bool holdsPromiseMutex_{false};                       ///< attached to a promise's mutex and holder
    std::shared_ptr<internal::ContinuationHolder> holder_;
};

}  // namespace ara::core

#include "ara/core/detail/future.inl"
#include "ara/core/promise.h"  // NOLINT(llvm-include-order): then() needs the complete Promise

#endif
