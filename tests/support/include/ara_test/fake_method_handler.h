// SPDX-License-Identifier: Apache-2.0
// A scripted method driver for proxy tests: records every send, can refuse a send or a
// buffer, and delivers any reply message, from any thread, to the registered callback.
#ifndef ARA_TEST_FAKE_METHOD_HANDLER_H
#define ARA_TEST_FAKE_METHOD_HANDLER_H

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "kelp/brio/driver/method_handler.h"
#include "kelp/brio/method_proxy_impl.h"
#include "kelp/serialize/serialize_config.h"

namespace ara_test {

class FakeMethodHandler final : public kelp::brio::driver::MethodHandler {
    using Buffers = std::map<const unsigned char*, std::vector<unsigned char>>;
    mutable std::mutex mutex_;
    template <typename F>
    auto Locked(F&& f) const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return f();
    }
    /// A buffer of `size` bytes and one spare, so that an empty one still has its own address.
    static unsigned char* Lend(Buffers& buffers, std::size_t size) {
        std::vector<unsigned char> buffer(size + 1U);
        return buffers.emplace(buffer.data(), std::move(buffer)).first->second.data();
    }

public:
    using MethodMsg = kelp::brio::api::types::MethodMsg;
    struct Sent {
        std::uint16_t sessionId;
        std::vector<std::uint8_t> bytes;  ///< copy of the serialized payload
    };

    explicit FakeMethodHandler(kelp::serialize::SerializeType type = kelp::serialize::SerializeType::kSomeip)
        : type_(type) {}

    // Scripting: refusals, encoding, and a hook called inside SendRequest with no lock held.
    std::atomic<bool> refuseSend{false};
    std::atomic<bool> refuseBuffer{false};
    void SetSerializeType(kelp::serialize::SerializeType type) {
        Locked([&] { type_ = type; });
    }
    void SetOnSend(std::function<void(const Sent&)> onSend) {
        Locked([&] { onSend_ = std::move(onSend); });
    }

    // Inspection.
    std::vector<Sent> SentRequests() const {
        return Locked([&] { return sent_; });
    }
    /// Reply payloads made by MakeReply and not yet handed back through ReturnBuffer.
    std::size_t OutstandingReplyBuffers() const {
        return Locked([&] { return replyBuffers_.size(); });
    }
    /// Request buffers handed out and neither sent nor returned.
    std::size_t OutstandingRequestBuffers() const {
        return Locked([&] { return requestBuffers_.size(); });
    }

    /// A reply record whose payload is a copy of `payload`, owned by the fake until returned.
    std::shared_ptr<MethodMsg> MakeReply(std::uint16_t sessionId,
                                         const std::vector<std::uint8_t>& payload,
                                         bool isErrorReply = false,
                                         bool isRealReply = true) {
        auto reply = std::make_shared<MethodMsg>();
        reply->sessionId = sessionId;
        reply->isErrorReply = isErrorReply;
        reply->isRealReply = isRealReply;
        unsigned char* buffer = Locked([&] { return Lend(replyBuffers_, payload.size()); });
        std::copy(payload.begin(), payload.end(), buffer);
        reply->payload = buffer;
        reply->payloadSize = static_cast<std::uint32_t>(payload.size());
        return reply;
    }
    /// Hands `reply` to the registered callback on the calling thread; false without one.
    bool Deliver(const std::shared_ptr<MethodMsg>& reply) {
        const ReplyCallback callback = Locked([&] { return callback_; });
        if (callback) {
            callback(reply);
        }
        return static_cast<bool>(callback);
    }
    void NotifyState(kelp::brio::api::types::MethodState state) {
        if (const StateChangeHandler handler = Locked([&] { return stateHandler_; })) {
            handler(state);
        }
    }

    void RegisterReplyCallback(ReplyCallback callback) override {
        Locked([&] { callback_ = std::move(callback); });
    }
    unsigned char* AllocateRequestBuffer(const std::shared_ptr<MethodMsg>& /*msg*/, std::uint32_t size) override {
        return Locked([&] { return refuseBuffer ? nullptr : Lend(requestBuffers_, size); });
    }
    bool SendRequest(const unsigned char* payload, std::uint32_t size, std::uint16_t sessionId) override {
        Sent sent{sessionId, {}};
        std::function<void(const Sent&)> onSend;
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            const auto buffer = requestBuffers_.find(payload);
            if (buffer != requestBuffers_.end()) {
                sent.bytes.assign(buffer->second.begin(), buffer->second.begin() + size);
                requestBuffers_.erase(buffer);
            }
            if (refuseSend) {
                return false;
            }
            sent_.push_back(sent);
            onSend = onSend_;
        }
        if (onSend) {
            onSend(sent);
        }
        return true;
    }
    void ReturnBuffer(const unsigned char* payload) override {
        Locked([&] { return replyBuffers_.erase(payload) != 0U || requestBuffers_.erase(payload) != 0U; });
    }
    kelp::serialize::SerializeType GetSerializeType() const override {
        return Locked([&] { return type_; });
    }
    const kelp::serialize::SerializeConfig& GetSerializeConfig() const override { return config_; }
    void SetMethodStateChangeHandler(StateChangeHandler handler) override {
        Locked([&] { stateHandler_ = std::move(handler); });
    }
    void UnsetMethodStateChangeHandler() override {
        Locked([&] { stateHandler_ = nullptr; });
    }
    void SetMethodProxyStats(const std::shared_ptr<kelp::brio::utils::stats::MethodProxyStats>& /*stats*/) override {}

private:
    kelp::serialize::SerializeType type_;
    kelp::serialize::SerializeConfig config_;
    std::function<void(const Sent&)> onSend_;
    ReplyCallback callback_;
    StateChangeHandler stateHandler_;
    std::vector<Sent> sent_;
    Buffers requestBuffers_;
    Buffers replyBuffers_;
};

/// A proxy of result type T bound to a fresh fake driver, with a descriptor of its own.
template <typename T>
struct BoundProxy {
    explicit BoundProxy(std::uint32_t entityId = 6U,
                        kelp::serialize::SerializeType type = kelp::serialize::SerializeType::kSomeip)
        : proxy(std::make_shared<kelp::brio::MethodProxyImpl<T>>(entityId)),
          driver(std::make_shared<FakeMethodHandler>(type)),
          info(std::make_shared<kelp::brio::api::types::MethodInfo>()) {
        info->SetServiceId(57360U);
        info->SetEntityId(entityId);
        info->SetEntityName(std::to_string(entityId));
        proxy->SetMethodInfo(info);
        proxy->SetDriver(driver);
    }
    std::shared_ptr<kelp::brio::MethodProxyImpl<T>> proxy;
    std::shared_ptr<FakeMethodHandler> driver;
    std::shared_ptr<kelp::brio::api::types::MethodInfo> info;
};

}  // namespace ara_test

#endif
