// Template bodies of MethodProxyImpl<T>: construction, request path, reply path, errors.
#ifndef KELP_BRIO_DETAIL_METHOD_PROXY_IMPL_INL
#define KELP_BRIO_DETAIL_METHOD_PROXY_IMPL_INL

#include <optional>
#include <sstream>
#include <stdexcept>
#include <tuple>
#include <type_traits>
#include <utility>

#include "kelp/brio/serialize/params_serializer.h"
#include "kelp/driver/proloc/proloc_memory.h"
#include "kelp/serialize/dds/basic_deserializer.h"
#include "kelp/serialize/serialize_config.h"
#include "kelp/serialize/someip/basic_deserializer.h"

namespace kelp::brio {
namespace detail {

/// Rate limit of the proxy's warnings: one line per log id every 500 ms.
inline const ara::quill::common::log::LimitConfig METHOD_PROXY_LOG_LIMIT{500U, 1U};

inline ara::core::ErrorCode ComError(api::types::ComErrc code) {
    return ara::core::ErrorCode(code, 0);
}

}  // namespace detail

template <typename T>
MethodProxyImpl<T>::MethodProxyImpl(std::uint32_t entityId)
    : entityId_(entityId), logger_(ara::quill::common::log::Log::GetLog("CM")) {
    using api::types::ComErrc;
    using api::types::E2EErrorCode;
    using com::e2exf::ProfileCheckStatus;
    const std::pair<ProfileCheckStatus, E2EErrorCode> e2eRows[] = {
        {ProfileCheckStatus::kRepeated, E2EErrorCode::kRepeated},
        {ProfileCheckStatus::kError, E2EErrorCode::kError},
        {ProfileCheckStatus::kNotAvailable, E2EErrorCode::kNotAvailable},
        {ProfileCheckStatus::kNoNewData, E2EErrorCode::kNoNewData},
        {ProfileCheckStatus::kCheckDisabled, E2EErrorCode::kCheckDisable},
        {ProfileCheckStatus::kWrongSequence, E2EErrorCode::kWrongSequenceError},
    };
    for (const auto& row : e2eRows) {
        e2eMap_.emplace(row.first, row.second);
    }
    for (const ComErrc code : {ComErrc::kMaxSamplesExceeded,
                               ComErrc::kNetworkBindingFailure,
                               ComErrc::kServiceNotAvailable,
                               ComErrc::kPeerIsUnreachable}) {
        const ara::core::ErrorCode errorCode = detail::ComError(code);
        errorMap_.emplace(api::types::internal::ErrorIndex{errorCode.Domain().Id(), errorCode.Value()}, errorCode);
    }
}

template <typename T>
MethodProxyImpl<T>::~MethodProxyImpl() = default;

template <typename T>
void MethodProxyImpl<T>::SetDriver(const std::shared_ptr<driver::MethodHandler>& driver) {
    std::atomic_store(&driver_, driver);
    if (driver) {
        // Throws std::bad_weak_ptr when the proxy is not owned by a shared_ptr.
        const std::weak_ptr<MethodProxyImpl<T>> weakSelf = this->shared_from_this();
        driver->RegisterReplyCallback([weakSelf](const std::shared_ptr<api::types::MethodMsg>& msg) {
            if (const auto self = weakSelf.lock()) {
                self->OnDataAvailable(msg);
            }
        });
    }
    logger_->verbose() << "Method Proxy Set driver success...";
}

template <typename T>
std::shared_ptr<driver::MethodHandler> MethodProxyImpl<T>::GetDriver() const {
    return std::atomic_load(&driver_);
}

template <typename T>
com::e2exf::E2EResult MethodProxyImpl<T>::GetE2EResult() const {
    using com::e2exf::ProfileCheckStatus;
    if (!std::atomic_load(&driver_)) {
        return {ProfileCheckStatus::kNotAvailable, 4U};
    }
    const auto info = std::atomic_load(&methodInfo_);
    if (!info || !info->IsE2EEnabled()) {
        return {ProfileCheckStatus::kCheckDisabled, 4U};
    }
    return {static_cast<ProfileCheckStatus>(e2eCheckStatus_.load()), e2eState_.load()};
}

template <typename T>
std::uint8_t MethodProxyImpl<T>::GetSMState() const {
    const auto info = std::atomic_load(&methodInfo_);
    if (!std::atomic_load(&driver_) || !info || !info->IsE2EEnabled()) {
        return 4U;
    }
    return smState_.load();
}

template <typename T>
void MethodProxyImpl<T>::SetFireAndForget(bool isFireAndForget) {
    if (isFireAndForget_.exchange(isFireAndForget) != isFireAndForget) {
        logger_->debug() << "Method " << MethodUuid() << " isFireForget state set to " << isFireAndForget;
    }
}

template <typename T>
void MethodProxyImpl<T>::RegisterError(const ara::core::ErrorCode& errorCode) {
    const api::types::internal::ErrorIndex key{errorCode.Domain().Id(), errorCode.Value()};
    ara::core::ErrorDomain::CodeType stored = 0;
    {
        const std::lock_guard<std::mutex> lock(errorMutex_);
        if (errorMap_.count(key) != 0U) {
            logger_->warn("", detail::METHOD_PROXY_LOG_LIMIT)
                << "The same error code with domain Id " << key.first << " error code " << key.second
                << " is already registered. New error code will replace the old one";
        }
        // Non-overwriting: the first registration stays in force.
        stored = errorMap_.emplace(key, errorCode).first->second.Value();
    }
    logger_->debug() << " Insert errorCode " << stored;
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
        logger_->verbose() << "Server is disappeared, promise for session " << entry.first << " is destroyed";
        entry.second->SetError(errorCode);
    }
}

