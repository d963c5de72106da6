// SPDX-License-Identifier: Apache-2.0
// Callbacks handed to the transport, and the thread-local record of which of them (and which
// listeners) the current thread is inside. A listener or callback may destroy the very object
// that called it; the record lets that object avoid waiting for itself.
#ifndef KELP_DRIVER_DDS_DISPATCH_SCOPE_H
#define KELP_DRIVER_DDS_DISPATCH_SCOPE_H

#include <condition_variable>
#include <cstddef>
#include <exception>
#include <memory>
#include <mutex>
#include <utility>

#include "ara/quill/common/log/log.h"

namespace kelp::driver::dds {

/// Marks the current thread as running on behalf of `owner` until the scope ends. Scopes nest
/// (in-process delivery runs a reader's listener inside another endpoint's write).
class DispatchScope {
public:
    explicit DispatchScope(const void* owner) noexcept : owner_(owner), outer_(top_) { top_ = this; }
    DispatchScope(const DispatchScope&) = delete;
    DispatchScope& operator=(const DispatchScope&) = delete;
    ~DispatchScope() { top_ = outer_; }

    /// How many scopes of `owner` the current thread is inside.
    static std::size_t Depth(const void* owner) noexcept {
        std::size_t depth = 0U;
        for (const DispatchScope* scope = top_; scope != nullptr; scope = scope->outer_) {
            depth += (scope->owner_ == owner) ? 1U : 0U;
        }
        return depth;
    }

private:
    const void* owner_;
    DispatchScope* outer_;
    inline static thread_local DispatchScope* top_ = nullptr;
};

/// One replaceable callback that transport threads call.
/// @thread-safety Set and Invoke may be called from any thread. Once Set returns, the previous
/// callback is not running on any other thread and will not be called again; a call on the
/// current thread (Set from inside the callback itself) is the one that cannot be waited for.
template <typename Fn>
class CallbackSlot {
public:
    void Set(Fn fn) {
        std::shared_ptr<const Fn> replaced;
        std::unique_lock<std::mutex> lock(mutex_);
        replaced = std::exchange(fn_, fn ? std::make_shared<const Fn>(std::move(fn)) : nullptr);
        const std::size_t own = DispatchScope::Depth(this);
        idle_.wait(lock, [this, own] { return running_ <= own; });
        lock.unlock();  // `replaced` (and what it captured) goes with no lock held
    }

    /// Calls the installed callback; false when there is none. An exception it throws is
    /// logged and stops there: the caller is a Cyclone thread.
    template <typename... Args>
    bool Invoke(Args&&... args) {
        std::shared_ptr<const Fn> fn;
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            if (!fn_) {
                return false;
            }
            fn = fn_;
            ++running_;
        }
        try {
            const DispatchScope scope(this);
            (*fn)(std::forward<Args>(args)...);
        } catch (const std::exception& error) {
            ara::quill::common::log::Log::GetLog("CM")->error()
                << "[DDSDriver][Callback threw, exception ignored][what=" << error.what() << "]";
        } catch (...) {
            ara::quill::common::log::Log::GetLog("CM")->error() << "[DDSDriver][Callback threw, exception ignored]";
        }
        fn.reset();
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            --running_;
        }
        idle_.notify_all();
        return true;
    }

private:
    std::mutex mutex_;
    std::condition_variable idle_;
    std::shared_ptr<const Fn> fn_;
    std::size_t running_{0U};
};

}  // namespace kelp::driver::dds

#endif
