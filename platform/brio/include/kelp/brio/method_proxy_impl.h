// SPDX-License-Identifier: Apache-2.0
// The client half of one remote method: numbers requests, serializes their arguments,
// keeps one promise per outstanding request and completes it from the reply or an error.
#ifndef KELP_BRIO_METHOD_PROXY_IMPL_H
#define KELP_BRIO_METHOD_PROXY_IMPL_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

#include "ara/core/error_code.h"
#include "ara/core/future.h"
#include "ara/core/promise.h"
#include "ara/core/result.h"
#include "ara/core/string.h"
#include "kelp/brio/api/types/error_domains.h"
#include "kelp/brio/api/types/method_msg.h"
#include "kelp/brio/detail/method_proxy_base.h"
#include "kelp/brio/driver/method_handler.h"

namespace kelp::brio {

/// One instance per bound method, always owned by a std::shared_ptr (SetDriver needs it).
/// T is the result type: void, ara::core::String or std::vector<ara::exec::Process>.
/// What does not depend on T (binding, E2E, error table, session ids, error replies, log
/// lines) is detail::MethodProxyBase, compiled once in the middleware; this template keeps the
/// promises and the typed arguments and results.
///
/// @thread-safety Request may be called from any number of threads at once; replies are
/// handled one at a time on the driver's thread. The driver is called with no lock of the
/// proxy held, so a reply may arrive before Request returns.
template <typename T>
class MethodProxyImpl final : public detail::MethodProxyBase, public std::enable_shared_from_this<MethodProxyImpl<T>> {
public:
    using PromiseType = ara::core::Promise<T, ara::core::ErrorCode>;
    using FutureType = ara::core::Future<T, ara::core::ErrorCode>;
    using ResultType = ara::core::Result<T, ara::core::ErrorCode>;

    explicit MethodProxyImpl(std::uint32_t entityId);
    ~MethodProxyImpl() override;

    void DestroyWaitingPromise(const ara::core::ErrorCode& errorCode) override;

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
    /// Settles `promise` with the value reply `msg`; false (promise untouched) when unreadable.
    bool DeserializeAndSetPromise(PromiseType& promise, const api::types::MethodMsg& msg);
    bool GetErrorCodeData(const api::types::MethodMsg& msg, api::types::MethodError& error) const;
    /// Settles `promise` with the error reply `msg`; false (promise untouched) when unreadable
    /// or not accepted by this method.
    bool DeserializeErrorCodeAndSetPromise(PromiseType& promise, const api::types::MethodMsg& msg);

    std::size_t GetWaitingCount() const override;

private:
    driver::MethodHandler::ReplyCallback MakeReplyCallback() override;
    /// A future already failed with ComErrc 3; `counted` adds a failed request to the statistics.
    FutureType FailedRequest(PromiseType& promise, bool counted) const;
    /// Removes and returns the promise of `sessionId`; with `only`, only if it is that one.
    std::shared_ptr<PromiseType> TakePromise(std::uint16_t sessionId, const PromiseType* only = nullptr);
    /// What the waiting call of `msg` receives; decided under the reply mutex, applied after.
    ResultType ReplyOutcome(const api::types::MethodMsg& msg);
    /// The result a value reply carries; nullopt (logged) when it cannot be read.
    std::optional<ResultType> DecodeValueReply(const api::types::MethodMsg& msg);
    /// The error code an error reply carries; nullopt (logged) when it cannot be read or is
    /// not accepted by this method.
    std::optional<ResultType> DecodeErrorReply(const api::types::MethodMsg& msg);
    static bool SetIfDecoded(PromiseType& promise, std::optional<ResultType> decoded);

    mutable std::mutex promiseMutex_;
    std::map<std::uint16_t, std::shared_ptr<PromiseType>> promises_;
    std::mutex replyMutex_;  ///< replies are decided one at a time; taken before promiseMutex_
};

}  // namespace kelp::brio

#include "kelp/brio/detail/method_proxy_impl.inl"

#endif