template <typename T>
void MethodProxyImpl<T>::SetMethodStateChangeHandler(const std::function<void(api::types::MethodState)>& handler) {
    if (const auto driver = std::atomic_load(&driver_)) {
        driver->SetMethodStateChangeHandler(handler);
    }
}

template <typename T>
void MethodProxyImpl<T>::UnsetMethodStateChangeHandler() {
    if (const auto driver = std::atomic_load(&driver_)) {
        driver->UnsetMethodStateChangeHandler();
    }
}

template <typename T>
void MethodProxyImpl<T>::StopReceiveData() {
    if (const auto driver = std::atomic_load(&driver_)) {
        driver->RegisterReplyCallback(driver::MethodHandler::ReplyCallback{});
    }
}

template <typename T>
void MethodProxyImpl<T>::SetMethodInfo(const std::shared_ptr<api::types::MethodInfo>& info) {
    std::atomic_store(&methodInfo_, info);
}

template <typename T>
void MethodProxyImpl<T>::SetMethodProxyStats(const std::shared_ptr<utils::stats::MethodProxyStats>& stats) {
    std::atomic_store(&stats_, stats);
    if (const auto driver = std::atomic_load(&driver_)) {
        driver->SetMethodProxyStats(stats);
    }
}

template <typename T>
std::string MethodProxyImpl<T>::MakePlogStatisticsStr() const {
    std::ostringstream text;
    text << "Method proxy statistics[" << GetMethodMessage() << "]\n";
    if (const auto stats = std::atomic_load(&stats_)) {
        text << "  requests sent: " << stats->RequestSent() << "\n"
             << "  requests failed: " << stats->RequestFailed() << "\n"
             << "  replies received: " << stats->ReplyReceived() << "\n"
             << "  error replies received: " << stats->ErrorReplyReceived() << "\n"
             << "  invalid replies: " << stats->ReplyInvalid() << "\n";
    } else {
        text << "  no statistics attached\n";
    }
    text << "  waiting requests: " << GetWaitingCount() << "\n";
    text << "---------------------------\n";
    return text.str();
}

