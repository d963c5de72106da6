// The client half of one remote method: numbers requests, serializes their arguments,
// keeps one promise per outstanding request and completes it from the reply or an error.
#ifndef KELP_BRIO_METHOD_PROXY_IMPL_H
#define KELP_BRIO_METHOD_PROXY_IMPL_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "ara/core/error_code.h"
#include "ara/core/future.h"
#include "ara/core/promise.h"
#include "ara/core/result.h"
#include "ara/core/string.h"
#include "ara/quill/common/log/log.h"
#include "kelp/brio/api/types/entity_info.h"
#include "kelp/brio/api/types/error_domains.h"
#include "kelp/brio/api/types/method_msg.h"
#include "kelp/brio/driver/method_handler.h"
#include "kelp/brio/method_proxy.h"
#include "kelp/brio/utils/stats/method_proxy_stats.h"
#include "kelp/com/e2exf/e2e_result.h"
#include "kelp/driver/proloc/proloc_entity_index.h"

namespace kelp::brio {

/// One instance per bound method, always owned by a std::shared_ptr (SetDriver needs it).
/// T is the result type: void, ara::core::String or std::vector<ara::exec::Process>.
///
/// @thread-safety Request may be called from any number of threads at once; replies are
/// handled one at a time on the driver's thread. The driver is called with no lock of the
/// proxy held, so a reply may arrive before Request returns.
template <typename T>
class MethodProxyImpl final : public MethodProxy, public std::enable_shared_from_this<MethodProxyImpl<T>> {
public:
    using PromiseType = ara::core::Promise<T, ara::core::ErrorCode>;
    using FutureType = ara::core::Future<T, ara::core::ErrorCode>;
    using ResultType = ara::core::Result<T, ara::core::ErrorCode>;

    explicit MethodProxyImpl(std::uint32_t entityId);
    ~MethodProxyImpl() override;

    void SetDriver(const std::shared_ptr<driver::MethodHandler>& driver) override;
    std::shared_ptr<driver::MethodHandler> GetDriver() const override;
    com::e2exf::E2EResult GetE2EResult() const override;
    void SetFireAndForget(bool isFireAndForget) override;
    void RegisterError(const ara::core::ErrorCode& errorCode) override;
    void DestroyWaitingPromise(const ara::core::ErrorCode& errorCode) override;
    void SetMethodStateChangeHandler(const std::function<void(api::types::MethodState)>& handler) override;
    void UnsetMethodStateChangeHandler() override;
    void StopReceiveData() override;
    void SetMethodInfo(const std::shared_ptr<api::types::MethodInfo>& info) override;
    std::uint8_t GetSMState() const override;
    void SetMethodProxyStats(const std::shared_ptr<utils::stats::MethodProxyStats>& stats) override;
    std::string MakePlogStatisticsStr() const override;

    /// Sends one request and returns at once the future of its outcome. Failures (no driver,
    /// unserializable arguments, refused send) give a future holding ComErrc 3.
    template <typename... Args>
    FutureType Request(const Args&... args);

    /// Settles the waiting promise of `msg`'s session; called on the driver's thread.
    void OnDataAvailable(const std::shared_ptr<api::types::MethodMsg>& msg);

    /// Stores the promise under `sessionId` (unless fire-and-forget) and sends; `onSendFailed`
    /// runs when the driver refuses the send (the process-local path returns its loan there).
    FutureType SavePromiseAndSendRequest(const std::shared_ptr<PromiseType>& promise,
                                         std::uint16_t sessionId,
                                         std::uint32_t size,
                                         const unsigned char* payload,
                                         const std::function<void()>& onSendFailed = {});
    bool DeserializeAndSetPromise(PromiseType& promise, const api::types::MethodMsg& msg);
    bool GetErrorCodeData(const api::types::MethodMsg& msg, api::types::MethodError& error) const;
    bool DeserializeErrorCodeAndSetPromise(PromiseType& promise, const api::types::MethodMsg& msg);
    /// "methodUUID=<uuid>, entityId=<id>", for error logs.
    std::string GetMethodMessage() const;

    std::uint32_t GetEntityId() const noexcept { return entityId_; }
    /// The session id handed out last (0 before the first request).
    std::uint16_t GetSessionId() const;
    /// Requests waiting for their reply.
    std::size_t GetWaitingCount() const;

private:
    std::string MethodUuid() const;
    ::kelp::driver::proloc::ProlocEntityIndex ProlocIndex(const api::types::MethodInfo& info) const;
    std::shared_ptr<PromiseType> TakePromise(std::uint16_t sessionId);
    /// What the waiting call of `msg` receives; decided under the reply mutex, applied after.
    ResultType ReplyOutcome(const api::types::MethodMsg& msg);
    /// The result a value reply carries; nullopt (logged) when it cannot be read.
    std::optional<ResultType> DecodeValueReply(const api::types::MethodMsg& msg);
    /// The error code an error reply carries; nullopt (logged) when it cannot be read or is
    /// not accepted by this method.
    std::optional<ResultType> DecodeErrorReply(const api::types::MethodMsg& msg);
    template <typename Decoder>
    std::optional<ResultType> DecodeResult(const api::types::MethodMsg& msg,
                                           Decoder& decoder,
                                           const char* encodingName);
    void CountStat(void (utils::stats::MethodProxyStats::*counter)() noexcept) const;

    const std::uint32_t entityId_;
    std::uint16_t sessionId_{0U};
    mutable std::mutex promiseMutex_;
    std::map<std::uint16_t, std::shared_ptr<PromiseType>> promises_;
    std::shared_ptr<driver::MethodHandler> driver_;  ///< read and written with std::atomic_load / store
    std::atomic<bool> isFireAndForget_{false};
    mutable std::mutex errorMutex_;  ///< guards the error map
    std::map<api::types::internal::ErrorIndex, ara::core::ErrorCode> errorMap_;
    mutable std::mutex sessionMutex_;
    std::mutex replyMutex_;
    std::shared_ptr<ara::quill::common::log::Log> logger_;
    std::shared_ptr<api::types::MethodInfo> methodInfo_;  ///< atomic access, as driver_
    std::atomic<std::uint8_t> e2eCheckStatus_{static_cast<std::uint8_t>(com::e2exf::ProfileCheckStatus::kNoNewData)};
    std::atomic<std::uint8_t> e2eState_{1U};
    std::atomic<std::uint8_t> smState_{1U};
    std::map<com::e2exf::ProfileCheckStatus, api::types::E2EErrorCode> e2eMap_;
    std::shared_ptr<utils::stats::MethodProxyStats> stats_;  ///< atomic access, as driver_
};

}  // namespace kelp::brio

#include "kelp/brio/detail/method_proxy_impl.inl"

#endif
