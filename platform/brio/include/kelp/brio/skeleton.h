// SPDX-License-Identifier: Apache-2.0
// Server side of one service: offers it on its transports and serves typed methods. Requests
// are decoded with the library's serializers, handed to the method's handler on the
// skeleton's own dispatcher thread (event mode) or on ProcessNextMethodCall (poll mode), and
// answered through a Replier with a value or an error code.
#ifndef KELP_BRIO_SKELETON_H
#define KELP_BRIO_SKELETON_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "ara/core/error_code.h"
#include "ara/core/internal/export.h"
#include "ara/core/result.h"
#include "ara/quill/common/log/log.h"
#include "kelp/brio/api/types/entity_info.h"
#include "kelp/brio/api/types/error_domains.h"
#include "kelp/brio/api/types/method_msg.h"
#include "kelp/brio/api/types/service_types.h"
#include "kelp/brio/detail/skeleton_codec.h"
#include "kelp/brio/driver/driver.h"
#include "kelp/driver/proloc/proloc_memory.h"
#include "kelp/driver/proloc/proloc_method_handler.h"

namespace kelp::brio {
namespace detail {

/// Keeps a parameter out of template argument deduction, so that a lambda converts to the
/// handler type the explicit template arguments name.
template <typename T>
struct NonDeduced {
    using type = T;
};

/// The calls a skeleton received and has not handled yet, and the thread that handles them
/// in event mode. Held by shared pointer so that transport threads can still reach it, or
/// find it gone, while the skeleton is destroyed.
class ARA_EXPORT CallQueue {
public:
    using Call = std::function<void()>;

    /// `ownThread`: start a dispatcher thread that runs the calls (event mode).
    explicit CallQueue(bool ownThread);
    ~CallQueue();
    CallQueue(const CallQueue&) = delete;
    CallQueue& operator=(const CallQueue&) = delete;

    /// Queues `call`; false once Stop() ran.
    bool Push(Call call);
    /// Runs the oldest queued call on this thread; false when none waits.
    bool RunOne();
    std::size_t Size() const;
    /// Refuses new calls, drops queued ones (logged) and ends the dispatcher thread.
    void Stop();

private:
    /// The calls and their lock. The dispatcher thread holds it too, so that a handler may
    /// destroy the queue (with its skeleton) and the thread still finds it when it returns.
    struct State {
        std::mutex mutex;
        std::condition_variable wake;
        std::deque<Call> calls;
        bool stopped{false};
    };
    static void Loop(const std::shared_ptr<State>& state);

    const std::shared_ptr<State> state_;
    std::thread thread_;
};

}  // namespace detail

/// Answers one method call, at once or later, from any thread. Copies share the call; only
/// the first Reply sends anything. A call whose last Replier goes without a reply is logged.
template <typename R>
class Replier {
public:
    using ResultType = ara::core::Result<R, ara::core::ErrorCode>;
    using Sender = std::function<void(const ResultType&)>;

    Replier(Sender send, std::string method, std::uint16_t sessionId)
        : state_(std::make_shared<State>(std::move(send), std::move(method), sessionId)) {}

    /// Sends `result` (a value, or an error code of any domain) unless the call was answered.
    void Reply(const ResultType& result) const {
        if (!state_->done.exchange(true)) {
            state_->send(result);
        }
    }
    bool Replied() const noexcept { return state_->done.load(); }

private:
    struct State {
        State(Sender s, std::string m, std::uint16_t id) : send(std::move(s)), method(std::move(m)), sessionId(id) {}
        State(const State&) = delete;
        State& operator=(const State&) = delete;
        ~State() {
            if (!done.load()) {
                ara::quill::common::log::Log::GetLog("CM")->warn()
                    << "[Skeleton][Method call dropped without reply][method=" << method << ", sessionId=" << sessionId
                    << "]";
            }
        }
        std::atomic<bool> done{false};
        Sender send;
        std::string method;
        std::uint16_t sessionId;
    };
    std::shared_ptr<State> state_;
};

/// @thread-safety every operation may be called from any thread. Handlers of one skeleton
/// run one at a time, in the order the requests arrived.
class ARA_EXPORT Skeleton {
public:
    using DiscoveryMap = std::map<api::types::DriverType, std::shared_ptr<api::types::ServiceDiscoveryInfo>>;