template <typename T>
template <typename... Args>
typename MethodProxyImpl<T>::FutureType MethodProxyImpl<T>::Request(const Args&... args) {
    auto promise = std::make_shared<PromiseType>();
    const auto driver = std::atomic_load(&driver_);
    if (!driver) {
        logger_->warn("MethodProxy_Driver_Nullptr", detail::METHOD_PROXY_LOG_LIMIT)
            << "[MethodProxyImpl]"
            << "[Method driver is nullptr, request failed][id=" << entityId_ << "]";
        FutureType future = promise->get_future();
        promise->SetError(detail::ComError(api::types::ComErrc::kNetworkBindingFailure));
        return future;
    }

    std::uint16_t sessionId = 0U;
    {
        const std::lock_guard<std::mutex> lock(sessionMutex_);
        // After 65535 the ids 0 and 1 are skipped.
        sessionId_ =
            (sessionId_ == 0xFFFFU) ? static_cast<std::uint16_t>(2U) : static_cast<std::uint16_t>(sessionId_ + 1U);
        sessionId = sessionId_;
    }
    const auto request = std::make_shared<api::types::MethodMsg>(api::types::MethodMsg::MakeRequest(sessionId));
    const auto info = std::atomic_load(&methodInfo_);

    if (info && info->GetDriverType() == api::types::DriverType::PROLOC) {
        const auto memory = ::kelp::driver::proloc::ProlocMemoryFactory::GetMethodRequestInstance<Args...>();
        static std::once_flag firstUse;
        std::call_once(firstUse, [this] {
            logger_->debug() << "Proloc request memory in use, first request of method " << entityId_;
        });
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
    if (size > 0xFFFFFFFEULL) {
        logger_->error("MethodProxy_RequestSerialize", detail::METHOD_PROXY_LOG_LIMIT)
            << "[MethodProxyImpl]"
            << "[Method request serialize failed, maybe length filed is less than actual size][methodEntityId="
            << entityId_ << "]";
        FutureType future = promise->get_future();
        promise->SetError(detail::ComError(api::types::ComErrc::kNetworkBindingFailure));
        CountStat(&utils::stats::MethodProxyStats::IncRequestFailed);
        return future;
    }
    unsigned char* buffer = driver->AllocateRequestBuffer(request, static_cast<std::uint32_t>(size));
    if (buffer == nullptr && size != 0U) {
        logger_->warn("MethodProxy_Request_Buffer", detail::METHOD_PROXY_LOG_LIMIT)
            << "[MethodProxyImpl]"
            << "[Method request buffer allocation failed][id=" << entityId_ << ", size=" << size << "]";
        FutureType future = promise->get_future();
        promise->SetError(detail::ComError(api::types::ComErrc::kNetworkBindingFailure));
        CountStat(&utils::stats::MethodProxyStats::IncRequestFailed);
        return future;
    }
    if constexpr (sizeof...(Args) > 0U) {
        if (buffer != nullptr) {
            serializer.SerializeArguments(buffer, args...);
        }
    }
    return SavePromiseAndSendRequest(promise, sessionId, static_cast<std::uint32_t>(size), buffer);
}

template <typename T>
typename MethodProxyImpl<T>::FutureType MethodProxyImpl<T>::SavePromiseAndSendRequest(
    const std::shared_ptr<PromiseType>& promise,
    std::uint16_t sessionId,
    std::uint32_t size,
    const unsigned char* payload,
    const std::function<void()>& onSendFailed) {
    FutureType future = promise->get_future();
    const bool fireAndForget = std::is_void_v<T> && isFireAndForget_.load();
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
                logger_->warn("MethodProxy_SavePromise", detail::METHOD_PROXY_LOG_LIMIT)
                    << "[MethodProxyImpl]"
                    << "[Method has been lost, and the new request will replace the old one][entityId=" << entityId_
                    << ", sessionId=" << sessionId << "]";
            }
            replaced.reset();  // breaks the lost request's future
        }
    }

    const auto driver = std::atomic_load(&driver_);
    const bool sent = driver && driver->SendRequest(payload, size, sessionId);
    if (sent) {
        CountStat(&utils::stats::MethodProxyStats::IncRequestSent);
        if constexpr (std::is_void_v<T>) {
            if (fireAndForget) {
                promise->set_value();
            }
        }
    } else {
        CountStat(&utils::stats::MethodProxyStats::IncRequestFailed);
        logger_->warn("MethodProxy_Request_Failed", detail::METHOD_PROXY_LOG_LIMIT)
            << "[MethodProxyImpl]"
            << "[Method request failed][id=" << entityId_ << "]";
        if (onSendFailed) {
            onSendFailed();
        }
        const ara::core::ErrorCode error = detail::ComError(api::types::ComErrc::kNetworkBindingFailure);
        if (fireAndForget) {
            promise->SetError(error);
        } else {
            std::shared_ptr<PromiseType> own;
            {
                const std::lock_guard<std::mutex> lock(promiseMutex_);
                const auto it = promises_.find(sessionId);
                if (it != promises_.end() && it->second == promise) {
                    own = std::move(it->second);
                    promises_.erase(it);
                }
            }
            if (own) {
                own->SetError(error);
            }
        }
    }

    if constexpr (std::is_void_v<T>) {
        logger_->debug() << "Method proxy send request end[type=void, methodUUID=" << MethodUuid()
                         << ", sessionId=" << sessionId << "]";
    } else {
        logger_->debug() << "Method proxy send request end[methodUUID=" << MethodUuid() << ", sessionId=" << sessionId
                         << ", dataSize=" << size << "]";
    }
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
        if (const auto promise = TakePromise(sessionId)) {
            logger_->warn("MethodProxyImpl_TlsShakeHandsCallback_2", detail::METHOD_PROXY_LOG_LIMIT)
                << "[MethodProxyImpl]"
                << "[TLS error code kPeerIsUnreachable is set][methodEntityId=" << entityId_
                << ", sessionId=" << sessionId << "]";
            promise->SetError(detail::ComError(api::types::ComErrc::kPeerIsUnreachable));
        } else {
            logger_->warn("MethodProxyImpl_TlsShakeHandsCallback_2", detail::METHOD_PROXY_LOG_LIMIT)
                << "[MethodProxyImpl]"
                << "[Unexpected session id][sessionId=" << sessionId << ", methodEntityId=" << entityId_ << "]";
        }
        return;
    }

    logger_->verbose() << "Method Proxy data available enter......";
    std::shared_ptr<PromiseType> promise;
    std::optional<ResultType> outcome;
    {
        const std::lock_guard<std::mutex> replyLock(replyMutex_);
        const auto driver = std::atomic_load(&driver_);
        if (!driver) {
            return;
        }
        logger_->verbose() << "Get method reply[methodEntityId=" << entityId_ << ", sessionId=" << sessionId
                           << ", dataSize=" << msg->payloadSize << "]";
        promise = TakePromise(sessionId);
        if (!promise) {
            logger_->warn("MethodProxy_Invalid_Reply", detail::METHOD_PROXY_LOG_LIMIT)
                << "[MethodProxyImpl]"
                << "[Invalid method reply for method][methodEntityId=" << entityId_ << ", sessionId=" << sessionId
                << "]";
            CountStat(&utils::stats::MethodProxyStats::IncReplyInvalid);
        } else {
            CountStat(msg->isErrorReply ? &utils::stats::MethodProxyStats::IncErrorReplyReceived
                                        : &utils::stats::MethodProxyStats::IncReplyReceived);
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
    e2eCheckStatus_.store(msg.e2eCheckStatus);
    e2eState_.store(msg.e2eState);
    smState_.store(msg.e2eState);
    const auto info = std::atomic_load(&methodInfo_);
    if (info && info->IsE2EEnabled() && msg.e2eCheckStatus != 0U) {
        logger_->debug() << "Setting Response with E2E Error Code for [entityId = " << entityId_ << "]";
        const auto row = e2eMap_.find(static_cast<com::e2exf::ProfileCheckStatus>(msg.e2eCheckStatus));
        if (row != e2eMap_.end()) {
            return ResultType::FromError(ara::core::ErrorCode(row->second, 0));
        }
        // A check status outside the table is a malformed reply, not a reason to stop.
        logger_->warn("MethodProxy_E2E_Status", detail::METHOD_PROXY_LOG_LIMIT)
            << "[MethodProxyImpl][Unknown E2E check status][methodEntityId=" << entityId_
            << ", sessionId=" << msg.sessionId << ", status=" << msg.e2eCheckStatus << "]";
        return ResultType::FromError(detail::ComError(api::types::ComErrc::kNetworkBindingFailure));
    }
    std::optional<ResultType> decoded = msg.isErrorReply ? DecodeErrorReply(msg) : DecodeValueReply(msg);
    if (!decoded) {
        logger_->warn("MethodProxy_Deseriaize_Fail", detail::METHOD_PROXY_LOG_LIMIT)
            << "[MethodProxyImpl]"
            << "[Invalid return value for method. Please check the consistency of the return data "
               "type][methodEntityId="
            << entityId_ << ", sessionId=" << msg.sessionId << "]";
        return ResultType::FromError(detail::ComError(api::types::ComErrc::kNetworkBindingFailure));
    }
    return std::move(*decoded);
}

template <typename T>
bool MethodProxyImpl<T>::DeserializeAndSetPromise(PromiseType& promise, const api::types::MethodMsg& msg) {
    std::optional<ResultType> decoded = DecodeValueReply(msg);
    if (decoded) {
        promise.SetResult(std::move(*decoded));
    }
    return decoded.has_value();
}

template <typename T>
std::optional<typename MethodProxyImpl<T>::ResultType> MethodProxyImpl<T>::DecodeValueReply(
    const api::types::MethodMsg& msg) {
    if constexpr (std::is_void_v<T>) {
        (void)msg;
        return ResultType::FromValue();
    } else {
        const auto info = std::atomic_load(&methodInfo_);
        if (info && info->GetDriverType() == api::types::DriverType::PROLOC) {
            const auto result =
                ::kelp::driver::proloc::ProlocMemoryFactory::GetMethodReplyInstance<T>()->GetReplyResult(
                    msg.payload, ProlocIndex(*info));
            if (!result) {
                return std::nullopt;
            }
            return *result;
        }
        const auto driver = std::atomic_load(&driver_);
        if (!driver) {
            return std::nullopt;
        }
        const auto replyNode = info ? info->GetReplyNode() : nullptr;
        switch (driver->GetSerializeType()) {
            case kelp::serialize::SerializeType::kSomeip: {
                // A list is decoded with the member configuration, a string with the method's.
                const kelp::serialize::SerializeConfig config = std::is_same_v<T, ara::core::String>
                                                                    ? driver->GetSerializeConfig()
                                                                    : kelp::serialize::SerializeConfig{};
                kelp::serialize::someip::Deserializer<T> decoder(msg.payload, msg.payloadSize, config, replyNode);
                return DecodeResult(msg, decoder, "Someip");
            }
            case kelp::serialize::SerializeType::kDds: {
                kelp::serialize::dds::Deserializer<T> decoder(
                    msg.payload, msg.payloadSize, driver->GetSerializeConfig());
                return DecodeResult(msg, decoder, "DDS");
            }
            default:
                logger_->warn() << "[MethodProxyImpl][Wrong serialize type]";
                return std::nullopt;
        }
    }
}

template <typename T>
template <typename Decoder>
std::optional<typename MethodProxyImpl<T>::ResultType> MethodProxyImpl<T>::DecodeResult(
    const api::types::MethodMsg& msg,
    Decoder& decoder,
    const char* encodingName) {
    const std::uint64_t needed = decoder.GetSize();
    if (needed == kelp::serialize::SERIALIZE_SIZE_ERROR) {
        return std::nullopt;  // the decoder logged why
    }
    if (needed > msg.payloadSize) {
        logger_->error("MethodProxyDeserialize", detail::METHOD_PROXY_LOG_LIMIT)
            << "[MethodProxyImpl][" << encodingName << " deserialize fail][msgsize=" << msg.payloadSize
            << ", deserializeSize=" << needed << "]";
        return std::nullopt;
    }
    if (msg.payloadSize > needed) {
        logger_->debug() << "Invalid return value for method " << entityId_ << "." << msg.sessionId
                         << ". Please check the consistency of the return data type.";
    }
    return ResultType::FromValue(decoder.GetValue());
}

template <typename T>
bool MethodProxyImpl<T>::GetErrorCodeData(const api::types::MethodMsg& msg, api::types::MethodError& error) const {
    const auto info = std::atomic_load(&methodInfo_);
    if (info && info->GetDriverType() == api::types::DriverType::PROLOC) {
        const auto result = ::kelp::driver::proloc::ProlocMemoryFactory::GetMethodReplyInstance<T>()->GetReplyResult(
            msg.payload, ProlocIndex(*info));
        if (!result || result->HasValue()) {
            return false;
        }
        error.domainId = result->Error().Domain().Id();
        error.code = result->Error().Value();
        return true;
    }
    const auto driver = std::atomic_load(&driver_);
    if (!driver) {
        return false;
    }
    std::pair<std::uint64_t, std::int32_t> value{0U, 0};
    switch (driver->GetSerializeType()) {
        case kelp::serialize::SerializeType::kSomeip: {
            const kelp::serialize::someip::Deserializer<ara::core::ErrorCode> decoder(
                msg.payload, msg.payloadSize, driver->GetSerializeConfig());
            if (decoder.GetSize() == kelp::serialize::SERIALIZE_SIZE_ERROR) {
                return false;
            }
            value = decoder.GetValue();
            break;
        }
        case kelp::serialize::SerializeType::kDds: {
            const kelp::serialize::dds::Deserializer<ara::core::ErrorCode> decoder(
                msg.payload, msg.payloadSize, driver->GetSerializeConfig());
            if (decoder.GetSize() == kelp::serialize::SERIALIZE_SIZE_ERROR) {
                return false;
            }
            value = decoder.GetValue();
            break;
        }
        default:
            logger_->warn() << "[MethodProxyImpl][Wrong serialize type]";
            return false;
    }
    error.domainId = value.first;
    error.code = value.second;
    return true;
}

template <typename T>
bool MethodProxyImpl<T>::DeserializeErrorCodeAndSetPromise(PromiseType& promise, const api::types::MethodMsg& msg) {
    std::optional<ResultType> decoded = DecodeErrorReply(msg);
    if (decoded) {
        promise.SetResult(std::move(*decoded));
    }
    return decoded.has_value();
}

template <typename T>
std::optional<typename MethodProxyImpl<T>::ResultType> MethodProxyImpl<T>::DecodeErrorReply(
    const api::types::MethodMsg& msg) {
    api::types::MethodError error;
    if (!GetErrorCodeData(msg, error)) {
        logger_->warn("MethodProxy_Invalid_Errorcode", detail::METHOD_PROXY_LOG_LIMIT)
            << "[MethodProxyImpl][Invalid return error code value][methodEntityId=" << entityId_
            << ", sessionId=" << msg.sessionId << "]";
        return std::nullopt;
    }
    std::optional<ara::core::ErrorCode> registered;
    bool wildcard = false;
    {
        const std::lock_guard<std::mutex> lock(errorMutex_);
        const auto entry = errorMap_.find({error.domainId, error.code});
        if (entry != errorMap_.end()) {
            registered = entry->second;
        } else {
            wildcard = errorMap_.count(api::types::internal::WILDCARD_ERROR_INDEX) != 0U;
        }
    }
    if (registered) {
        logger_->verbose() << "Receive application error errorcode " << error.code << " error domain "
                           << error.domainId << " for method " << GetMethodMessage();
        return ResultType::FromError(*registered);
    }
    if (wildcard) {
        // One domain object per foreign id for the life of the process, so the code stays
        // valid however long the caller keeps it; past the process's bound, unregistered.
        if (const auto* domain = api::types::GetDynamicErrorDomain(error.domainId)) {
            logger_->verbose() << "Receive dynamic error errorcode " << error.code << " error domain "
                               << error.domainId << " for method " << GetMethodMessage();
            return ResultType::FromError(ara::core::ErrorCode(error.code, *domain, 0));
        }
    }
    logger_->warn("MethodProxy_Unregister_Errorcode", detail::METHOD_PROXY_LOG_LIMIT)
        << "[MethodProxyImpl][Receive unregistered error][errorDomain=" << error.domainId
        << ", errorCode=" << error.code << ", methodMessage=" << GetMethodMessage() << "]";
    return std::nullopt;
}

template <typename T>
std::string MethodProxyImpl<T>::GetMethodMessage() const {
    return "methodUUID=" + MethodUuid() + ", entityId=" + std::to_string(entityId_);
}

template <typename T>
std::uint16_t MethodProxyImpl<T>::GetSessionId() const {
    const std::lock_guard<std::mutex> lock(sessionMutex_);
    return sessionId_;
}

template <typename T>
std::size_t MethodProxyImpl<T>::GetWaitingCount() const {
    const std::lock_guard<std::mutex> lock(promiseMutex_);
    return promises_.size();
}

template <typename T>
std::string MethodProxyImpl<T>::MethodUuid() const {
    const auto info = std::atomic_load(&methodInfo_);
    return info ? info->GetMethodUUIDInfo() : std::string{};
}

template <typename T>
::kelp::driver::proloc::ProlocEntityIndex MethodProxyImpl<T>::ProlocIndex(const api::types::MethodInfo& info) const {
    return {info.GetServiceId(), info.GetInstanceId(), info.GetEntityId()};
}

template <typename T>
std::shared_ptr<typename MethodProxyImpl<T>::PromiseType> MethodProxyImpl<T>::TakePromise(std::uint16_t sessionId) {
    const std::lock_guard<std::mutex> lock(promiseMutex_);
    const auto it = promises_.find(sessionId);
    if (it == promises_.end()) {
        return nullptr;
    }
    auto promise = std::move(it->second);
    promises_.erase(it);
    return promise;
}

template <typename T>
void MethodProxyImpl<T>::CountStat(void (utils::stats::MethodProxyStats::*counter)() noexcept) const {
    if (const auto stats = std::atomic_load(&stats_)) {
        ((*stats).*counter)();
    }
}

}  // namespace kelp::brio

#endif
