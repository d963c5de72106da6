// SPDX-License-Identifier: Apache-2.0
// The result-type independent part of the method proxy: binding, E2E result, error table,
// session ids, reading error replies, statistics and every log line of the request and reply paths.
#include "kelp/brio/detail/method_proxy_base.h"

#include <sstream>
#include <utility>

#include "kelp/serialize/dds/basic_deserializer.h"
#include "kelp/serialize/serialize_config.h"
#include "kelp/serialize/someip/basic_deserializer.h"

namespace kelp::brio::detail {
namespace {

/// Rate limit of the proxy's warnings: one line per log id every 500 ms.
const ara::quill::common::log::LimitConfig METHOD_PROXY_LOG_LIMIT{500U, 1U};

/// Arguments up to this size fit the 32-bit length field.
constexpr std::uint64_t MAX_REQUEST_SIZE = 0xFFFFFFFEULL;

/// The (domain id, code) of an error payload; false when the payload does not hold one.
template <typename Decoder>
bool ReadErrorCode(const Decoder& decoder, api::types::MethodError& error) {
    if (decoder.GetSize() == kelp::serialize::SERIALIZE_SIZE_ERROR) {
        return false;
    }
    const auto value = decoder.GetValue();
    error.domainId = value.first;
    error.code = value.second;
    return true;
}

}  // namespace

MethodProxyBase::MethodProxyBase(std::uint32_t entityId)
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
        const ara::core::ErrorCode errorCode = ComError(code);
        errorMap_.emplace(api::types::internal::ErrorIndex{errorCode.Domain().Id(), errorCode.Value()}, errorCode);
    }
}

MethodProxyBase::~MethodProxyBase() = default;

void MethodProxyBase::SetDriver(const std::shared_ptr<driver::MethodHandler>& driver) {
    std::atomic_store(&driver_, driver);
    if (driver) {
        driver->RegisterReplyCallback(MakeReplyCallback());
    }
    logger_->verbose() << "Method Proxy Set driver success...";
}

std::shared_ptr<driver::MethodHandler> MethodProxyBase::GetDriver() const {
    return std::atomic_load(&driver_);
}

