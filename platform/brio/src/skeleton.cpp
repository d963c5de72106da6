// SPDX-License-Identifier: Apache-2.0
// Server side of one service: offers, method servers on their transports and in-process, and
// the queue of received calls with its dispatcher thread.
#include "kelp/brio/skeleton.h"

namespace kelp::brio {
namespace detail {

CallQueue::CallQueue(bool ownThread) : state_(std::make_shared<State>()) {
    if (ownThread) {
        thread_ = std::thread([state = state_] { Loop(state); });
    }
}

CallQueue::~CallQueue() {
    Stop();
}

bool CallQueue::Push(Call call) {
    {
        const std::lock_guard<std::mutex> lock(state_->mutex);
        if (state_->stopped) {
            return false;
        }
        state_->calls.push_back(std::move(call));
    }
    state_->wake.notify_one();
    return true;
}

bool CallQueue::RunOne() {
    Call call;
    {
        const std::lock_guard<std::mutex> lock(state_->mutex);
        if (state_->calls.empty()) {
            return false;
        }
        call = std::move(state_->calls.front());
        state_->calls.pop_front();
    }
    call();
    return true;
}

std::size_t CallQueue::Size() const {
    const std::lock_guard<std::mutex> lock(state_->mutex);
    return state_->calls.size();
}

void CallQueue::Stop() {
    std::deque<Call> dropped;
    {
        const std::lock_guard<std::mutex> lock(state_->mutex);
        state_->stopped = true;
        dropped.swap(state_->calls);
    }
    state_->wake.notify_all();
    if (thread_.joinable()) {
        if (thread_.get_id() == std::this_thread::get_id()) {
            // A handler destroys its own skeleton: the loop ends after it, on the state its
            // thread holds.
            thread_.detach();
        } else {
            thread_.join();
        }
    }
    if (!dropped.empty()) {
        ara::quill::common::log::Log::GetLog("CM")->warn()
            << "[Skeleton][Calls dropped at shutdown][count=" << dropped.size() << "]";
    }
    // Each dropped call's Replier logs its call when the closure goes.
}

void CallQueue::Loop(const std::shared_ptr<State>& state) {
    std::unique_lock<std::mutex> lock(state->mutex);
    while (true) {
        state->wake.wait(lock, [&state] { return state->stopped || !state->calls.empty(); });
        if (state->stopped) {
            return;
        }
        Call call = std::move(state->calls.front());
        state->calls.pop_front();
        lock.unlock();
        call();
        call = nullptr;  // the call's captures go before the lock is taken again
        lock.lock();
    }
}

}  // namespace detail

Skeleton::Skeleton(const std::string& name, const api::types::MethodCallProcessingMode& mode)
    : name_(name),
      mode_(mode),
      logger_(ara::quill::common::log::Log::GetLog("CM")),
      queue_(std::make_shared<detail::CallQueue>(mode != api::types::MethodCallProcessingMode::kPoll)) {}

Skeleton::~Skeleton() {
    std::map<std::uint32_t, std::shared_ptr<driver::MethodServerHandler>> servers;
    std::vector<::kelp::driver::proloc::ProlocEntityIndex> local;
    std::vector<std::pair<api::types::DriverType, std::shared_ptr<api::types::ServiceDiscoveryInfo>>> offers;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        servers.swap(servers_);
        local.swap(localMethods_);
        offers.swap(offers_);
    }
    for (const auto& index : local) {
        ::kelp::driver::proloc::ProlocServerRegistry::Instance().Unregister(index);
    }
    for (const auto& entry : servers) {
        entry.second->RegisterRequestCallback(driver::MethodServerHandler::RequestCallback{});
    }
    for (const auto& [type, info] : offers) {
        if (const auto transport = driver::GetDriver(type)) {
            transport->StopOfferService(*info);
        }
    }
    queue_->Stop();
}

bool Skeleton::OfferService(const DiscoveryMap& info) {
    bool allOffered = true;
    for (const auto& [type, request] : info) {
        const auto transport = driver::GetDriver(type);
        if (!transport || !request || !transport->OfferService(*request)) {
            logger_->warn() << "[Skeleton][Offer service failed][name=" << name_
                            << ", driverType=" << api::types::DriverTypeName(type) << "]";
            allOffered = false;
            continue;
        }
        const std::lock_guard<std::mutex> lock(mutex_);
        offers_.emplace_back(type, request);
    }
    return allOffered;
}

void Skeleton::StopOfferService(const DiscoveryMap& info) {
    for (const auto& [type, request] : info) {
        if (!request) {
            continue;
        }
        bool offered = false;
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            for (auto it = offers_.begin(); it != offers_.end(); ++it) {
                if (it->first == type && it->second->GetServiceId() == request->GetServiceId() &&
                    it->second->GetInstanceId() == request->GetInstanceId()) {
                    offers_.erase(it);
                    offered = true;
                    break;
                }
            }
        }
        const auto transport = driver::GetDriver(type);
        if (offered && transport) {
            transport->StopOfferService(*request);
        }
    }
}

std::shared_ptr<driver::MethodServerHandler> Skeleton::CreateServer(
    const std::shared_ptr<api::types::MethodInfo>& info) {
    const auto transport = driver::GetDriver(info->GetDriverType());
    if (!transport) {
        logger_->warn() << "[Skeleton][Transport is not started][name=" << name_
                        << ", driverType=" << api::types::DriverTypeName(info->GetDriverType()) << "]";
        return nullptr;
    }
    return transport->CreateMethodServerHandler(info);
}

bool Skeleton::AddMethod(std::uint32_t methodId,
                         std::shared_ptr<driver::MethodServerHandler> server,
                         const ::kelp::driver::proloc::ProlocEntityIndex& index,
                         std::shared_ptr<::kelp::driver::proloc::ProlocServerMethod> local) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (!servers_.emplace(methodId, server).second) {
            logger_->warn() << "[Skeleton][Method already served][name=" << name_ << ", methodId=" << methodId << "]";
            server->RegisterRequestCallback(driver::MethodServerHandler::RequestCallback{});
            return false;
        }
    }
    if (::kelp::driver::proloc::ProlocServerRegistry::Instance().Register(index, std::move(local))) {
        const std::lock_guard<std::mutex> lock(mutex_);
        localMethods_.push_back(index);
    }
    logger_->debug() << "[Skeleton][Method served][name=" << name_ << ", methodId=" << methodId << "]";
    return true;
}

void Skeleton::LogInvalidRequest(const std::string& method, std::uint16_t sessionId) {
    ara::quill::common::log::Log::GetLog("CM")->warn()
        << "[Skeleton][Invalid request arguments][method=" << method << ", sessionId=" << sessionId << "]";
}

void Skeleton::LogUnencodableReply(const std::string& method, std::uint16_t sessionId) {
    ara::quill::common::log::Log::GetLog("CM")->error()
        << "[Skeleton][Reply cannot be encoded][method=" << method << ", sessionId=" << sessionId << "]";
}

}  // namespace kelp::brio
