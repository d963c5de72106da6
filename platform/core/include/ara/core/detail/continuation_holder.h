// SPDX-License-Identifier: Apache-2.0
// The continuation state that a promise shares with its future: the stored callback and the
// threads that last touched it.
#ifndef ARA_CORE_DETAIL_CONTINUATION_HOLDER_H
#define ARA_CORE_DETAIL_CONTINUATION_HOLDER_H

#include <memory>
#include <mutex>
#include <thread>
#include <type_traits>
#include <utility>

namespace ara::core::internal {

/// A move-only callable without arguments. Unlike std::function it accepts callables with
/// move-only captures (a continuation owns the future it hands to its callback).
class Continuation final {
public:
    Continuation() noexcept = default;

    template <typename F, typename = std::enable_if_t<!std::is_same_v<std::decay_t<F>, Continuation>>>
    explicit Continuation(F&& callable)
        : callable_(std::make_unique<Model<std::decay_t<F>>>(std::forward<F>(callable))) {}

    Continuation(Continuation&&) noexcept = default;
    Continuation& operator=(Continuation&&) noexcept = default;
    Continuation(const Continuation&) = delete;
    Continuation& operator=(const Continuation&) = delete;
    ~Continuation() = default;

    explicit operator bool() const noexcept { return callable_ != nullptr; }

    /// Runs the callable; it must hold one.
    void operator()() { callable_->Run(); }

private:
    class Concept {
    public:
        Concept() = default;
        Concept(const Concept&) = delete;
        Concept& operator=(const Concept&) = delete;
        virtual ~Concept() = default;
        virtual void Run() = 0;
    };

    template <typename F>
    class Model final : public Concept {
    public:
        template <typename G>
        explicit Model(G&& callable) : callable_(std::forward<G>(callable)) {}
        void Run() override { callable_(); }

    private:
        F callable_;
    };

    std::unique_ptr<Concept> callable_;
};

/// Shared by one promise and its future. Always locked after the promise mutex. The thread
/// ids are written with both locks held and may be read with the promise mutex alone.
struct ContinuationHolder {
    std::mutex mutex;
    Continuation continuation;
    std::thread::id setterThread;       ///< the thread that stored the result (or broke the promise)
    std::thread::id registeringThread;  ///< the thread that registered the continuation
};

}  // namespace ara::core::internal

#endif
