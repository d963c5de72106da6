// SPDX-License-Identifier: Apache-2.0
// What the client and server halves of a DDS method share: the QoS of the method topics, the
// message record that owns a taken sample, the process's encoding choice, and the closing of
// an endpoint whose listener may be the caller.
#ifndef KELP_DRIVER_DDS_METHOD_ENDPOINT_H
#define KELP_DRIVER_DDS_METHOD_ENDPOINT_H

#include <cstdint>
#include <memory>
#include <string>

#include "dds_domain.h"
#include "dds_entity.h"
#include "dispatch_scope.h"
#include "kelp/brio/api/types/method_msg.h"
#include "kelp/serialize/serialize_config.h"
#include "wire_types.h"

namespace kelp::driver::dds {

/// Reliable, volatile, KEEP_ALL: with keep-last a burst of requests overwrites samples not yet
/// acknowledged and calls are lost silently. A writer blocks at most `maxBlocking` when it must
/// wait for acknowledgements (reply writers: not at all, they report a time-out instead).
/// Readers keep no limit: their listener drains every sample as it arrives.
/// `livelinessLeaseMs` (0: none) is the AUTOMATIC liveliness lease a reply writer advertises;
/// a non-empty `partition` puts the endpoint in that partition only.
void SetMethodQos(const Qos& qos,
                  std::uint32_t livelinessLeaseMs,
                  const std::string& partition = {},
                  dds_duration_t maxBlocking = DDS_SECS(1));

/// Replies travel in REPLY_BUCKETS partitions. A client's reply readers sit in the bucket of
/// its participant (the first 12 bytes of a client id, the GUID prefix); a server has one
/// reply writer per bucket and writes each reply with the requester's. So a reply reaches
/// the readers of one bucket, not every client of the method, and a server's writers are
/// known to every client from its first discovery on.
constexpr std::uint32_t REPLY_BUCKETS = 16U;
std::uint32_t ReplyBucket(const brio::api::types::ClientId& id) noexcept;
/// "kelp.reply.<bucket>".
std::string ReplyPartitionName(std::uint32_t bucket);

/// A request or reply taken from a reader. Its payload points into the sample it owns, so it
/// stays valid as long as the record.
class SampleMsg final : public brio::api::types::MethodMsg {
public:
    SampleMsg() = default;
    SampleMsg(const SampleMsg&) = delete;
    SampleMsg& operator=(const SampleMsg&) = delete;
    ~SampleMsg() override;

    /// The next valid sample of `reader`, or null when none is left.
    static std::shared_ptr<SampleMsg> Take(dds_entity_t reader);

private:
    kelp_dds_MethodSample sample_{};
};

/// The sample that carries `msg`'s header fields and `size` bytes at `payload`; the bytes
/// are borrowed, not copied, so they must outlive the write.
kelp_dds_MethodSample MakeSample(const brio::api::types::MethodMsg& msg,
                                 const unsigned char* payload,
                                 std::uint32_t size);

/// "0110...0404": a client id for the log.
std::string ClientIdText(const brio::api::types::ClientId& id);

/// Encoding of every DDS method of this process: DDS unless KELP_SERIALIZE_TYPE=someip.
/// Any other value is logged once and DDS is used.
struct Encoding {
    serialize::SerializeType type;
    serialize::SerializeConfig config;
};
const Encoding& ProcessEncoding();

/// Deletes the entities of `core` (whose listeners get `core` as their argument) now, or on
/// its domain's worker when the current thread is inside one of those listeners: dds_delete
/// waits for running listener calls, its own included. The worker keeps `core` alive until then.
template <typename Core>
void DeleteEndpointEntities(std::shared_ptr<Core> core) {
    if (DispatchScope::Depth(core.get()) == 0U) {
        core->DeleteEntities();
    } else {
        Domain& domain = core->domain;
        domain.Post([core = std::move(core)] { core->DeleteEntities(); });
    }
}

}  // namespace kelp::driver::dds

#endif
