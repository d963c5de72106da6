// SPDX-License-Identifier: Apache-2.0
// ara::core::Promise: the completing end of one asynchronous ara::core::Result.
#ifndef ARA_CORE_PROMISE_H
#define ARA_CORE_PROMISE_H

#include <future>
#include <memory>
#include <mutex>
#include <type_traits>

#include "ara/core/detail/continuation_holder.h"
#include "ara/core/error_code.h"
#include "ara/core/future.h"
#include "ara/core/result.h"

namespace ara::core {

namespace internal {
template <typename U>
struct TypeIdentity {
    using type = U;
};
/// Keeps a parameter out of deduction, so set_value converts its argument to T.
template <typename U>
using NonDeduced = typename TypeIdentity<U>::type;
}  // namespace internal

/// Completes one Future with a value or an error, exactly once, and runs the continuation
/// registered on that future. Movable, not copyable.
///
/// Setting takes the promise mutex, then the continuation holder's mutex, stores the result,
/// and runs a stored continuation on the setting thread with both locks held.
///
/// @thread-safety set_value, SetError, SetResult and get_future may be called from any thread,
/// also while the future is being waited on or continued.
template <typename T, typename E>
class Promise final {
    using ResultType = Result<T, E>;

public:
    Promise();
    /// A promise destroyed without a result breaks its future: it becomes ready with
    /// kBrokenPromise (the Future-domain code of the standard broken-promise error), and its
    /// continuation runs.
    ~Promise();
    Promise(const Promise&) = delete;
    Promise& operator=(const Promise&) = delete;
    Promise(Promise&& other) noexcept = default;
    /// Breaks this promise's future first if it has no result yet.
    Promise& operator=(Promise&& other) noexcept;

    /// @throws std::future_error future already retrieved on a second call; no state on a
    /// moved-from promise.
    Future<T, E> get_future();

    /// @throws std::future_error promise already satisfied (the first result stays), or no state.
    template <typename U = T, typename = std::enable_if_t<std::is_void_v<U>>>
    void set_value() {
        SetResult(ResultType());
    }
    /// @throws std::future_error promise already satisfied (the first result stays), or no state.
    template <typename U = T, typename = std::enable_if_t<!std::is_void_v<U>>>
    void set_value(const internal::NonDeduced<U>& value) {
        SetResult(ResultType(value));
    }
    /// @throws std::future_error promise already satisfied (the first result stays), or no state.
    template <typename U = T, typename = std::enable_if_t<!std::is_void_v<U>>>
    void set_value(internal::NonDeduced<U>&& value) {
        SetResult(ResultType(std::move(value)));
    }

    /// @throws std::future_error promise already satisfied (the first result stays), or no state.
    void SetError(const E& error) { SetResult(ResultType(error)); }
    /// @throws std::future_error promise already satisfied (the first result stays), or no state.
    void SetError(E&& error) { SetResult(ResultType(std::move(error))); }

    /// Stores a value or an error.
    /// @throws std::future_error promise already satisfied (the first result stays), or no state.
    void SetResult(const ResultType& result) { SetResult(ResultType(result)); }
    void SetResult(ResultType&& result);

private:
    /// The destructor's work: break the future if no result was stored.
    void Abandon() noexcept;

    std::shared_ptr<std::recursive_mutex> mutex_;  ///< recursive: a continuation may drop its future
    std::promise<ResultType> promise_;
    std::shared_ptr<internal::ContinuationHolder> holder_;
    bool satisfied_{false};  ///< a result or the broken-promise error has been stored
};

}  // namespace ara::core

#include "ara/core/detail/promise.inl"

#endif
