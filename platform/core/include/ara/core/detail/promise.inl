// SPDX-License-Identifier: Apache-2.0
// Template bodies of ara::core::Promise: storing the result and running the continuation.
#ifndef ARA_CORE_DETAIL_PROMISE_INL
#define ARA_CORE_DETAIL_PROMISE_INL

#include <exception>
#include <system_error>
#include <thread>
#include <type_traits>
#include <utility>

namespace ara::core {

template <typename T, typename E>
Promise<T, E>::Promise()
    : mutex_(std::make_shared<std::recursive_mutex>()),
      promise_(),
      holder_(std::make_shared<internal::ContinuationHolder>()) {}

template <typename T, typename E>
Promise<T, E>::~Promise() {
    Abandon();
}

template <typename T, typename E>
Promise<T, E>& Promise<T, E>::operator=(Promise&& other) noexcept {
    if (this != &other) {
        Abandon();
        mutex_ = std::move(other.mutex_);
        promise_ = std::move(other.promise_);
        holder_ = std::move(other.holder_);
        satisfied_ = other.satisfied_;
    }
    return *this;
}

template <typename T, typename E>
Future<T, E> Promise<T, E>::get_future() {
    if (mutex_ == nullptr) {
        throw std::future_error(std::future_errc::no_state);
    }
    std::lock_guard<std::recursive_mutex> promiseLock(*mutex_);
    return Future<T, E>(promise_.get_future(), mutex_, holder_);
}

template <typename T, typename E>
void Promise<T, E>::SetResult(ResultType&& result) {
    if (mutex_ == nullptr) {
        throw std::future_error(std::future_errc::no_state);
    }
    // Locals keep the locks valid even if the continuation releases this promise.
    const std::shared_ptr<std::recursive_mutex> mutex = mutex_;
    const std::shared_ptr<internal::ContinuationHolder> holder = holder_;
    internal::Continuation task;  // destroyed after both locks are released
    std::lock_guard<std::recursive_mutex> promiseLock(*mutex);
    std::lock_guard<std::mutex> holderLock(holder->mutex);
    promise_.set_value(std::move(result));  // throws promise_already_satisfied on a second result
    satisfied_ = true;
    holder->setterThread = std::this_thread::get_id();
    task = std::move(holder->continuation);
    if (task) {
        task();
    }
}

template <typename T, typename E>
void Promise<T, E>::Abandon() noexcept {
    if (mutex_ == nullptr) {
        return;
    }
    internal::Continuation task;  // destroyed after both locks are released
    std::lock_guard<std::recursive_mutex> promiseLock(*mutex_);
    std::lock_guard<std::mutex> holderLock(holder_->mutex);
    if (satisfied_) {
        return;
    }
    // Stored here rather than left to the standard promise's destructor, so that the
    // continuation can run and read it. The error is stored already mapped, the code get()
    // would give for the standard exception: an exception object shared between the reading
    // and the releasing thread is counted inside the uninstrumented C++ runtime, which the
    // thread sanitizer reports as a race.
    if constexpr (std::is_constructible_v<E, ErrorCode>) {
        promise_.set_value(
            ResultType(E(internal::MapFutureError(std::make_error_code(std::future_errc::broken_promise)))));
    } else {
        promise_.set_exception(std::make_exception_ptr(std::future_error(std::future_errc::broken_promise)));
    }
    satisfied_ = true;
    holder_->setterThread = std::this_thread::get_id();
    task = std::move(holder_->continuation);
    if (task) {
        task();
    }
}

}  // namespace ara::core

#endif
