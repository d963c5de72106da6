// SPDX-License-Identifier: Apache-2.0
// SOME/IP encoding of `ara::exec::Process` and of a list of processes: the structure and
// container forms a server writes, and the walkers that measure and decode them in a reply.
#include <cstring>

#include "ara/core/memcpy_s.h"
#include "ara/quill/common/log/log.h"
#include "kelp/serialize/someip/deserializer.h"
#include "kelp/serialize/someip/layout.h"
#include "kelp/serialize/someip/serializer.h"
#include "tlv/serialize/tlv_serialize_helper.h"

namespace kelp::serialize::someip {

namespace {

using ara::quill::common::log::Log;
using kelp::serialize::detail::Remaining;
using layout::CloseLengthField;
using layout::IsLengthFieldSize;
using layout::WriteTag;
using tlv::serialize::TlvSerializeHelper;
namespace sd = kelp::serialize::detail;

constexpr std::uint64_t PROCESS_TEXT_MEMBERS = 4U;

ara::core::String* TextMember(ara::exec::Process& process, std::size_t index) noexcept {
    switch (index) {
        case 0U:
            return &process.processName;
        case 1U:
            return &process.functionGroupName;
        case 2U:
            return &process.processState;
        default:
            return &process.processId;
    }
}

}  // namespace

// ---- ara::exec::Process -----------------------------------------------------------------

std::uint64_t Serializer<ara::exec::Process>::GetSize() {
    return Layout(nullptr);
}

void Serializer<ara::exec::Process>::Serialize(unsigned char* buffer) {
    if (buffer == nullptr || Layout(buffer) == SERIALIZE_SIZE_ERROR) {
        detail::LogScalarCopyFailure();
    }
}

std::uint64_t Serializer<ara::exec::Process>::Layout(unsigned char* buffer) {
    const bool tlv = node_ && node_->isTlv;
    const std::uint64_t lengthFieldSize =
        node_ ? (node_->HasDataId() ? node_->tlvLengthFieldSize : node_->structLengthFieldSize)
              : config_.structLengthFieldSize;
    if (!IsLengthFieldSize(lengthFieldSize)) {
        return SERIALIZE_SIZE_ERROR;
    }
    const SerializeConfig memberConfig;
    const ara::core::String* const texts[4] = {
        &value_->processName, &value_->functionGroupName, &value_->processState, &value_->processId};
    std::uint64_t offset = lengthFieldSize;
    for (std::size_t i = 0U; i < 4U; ++i) {
        const std::shared_ptr<SerializationNode> child = node_ ? node_->Child(i) : nullptr;
        if (tlv && !(child && child->HasDataId())) {
            return SERIALIZE_SIZE_ERROR;
        }
        std::shared_ptr<SerializationNode> memberNode = child;
        if (tlv) {
            // The decoder reads a static TLV length field with the TLV size of the member.
            const std::uint8_t tlvSize = child->tlvLengthFieldSize;
            if (!child->dynamicLengthField && tlvSize != 1U && tlvSize != 2U && tlvSize != 4U) {
                return SERIALIZE_SIZE_ERROR;
            }
            memberNode = std::make_shared<SerializationNode>(*child);
            memberNode->stringLengthFieldSize = child->tlvLengthFieldSize;
        }
        const std::uint64_t tagSize = tlv ? 2U : 0U;
        Serializer<ara::core::String> member(
            *texts[i], memberConfig, memberNode, Remaining(room_, offset + tagSize), position_ + offset + tagSize);
        member.SetNoPadding(child && child->skipPadding);
        const std::uint64_t size = member.GetSize();
        if (size == SERIALIZE_SIZE_ERROR) {
            return SERIALIZE_SIZE_ERROR;
        }
        if (tlv && buffer != nullptr) {
            const std::uint16_t tag = TlvSerializeHelper::LengthDelimitedTag(
                child->dataId, child->dynamicLengthField, member.ChosenLengthFieldSize());
            WriteTag(buffer + position_ + offset, Remaining(room_, offset), tag, node_->byteOrder);
        }
        offset += tagSize;
        if (buffer != nullptr) {
            member.Serialize(buffer);
        }
        offset += size;
    }
    const std::shared_ptr<SerializationNode> flagNode = node_ ? node_->Child(4U) : nullptr;
    if (tlv) {
        if (!(flagNode && flagNode->HasDataId())) {
            return SERIALIZE_SIZE_ERROR;
        }
        if (buffer != nullptr) {
            WriteTag(buffer + position_ + offset,
                     Remaining(room_, offset),
                     TlvSerializeHelper::FixedSizeTag(flagNode->dataId, 1U),
                     node_->byteOrder);
        }
        offset += 2U;
    }
    Serializer<bool> flag(value_->isRunning, memberConfig, flagNode, Remaining(room_, offset), position_ + offset);
    if (buffer != nullptr) {
        flag.Serialize(buffer);
    }
    offset += flag.GetSize();

    return CloseLengthField(buffer, position_, offset, lengthFieldSize, Order());
}

// ---- std::vector<ara::exec::Process> ----------------------------------------------------

std::uint64_t Serializer<std::vector<ara::exec::Process>>::GetSize() {
    return Layout(nullptr);
}

void Serializer<std::vector<ara::exec::Process>>::Serialize(unsigned char* buffer) {
    if (buffer == nullptr || Layout(buffer) == SERIALIZE_SIZE_ERROR) {
        detail::LogScalarCopyFailure();
    }
}

std::uint64_t Serializer<std::vector<ara::exec::Process>>::Layout(unsigned char* buffer) {
    const std::uint64_t lengthFieldSize =
        node_ ? (node_->HasDataId() ? node_->tlvLengthFieldSize : node_->arrayLengthFieldSize)
              : config_.arrayLengthFieldSize;
    if (!IsLengthFieldSize(lengthFieldSize)) {
        return SERIALIZE_SIZE_ERROR;
    }
    const SerializeConfig memberConfig;
    const std::shared_ptr<SerializationNode> elementNode = node_ ? node_->Child(0U) : nullptr;
    std::uint64_t offset = lengthFieldSize;
    for (const ara::exec::Process& process : *value_) {
        Serializer<ara::exec::Process> element(
            process, memberConfig, elementNode, Remaining(room_, offset), position_ + offset);
        const std::uint64_t size = element.GetSize();
        if (size == SERIALIZE_SIZE_ERROR) {
            return SERIALIZE_SIZE_ERROR;
        }
        if (buffer != nullptr) {
            element.Serialize(buffer);
        }
        offset += size;
    }
    return CloseLengthField(buffer, position_, offset, lengthFieldSize, Order());
}

/// Steps over the members of a structure, refusing one that runs past the end.
class DeserializeSizeCounter {
public:
    /// Adds `size` to `offset` when the member fits in `limit`; logs and fails otherwise.
    static bool CheckAndDoStreamOffset(std::uint64_t size, std::uint64_t& offset, std::uint64_t limit) {
        if (size == SERIALIZE_SIZE_ERROR || offset > limit || size > limit - offset) {
            Log::GetLog("CM")->error() << "Deserialization[Someip] size counter failed, insufficient data.";
            return false;
        }
        offset += size;
        return true;
    }

