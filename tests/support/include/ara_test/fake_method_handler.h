// A scripted method driver for proxy tests: records every send, can refuse a send or a
// buffer, and delivers any reply message, from any thread, to the registered callback.
#ifndef ARA_TEST_FAKE_METHOD_HANDLER_H
#define ARA_TEST_FAKE_METHOD_HANDLER_H

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "kelp/brio/driver/method_handler.h"
#include "kelp/serialize/serialize_config.h"

namespace ara_test {

class FakeMethodHandler final : public kelp::brio::driver::MethodHandler {
public:
    struct Sent {
        std::uint16_t sessionId;
        const unsigned char* payload;  ///< as given (process-local: address of the parked tuple)
        std::uint32_t size;
        std::vector<std::uint8_t> bytes;  ///< copy of the serialized payload
    };

    explicit FakeMethodHandler(kelp::serialize::SerializeType type = kelp::serialize::SerializeType::kSomeip);
    ~FakeMethodHandler() override;

    // Scripting.
    void SetRefuseSend(bool refuse);
    void SetRefuseBuffer(bool refuse);
    void SetSerializeType(kelp::serialize::SerializeType type);
    void SetSerializeConfig(const kelp::serialize::SerializeConfig& config);
    /// Called inside SendRequest after the send was recorded, with no lock of the fake held.
    void SetOnSend(std::function<void(const Sent&)> onSend);

    // Inspection.
    std::vector<Sent> SentRequests() const;
    std::size_t SentCount() const;
    bool HasReplyCallback() const;
    /// Reply payloads made by MakeReply and not yet handed back through ReturnBuffer.
    std::size_t OutstandingReplyBuffers() const;
    /// Request buffers handed out and neither sent nor returned.
    std::size_t OutstandingRequestBuffers() const;
    std::shared_ptr<kelp::brio::utils::stats::MethodProxyStats> Stats() const;
    bool HasStateHandler() const;

    // Replies.
    /// A reply record whose payload is a copy of `payload`, owned by the fake until returned.
    std::shared_ptr<kelp::brio::api::types::MethodMsg> MakeReply(std::uint16_t sessionId,
                                                                 const std::vector<std::uint8_t>& payload,
                                                                 bool isErrorReply = false,
                                                                 bool isRealReply = true);
    /// Hands `reply` to the registered callback on the calling thread; false without one.
    bool Deliver(const std::shared_ptr<kelp::brio::api::types::MethodMsg>& reply);
    /// Calls the state-change handler, if any.
    void NotifyState(kelp::brio::api::types::MethodState state);

    // MethodHandler.
    void RegisterReplyCallback(ReplyCallback callback) override;
    unsigned char* AllocateRequestBuffer(const std::shared_ptr<kelp::brio::api::types::MethodMsg>& msg,
                                         std::uint32_t size) override;
    bool SendRequest(const unsigned char* payload, std::uint32_t size, std::uint16_t sessionId) override;
    void ReturnBuffer(const unsigned char* payload) override;
    kelp::serialize::SerializeType GetSerializeType() const override;
    const kelp::serialize::SerializeConfig& GetSerializeConfig() const override;
    void SetMethodStateChangeHandler(StateChangeHandler handler) override;
    void UnsetMethodStateChangeHandler() override;
    void SetMethodProxyStats(const std::shared_ptr<kelp::brio::utils::stats::MethodProxyStats>& stats) override;

private:
    mutable std::mutex mutex_;
    kelp::serialize::SerializeType type_;
    kelp::serialize::SerializeConfig config_;
    bool refuseSend_{false};
    bool refuseBuffer_{false};
    std::function<void(const Sent&)> onSend_;
    ReplyCallback callback_;
    StateChangeHandler stateHandler_;
    std::shared_ptr<kelp::brio::utils::stats::MethodProxyStats> stats_;
    std::vector<Sent> sent_;
    std::map<const unsigned char*, std::vector<unsigned char>> requestBuffers_;
    std::map<const unsigned char*, std::vector<unsigned char>> replyBuffers_;
};

}  // namespace ara_test

#endif
