// SPDX-License-Identifier: Apache-2.0
// SOME/IP decoders of replies and their size counters. Every read is checked against the
// byte range the decoder was given.
#include <cstring>

#include "ara/core/memcpy_s.h"
#include "ara/quill/common/log/log.h"
#include "error_payload_check.h"
#include "kelp/serialize/someip/basic_deserializer.h"
#include "tlv/serialize/tlv_serialize_helper.h"

namespace kelp::serialize::someip {

namespace {

using ara::quill::common::log::Log;
namespace sd = kelp::serialize::detail;

constexpr std::uint64_t SOMEIP_HEADER_SIZE = 16U;
constexpr std::uint64_t MARK_SIZE = 4U;

}  // namespace

// ---- ara::core::ErrorCode ---------------------------------------------------------------

std::uint64_t Deserializer<ara::core::ErrorCode>::GetSize() const {
    return detail::CheckErrorPayload(
        data_,
        size_,
        {"[SomeipDeserializerErrorCode][Construct deserialization for ErrorCode failed, invalid size parameter]",
         "[Someip Deserializer ErrorCode] Memory copy return error, Invalid deserialization."});
}

ErrorCodeValue Deserializer<ara::core::ErrorCode>::GetValueHelper() const {
    std::uint64_t id = 0U;
    std::uint32_t code = 0U;
    const bool readable = size_ >= ERROR_CODE_PAYLOAD_SIZE;
    if (!readable || memcpy_s(&id, sizeof(id), data_ + 5, sizeof(id)) != 0) {
        Log::GetLog("CM")->error() << "[Someip Deserializer ErrorCode] Memory copy return error, Invalid "
                                      "deserialization.";
        id = 0U;
    } else {
        id = sd::ToOrder(id, Order());
    }
    if (!readable || memcpy_s(&code, sizeof(code), data_ + 13, sizeof(code)) != 0) {
        Log::GetLog("CM")->error() << "[Someip Deserializer ErrorCode] Memory copy return error, Invalid "
                                      "deserialization.";
        code = 0U;
    } else {
        code = sd::ToOrder(code, Order());
    }
    return {id, static_cast<std::int32_t>(code)};
}

// ---- ara::core::String ------------------------------------------------------------------

Deserializer<ara::core::String>::Deserializer(const unsigned char* data,
                                              std::uint64_t size,
                                              const SerializeConfig& config,
                                              std::shared_ptr<SerializationNode> node,
                                              std::uint64_t position)
    : DeserializerBase(data, size, config, std::move(node), position) {
    SetDataLength();
}

void Deserializer<ara::core::String>::SetDataLength() {
    bool raw = config_.rawString;
    std::uint64_t lengthFieldSize = config_.stringLengthFieldSize;
    if (node_) {
        raw = node_->rawString;
        lengthFieldSize = node_->HasDataId() ? node_->tlvLengthFieldSize : node_->stringLengthFieldSize;
    }
    lengthFieldSize_ = lengthFieldSize;
    mark_ = raw ? 0U : MARK_SIZE;
    if (lengthFieldSize > size_ || size_ - lengthFieldSize < mark_) {
        return;
    }
    const std::uint64_t length = sd::ReadLengthField(data_, lengthFieldSize, Order());
    if (length < mark_ || size_ - lengthFieldSize < length) {
        return;
    }
    characters_ = length - mark_;
    if (!raw) {
        const unsigned char* text = data_ + lengthFieldSize;
        if (text[0] != 0xEFU || text[1] != 0xBBU || text[2] != 0xBFU || text[3U + characters_] != 0U) {
            return;
        }
    }
    if (node_ && !node_->HasDataId() && !node_->skipPadding && node_->alignment > 1U) {
        const std::uint64_t alignment = node_->alignment;
        const std::uint64_t r = (length + lengthFieldSize + position_ + SOMEIP_HEADER_SIZE) % alignment;
        padding_ = (r == 0U) ? 0U : alignment - r;
    }
    valid_ = true;
}

std::uint64_t Deserializer<ara::core::String>::GetSize() const {
    if (!valid_ || lengthFieldSize_ + characters_ + mark_ > size_) {
        Log::GetLog("CM")->error() << "Construct deserialization for String failed, insufficient data.";
        return SERIALIZE_SIZE_ERROR;
    }
    return lengthFieldSize_ + characters_ + mark_;
}

ara::core::String Deserializer<ara::core::String>::GetValue() const {
    if (!valid_) {
        return {};
    }
    const unsigned char* text = data_ + lengthFieldSize_ + (mark_ != 0U ? 3U : 0U);
    return ara::core::String(reinterpret_cast<const char*>(text), characters_);
}

// ---- bool -------------------------------------------------------------------------------

std::uint64_t Deserializer<bool>::GetSize() const {
    if (size_ < 1U) {
        Log::GetLog("CM")->error() << "Invalid parameter for trivially copyable type: size, it's insufficient!";
        return SERIALIZE_SIZE_ERROR;
    }
    return 1U;
}

bool Deserializer<bool>::GetValue() const {
    return size_ >= 1U && data_[0] != 0U;
}

}  // namespace kelp::serialize::someip