    /// Where the member of `node`'s data id lies in a scanned structure; false (with the log)
    /// when the stream does not carry it.
    static bool GetParamSizeOfTlv(const tlv::serialize::DataIdTable& table,
                                  const SerializationNode& node,
                                  tlv::serialize::DataIdParams& params) {
        const auto it = table.entries.find(node.dataId);
        if (it == table.entries.end()) {
            const auto log = Log::GetLog("CM");
            log->error() << "Deserialization, cannot find dataId[dataId=" << node.dataId << "]";
            log->error() << "Deserialization, check has the same serialize config";
            return false;
        }
        params = it->second;
        return true;
    }
};

/// Decodes the members of a process: in order, or by data id when the node is TLV.
class StructDeserializeHelper {
public:
    StructDeserializeHelper(const unsigned char* data,
                            std::uint64_t size,
                            const SerializeConfig& config,
                            std::shared_ptr<SerializationNode> node,
                            std::uint64_t position)
        : data_(data), size_(size), config_(config), node_(std::move(node)), position_(position) {}

    /// Bytes of the structure, or SERIALIZE_SIZE_ERROR; fills `out` when given.
    std::uint64_t Walk(ara::exec::Process* out) const {
        const ByteOrder order = node_ ? node_->byteOrder : config_.byteOrder;
        const std::uint64_t lengthFieldSize =
            node_ ? (node_->HasDataId() ? node_->tlvLengthFieldSize : node_->structLengthFieldSize)
                  : config_.structLengthFieldSize;
        if (!IsLengthFieldSize(lengthFieldSize) || size_ < lengthFieldSize) {
            Log::GetLog("CM")->error() << "Deserialization[Someip] size counter failed, insufficient data.";
            return SERIALIZE_SIZE_ERROR;
        }
        std::uint64_t regionSize = size_;
        if (lengthFieldSize != 0U) {
            regionSize = sd::ReadLengthField(data_, lengthFieldSize, order);
            if (regionSize > size_ - lengthFieldSize) {
                return SERIALIZE_SIZE_ERROR;
            }
        }
        const unsigned char* region = data_ + lengthFieldSize;
        const std::uint64_t used = (node_ && node_->isTlv) ? WalkTlv(region, regionSize, order, out)
                                                           : WalkInOrder(region, regionSize, lengthFieldSize, out);
        if (used == SERIALIZE_SIZE_ERROR) {
            return SERIALIZE_SIZE_ERROR;
        }
        return lengthFieldSize + (lengthFieldSize != 0U ? regionSize : used);
    }

private:
    std::uint64_t WalkInOrder(const unsigned char* region,
                              std::uint64_t regionSize,
                              std::uint64_t regionPosition,
                              ara::exec::Process* out) const {
        const SerializeConfig memberConfig;
        std::uint64_t offset = 0U;
        for (std::size_t i = 0U; i < PROCESS_TEXT_MEMBERS; ++i) {
            const Deserializer<ara::core::String> member(region + offset,
                                                         regionSize - offset,
                                                         memberConfig,
                                                         node_ ? node_->Child(i) : nullptr,
                                                         position_ + regionPosition + offset);
            const std::uint64_t size = member.GetSize();
            if (!DeserializeSizeCounter::CheckAndDoStreamOffset(
                    size == SERIALIZE_SIZE_ERROR ? size : size + member.GetPadding(), offset, regionSize)) {
                return SERIALIZE_SIZE_ERROR;
            }
            if (out != nullptr) {
                *TextMember(*out, i) = member.GetValue();
            }
        }
        const Deserializer<bool> flag(
            region + offset, regionSize - offset, memberConfig, node_ ? node_->Child(PROCESS_TEXT_MEMBERS) : nullptr);
        const std::uint64_t flagSize = flag.GetSize();
        if (!DeserializeSizeCounter::CheckAndDoStreamOffset(flagSize, offset, regionSize)) {
            return SERIALIZE_SIZE_ERROR;
        }
        if (out != nullptr) {
            out->isRunning = flag.GetValue();
        }
        return offset;
    }

