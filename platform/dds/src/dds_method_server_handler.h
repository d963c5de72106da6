// SPDX-License-Identifier: Apache-2.0
// Server half of a DDS method: request reader and reply writer on the method's two topics.
#ifndef KELP_DRIVER_DDS_DDS_METHOD_SERVER_HANDLER_H
#define KELP_DRIVER_DDS_DDS_METHOD_SERVER_HANDLER_H

#include <memory>

#include "kelp/brio/driver/driver.h"
#include "kelp/driver/dds/dds_types.h"

namespace kelp::driver::dds {

class Domain;

/// Requests are delivered from the request reader's listener (a Cyclone thread, or the
/// client's write for in-process delivery); each record owns its sample, so a receiver may
/// keep it. One reply writer per reply bucket (method_endpoint.h), each advertising the
/// descriptor's liveliness lease, by which clients notice a dead server.
/// @thread-safety every operation may be called from any thread.
class DDSMethodServerHandler final : public brio::driver::MethodServerHandler {
public:
    /// Null, with a log line, when an entity cannot be created.
    static std::shared_ptr<DDSMethodServerHandler> Create(Domain& domain, const DDSMethodInfo& info);
    ~DDSMethodServerHandler() override;

    void RegisterRequestCallback(RequestCallback callback) override;
    /// Never waits. Writes the reply at once when the requester's reply reader is matched and
    /// nothing of this server is held; otherwise hands it to the domain's reply pump, which
    /// writes it once the reader is matched (a new client's request can arrive before that
    /// match) or drops it with a log line after ReplyPump::HOLD_LIMIT. True once taken.
    bool SendReply(const brio::api::types::MethodMsg& request,
                   const unsigned char* payload,
                   std::uint32_t size,
                   bool isError) override;
    serialize::SerializeType GetSerializeType() const override;
    const serialize::SerializeConfig& GetSerializeConfig() const override;

    struct Core;
    explicit DDSMethodServerHandler(std::shared_ptr<Core> core);

private:
    std::shared_ptr<Core> core_;
};

}  // namespace kelp::driver::dds

#endif
