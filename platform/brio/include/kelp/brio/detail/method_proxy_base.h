// SPDX-License-Identifier: Apache-2.0
// The client half of one remote method, as far as it does not depend on the result type:
// the driver, descriptor and statistics it is bound to, the E2E result of the last reply,
// the error codes it accepts, session numbering, reading error replies, and its log lines.
// Compiled once into the middleware; MethodProxyImpl<T> adds what needs T.
#ifndef KELP_BRIO_DETAIL_METHOD_PROXY_BASE_H
#define KELP_BRIO_DETAIL_METHOD_PROXY_BASE_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "ara/core/error_code.h"
#include "ara/core/internal/export.h"
#include "ara/quill/common/log/log.h"
#include "kelp/brio/api/types/entity_info.h"
#include "kelp/brio/api/types/error_domains.h"
#include "kelp/brio/api/types/method_msg.h"
#include "kelp/brio/driver/method_handler.h"
#include "kelp/brio/method_proxy.h"
#include "kelp/brio/utils/stats/method_proxy_stats.h"
#include "kelp/com/e2exf/e2e_result.h"
#include "kelp/driver/proloc/proloc_entity_index.h"
#include "kelp/serialize/serialize_config.h"

namespace kelp::brio::detail {

inline ara::core::ErrorCode ComError(api::types::ComErrc code) {
    return ara::core::ErrorCode(code, 0);
}

/// Everything of a method proxy but its promises and the typed (de)serialization of its
/// arguments and result. Only MethodProxyImpl<T> derives from it.
///
/// @thread-safety as MethodProxyImpl<T>: every operation may be called from any thread.
class ARA_EXPORT MethodProxyBase : public MethodProxy {
public:
    ~MethodProxyBase() override;

    void SetDriver(const std::shared_ptr<driver::MethodHandler>& driver) override;
    std::shared_ptr<driver::MethodHandler> GetDriver() const override;
    com::e2exf::E2EResult GetE2EResult() const override;
    void SetFireAndForget(bool isFireAndForget) override;
    void RegisterError(const ara::core::ErrorCode& errorCode) override;
    void SetMethodStateChangeHandler(const std::function<void(api::types::MethodState)>& handler) override;
    void UnsetMethodStateChangeHandler() override;
    void StopReceiveData() override;
    void SetMethodInfo(const std::shared_ptr<api::types::MethodInfo>& info) override;
    std::uint8_t GetSMState() const override;
    void SetMethodProxyStats(const std::shared_ptr<utils::stats::MethodProxyStats>& stats) override;
    std::string MakePlogStatisticsStr() const override;

    /// "methodUUID=<uuid>, entityId=<id>", for error logs.
    std::string GetMethodMessage() const;
    std::uint32_t GetEntityId() const noexcept { return entityId_; }
    /// The session id handed out last (0 before the first request).
    std::uint16_t GetSessionId() const;
    /// Requests waiting for their reply.
    virtual std::size_t GetWaitingCount() const = 0;

protected:
    explicit MethodProxyBase(std::uint32_t entityId);

    std::shared_ptr<api::types::MethodInfo> GetMethodInfo() const;
    bool IsFireAndForget() const noexcept { return isFireAndForget_.load(); }
    std::string MethodUuid() const;
    ::kelp::driver::proloc::ProlocEntityIndex ProlocIndex(const api::types::MethodInfo& info) const;
    void CountStat(void (utils::stats::MethodProxyStats::*counter)() noexcept) const;
    /// The line DestroyWaitingPromise writes for each call it fails.
    void LogPromiseDestroyed(std::uint16_t sessionId) const;