    Skeleton(const std::string& name, const api::types::MethodCallProcessingMode& mode);
    /// Stops delivery of requests, withdraws the offers still standing, and drops calls that
    /// were not handled yet (each logged).
    virtual ~Skeleton();
    Skeleton(const Skeleton&) = delete;
    Skeleton& operator=(const Skeleton&) = delete;

    /// Offers the service on the transport of each entry. False when a transport is missing
    /// or refuses (the other entries are still offered).
    bool OfferService(const DiscoveryMap& info);
    /// Withdraws the offers of `info`; entries never offered are ignored.
    void StopOfferService(const DiscoveryMap& info);

    /// Serves method `methodId` on the transport `info` names (DDS: a DDSMethodInfo), and
    /// process-locally for clients in this process. `handler` receives a Replier and the
    /// decoded arguments (Args: int, ara::exec::ExecutionState, bool, ara::core::String). A
    /// request that does not decode is answered with ComErrc kNetworkBindingFailure.
    template <typename R, typename... Args>
    bool RegisterMethod(std::uint32_t methodId,
                        const std::shared_ptr<api::types::MethodInfo>& info,
                        typename detail::NonDeduced<std::function<void(Replier<R>, const Args&...)>>::type handler);

    /// Poll mode: runs the oldest waiting call on this thread. False when none waits.
    bool ProcessNextMethodCall() { return queue_->RunOne(); }
    /// Calls received and not handled yet.
    std::size_t PendingCallCount() const { return queue_->Size(); }
    const std::string& GetName() const noexcept { return name_; }
    api::types::MethodCallProcessingMode GetMode() const noexcept { return mode_; }

private:
    std::shared_ptr<driver::MethodServerHandler> CreateServer(const std::shared_ptr<api::types::MethodInfo>& info);
    bool AddMethod(std::uint32_t methodId,
                   std::shared_ptr<driver::MethodServerHandler> server,
                   const ::kelp::driver::proloc::ProlocEntityIndex& index,
                   std::shared_ptr<::kelp::driver::proloc::ProlocServerMethod> local);
    static void LogInvalidRequest(const std::string& method, std::uint16_t sessionId);
    static void LogUnencodableReply(const std::string& method, std::uint16_t sessionId);

    template <typename R, typename... Args>
    static void Serve(const std::shared_ptr<std::function<void(Replier<R>, const Args&...)>>& handler,
                      typename Replier<R>::Sender send,
                      const std::string& method,
                      std::uint16_t sessionId,
                      std::optional<std::tuple<Args...>> arguments);

