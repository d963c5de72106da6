// Scripted method driver for proxy tests.
#include "ara_test/fake_method_handler.h"

#include <utility>

#include "kelp/brio/utils/stats/method_proxy_stats.h"

namespace ara_test {

namespace types = kelp::brio::api::types;

FakeMethodHandler::FakeMethodHandler(kelp::serialize::SerializeType type) : type_(type) {}
FakeMethodHandler::~FakeMethodHandler() = default;

void FakeMethodHandler::SetRefuseSend(bool refuse) {
    const std::lock_guard<std::mutex> lock(mutex_);
    refuseSend_ = refuse;
}

void FakeMethodHandler::SetRefuseBuffer(bool refuse) {
    const std::lock_guard<std::mutex> lock(mutex_);
    refuseBuffer_ = refuse;
}

void FakeMethodHandler::SetSerializeType(kelp::serialize::SerializeType type) {
    const std::lock_guard<std::mutex> lock(mutex_);
    type_ = type;
}

void FakeMethodHandler::SetSerializeConfig(const kelp::serialize::SerializeConfig& config) {
    const std::lock_guard<std::mutex> lock(mutex_);
    config_ = config;
}

void FakeMethodHandler::SetOnSend(std::function<void(const Sent&)> onSend) {
    const std::lock_guard<std::mutex> lock(mutex_);
    onSend_ = std::move(onSend);
}

std::vector<FakeMethodHandler::Sent> FakeMethodHandler::SentRequests() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return sent_;
}

std::size_t FakeMethodHandler::SentCount() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return sent_.size();
}

bool FakeMethodHandler::HasReplyCallback() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return static_cast<bool>(callback_);
}

std::size_t FakeMethodHandler::OutstandingReplyBuffers() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return replyBuffers_.size();
}

std::size_t FakeMethodHandler::OutstandingRequestBuffers() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return requestBuffers_.size();
}

std::shared_ptr<kelp::brio::utils::stats::MethodProxyStats> FakeMethodHandler::Stats() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return stats_;
}

bool FakeMethodHandler::HasStateHandler() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return static_cast<bool>(stateHandler_);
}

std::shared_ptr<types::MethodMsg> FakeMethodHandler::MakeReply(std::uint16_t sessionId,
                                                               const std::vector<std::uint8_t>& payload,
                                                               bool isErrorReply,
                                                               bool isRealReply) {
    auto reply = std::make_shared<types::MethodMsg>();
    reply->sessionId = sessionId;
    reply->isErrorReply = isErrorReply;
    reply->isRealReply = isRealReply;
    reply->e2eCheckStatus = 0U;
    reply->e2eState = 0U;
    // One spare byte so that an empty payload still has a distinct, non-null address.
    std::vector<unsigned char> buffer(payload.size() + 1U);
    std::copy(payload.begin(), payload.end(), buffer.begin());
    reply->payload = buffer.data();
    reply->payloadSize = static_cast<std::uint32_t>(payload.size());
    const std::lock_guard<std::mutex> lock(mutex_);
    replyBuffers_.emplace(buffer.data(), std::move(buffer));
    return reply;
}

bool FakeMethodHandler::Deliver(const std::shared_ptr<types::MethodMsg>& reply) {
    ReplyCallback callback;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        callback = callback_;
    }
    if (!callback) {
        return false;
    }
    callback(reply);
    return true;
}

void FakeMethodHandler::NotifyState(types::MethodState state) {
    StateChangeHandler handler;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        handler = stateHandler_;
    }
    if (handler) {
        handler(state);
    }
}

void FakeMethodHandler::RegisterReplyCallback(ReplyCallback callback) {
    const std::lock_guard<std::mutex> lock(mutex_);
    callback_ = std::move(callback);
}

unsigned char* FakeMethodHandler::AllocateRequestBuffer(const std::shared_ptr<types::MethodMsg>& /*msg*/,
                                                        std::uint32_t size) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (refuseBuffer_) {
        return nullptr;
    }
    std::vector<unsigned char> buffer(static_cast<std::size_t>(size) + 1U);
    unsigned char* data = buffer.data();
    requestBuffers_.emplace(data, std::move(buffer));
    return data;
}

bool FakeMethodHandler::SendRequest(const unsigned char* payload, std::uint32_t size, std::uint16_t sessionId) {
    std::function<void(const Sent&)> onSend;
    Sent sent{sessionId, payload, size, {}};
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto buffer = requestBuffers_.find(payload);
        if (buffer != requestBuffers_.end()) {
            sent.bytes.assign(buffer->second.begin(), buffer->second.begin() + size);
            requestBuffers_.erase(buffer);
        }
        if (refuseSend_) {
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

void FakeMethodHandler::ReturnBuffer(const unsigned char* payload) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (replyBuffers_.erase(payload) == 0U) {
        requestBuffers_.erase(payload);
    }
}

kelp::serialize::SerializeType FakeMethodHandler::GetSerializeType() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return type_;
}

const kelp::serialize::SerializeConfig& FakeMethodHandler::GetSerializeConfig() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return config_;
}

void FakeMethodHandler::SetMethodStateChangeHandler(StateChangeHandler handler) {
    const std::lock_guard<std::mutex> lock(mutex_);
    stateHandler_ = std::move(handler);
}

void FakeMethodHandler::UnsetMethodStateChangeHandler() {
    const std::lock_guard<std::mutex> lock(mutex_);
    stateHandler_ = nullptr;
}

void FakeMethodHandler::SetMethodProxyStats(const std::shared_ptr<kelp::brio::utils::stats::MethodProxyStats>& stats) {
    const std::lock_guard<std::mutex> lock(mutex_);
    stats_ = stats;
}

}  // namespace ara_test
