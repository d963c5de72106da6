// SPDX-License-Identifier: Apache-2.0
// Template bodies of MethodProxyImpl<T>: the promises, the typed arguments of a request and
// the typed result of a reply. The rest is detail::MethodProxyBase (src/method_proxy_base.cpp).
#ifndef KELP_BRIO_DETAIL_METHOD_PROXY_IMPL_INL
#define KELP_BRIO_DETAIL_METHOD_PROXY_IMPL_INL

#include <tuple>
#include <type_traits>
#include <utility>

#include "kelp/brio/serialize/params_serializer.h"
#include "kelp/driver/proloc/proloc_memory.h"
#include "kelp/serialize/dds/basic_deserializer.h"
#include "kelp/serialize/serialize_config.h"
#include "kelp/serialize/someip/basic_deserializer.h"

namespace kelp::brio {

template <typename T>
MethodProxyImpl<T>::MethodProxyImpl(std::uint32_t entityId) : detail::MethodProxyBase(entityId) {}

template <typename T>
MethodProxyImpl<T>::~MethodProxyImpl() = default;

template <typename T>
driver::MethodHandler::ReplyCallback MethodProxyImpl<T>::MakeReplyCallback() {
    const std::weak_ptr<MethodProxyImpl<T>> weakSelf = this->shared_from_this();
    return [weakSelf](const std::shared_ptr<api::types::MethodMsg>& msg) {
        if (const auto self = weakSelf.lock()) {
            self->OnDataAvailable(msg);
        }
    };
}

template <typename T>
void MethodProxyImpl<T>::DestroyWaitingPromise(const ara::core::ErrorCode& errorCode) {
    std::map<std::uint16_t, std::shared_ptr<PromiseType>> waiting;
    {
        const std::lock_guard<std::mutex> lock(promiseMutex_);
        waiting.swap(promises_);
    }
    // Settled outside the lock, so a continuation may issue a new request on this proxy.
    for (auto& entry : waiting) {
        LogPromiseDestroyed(entry.first);
        entry.second->SetError(errorCode);
    }
}

template <typename T>
template <typename... Args>
typename MethodProxyImpl<T>::FutureType MethodProxyImpl<T>::Request(const Args&... args) {
    auto promise = std::make_shared<PromiseType>();
    const auto driver = DriverForRequest();
    if (!driver) {
        return FailedRequest(*promise, false);
    }
    const std::uint16_t sessionId = NextSessionId();
    const auto request = std::make_shared<api::types::MethodMsg>(api::types::MethodMsg::MakeRequest(sessionId));
    const auto info = GetMethodInfo();

    if (info && info->GetDriverType() == api::types::DriverType::PROLOC) {
        const auto memory = ::kelp::driver::proloc::ProlocMemoryFactory::GetMethodRequestInstance<Args...>();
        static std::once_flag firstUse;
        std::call_once(firstUse, [this] { LogProlocRequestMemoryInUse(); });
        const ::kelp::driver::proloc::ProlocEntityIndex index = ProlocIndex(*info);
        const unsigned char* address = memory->Store(index, std::make_shared<std::tuple<Args...>>(args...));
        return SavePromiseAndSendRequest(
            promise, sessionId, 0U, address, [&memory, &index, address] { memory->ReturnLoan(address, index); });
    }

    const kelp::serialize::SerializeConfig& config = driver->GetSerializeConfig();
    const kelp::serialize::SerializationNode noNode;
    const auto& node = (info && info->GetRequestNode()) ? *info->GetRequestNode() : noNode;
    serialize::ParamsSerializer serializer(nullptr, driver->GetSerializeType(), node, config);
    const std::uint64_t size = serializer.GetSerializedSize(args...);
    const std::optional<unsigned char*> buffer = RequestBuffer(*driver, request, size);
    if (!buffer) {
        return FailedRequest(*promise, true);
    }
    if constexpr (sizeof...(Args) > 0U) {
        if (*buffer != nullptr) {
            serializer.SerializeArguments(*buffer, args...);
        }
    }
    return SavePromiseAndSendRequest(promise, sessionId, static_cast<std::uint32_t>(size), *buffer);
}

template <typename T>
typename MethodProxyImpl<T>::FutureType MethodProxyImpl<T>::FailedRequest(PromiseType& promise, bool counted) const {
    FutureType future = promise.get_future();
    promise.SetError(detail::ComError(api::types::ComErrc::kNetworkBindingFailure));
    if (counted) {
        CountStat(&utils::stats::MethodProxyStats::IncRequestFailed);
    }
    return future;
}

template <typename T>
typename MethodProxyImpl<T>::FutureType MethodProxyImpl<T>::SavePromiseAndSendRequest(
    const std::shared_ptr<PromiseType>& promise,
    std::uint16_t sessionId,
    std::uint32_t size,
    const unsigned char* payload,
    const std::function<void()>& onSendFailed) {
    FutureType future = promise->get_future();
    const bool fireAndForget = std::is_void_v<T> && IsFireAndForget();
    if (!fireAndForget) {
        std::shared_ptr<PromiseType> replaced;
        {
            const std::lock_guard<std::mutex> lock(promiseMutex_);
            auto& slot = promises_[sessionId];
            replaced = std::move(slot);
            slot = promise;
        }
        if (replaced) {
            if constexpr (!std::is_void_v<T>) {
                LogLostRequest(sessionId);
            }
            replaced.reset();  // breaks the lost request's future
        }
    }

    if (!Send(payload, size, sessionId)) {
        if (onSendFailed) {
            onSendFailed();
        }
        // A waiting request fails only while the map still holds its own promise.
        if (const auto failed = fireAndForget ? promise : TakePromise(sessionId, promise.get())) {
            failed->SetError(detail::ComError(api::types::ComErrc::kNetworkBindingFailure));
        }
    } else if constexpr (std::is_void_v<T>) {
        if (fireAndForget) {
            promise->set_value();
        }
    }
    LogRequestEnd(sessionId, std::is_void_v<T> ? std::nullopt : std::optional<std::uint32_t>(size));
    return future;
}

template <typename T>
void MethodProxyImpl<T>::OnDataAvailable(const std::shared_ptr<api::types::MethodMsg>& msg) {
    if (!msg) {
        return;
    }
    const std::uint16_t sessionId = msg->sessionId;
    if (!msg->isRealReply) {
        // Only reports that the TLS handshake for this session failed.
        const auto promise = TakePromise(sessionId);
        LogTlsFailure(sessionId, promise != nullptr);
        if (promise) {
            promise->SetError(detail::ComError(api::types::ComErrc::kPeerIsUnreachable));
        }
        return;
    }

    LogReplyEntered();
    std::shared_ptr<PromiseType> promise;
    std::optional<ResultType> outcome;
    {
        const std::lock_guard<std::mutex> replyLock(replyMutex_);
        const auto driver = DriverForReply(*msg);
        if (!driver) {
            return;
        }
        promise = TakePromise(sessionId);
        CountReply(*msg, promise != nullptr);
        if (promise) {
            outcome = ReplyOutcome(*msg);
        }
        driver->ReturnBuffer(msg->payload);
    }
    // Settled with no lock of the proxy held: a continuation may send the next request on
    // this proxy, and a driver may deliver that reply before SendRequest returns.
    if (promise) {
        promise->SetResult(std::move(*outcome));
    }
}

template <typename T>
typename MethodProxyImpl<T>::ResultType MethodProxyImpl<T>::ReplyOutcome(const api::types::MethodMsg& msg) {
    if (const std::optional<ara::core::ErrorCode> e2eError = CheckE2E(msg)) {
        return ResultType::FromError(*e2eError);
    }
    std::optional<ResultType> decoded = msg.isErrorReply ? DecodeErrorReply(msg) : DecodeValueReply(msg);
    if (!decoded) {
        return ResultType::FromError(UnreadableReply(msg));
    }
    return std::move(*decoded);
}

template <typename T>
bool MethodProxyImpl<T>::SetIfDecoded(PromiseType& promise, std::optional<ResultType> decoded) {
    if (decoded) {
        promise.SetResult(std::move(*decoded));
    }
    return decoded.has_value();
}

template <typename T>
bool MethodProxyImpl<T>::DeserializeAndSetPromise(PromiseType& promise, const api::types::MethodMsg& msg) {
    return SetIfDecoded(promise, DecodeValueReply(msg));
}

template <typename T>
std::optional<typename MethodProxyImpl<T>::ResultType> MethodProxyImpl<T>::DecodeValueReply(
    const api::types::MethodMsg& msg) {
    if constexpr (std::is_void_v<T>) {
        (void)msg;
        return ResultType::FromValue();
    } else {
        const auto info = GetMethodInfo();
        if (info && info->GetDriverType() == api::types::DriverType::PROLOC) {
            const auto result =
                ::kelp::driver::proloc::ProlocMemoryFactory::GetMethodReplyInstance<T>()->GetReplyResult(
                    msg.payload, ProlocIndex(*info));
            if (!result) {
                return std::nullopt;
            }
            return *result;
        }
        const auto driver = GetDriver();
        const auto encoding = driver ? ReplyEncoding(*driver) : std::nullopt;
        if (!encoding) {
            return std::nullopt;
        }
        const auto read = [this, &msg](auto& decoder, const char* encodingName) -> std::optional<ResultType> {
            if (!DecodedSizeFits(msg, decoder.GetSize(), encodingName)) {
                return std::nullopt;
            }
            return ResultType::FromValue(decoder.GetValue());
        };
        if (*encoding == kelp::serialize::SerializeType::kDds) {
            kelp::serialize::dds::Deserializer<T> decoder(msg.payload, msg.payloadSize, driver->GetSerializeConfig());
            return read(decoder, "DDS");
        }
        // A list is decoded with the member configuration, a string with the method's.
        const kelp::serialize::SerializeConfig config =
            std::is_same_v<T, ara::core::String> ? driver->GetSerializeConfig() : kelp::serialize::SerializeConfig{};
        kelp::serialize::someip::Deserializer<T> decoder(
            msg.payload, msg.payloadSize, config, info ? info->GetReplyNode() : nullptr);
        return read(decoder, "Someip");
    }
}

template <typename T>
bool MethodProxyImpl<T>::GetErrorCodeData(const api::types::MethodMsg& msg, api::types::MethodError& error) const {
    const auto info = GetMethodInfo();
    if (!info || info->GetDriverType() != api::types::DriverType::PROLOC) {
        return DecodeErrorPayload(msg, error);
    }
    const auto result = ::kelp::driver::proloc::ProlocMemoryFactory::GetMethodReplyInstance<T>()->GetReplyResult(
        msg.payload, ProlocIndex(*info));
    if (!result || result->HasValue()) {
        return false;
    }
    error.domainId = result->Error().Domain().Id();
    error.code = result->Error().Value();
    return true;
}

template <typename T>
bool MethodProxyImpl<T>::DeserializeErrorCodeAndSetPromise(PromiseType& promise, const api::types::MethodMsg& msg) {
    return SetIfDecoded(promise, DecodeErrorReply(msg));
}

template <typename T>
std::optional<typename MethodProxyImpl<T>::ResultType> MethodProxyImpl<T>::DecodeErrorReply(
    const api::types::MethodMsg& msg) {
    api::types::MethodError error;
    const bool readable = GetErrorCodeData(msg, error);
    if (const std::optional<ara::core::ErrorCode> code = AcceptedError(msg, readable, error)) {
        return ResultType::FromError(*code);
    }
    return std::nullopt;
}

template <typename T>
std::size_t MethodProxyImpl<T>::GetWaitingCount() const {
    const std::lock_guard<std::mutex> lock(promiseMutex_);
    return promises_.size();
}

template <typename T>
std::shared_ptr<typename MethodProxyImpl<T>::PromiseType> MethodProxyImpl<T>::TakePromise(std::uint16_t sessionId,
                                                                                          const PromiseType* only) {
    const std::lock_guard<std::mutex> lock(promiseMutex_);
    const auto it = promises_.find(sessionId);
    if (it == promises_.end() || (only != nullptr && it->second.get() != only)) {
        return nullptr;
    }
    auto promise = std::move(it->second);
    promises_.erase(it);
    return promise;
}

}  // namespace kelp::brio

#endif
