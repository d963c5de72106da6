// SPDX-License-Identifier: Apache-2.0
// A transport as the middleware sees it: the server half of a method, service offers and
// service discovery, and the process-wide table in which each transport registers itself
// when it starts (the DDS driver from DDSDriver::Init()).
#ifndef KELP_BRIO_DRIVER_DRIVER_H
#define KELP_BRIO_DRIVER_DRIVER_H

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "ara/core/internal/export.h"
#include "kelp/brio/api/types/entity_info.h"
#include "kelp/brio/api/types/method_msg.h"
#include "kelp/brio/api/types/service_types.h"
#include "kelp/brio/driver/method_handler.h"

namespace kelp::brio::driver {

/// Server half of one method on one transport.
/// @thread-safety every operation may be called from any thread. Requests are delivered on
/// the transport's own threads (or inside the client's send for in-process delivery), so
/// the request callback must not block for long and must not take locks held across
/// SendReply.
class ARA_EXPORT MethodServerHandler {
public:
    /// One request: session id, client id and payload (owned by the transport until
    /// ReturnBuffer, or until the callback returns when the callback does not keep it).
    using RequestCallback = std::function<void(const std::shared_ptr<api::types::MethodMsg>&)>;

    MethodServerHandler() = default;
    MethodServerHandler(const MethodServerHandler&) = delete;
    MethodServerHandler& operator=(const MethodServerHandler&) = delete;
    virtual ~MethodServerHandler();

    /// Requests go to `callback` from now on; an empty callback stops delivery. Once this
    /// returns with an empty callback, the old callback is not running and will not run.
    virtual void RegisterRequestCallback(RequestCallback callback) = 0;
    /// Sends the reply of `request` (its client id and session id are echoed): `size` bytes
    /// at `payload` (may be 0), an error code when `isError`. False, with a log line, when
    /// the reply cannot be delivered (for example the caller's reply reader never matched).
    virtual bool SendReply(const api::types::MethodMsg& request,
                           const unsigned char* payload,
                           std::uint32_t size,
                           bool isError) = 0;
    virtual serialize::SerializeType GetSerializeType() const = 0;
    virtual const serialize::SerializeConfig& GetSerializeConfig() const = 0;
};

/// One transport's entry points. Registered once per process by the transport itself.
/// @thread-safety every operation may be called from any thread.
class ARA_EXPORT Driver {
public:
    /// Alive service instances matching a discovery, reported on a transport thread. An empty
    /// list means the service went away.
    using FindHandler = std::function<void(std::vector<api::types::HandleType>)>;

    Driver() = default;
    Driver(const Driver&) = delete;
    Driver& operator=(const Driver&) = delete;
    virtual ~Driver();

    /// Client half of the method `info` describes (the transport's own descriptor type);
    /// null, with a log line, when it cannot be made.
    virtual std::shared_ptr<MethodHandler> CreateMethodHandler(const std::shared_ptr<api::types::MethodInfo>& info) = 0;
    /// Server half of the method `info` describes; null, with a log line, when it cannot be made.
    virtual std::shared_ptr<MethodServerHandler> CreateMethodServerHandler(
        const std::shared_ptr<api::types::MethodInfo>& info) = 0;
    /// Announces the service instance `info` describes until StopOfferService.
    virtual bool OfferService(const api::types::ServiceDiscoveryInfo& info) = 0;
    /// Withdraws an offer explicitly (peers can tell it from a crash). Unknown offers are ignored.
    virtual void StopOfferService(const api::types::ServiceDiscoveryInfo& info) = 0;
    /// Watches for the service instance `info` describes. `handler` receives the matching
    /// alive instances each time availability changes: a non-empty list when the service
    /// becomes available, an empty one when it goes away after having been available. The
    /// id to stop it with, or nullopt (with a log line) when discovery cannot start.
    virtual std::optional<std::uint32_t> StartFindService(const api::types::ServiceDiscoveryInfo& info,
                                                          FindHandler handler) = 0;
    /// Stops a discovery; once this returns, its handler is not running and will not run.
    virtual void StopFindService(std::uint32_t id) = 0;
};

/// Makes `driver` the transport of `type` for this process (replacing an earlier one).
ARA_EXPORT void RegisterDriver(api::types::DriverType type, std::shared_ptr<Driver> driver);
/// The registered transport of `type`, or null.
ARA_EXPORT std::shared_ptr<Driver> GetDriver(api::types::DriverType type);

}  // namespace kelp::brio::driver

#endif
