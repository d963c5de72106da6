// SPDX-License-Identifier: Apache-2.0
// Client half of a DDS method: request writer and reply reader on the method's two topics.
#ifndef KELP_DRIVER_DDS_DDS_METHOD_HANDLER_H
#define KELP_DRIVER_DDS_DDS_METHOD_HANDLER_H

#include <memory>

#include "kelp/brio/driver/method_handler.h"
#include "kelp/driver/dds/dds_types.h"

namespace kelp::driver::dds {

class Domain;

/// Requests carry the reply reader's GUID as client id; the reply topic entity of this handler
/// filters replies on it, so only the replies to this handler's requests reach its callback.
/// Replies and state changes are delivered on Cyclone threads and on the domain worker.
/// @thread-safety every operation may be called from any thread.
class DDSMethodHandler final : public brio::driver::MethodHandler {
public:
    /// Null, with a log line, when an entity cannot be created.
    static std::shared_ptr<DDSMethodHandler> Create(Domain& domain, const DDSMethodInfo& info);
    /// Stops both callbacks (waiting for calls on other threads), deletes the entities and
    /// withdraws the method from its service's availability.
    ~DDSMethodHandler() override;

    void RegisterReplyCallback(ReplyCallback callback) override;
    unsigned char* AllocateRequestBuffer(const std::shared_ptr<brio::api::types::MethodMsg>& msg,
                                         std::uint32_t size) override;
    /// Waits up to 1 s, on the caller's thread, until the request writer has matched a
    /// server's reader and the reply reader an alive server's writer; false with a log line
    /// otherwise, or when Cyclone refuses the write.
    bool SendRequest(const unsigned char* payload, std::uint32_t size, std::uint16_t sessionId) override;
    void ReturnBuffer(const unsigned char* payload) override;
    serialize::SerializeType GetSerializeType() const override;
    const serialize::SerializeConfig& GetSerializeConfig() const override;
    /// Called with kAvailable / kUnavailable on each change of the both-way match.
    void SetMethodStateChangeHandler(StateChangeHandler handler) override;
    void UnsetMethodStateChangeHandler() override;
    void SetMethodProxyStats(const std::shared_ptr<brio::utils::stats::MethodProxyStats>& stats) override;

    struct Core;
    explicit DDSMethodHandler(std::shared_ptr<Core> core);

private:
    std::shared_ptr<Core> core_;
};

}  // namespace kelp::driver::dds

#endif