    std::uint64_t WalkTlv(const unsigned char* region,
                          std::uint64_t regionSize,
                          ByteOrder order,
                          ara::exec::Process* out) const {
        const tlv::serialize::DataIdTable table =
            tlv::serialize::TlvSerializeHelper::RecordDataId(order, node_->tlvLengthFieldSize, region, regionSize);
        if (table.consumedSize == SERIALIZE_SIZE_ERROR || table.consumedSize > regionSize) {
            Log::GetLog("CM")->error() << "Deserialization[Someip] size counter failed, insufficient data.";
            return SERIALIZE_SIZE_ERROR;
        }
        const SerializeConfig memberConfig;
        for (std::size_t i = 0U; i <= PROCESS_TEXT_MEMBERS; ++i) {
            const std::shared_ptr<SerializationNode> child = node_->Child(i);
            tlv::serialize::DataIdParams params;
            // A member the stream does not carry keeps its default value.
            if (!child || !DeserializeSizeCounter::GetParamSizeOfTlv(table, *child, params)) {
                continue;
            }
            // The tag tells the length-field size of this member; it wins over the deployment's.
            auto memberNode = std::make_shared<SerializationNode>(*child);
            if (params.lengthFieldSize != 0U) {
                memberNode->tlvLengthFieldSize = params.lengthFieldSize;
            }
            const unsigned char* memberData = region + params.offset;
            if (i < PROCESS_TEXT_MEMBERS) {
                const Deserializer<ara::core::String> member(memberData, params.size, memberConfig, memberNode);
                std::uint64_t used = 0U;
                if (!DeserializeSizeCounter::CheckAndDoStreamOffset(member.GetSize(), used, params.size)) {
                    return SERIALIZE_SIZE_ERROR;
                }
                if (out != nullptr) {
                    *TextMember(*out, i) = member.GetValue();
                }
            } else {
                const Deserializer<bool> flag(memberData, params.size, memberConfig, memberNode);
                std::uint64_t used = 0U;
                if (!DeserializeSizeCounter::CheckAndDoStreamOffset(flag.GetSize(), used, params.size)) {
                    return SERIALIZE_SIZE_ERROR;
                }
                if (out != nullptr) {
                    out->isRunning = flag.GetValue();
                }
            }
        }
        return table.consumedSize;
    }

