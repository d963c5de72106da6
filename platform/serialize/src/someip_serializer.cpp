// SPDX-License-Identifier: Apache-2.0
// SOME/IP encoders of the generic values: string sizing and writing, and the error payload.
#include "ara/quill/common/log/log.h"
#include "kelp/serialize/someip/basic_serializer.h"
#include "kelp/serialize/someip/layout.h"
#include "tlv/serialize/tlv_serialize_helper.h"

namespace kelp::serialize::someip {

namespace {

using kelp::serialize::detail::Remaining;

using ara::quill::common::log::Log;
using tlv::serialize::TlvSerializeHelper;

constexpr std::uint64_t SOMEIP_HEADER_SIZE = 16U;
constexpr std::uint64_t MARK_SIZE = 4U;  // byte-order mark and terminator
constexpr unsigned char BOM[3] = {0xEFU, 0xBBU, 0xBFU};

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
