// SPDX-License-Identifier: Apache-2.0
// Process-local method driver and the registry of process-local servers.
#include "kelp/driver/proloc/proloc_method_handler.h"

#include <utility>

namespace kelp::driver::proloc {

namespace types = brio::api::types;

ProlocServerRegistry& ProlocServerRegistry::Instance() {
    static ProlocServerRegistry registry;
    return registry;
}

bool ProlocServerRegistry::Register(const ProlocEntityIndex& index, std::shared_ptr<ProlocServerMethod> server) {
    const std::lock_guard<std::mutex> lock(mutex_);
    return servers_.emplace(index, std::move(server)).second;
}

void ProlocServerRegistry::Unregister(const ProlocEntityIndex& index) {
    const std::lock_guard<std::mutex> lock(mutex_);
    servers_.erase(index);
}

std::shared_ptr<ProlocServerMethod> ProlocServerRegistry::Find(const ProlocEntityIndex& index) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto it = servers_.find(index);
    return it == servers_.end() ? nullptr : it->second;
}

ProlocMethodHandler::ProlocMethodHandler(ProlocEntityIndex index)
    : index_(std::move(index)), logger_(ara::quill::common::log::Log::GetLog("CM")) {}

ProlocMethodHandler::~ProlocMethodHandler() = default;

void ProlocMethodHandler::RegisterReplyCallback(ReplyCallback callback) {
    const std::lock_guard<std::mutex> lock(mutex_);
    callback_ = std::move(callback);
}

unsigned char* ProlocMethodHandler::AllocateRequestBuffer(const std::shared_ptr<types::MethodMsg>& /*msg*/,
                                                          std::uint32_t /*size*/) {
    return nullptr;
}

bool ProlocMethodHandler::SendRequest(const unsigned char* payload, std::uint32_t /*size*/, std::uint16_t sessionId) {
    const auto server = ProlocServerRegistry::Instance().Find(index_);
    if (!server || !server->onRequest) {
        logger_->warn() << "[ProlocMethodHandler][No process-local server for method][" << GetProlocInfo(index_) << "]";
        return false;
    }
    const std::weak_ptr<ProlocMethodHandler> weakSelf = weak_from_this();
    server->onRequest(payload, sessionId, [weakSelf, sessionId](const unsigned char* reply, bool isError) {
        if (const auto self = weakSelf.lock()) {
            self->Deliver(sessionId, reply, isError);
        }
    });
    return true;
}

void ProlocMethodHandler::Deliver(std::uint16_t sessionId, const unsigned char* reply, bool isError) {
    auto msg = std::make_shared<types::MethodMsg>();
    msg->sessionId = sessionId;
    msg->payload = reply;
    msg->payloadSize = 0U;
    msg->isErrorReply = isError;
    msg->isRealReply = true;
    ReplyCallback callback;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        callback = callback_;
    }
    if (callback) {
        callback(msg);
    } else {
        ReturnBuffer(reply);  // nobody will read it
    }
}

void ProlocMethodHandler::ReturnBuffer(const unsigned char* payload) {
    if (payload == nullptr) {
        return;
    }
    const auto server = ProlocServerRegistry::Instance().Find(index_);
    if (server && server->returnReplyLoan) {
        server->returnReplyLoan(payload);
    }
}

serialize::SerializeType ProlocMethodHandler::GetSerializeType() const {
    return serialize::SerializeType::kDds;
}

const serialize::SerializeConfig& ProlocMethodHandler::GetSerializeConfig() const {
    return config_;
}

void ProlocMethodHandler::SetMethodStateChangeHandler(StateChangeHandler handler) {
    const std::lock_guard<std::mutex> lock(mutex_);
    stateHandler_ = std::move(handler);
}

void ProlocMethodHandler::UnsetMethodStateChangeHandler() {
    const std::lock_guard<std::mutex> lock(mutex_);
    stateHandler_ = nullptr;
}

void ProlocMethodHandler::SetMethodProxyStats(const std::shared_ptr<brio::utils::stats::MethodProxyStats>& stats) {
    const std::lock_guard<std::mutex> lock(mutex_);
    stats_ = stats;
}

}  // namespace kelp::driver::proloc