    const std::string name_;
    const api::types::MethodCallProcessingMode mode_;
    std::shared_ptr<ara::quill::common::log::Log> logger_;
    const std::shared_ptr<detail::CallQueue> queue_;
    mutable std::mutex mutex_;
    std::map<std::uint32_t, std::shared_ptr<driver::MethodServerHandler>> servers_;
    std::vector<::kelp::driver::proloc::ProlocEntityIndex> localMethods_;
    std::vector<std::pair<api::types::DriverType, std::shared_ptr<api::types::ServiceDiscoveryInfo>>> offers_;
};

template <typename R, typename... Args>
void Skeleton::Serve(const std::shared_ptr<std::function<void(Replier<R>, const Args&...)>>& handler,
                     typename Replier<R>::Sender send,
                     const std::string& method,
                     std::uint16_t sessionId,
                     std::optional<std::tuple<Args...>> arguments) {
    Replier<R> replier(std::move(send), method, sessionId);
    if (!arguments) {
        LogInvalidRequest(method, sessionId);
        replier.Reply(typename Replier<R>::ResultType(
            api::types::MakeErrorCode(api::types::ComErrc::kNetworkBindingFailure, 0)));
        return;
    }
    std::apply([&](const Args&... values) { (*handler)(replier, values...); }, *arguments);
}

template <typename R, typename... Args>
bool Skeleton::RegisterMethod(std::uint32_t methodId,
                              const std::shared_ptr<api::types::MethodInfo>& info,
                              typename detail::NonDeduced<std::function<void(Replier<R>, const Args&...)>>::type handler) {
    using ResultType = typename Replier<R>::ResultType;
    if (!info || !handler) {
        return false;
    }
    auto server = CreateServer(info);
    if (!server) {
        return false;
    }
    const auto shared = std::make_shared<std::function<void(Replier<R>, const Args&...)>>(std::move(handler));
    const std::string method = info->GetMethodUUIDInfo();
    const std::weak_ptr<driver::MethodServerHandler> weakServer = server;

    const std::weak_ptr<detail::CallQueue> weakQueue = queue_;
    server->RegisterRequestCallback([weakQueue, weakServer, shared, method](
                                        const std::shared_ptr<api::types::MethodMsg>& request) {
        const auto queue = weakQueue.lock();
        if (!request || !queue) {
            return;
        }
        // The transport's buffer lives only as long as this callback: copy what the call needs.
        std::vector<unsigned char> payload;
        if (request->payload != nullptr) {
            payload.assign(request->payload, request->payload + request->payloadSize);
        }
        api::types::MethodMsg header = *request;
        header.payload = nullptr;
        header.payloadSize = 0U;
        (void)queue->Push([weakServer, shared, method, header, payload = std::move(payload)] {
            const auto current = weakServer.lock();
            if (!current) {
                return;
            }
            auto send = [weakServer, method, header](const ResultType& result) {
                const auto target = weakServer.lock();
                if (!target) {
                    return;
                }
                std::vector<unsigned char> bytes;
                ResultType sent = result;
                if (!detail::WriteReply<R>(target->GetSerializeType(), target->GetSerializeConfig(), sent, bytes)) {
                    LogUnencodableReply(method, header.sessionId);
                    sent = ResultType(api::types::MakeErrorCode(api::types::ComErrc::kNetworkBindingFailure, 0));
                    (void)detail::WriteReply<R>(target->GetSerializeType(), target->GetSerializeConfig(), sent, bytes);
                }
                (void)target->SendReply(
                    header, bytes.data(), static_cast<std::uint32_t>(bytes.size()), !sent.HasValue());
            };
            Serve<R, Args...>(shared,
                              std::move(send),
                              method,
                              header.sessionId,
                              detail::ReadArguments<Args...>(
                                  current->GetSerializeType(), current->GetSerializeConfig(), payload.data(), payload.size()));
        });
    });

    // The same method for clients in this process: arguments and results are parked, not
    // serialized.
    using ::kelp::driver::proloc::ProlocEntityIndex;
    using ::kelp::driver::proloc::ProlocMemoryFactory;
    using ::kelp::driver::proloc::ProlocServerMethod;
    const ProlocEntityIndex index{info->GetServiceId(), info->GetInstanceId(), methodId};
    auto local = std::make_shared<ProlocServerMethod>();
    local->onRequest = [weakQueue, index, shared, method](const unsigned char* request,
                                                     std::uint16_t sessionId,
                                                     const ProlocServerMethod::ReplySender& reply) {
        const auto requests = ProlocMemoryFactory::GetMethodRequestInstance<Args...>();
        const auto parked = requests->Get(request, index);
        requests->ReturnLoan(request, index);
        std::optional<std::tuple<Args...>> arguments;
        if (parked) {
            arguments = *parked;
        }
        const auto queue = weakQueue.lock();
        if (!queue) {
            return;
        }
        (void)queue->Push([index, shared, method, sessionId, reply, arguments = std::move(arguments)]() mutable {
            auto send = [index, reply](const ResultType& result) {
                const auto parkedResult = std::make_shared<ResultType>(result);
                reply(ProlocMemoryFactory::GetMethodReplyInstance<R>()->Store(index, parkedResult),
                      !result.HasValue());
            };
            Serve<R, Args...>(shared, std::move(send), method, sessionId, std::move(arguments));
        });
    };
    local->returnReplyLoan = [index](const unsigned char* address) {
        ProlocMemoryFactory::GetMethodReplyInstance<R>()->ReturnLoan(address, index);
    };
    return AddMethod(methodId, std::move(server), index, std::move(local));
}

}  // namespace kelp::brio

#endif