com::e2exf::E2EResult MethodProxyBase::GetE2EResult() const {
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

std::uint8_t MethodProxyBase::GetSMState() const {
    const auto info = std::atomic_load(&methodInfo_);
    if (!std::atomic_load(&driver_) || !info || !info->IsE2EEnabled()) {
        return 4U;
    }
    return smState_.load();
}

void MethodProxyBase::SetFireAndForget(bool isFireAndForget) {
    if (isFireAndForget_.exchange(isFireAndForget) != isFireAndForget) {
        logger_->debug() << "Method " << MethodUuid() << " isFireForget state set to " << isFireAndForget;
    }
}

void MethodProxyBase::RegisterError(const ara::core::ErrorCode& errorCode) {
    const api::types::internal::ErrorIndex key{errorCode.Domain().Id(), errorCode.Value()};
    ara::core::ErrorDomain::CodeType stored = 0;
    {
        const std::lock_guard<std::mutex> lock(errorMutex_);
        if (errorMap_.count(key) != 0U) {
            logger_->warn("", METHOD_PROXY_LOG_LIMIT)
                << "The same error code with domain Id " << key.first << " error code " << key.second
                << " is already registered. New error code will replace the old one";
        }
        // Non-overwriting: the first registration stays in force.
        stored = errorMap_.emplace(key, errorCode).first->second.Value();
    }
    logger_->debug() << " Insert errorCode " << stored;
}

void MethodProxyBase::SetMethodStateChangeHandler(const std::function<void(api::types::MethodState)>& handler) {
    if (const auto driver = std::atomic_load(&driver_)) {
        driver->SetMethodStateChangeHandler(handler);
    }
}

void MethodProxyBase::UnsetMethodStateChangeHandler() {
    if (const auto driver = std::atomic_load(&driver_)) {
        driver->UnsetMethodStateChangeHandler();
    }
}

void MethodProxyBase::StopReceiveData() {
    if (const auto driver = std::atomic_load(&driver_)) {
        driver->RegisterReplyCallback(driver::MethodHandler::ReplyCallback{});
    }
}

void MethodProxyBase::SetMethodInfo(const std::shared_ptr<api::types::MethodInfo>& info) {
    std::atomic_store(&methodInfo_, info);
}

void MethodProxyBase::SetMethodProxyStats(const std::shared_ptr<utils::stats::MethodProxyStats>& stats) {
    std::atomic_store(&stats_, stats);
    if (const auto driver = std::atomic_load(&driver_)) {
        driver->SetMethodProxyStats(stats);
    }
}

std::string MethodProxyBase::MakePlogStatisticsStr() const {
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

std::string MethodProxyBase::GetMethodMessage() const {
    return "methodUUID=" + MethodUuid() + ", entityId=" + std::to_string(entityId_);
}

std::uint16_t MethodProxyBase::GetSessionId() const {
    const std::lock_guard<std::mutex> lock(sessionMutex_);
    return sessionId_;
}

std::shared_ptr<api::types::MethodInfo> MethodProxyBase::GetMethodInfo() const {
    return std::atomic_load(&methodInfo_);
}

std::string MethodProxyBase::MethodUuid() const {
    const auto info = std::atomic_load(&methodInfo_);
    return info ? info->GetMethodUUIDInfo() : std::string{};
}

::kelp::driver::proloc::ProlocEntityIndex MethodProxyBase::ProlocIndex(const api::types::MethodInfo& info) const {
    return {info.GetServiceId(), info.GetInstanceId(), info.GetEntityId()};
}

void MethodProxyBase::CountStat(void (utils::stats::MethodProxyStats::*counter)() noexcept) const {
    if (const auto stats = std::atomic_load(&stats_)) {
        ((*stats).*counter)();
    }
}

std::shared_ptr<driver::MethodHandler> MethodProxyBase::DriverForRequest() const {
    auto driver = std::atomic_load(&driver_);
    if (!driver) {
        logger_->warn("MethodProxy_Driver_Nullptr", METHOD_PROXY_LOG_LIMIT)
            << "[MethodProxyImpl]"
            << "[Method driver is nullptr, request failed][id=" << entityId_ << "]";
    }
    return driver;
}

std::uint16_t MethodProxyBase::NextSessionId() {
    const std::lock_guard<std::mutex> lock(sessionMutex_);
    sessionId_ = (sessionId_ == 0xFFFFU) ? static_cast<std::uint16_t>(2U) : static_cast<std::uint16_t>(sessionId_ + 1U);
    return sessionId_;
}

void MethodProxyBase::LogProlocRequestMemoryInUse() const {
    logger_->debug() << "Proloc request memory in use, first request of method " << entityId_;
}

std::optional<unsigned char*> MethodProxyBase::RequestBuffer(driver::MethodHandler& driver,
                                                             const std::shared_ptr<api::types::MethodMsg>& request,
                                                             std::uint64_t size) const {
    if (size > MAX_REQUEST_SIZE) {
        logger_->error("MethodProxy_RequestSerialize", METHOD_PROXY_LOG_LIMIT)
            << "[MethodProxyImpl]"
            << "[Method request serialize failed, maybe length filed is less than actual size][methodEntityId="
            << entityId_ << "]";
        return std::nullopt;
    }
    unsigned char* buffer = driver.AllocateRequestBuffer(request, static_cast<std::uint32_t>(size));
    if (buffer == nullptr && size != 0U) {
        logger_->warn("MethodProxy_Request_Buffer", METHOD_PROXY_LOG_LIMIT)
            << "[MethodProxyImpl]"
            << "[Method request buffer allocation failed][id=" << entityId_ << ", size=" << size << "]";
        return std::nullopt;
    }
    return buffer;
}

void MethodProxyBase::LogLostRequest(std::uint16_t sessionId) const {
    logger_->warn("MethodProxy_SavePromise", METHOD_PROXY_LOG_LIMIT)
        << "[MethodProxyImpl]"
        << "[Method has been lost, and the new request will replace the old one][entityId=" << entityId_
        << ", sessionId=" << sessionId << "]";
}

bool MethodProxyBase::Send(const unsigned char* payload, std::uint32_t size, std::uint16_t sessionId) const {
    const auto driver = std::atomic_load(&driver_);
    const bool sent = driver && driver->SendRequest(payload, size, sessionId);
    if (sent) {
        CountStat(&utils::stats::MethodProxyStats::IncRequestSent);
    } else {
        CountStat(&utils::stats::MethodProxyStats::IncRequestFailed);
        logger_->warn("MethodProxy_Request_Failed", METHOD_PROXY_LOG_LIMIT)
            << "[MethodProxyImpl]"
            << "[Method request failed][id=" << entityId_ << "]";
    }
    return sent;
}

void MethodProxyBase::LogRequestEnd(std::uint16_t sessionId, std::optional<std::uint32_t> dataSize) const {
    if (!dataSize) {
        logger_->debug() << "Method proxy send request end[type=void, methodUUID=" << MethodUuid()
                         << ", sessionId=" << sessionId << "]";
    } else {
        logger_->debug() << "Method proxy send request end[methodUUID=" << MethodUuid() << ", sessionId=" << sessionId
                         << ", dataSize=" << *dataSize << "]";
    }
}

void MethodProxyBase::LogPromiseDestroyed(std::uint16_t sessionId) const {
    logger_->verbose() << "Server is disappeared, promise for session " << sessionId << " is destroyed";
}

void MethodProxyBase::LogTlsFailure(std::uint16_t sessionId, bool waiting) const {
    if (waiting) {
        logger_->warn("MethodProxyImpl_TlsShakeHandsCallback_2", METHOD_PROXY_LOG_LIMIT)
            << "[MethodProxyImpl]"
            << "[TLS error code kPeerIsUnreachable is set][methodEntityId=" << entityId_ << ", sessionId=" << sessionId
            << "]";
    } else {
        logger_->warn("MethodProxyImpl_TlsShakeHandsCallback_2", METHOD_PROXY_LOG_LIMIT)
            << "[MethodProxyImpl]"
            << "[Unexpected session id][sessionId=" << sessionId << ", methodEntityId=" << entityId_ << "]";
    }
}

void MethodProxyBase::LogReplyEntered() const {
    logger_->verbose() << "Method Proxy data available enter......";
}

std::shared_ptr<driver::MethodHandler> MethodProxyBase::DriverForReply(const api::types::MethodMsg& msg) const {
    auto driver = std::atomic_load(&driver_);
    if (driver) {
        logger_->verbose() << "Get method reply[methodEntityId=" << entityId_ << ", sessionId=" << msg.sessionId
                           << ", dataSize=" << msg.payloadSize << "]";
    }
    return driver;
}

void MethodProxyBase::CountReply(const api::types::MethodMsg& msg, bool waiting) const {
    if (!waiting) {
        logger_->warn("MethodProxy_Invalid_Reply", METHOD_PROXY_LOG_LIMIT)
            << "[MethodProxyImpl]"
            << "[Invalid method reply for method][methodEntityId=" << entityId_ << ", sessionId=" << msg.sessionId
            << "]";
        CountStat(&utils::stats::MethodProxyStats::IncReplyInvalid);
    } else {
        CountStat(msg.isErrorReply ? &utils::stats::MethodProxyStats::IncErrorReplyReceived
                                   : &utils::stats::MethodProxyStats::IncReplyReceived);
    }
}

std::optional<ara::core::ErrorCode> MethodProxyBase::CheckE2E(const api::types::MethodMsg& msg) {
    e2eCheckStatus_.store(msg.e2eCheckStatus);
    e2eState_.store(msg.e2eState);
    smState_.store(msg.e2eState);
    const auto info = std::atomic_load(&methodInfo_);
    if (!info || !info->IsE2EEnabled() || msg.e2eCheckStatus == 0U) {
        return std::nullopt;
    }
    logger_->debug() << "Setting Response with E2E Error Code for [entityId = " << entityId_ << "]";
    const auto row = e2eMap_.find(static_cast<com::e2exf::ProfileCheckStatus>(msg.e2eCheckStatus));
    if (row != e2eMap_.end()) {
        return ara::core::ErrorCode(row->second, 0);
    }
    // A check status outside the table is a malformed reply, not a reason to stop.
    logger_->warn("MethodProxy_E2E_Status", METHOD_PROXY_LOG_LIMIT)
        << "[MethodProxyImpl][Unknown E2E check status][methodEntityId=" << entityId_ << ", sessionId=" << msg.sessionId
        << ", status=" << msg.e2eCheckStatus << "]";
    return ComError(api::types::ComErrc::kNetworkBindingFailure);
}

ara::core::ErrorCode MethodProxyBase::UnreadableReply(const api::types::MethodMsg& msg) const {
    logger_->warn("MethodProxy_Deseriaize_Fail", METHOD_PROXY_LOG_LIMIT)
        << "[MethodProxyImpl]"
        << "[Invalid return value for method. Please check the consistency of the return data "
           "type][methodEntityId="
        << entityId_ << ", sessionId=" << msg.sessionId << "]";
    return ComError(api::types::ComErrc::kNetworkBindingFailure);
}

bool MethodProxyBase::DecodedSizeFits(const api::types::MethodMsg& msg,
                                      std::uint64_t needed,
                                      const char* encodingName) const {
    if (needed == kelp::serialize::SERIALIZE_SIZE_ERROR) {
        return false;  // the decoder logged why
    }
    if (needed > msg.payloadSize) {
        logger_->error("MethodProxyDeserialize", METHOD_PROXY_LOG_LIMIT)
            << "[MethodProxyImpl][" << encodingName << " deserialize fail][msgsize=" << msg.payloadSize
            << ", deserializeSize=" << needed << "]";
        return false;
    }
    if (msg.payloadSize > needed) {
        logger_->debug() << "Invalid return value for method " << entityId_ << "." << msg.sessionId
                         << ". Please check the consistency of the return data type.";
    }
    return true;
}

std::optional<kelp::serialize::SerializeType> MethodProxyBase::ReplyEncoding(
    const driver::MethodHandler& driver) const {
    const kelp::serialize::SerializeType type = driver.GetSerializeType();
    if (type != kelp::serialize::SerializeType::kSomeip && type != kelp::serialize::SerializeType::kDds) {
        logger_->warn() << "[MethodProxyImpl][Wrong serialize type]";
        return std::nullopt;
    }
    return type;
}

bool MethodProxyBase::DecodeErrorPayload(const api::types::MethodMsg& msg, api::types::MethodError& error) const {
    const auto driver = std::atomic_load(&driver_);
    const auto encoding = driver ? ReplyEncoding(*driver) : std::nullopt;
    if (!encoding) {
        return false;
    }
    if (*encoding == kelp::serialize::SerializeType::kDds) {
        return ReadErrorCode(kelp::serialize::dds::Deserializer<ara::core::ErrorCode>(
                                 msg.payload, msg.payloadSize, driver->GetSerializeConfig()),
                             error);
    }
    return ReadErrorCode(kelp::serialize::someip::Deserializer<ara::core::ErrorCode>(
                             msg.payload, msg.payloadSize, driver->GetSerializeConfig()),
                         error);
}

std::optional<ara::core::ErrorCode> MethodProxyBase::AcceptedError(const api::types::MethodMsg& msg,
                                                                   bool readable,
                                                                   const api::types::MethodError& error) const {
    if (!readable) {
        logger_->warn("MethodProxy_Invalid_Errorcode", METHOD_PROXY_LOG_LIMIT)
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
        logger_->verbose() << "Receive application error errorcode " << error.code << " error domain " << error.domainId
                           << " for method " << GetMethodMessage();
        return registered;
    }
    if (wildcard) {
        // One domain object per foreign id for the life of the process, so the code stays
        // valid however long the caller keeps it; past the process's bound, unregistered.
        if (const auto* domain = api::types::GetDynamicErrorDomain(error.domainId)) {
            logger_->verbose() << "Receive dynamic error errorcode " << error.code << " error domain " << error.domainId
                               << " for method " << GetMethodMessage();
            return ara::core::ErrorCode(error.code, *domain, 0);
        }
    }
    logger_->warn("MethodProxy_Unregister_Errorcode", METHOD_PROXY_LOG_LIMIT)
        << "[MethodProxyImpl][Receive unregistered error][errorDomain=" << error.domainId
        << ", errorCode=" << error.code << ", methodMessage=" << GetMethodMessage() << "]";
    return std::nullopt;
}

}  // namespace kelp::brio::detail
