// SPDX-License-Identifier: Apache-2.0
// The pump's thread: held replies first (they are older), then the newly queued ones.
#include "reply_pump.h"

#include <thread>

namespace kelp::driver::dds {

void ReplyPump::Submit(Reply reply) {
    reply.deadline = Clock::now() + HOLD_LIMIT;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        incoming_.push_back(std::move(reply));
        if (!started_) {
            started_ = true;
            // Detached: the pump belongs to its domain, which lives until the process ends.
            std::thread([this] { Run(); }).detach();
        }
    }
    wake_.notify_one();
}

void ReplyPump::Wake() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        woken_ = true;
    }
    wake_.notify_one();
}

std::size_t ReplyPump::Pending() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return incoming_.size() + held_;
}

void ReplyPump::Run() {
    std::deque<Reply> held;
    bool busy = false;  // a writer was busy: try again soon
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        const auto ready = [this] { return woken_ || !incoming_.empty(); };
        if (held.empty()) {
            wake_.wait(lock, ready);
        } else {
            Clock::time_point next = held.front().deadline;
            for (const Reply& reply : held) {
                next = std::min(next, reply.deadline);
            }
            if (busy) {
                next = std::min(next, Clock::now() + BUSY_RETRY);
            }
            (void)wake_.wait_until(lock, next, ready);
        }
        woken_ = false;
        while (!incoming_.empty()) {
            held.push_back(std::move(incoming_.front()));
            incoming_.pop_front();
        }
        held_ = held.size();
        lock.unlock();

        while (held.size() > HELD_LIMIT) {
            held.front().sink->Expired(held.front());
            held.pop_front();
        }
        const Clock::time_point now = Clock::now();
        std::deque<Reply> still;
        busy = false;
        for (Reply& reply : held) {
            const Sink::Outcome outcome = reply.sink->TryWrite(reply);
            if (outcome != Sink::Outcome::kNotMatched && outcome != Sink::Outcome::kBusy) {
                continue;
            }
            busy = busy || outcome == Sink::Outcome::kBusy;
            if (now >= reply.deadline) {
                reply.sink->Expired(reply);
            } else {
                still.push_back(std::move(reply));
            }
        }
        held.swap(still);
        still.clear();  // the sinks of written replies go before the lock is taken again

        lock.lock();
        held_ = held.size();
    }
}

}  // namespace kelp::driver::dds
