// SOME/IP encoders: string sizing and writing, the process and process-list forms and the
// error payload.
#include "ara/quill/common/log/log.h"
#include "kelp/serialize/someip/serializer.h"
#include "tlv/serialize/tlv_serialize_helper.h"

namespace kelp::serialize::someip {

namespace {

using ara::quill::common::log::Log;
using tlv::serialize::TlvSerializeHelper;

constexpr std::uint64_t SOMEIP_HEADER_SIZE = 16U;
constexpr std::uint64_t MARK_SIZE = 4U;  // byte-order mark and terminator
constexpr unsigned char BOM[3] = {0xEFU, 0xBBU, 0xBFU};

std::uint64_t Remaining(std::uint64_t room, std::uint64_t used) noexcept {
    return room > used ? room - used : 0U;
}

bool IsLengthFieldSize(std::uint64_t size) noexcept {
    return size == 0U || size == 1U || size == 2U || size == 4U;
}

/// Largest value a structure or container length field of `size` bytes can hold.
std::uint64_t MaxLength(std::uint64_t size) noexcept {
    switch (size) {
        case 1U:
            return 0xFFU;
        case 2U:
            return 0xFFFFU;
        default:
            return 0xFFFFFFFFULL;
    }
}

/// Fills the leading length field (if any) of a structure or container that ends at `end`
/// bytes from `start`; returns `end`, or SERIALIZE_SIZE_ERROR when the length does not fit.
std::uint64_t CloseLengthField(
    unsigned char* buffer, std::uint64_t start, std::uint64_t end, std::uint64_t lengthFieldSize, ByteOrder order) {
    const std::uint64_t length = end - lengthFieldSize;
    if (lengthFieldSize != 0U) {
        if (length > MaxLength(lengthFieldSize)) {
            return SERIALIZE_SIZE_ERROR;
        }
        if (buffer != nullptr) {
            TlvSerializeHelper::CopyLengthField(buffer + start, length, lengthFieldSize, order);
        }
    }
    return end;
}

void WriteTag(unsigned char* buffer, std::uint64_t room, std::uint16_t tag, ByteOrder order) {
    const std::uint16_t wire = serialize::detail::ToOrder(tag, order);
    if (buffer == nullptr || memcpy_s(buffer, room, &wire, sizeof(wire)) != 0) {
        Log::GetLog("CM")->error() << "[Serialization]Copy TLV tag failed[dataId=" << (tag & 0x0FFFU) << "]";
    }
}

}  // namespace

namespace detail {
void LogScalarCopyFailure() {
    Log::GetLog("CM")->error() << "[Someip Serializer] Memory copy return error, Invalid serialization.";
}
}  // namespace detail

// ---- ara::core::String ----------------------------------------------------------------

std::uint64_t Serializer<ara::core::String>::MaxPayload(std::uint64_t lengthFieldSize) noexcept {
    switch (lengthFieldSize) {
        case 1U:
            return 0xFFU;
        case 2U:
            return 0xFFFFU;
        case 4U:
            // The top sixteen values stay clear of the size error mark.
            return 0xFFFFFFF0ULL;
        default:
            return 0xFFFFFFFFULL;
    }
}

std::uint64_t Serializer<ara::core::String>::GetSize() {
    return GetSizeHelper(value_->size());
}

std::uint64_t Serializer<ara::core::String>::GetSizeHelper(std::uint64_t characters) {
    totalSize_ = SERIALIZE_SIZE_ERROR;
    padding_ = 0U;
    bool raw = config_.rawString;
    bool dynamic = false;
    std::uint64_t lengthFieldSize = config_.stringLengthFieldSize;
    if (node_) {
        raw = node_->rawString;
        lengthFieldSize = node_->stringLengthFieldSize;
        if (node_->HasDataId()) {
            dynamic = node_->dynamicLengthField;
        } else if (!noPadding_) {
            const std::uint64_t payload = characters + (raw ? 0U : MARK_SIZE);
            const std::uint64_t alignment = node_->alignment;
            std::uint64_t padding = 0U;
            if (alignment >= 2U) {
                const std::uint64_t r = (lengthFieldSize + position_ + SOMEIP_HEADER_SIZE + payload) % alignment;
                padding = (r == 0U) ? 0U : alignment - r;
            }
            chosenLengthFieldSize_ = static_cast<std::uint8_t>(lengthFieldSize);
            if (characters > SERIALIZE_SIZE_ERROR || payload > MaxPayload(lengthFieldSize)) {
                return SERIALIZE_SIZE_ERROR;
            }
            padding_ = static_cast<std::uint8_t>(padding);
            totalSize_ = lengthFieldSize + payload + padding;
            return totalSize_;
        }
    }
    if (characters > SERIALIZE_SIZE_ERROR) {
        return SERIALIZE_SIZE_ERROR;
    }
    const std::uint64_t payload = characters + (raw ? 0U : MARK_SIZE);
    if (dynamic) {
        lengthFieldSize = payload < 0x100U ? 1U : (payload < 0x10000U ? 2U : 4U);
        chosenLengthFieldSize_ = static_cast<std::uint8_t>(lengthFieldSize);
        if (payload > SERIALIZE_SIZE_ERROR) {
            return SERIALIZE_SIZE_ERROR;
        }
        totalSize_ = lengthFieldSize + payload;
        return totalSize_;
    }
    chosenLengthFieldSize_ = static_cast<std::uint8_t>(lengthFieldSize);
    if (payload > MaxPayload(lengthFieldSize)) {
        return SERIALIZE_SIZE_ERROR;
    }
    totalSize_ = lengthFieldSize + payload;
    return totalSize_;
}

void Serializer<ara::core::String>::Serialize(unsigned char* buffer) {
    if (totalSize_ == SERIALIZE_SIZE_ERROR && GetSize() == SERIALIZE_SIZE_ERROR) {
        Log::GetLog("CM")->error() << "[Someip Serializer String] String too long for its length field, nothing "
                                      "written.";
        return;
    }
    if (buffer == nullptr) {
        Log::GetLog("CM")->error() << "[Someip Serializer String] Memory copy string data return error, "
                                   << "invalid serialization";
        return;
    }
    unsigned char* out = buffer + position_;
    std::uint64_t written = 0U;
    if (chosenLengthFieldSize_ != 0U) {
        const std::uint64_t length = totalSize_ - (padding_ + chosenLengthFieldSize_);
        TlvSerializeHelper::CopyLengthField(out, length, chosenLengthFieldSize_, Order());
        written = chosenLengthFieldSize_;
    }
    const std::uint64_t characters = value_->size();
    if (IsRaw()) {
        if (characters != 0U &&
            memcpy_s(out + written, Remaining(totalSize_, written), value_->data(), characters) != 0) {
            Log::GetLog("CM")->error() << "[Someip Serializer String] Memory copy string data return error, "
                                       << "invalid serialization";
        }
        return;
    }
    if (memcpy_s(out + written, Remaining(totalSize_, written), BOM, sizeof(BOM)) != 0) {
        Log::GetLog("CM")->error() << "[Someip Serializer String] Memory copy BOM return error, invalid serialization.";
    }
    written += sizeof(BOM);
    if (characters != 0U && memcpy_s(out + written, Remaining(totalSize_, written), value_->data(), characters) != 0) {
        Log::GetLog("CM")->error() << "[Someip Serializer String] Memory copy string data return error, "
                                   << "invalid serialization";
    }
    written += characters;
    const unsigned char terminator = 0U;
    if (memcpy_s(out + written, Remaining(totalSize_, written), &terminator, 1U) != 0) {
        Log::GetLog("CM")->error() << "[Someip Serializer String] Memory copy terminate return error, "
                                   << "invalid serialization";
    }
}

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

// ---- ara::core::ErrorCode ---------------------------------------------------------------

std::uint64_t Serializer<ara::core::ErrorCode>::GetSize() const noexcept {
    return ERROR_CODE_PAYLOAD_SIZE;
}

void Serializer<ara::core::ErrorCode>::Serialize(unsigned char* buffer) const {
    unsigned char bytes[ERROR_CODE_PAYLOAD_SIZE] = {};
    bytes[4] = ERROR_CODE_KIND;
    const std::uint64_t id = serialize::detail::ToOrder(domainId_, Order());
    const std::uint32_t code = serialize::detail::ToOrder(static_cast<std::uint32_t>(code_), Order());
    std::memcpy(bytes + 5, &id, sizeof(id));
    std::memcpy(bytes + 13, &code, sizeof(code));
    if (buffer == nullptr || memcpy_s(buffer + position_, room_, bytes, sizeof(bytes)) != 0) {
        detail::LogScalarCopyFailure();
    }
}

}  // namespace kelp::serialize::someip
