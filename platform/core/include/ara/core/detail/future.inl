// SPDX-License-Identifier: Apache-2.0
// Template bodies of ara::core::Future: reading the result, registering and dropping continuations.
#ifndef ARA_CORE_DETAIL_FUTURE_INL
#define ARA_CORE_DETAIL_FUTURE_INL

#include <thread>
#include <utility>

namespace ara::core {

namespace internal {

/// Calls the callback with the completed future and puts its outcome into the follow-up promise.
template <typename U, typename E, typename F, typename T>
void SettleContinuation(Promise<U, E>& next, F& callback, Future<T, E>&& completed) {
    using R = std::invoke_result_t<F&, Future<T, E>&&>;
    if constexpr (std::is_void_v<R>) {
        callback(std::move(completed));
        next.set_value();
    } else if constexpr (std::is_same_v<R, Result<U, E>>) {
        next.SetResult(callback(std::move(completed)));
    } else {
        next.set_value(callback(std::move(completed)));
    }
}

}  // namespace internal

template <typename T, typename E>
Future<T, E>::Future(std::future<ResultType>&& future,
                     std::shared_ptr<std::recursive_mutex> promiseMutex,
                     std::shared_ptr<internal::ContinuationHolder> holder) noexcept
    : future_(std::move(future)),
      promiseMutex_(std::move(promiseMutex)),
      holdsPromiseMutex_(true),
      holder_(std::move(holder)) {}

template <typename T, typename E>
Future<T, E>::~Future() {
    Detach();
}

template <typename T, typename E>
Future<T, E>::Future(Future&& other) noexcept
    : future_(std::move(other.future_)),
      promiseMutex_(std::move(other.promiseMutex_)),
      holdsPromiseMutex_(std::exchange(other.holdsPromiseMutex_, false)),
      holder_(std::move(other.holder_)) {}

template <typename T, typename E>
Future<T, E>& Future<T, E>::operator=(Future&& other) noexcept {
    if (this != &other) {
        Detach();
        future_ = std::move(other.future_);
        promiseMutex_ = std::move(other.promiseMutex_);
        holdsPromiseMutex_ = std::exchange(other.holdsPromiseMutex_, false);
        holder_ = std::move(other.holder_);
    }
    return *this;
}

template <typename T, typename E>
void Future<T, E>::Detach() noexcept {
    if (!holdsPromiseMutex_) {
        return;
    }
    internal::Continuation dropped;  // destroyed after both locks are released
    {
        std::lock_guard<std::recursive_mutex> promiseLock(*promiseMutex_);
        // On the setting or registering thread this may run inside the continuation, which
        // holds the holder mutex: taking it again would deadlock, so the holder is left alone.
        const std::thread::id self = std::this_thread::get_id();
        if (self != holder_->setterThread && self != holder_->registeringThread) {
            std::lock_guard<std::mutex> holderLock(holder_->mutex);
            dropped = std::move(holder_->continuation);
        }
    }
    holdsPromiseMutex_ = false;
    promiseMutex_.reset();
    holder_.reset();
}

// Standard future errors become ErrorCodes where the result is read: every reader (the
// clients' waits and their result handlers, which receive the future) then sees an ordinary
// error result, and no std::future_error leaves a read. ~Promise stores its broken-promise
// error already mapped; what is left to map here is mainly a read without state.
template <typename T, typename E>
Result<T, E> Future<T, E>::get() {
    try {
        return future_.get();
    } catch (const std::future_error& error) {
        if constexpr (std::is_constructible_v<E, ErrorCode>) {
            return ResultType(E(internal::MapFutureError(error.code())));
        } else {
            throw;
        }
    }
}

template <typename T, typename E>
Result<T, E> Future<T, E>::GetResult() noexcept {
    return get();
}

template <typename T, typename E>
bool Future<T, E>::is_ready() const {
    return future_.valid() && future_.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

template <typename T, typename E>
template <typename F>
Future<typename internal::ContinuationValue<typename Future<T, E>::template CallbackResult<F>, E>::type, E>
Future<T, E>::then(F&& func) {
    using R = CallbackResult<F>;
    static_assert(!internal::IsFuture<R>::value, "a then() callback returns a Result or a value, not a Future");
    using U = typename internal::ContinuationValue<R, E>::type;
    auto next = std::make_shared<Promise<U, E>>();
    Future<U, E> nextFuture = next->get_future();
    SetCallbackForResult(next, std::forward<F>(func));
    return nextFuture;
}

template <typename T, typename E>
template <typename U, typename F>
void Future<T, E>::SetCallbackForResult(const std::shared_ptr<Promise<U, E>>& promise, F&& callback) {
    auto makeTask = [this, &promise, &callback]() {
        return internal::Continuation(
            [next = promise, call = std::forward<F>(callback), completed = Future(std::move(future_))]() mutable {
                internal::SettleContinuation(*next, call, std::move(completed));
            });
    };
    if (!holdsPromiseMutex_) {
        // Detached: no promise will complete it any more, so the callback sees it as it is.
        internal::Continuation task = makeTask();
        task();
        return;
    }
    // Locals keep the locks valid even if the continuation destroys this future.
    const std::shared_ptr<std::recursive_mutex> promiseMutex = promiseMutex_;
    const std::shared_ptr<internal::ContinuationHolder> holder = holder_;
    internal::Continuation task;  // destroyed after both locks are released
    std::lock_guard<std::recursive_mutex> promiseLock(*promiseMutex);
    std::lock_guard<std::mutex> holderLock(holder->mutex);
    // A future without state (already read or already continued) has nothing to wait for.
    const bool runNow = !future_.valid() || future_.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    holder->registeringThread = std::this_thread::get_id();
    if (runNow) {
        task = makeTask();
        task();
    } else {
        holder->continuation = makeTask();
    }
}

}  // namespace ara::core

#endif
