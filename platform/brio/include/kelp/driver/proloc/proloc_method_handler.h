// SPDX-License-Identifier: Apache-2.0
// The process-local transport: a method whose server lives in the same process is called
// directly, with arguments and results parked in the process-local memories instead of
// serialized. Servers register per method in ProlocServerRegistry.
#ifndef KELP_DRIVER_PROLOC_PROLOC_METHOD_HANDLER_H
#define KELP_DRIVER_PROLOC_PROLOC_METHOD_HANDLER_H

#include <functional>
#include <map>
#include <memory>
#include <mutex>

#include "ara/core/internal/export.h"
#include "ara/quill/common/log/log.h"
#include "kelp/brio/driver/method_handler.h"
#include "kelp/driver/proloc/proloc_entity_index.h"
#include "kelp/serialize/serialize_config.h"

namespace kelp::driver::proloc {

/// The server half of one process-local method.
struct ProlocServerMethod {
    /// Sends the reply of one request: the address of the parked result, and whether the
    /// result holds an error. May be called on any thread, at most once per request.
    using ReplySender = std::function<void(const unsigned char* reply, bool isError)>;

    /// Handles the request whose arguments are parked at `request` (the server takes them
    /// from the request memory and returns that loan); replies through `reply`.
    std::function<void(const unsigned char* request, std::uint16_t sessionId, ReplySender reply)> onRequest;
    /// Ends the loan of a parked result once the client has read it.
    std::function<void(const unsigned char* reply)> returnReplyLoan;
};

/// Process-wide table of the process-local servers.
/// @thread-safety all operations may be called from any thread.
class ARA_EXPORT ProlocServerRegistry final {
public:
    static ProlocServerRegistry& Instance();

    /// False when a server is registered for `index` already.
    bool Register(const ProlocEntityIndex& index, std::shared_ptr<ProlocServerMethod> server);
    void Unregister(const ProlocEntityIndex& index);
    std::shared_ptr<ProlocServerMethod> Find(const ProlocEntityIndex& index) const;

private:
    mutable std::mutex mutex_;
    std::map<ProlocEntityIndex, std::shared_ptr<ProlocServerMethod>> servers_;
};

/// Client-side driver of one process-local method. A request is handed to the registered
/// server on the caller's thread; the reply is delivered on whichever thread the server
/// replies from (the caller's own when it answers at once).
class ARA_EXPORT ProlocMethodHandler final : public brio::driver::MethodHandler,
                                             public std::enable_shared_from_this<ProlocMethodHandler> {
public:
    explicit ProlocMethodHandler(ProlocEntityIndex index);
    ~ProlocMethodHandler() override;

    const ProlocEntityIndex& Index() const noexcept { return index_; }

    void RegisterReplyCallback(ReplyCallback callback) override;
    /// Process-local requests carry no serialized payload: always null.
    unsigned char* AllocateRequestBuffer(const std::shared_ptr<brio::api::types::MethodMsg>& msg,
                                         std::uint32_t size) override;
    /// False (with a warning) when no server is registered for the method.
    bool SendRequest(const unsigned char* payload, std::uint32_t size, std::uint16_t sessionId) override;
    void ReturnBuffer(const unsigned char* payload) override;
    serialize::SerializeType GetSerializeType() const override;
    const serialize::SerializeConfig& GetSerializeConfig() const override;
    void SetMethodStateChangeHandler(StateChangeHandler handler) override;
    void UnsetMethodStateChangeHandler() override;
    void SetMethodProxyStats(const std::shared_ptr<brio::utils::stats::MethodProxyStats>& stats) override;

private:
    void Deliver(std::uint16_t sessionId, const unsigned char* reply, bool isError);

    const ProlocEntityIndex index_;
    const serialize::SerializeConfig config_;
    std::shared_ptr<ara::quill::common::log::Log> logger_;
    mutable std::mutex mutex_;
    ReplyCallback callback_;
    StateChangeHandler stateHandler_;
    std::shared_ptr<brio::utils::stats::MethodProxyStats> stats_;
};

}  // namespace kelp::driver::proloc

#endif