    // Request path.
    /// The driver a request goes to; null, logged, when none is set.
    std::shared_ptr<driver::MethodHandler> DriverForRequest() const;
    /// 1, 2, ... 65535, then 2 again: after the wrap the ids 0 and 1 are skipped.
    std::uint16_t NextSessionId();
    void LogProlocRequestMemoryInUse() const;
    /// The send buffer for `size` bytes of arguments (null for none); nullopt, logged, when
    /// they do not fit the length field or the driver has no buffer for them.
    std::optional<unsigned char*> RequestBuffer(driver::MethodHandler& driver,
                                                const std::shared_ptr<api::types::MethodMsg>& request,
                                                std::uint64_t size) const;
    void LogLostRequest(std::uint16_t sessionId) const;
    /// Hands the request to the current driver and counts it; a refusal is logged.
    bool Send(const unsigned char* payload, std::uint32_t size, std::uint16_t sessionId) const;
    /// `dataSize` is left out for a method without result.
    void LogRequestEnd(std::uint16_t sessionId, std::optional<std::uint32_t> dataSize) const;

    // Reply path.
    /// A notice that the TLS handshake of `sessionId` failed; `waiting`: a call was waiting for it.
    void LogTlsFailure(std::uint16_t sessionId, bool waiting) const;
    void LogReplyEntered() const;
    /// The driver the reply goes back to; null when none is set any more.
    std::shared_ptr<driver::MethodHandler> DriverForReply(const api::types::MethodMsg& msg) const;
    /// Counts a reply; one no call waits for is counted as invalid and logged.
    void CountReply(const api::types::MethodMsg& msg, bool waiting) const;
    /// Keeps the E2E result of `msg`; the code the call fails with when protection is on and
    /// the check failed, else nullopt.
    std::optional<ara::core::ErrorCode> CheckE2E(const api::types::MethodMsg& msg);
    /// The code a call fails with when its reply cannot be read; logged.
    ara::core::ErrorCode UnreadableReply(const api::types::MethodMsg& msg) const;
    /// Whether a value of `needed` bytes (or SERIALIZE_SIZE_ERROR) can be read from `msg`;
    /// a payload too short is logged, one too long only traced.
    bool DecodedSizeFits(const api::types::MethodMsg& msg, std::uint64_t needed, const char* encodingName) const;
    /// The encoding replies on `driver` are read in: SOME/IP or DDS; nullopt, logged, otherwise.
    std::optional<kelp::serialize::SerializeType> ReplyEncoding(const driver::MethodHandler& driver) const;
    /// Reads the (domain id, code) of an error reply in the driver's encoding.
    bool DecodeErrorPayload(const api::types::MethodMsg& msg, api::types::MethodError& error) const;
    /// The code an error reply settles the call with: the registered one, one of a dynamic
    /// domain when a wildcard is registered, else nullopt (logged, as when `readable` is false).
    std::optional<ara::core::ErrorCode> AcceptedError(const api::types::MethodMsg& msg,
                                                      bool readable,
                                                      const api::types::MethodError& error) const;

private:
    /// The callback that hands the driver's replies to this proxy. Throws std::bad_weak_ptr
    /// when the proxy is not owned by a std::shared_ptr.
    virtual driver::MethodHandler::ReplyCallback MakeReplyCallback() = 0;

    const std::uint32_t entityId_;
    std::uint16_t sessionId_{0U};
    mutable std::mutex sessionMutex_;
    std::shared_ptr<driver::MethodHandler> driver_;  ///< read and written with std::atomic_load / store
    std::atomic<bool> isFireAndForget_{false};
    mutable std::mutex errorMutex_;  ///< guards the error map
    std::map<api::types::internal::ErrorIndex, ara::core::ErrorCode> errorMap_;
    std::shared_ptr<ara::quill::common::log::Log> logger_;
    std::shared_ptr<api::types::MethodInfo> methodInfo_;  ///< atomic access, as driver_
    std::atomic<std::uint8_t> e2eCheckStatus_{static_cast<std::uint8_t>(com::e2exf::ProfileCheckStatus::kNoNewData)};
    std::atomic<std::uint8_t> e2eState_{1U};
    std::atomic<std::uint8_t> smState_{1U};
    std::map<com::e2exf::ProfileCheckStatus, api::types::E2EErrorCode> e2eMap_;
    std::shared_ptr<utils::stats::MethodProxyStats> stats_;  ///< atomic access, as driver_
};

}  // namespace kelp::brio::detail

#endif