    const unsigned char* data_;
    std::uint64_t size_;
    const SerializeConfig& config_;
    std::shared_ptr<SerializationNode> node_;
    std::uint64_t position_;
};

/// Walks the elements of a container one after the other.
template <typename T>
class ContainerDeserializeHelper;

template <>
class ContainerDeserializeHelper<std::vector<ara::exec::Process>> {
public:
    ContainerDeserializeHelper(const unsigned char* data,
                               std::uint64_t size,
                               const SerializeConfig& config,
                               std::shared_ptr<SerializationNode> node,
                               std::uint64_t position)
        : data_(data), size_(size), config_(config), node_(std::move(node)), position_(position) {}

    std::uint64_t Walk(std::vector<ara::exec::Process>* out) const {
        const char* failure = out == nullptr ? "GetSize failed for Vector deserialization, insufficient data!"
                                             : "GetValue failed for Vector deserialization, insufficient data!";
        const std::uint64_t lengthFieldSize =
            node_ ? (node_->HasDataId() ? node_->tlvLengthFieldSize : node_->arrayLengthFieldSize)
                  : config_.arrayLengthFieldSize;
        if (!IsLengthFieldSize(lengthFieldSize) || size_ < lengthFieldSize) {
            Log::GetLog("CM")->error() << failure;
            return SERIALIZE_SIZE_ERROR;
        }
        const ByteOrder order = node_ ? node_->byteOrder : config_.byteOrder;
        // Without a length field the container takes the rest of the payload.
        const std::uint64_t length = lengthFieldSize != 0U ? sd::ReadLengthField(data_, lengthFieldSize, order) : size_;
        if (length > size_ - lengthFieldSize) {
            Log::GetLog("CM")->error() << failure;
            return SERIALIZE_SIZE_ERROR;
        }
        const SerializeConfig memberConfig;
        const std::shared_ptr<SerializationNode> elementNode = node_ ? node_->Child(0U) : nullptr;
        const unsigned char* elements = data_ + lengthFieldSize;
        std::uint64_t offset = 0U;
        while (offset < length) {
            const StructDeserializeHelper element(
                elements + offset, length - offset, memberConfig, elementNode, position_ + lengthFieldSize + offset);
            ara::exec::Process process;
            const std::uint64_t size = element.Walk(out != nullptr ? &process : nullptr);
            if (size == SERIALIZE_SIZE_ERROR || size == 0U || size > length - offset) {
                Log::GetLog("CM")->error() << failure;
                return SERIALIZE_SIZE_ERROR;
            }
            if (out != nullptr) {
                out->push_back(std::move(process));
            }
            offset += size;
        }
        return lengthFieldSize + length;
    }

private:
    const unsigned char* data_;
    std::uint64_t size_;
    const SerializeConfig& config_;
    std::shared_ptr<SerializationNode> node_;
    std::uint64_t position_;
};

// ---- ara::exec::Process -----------------------------------------------------------------

std::uint64_t Deserializer<ara::exec::Process>::GetSize() const {
    return StructDeserializeHelper(data_, size_, config_, node_, position_).Walk(nullptr);
}

ara::exec::Process Deserializer<ara::exec::Process>::GetValue() const {
    ara::exec::Process process;
    StructDeserializeHelper(data_, size_, config_, node_, position_).Walk(&process);
    return process;
}

// ---- std::vector<ara::exec::Process> ----------------------------------------------------

std::uint64_t Deserializer<std::vector<ara::exec::Process>>::GetSize() const {
    return ContainerDeserializeHelper<std::vector<ara::exec::Process>>(data_, size_, config_, node_, position_)
        .Walk(nullptr);
}

std::vector<ara::exec::Process> Deserializer<std::vector<ara::exec::Process>>::GetValue() const {
    std::vector<ara::exec::Process> processes;
    ContainerDeserializeHelper<std::vector<ara::exec::Process>>(data_, size_, config_, node_, position_)
        .Walk(&processes);
    return processes;
}

}  // namespace kelp::serialize::someip
