// SPDX-License-Identifier: Apache-2.0
// Method topic QoS, taken samples as message records, and the encoding choice.
#include "method_endpoint.h"

#include <strings.h>

#include <cstdlib>
#include <cstring>

#include "ara/quill/common/log/log.h"

namespace kelp::driver::dds {

void SetMethodQos(const Qos& qos,
                  std::uint32_t livelinessLeaseMs,
                  const std::string& partition,
                  dds_duration_t maxBlocking) {
    dds_qset_reliability(qos.Get(), DDS_RELIABILITY_RELIABLE, maxBlocking);
    dds_qset_durability(qos.Get(), DDS_DURABILITY_VOLATILE);
    dds_qset_history(qos.Get(), DDS_HISTORY_KEEP_ALL, 0);
    if (livelinessLeaseMs != 0U) {
        dds_qset_liveliness(qos.Get(), DDS_LIVELINESS_AUTOMATIC, DDS_MSECS(livelinessLeaseMs));
    }
    if (!partition.empty()) {
        dds_qset_partition1(qos.Get(), partition.c_str());
    }
}

std::uint32_t ReplyBucket(const brio::api::types::ClientId& id) noexcept {
    // FNV-1a over the GUID prefix: both ends compute it, so it is part of the wire protocol.
    std::uint32_t hash = 2166136261U;
    for (std::size_t i = 0U; i < 12U; ++i) {
        hash = (hash ^ id[i]) * 16777619U;
    }
    return hash % REPLY_BUCKETS;
}

std::string ReplyPartitionName(std::uint32_t bucket) {
    return "kelp.reply." + std::to_string(bucket);
}

SampleMsg::~SampleMsg() {
    dds_sample_free(&sample_, &kelp_dds_MethodSample_desc, DDS_FREE_CONTENTS);
}

std::shared_ptr<SampleMsg> SampleMsg::Take(dds_entity_t reader) {
    auto msg = std::make_shared<SampleMsg>();
    void* samples[1] = {&msg->sample_};
    dds_sample_info_t info{};
    for (;;) {
        if (dds_take(reader, samples, &info, 1U, 1U) <= 0) {
            return nullptr;
        }
        if (info.valid_data) {
            break;
        }
    }
    const kelp_dds_MethodSample& s = msg->sample_;
    std::memcpy(msg->clientId.data(), s.clientId, msg->clientId.size());
    msg->sessionId = s.sessionId;
    msg->entityField = s.entityField;
    msg->messageType = s.messageType;
    msg->e2eCheckStatus = s.e2eCheckStatus;
    msg->e2eState = s.e2eState;
    msg->isRealReply = s.isRealReply;
    msg->isErrorReply = s.isErrorReply;
    msg->field64 = s.field64;
    msg->requestMarker = s.requestMarker;
    msg->payload = s.payload._buffer;
    msg->payloadSize = s.payload._length;
    msg->name = MethodMsg::DefaultName();
    return msg;
}

kelp_dds_MethodSample MakeSample(const brio::api::types::MethodMsg& msg,
                                 const unsigned char* payload,
                                 std::uint32_t size) {
    kelp_dds_MethodSample sample{};
    std::memcpy(sample.clientId, msg.clientId.data(), sizeof(sample.clientId));
    sample.sessionId = msg.sessionId;
    sample.entityField = msg.entityField;
    sample.messageType = msg.messageType;
    sample.e2eCheckStatus = msg.e2eCheckStatus;
    sample.e2eState = msg.e2eState;
    sample.isRealReply = msg.isRealReply;
    sample.isErrorReply = msg.isErrorReply;
    sample.field64 = msg.field64;
    sample.requestMarker = msg.requestMarker;
    // Written, never freed through the sample (_release is false).
    sample.payload._buffer = const_cast<std::uint8_t*>(payload);
    sample.payload._length = payload != nullptr ? size : 0U;
    sample.payload._maximum = sample.payload._length;
    sample.payload._release = false;
    return sample;
}

std::string ClientIdText(const brio::api::types::ClientId& id) {
    static const char digits[] = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : id) {
        text += digits[byte >> 4U];
        text += digits[byte & 0x0FU];
    }
    return text;
}

const Encoding& ProcessEncoding() {
    static const Encoding encoding = [] {
        const char* value = std::getenv("KELP_SERIALIZE_TYPE");
        if (value == nullptr || *value == '\0' || strcasecmp(value, "dds") == 0) {
            return Encoding{serialize::SerializeType::kDds, {}};
        }
        if (strcasecmp(value, "someip") == 0) {
            return Encoding{serialize::SerializeType::kSomeip, {}};
        }
        ara::quill::common::log::Log::GetLog("CM")->warn()
            << "[DDSDriver][Unknown KELP_SERIALIZE_TYPE, DDS encoding used][value=" << value << "]";
        return Encoding{serialize::SerializeType::kDds, {}};
    }();
    return encoding;
}

}  // namespace kelp::driver::dds
