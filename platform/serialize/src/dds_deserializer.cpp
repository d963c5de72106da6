// SPDX-License-Identifier: Apache-2.0
// DDS decoders of replies, their size counter and the member enumerator. Every read is
// checked against the byte range the decoder was given.
#include <algorithm>
#include <cstring>

#include "ara/core/memcpy_s.h"
#include "ara/quill/common/log/log.h"
#include "error_payload_check.h"
#include "kelp/serialize/dds/basic_deserializer.h"

namespace kelp::serialize::dds {

namespace {

using ara::quill::common::log::Log;
using detail::COUNT_SIZE;
using detail::ReadCount;

}  // namespace

// ---- ara::core::ErrorCode ---------------------------------------------------------------

std::uint64_t Deserializer<ara::core::ErrorCode>::GetSize() const {
    return serialize::detail::CheckErrorPayload(
        data_,
        size_,
        {"[DDSSerializeErrorCode][Construct deserialization for ErrorCode failed, invalid size parameter]",
         "[DDS Deserializer ErrorCode] Memory copy return error, Invalid deserialization."});
}

ErrorCodeValue Deserializer<ara::core::ErrorCode>::GetValueHelper() const {
    std::uint64_t id = 0U;
    std::int32_t code = 0;
    const bool readable = size_ >= ERROR_CODE_PAYLOAD_SIZE;
    if (!readable || memcpy_s(&id, sizeof(id), data_ + 5, sizeof(id)) != 0) {
        Log::GetLog("CM")->error() << "[DDS Deserializer ErrorCode] Memory copy return error, Invalid deserialization.";
        id = 0U;
    }
    if (!readable || memcpy_s(&code, sizeof(code), data_ + 13, sizeof(code)) != 0) {
        Log::GetLog("CM")->error() << "[DDS Deserializer ErrorCode] Memory copy return error, Invalid deserialization.";
        code = 0;
    }
    return {id, code};
}

// ---- ara::core::String ------------------------------------------------------------------

std::uint64_t Deserializer<ara::core::String>::GetSize() const {
    if (size_ >= COUNT_SIZE) {
        const std::uint64_t count = ReadCount(data_);
        if (count < 0xFFFFFFFFULL && count <= size_ - COUNT_SIZE) {
            return count + COUNT_SIZE;
        }
    }
    Log::GetLog("CM")->error() << "Deserialization of String failed, insufficient data.";
    return SERIALIZE_SIZE_ERROR;
}

ara::core::String Deserializer<ara::core::String>::GetValue() const {
    if (size_ < COUNT_SIZE) {
        return {};
    }
    const std::uint64_t count = ReadCount(data_);
    if (count > size_ - COUNT_SIZE) {
        return {};
    }
    return ara::core::String(reinterpret_cast<const char*>(data_ + COUNT_SIZE), count);
}

// ---- bool -------------------------------------------------------------------------------

std::uint64_t Deserializer<bool>::GetSize() const {
    if (size_ < 1U) {
        Log::GetLog("CM")->error() << "Deserialization of trivially copyable type failed, insufficient data!";
        return SERIALIZE_SIZE_ERROR;
    }
    return 1U;
}

bool Deserializer<bool>::GetValue() const {
    return size_ >= 1U && data_[0] != 0U;
}

}  // namespace kelp::serialize::dds
