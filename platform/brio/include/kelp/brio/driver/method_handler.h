// SPDX-License-Identifier: Apache-2.0
// The one seam between a method proxy and a transport.
#ifndef KELP_BRIO_DRIVER_METHOD_HANDLER_H
#define KELP_BRIO_DRIVER_METHOD_HANDLER_H

#include <cstdint>
#include <functional>
#include <memory>

#include "ara/core/internal/export.h"
#include "kelp/brio/api/types/entity_info.h"
#include "kelp/brio/api/types/method_msg.h"

namespace kelp::serialize {
class SerializeConfig;
enum class SerializeType : std::uint8_t;
}  // namespace kelp::serialize

namespace kelp::brio::utils::stats {
class MethodProxyStats;
}  // namespace kelp::brio::utils::stats

namespace kelp::brio::driver {

/// Client-side transport of one method. Implementations: DDS, process-local, test fakes.
/// @thread-safety every operation may be called from any thread; replies are delivered on
/// the driver's own thread (or inside SendRequest for in-process delivery), so callers must
/// not hold locks across SendRequest that the reply callback takes.
class ARA_EXPORT MethodHandler {
public:
    using ReplyCallback = std::function<void(const std::shared_ptr<api::types::MethodMsg>&)>;
    using StateChangeHandler = std::function<void(api::types::MethodState)>;

    MethodHandler() = default;
    MethodHandler(const MethodHandler&) = delete;
    MethodHandler& operator=(const MethodHandler&) = delete;
    virtual ~MethodHandler();

    /// Replies go to `callback` from now on; an empty callback stops delivery.
    virtual void RegisterReplyCallback(ReplyCallback callback) = 0;
    /// A send buffer of `size` bytes for the request `msg`, or null when none can be had.
    virtual unsigned char* AllocateRequestBuffer(const std::shared_ptr<api::types::MethodMsg>& msg,
                                                 std::uint32_t size) = 0;
    /// Sends the request whose arguments are `payload` (`size` bytes; 0 for process-local,
    /// where `payload` is the address of the parked arguments). False when it cannot be sent.
    /// A buffer from AllocateRequestBuffer is released by this call whatever its outcome.
    virtual bool SendRequest(const unsigned char* payload, std::uint32_t size, std::uint16_t sessionId) = 0;
    /// Hands back a buffer the driver lent out: a reply payload, or a request buffer that
    /// will not be sent.
    virtual void ReturnBuffer(const unsigned char* payload) = 0;
    virtual serialize::SerializeType GetSerializeType() const = 0;
    virtual const serialize::SerializeConfig& GetSerializeConfig() const = 0;
    virtual void SetMethodStateChangeHandler(StateChangeHandler handler) = 0;
    virtual void UnsetMethodStateChangeHandler() = 0;
    virtual void SetMethodProxyStats(const std::shared_ptr<utils::stats::MethodProxyStats>& stats) = 0;
};

}  // namespace kelp::brio::driver

#endif
