// SPDX-License-Identifier: Apache-2.0
// Replies of the server halves of one domain, written on a thread of the domain's own.
//
// The thread that answers a call (a skeleton's dispatcher, emd's event loop) only queues its
// reply and goes on. The pump writes it once the requesting client's reply reader is matched
// by the reply writer: a new client's request can arrive before that match (a known race of
// DDS request/reply), and a client that has died may never match again. A reply not
// writable within HOLD_LIMIT is dropped with a log line, as is the oldest one when more than
// HELD_LIMIT wait. Replies to one client are written in the order they were queued. The
// pump's writes never block either: reply writers give up at once when they would have to
// wait for acknowledgements, and the pump tries again BUSY_RETRY later.
#ifndef KELP_DRIVER_DDS_REPLY_PUMP_H
#define KELP_DRIVER_DDS_REPLY_PUMP_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include "kelp/brio/api/types/method_msg.h"

namespace kelp::driver::dds {

class ReplyPump {
public:
    using Clock = std::chrono::steady_clock;
    /// Longer than any client waits for a reply (1.9 s).
    static constexpr std::chrono::milliseconds HOLD_LIMIT{2000};
    static constexpr std::size_t HELD_LIMIT{4096U};
    /// How soon a reply whose writer was busy is tried again.
    static constexpr std::chrono::milliseconds BUSY_RETRY{10};

    struct Reply;

    /// The server half a reply goes out through. Called on the pump's thread only.
    class Sink {
    public:
        enum class Outcome : std::uint8_t { kWritten, kNotMatched, kBusy, kDropped };
        virtual ~Sink() = default;
        /// kNotMatched: wait for a match event; kBusy: the writer would have to wait for
        /// acknowledgements, try again shortly; kDropped: the reply will never be written
        /// (the sink logged why).
        virtual Outcome TryWrite(const Reply& reply) = 0;
        /// The reply waited HOLD_LIMIT (or was pushed out) and is dropped; log it.
        virtual void Expired(const Reply& reply) = 0;
    };

    struct Reply {
        std::shared_ptr<Sink> sink;
        brio::api::types::MethodMsg header;  // the reply's, with the request's client id and session id
        std::vector<unsigned char> payload;
        Clock::time_point deadline;
    };

    ReplyPump() = default;
    ReplyPump(const ReplyPump&) = delete;
    ReplyPump& operator=(const ReplyPump&) = delete;

    /// Queues `reply` (its deadline is set here) and returns at once.
    void Submit(Reply reply);
    /// Something a held reply waits for has changed (a reply writer matched or lost readers).
    void Wake();
    /// Replies queued or held now.
    std::size_t Pending() const;

private:
    void Run();

    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<Reply> incoming_;
    std::size_t held_{0U};  // owned by the thread; mirrored here for Pending()
    bool woken_{false};
    bool started_{false};
};

}  // namespace kelp::driver::dds

#endif
