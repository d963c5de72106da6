// SPDX-License-Identifier: Apache-2.0
// DDS encoders: strings, the process and process-list forms and the error payload.
#include <cstring>

#include "ara/quill/common/log/log.h"
#include "kelp/serialize/dds/basic_deserializer.h"
#include "kelp/serialize/dds/basic_serializer.h"

namespace kelp::serialize::dds {

namespace {

using ara::quill::common::log::Log;
using detail::COUNT_SIZE;
using kelp::serialize::detail::Remaining;

void LogStringCopyFailure() {
    Log::GetLog("CM")->error() << "[DDS Serializer String] Memory copy return error, Invalid serialization.";
}

}  // namespace

namespace detail {
void LogScalarCopyFailure() {
    Log::GetLog("CM")->error() << "[DDS Serializer] Memory copy return error, invalid data.";
}
}  // namespace detail

std::uint64_t Serializer<ara::core::String>::SizeFor(std::uint64_t characters) noexcept {
    // The count is 32 bits wide, and the total must stay below the size error mark.
    if (characters >= SERIALIZE_SIZE_ERROR - COUNT_SIZE) {
        return SERIALIZE_SIZE_ERROR;
    }
    return COUNT_SIZE + characters;
}

void Serializer<ara::core::String>::Serialize(unsigned char* buffer) const {
    const auto count = static_cast<std::uint32_t>(value_->size());
    if (buffer == nullptr) {
        LogStringCopyFailure();
        return;
    }
    if (memcpy_s(buffer + position_, room_, &count, sizeof(count)) != 0) {
        LogStringCopyFailure();
    }
    if (!value_->empty() &&
        memcpy_s(buffer + position_ + COUNT_SIZE, Remaining(room_, COUNT_SIZE), value_->data(), value_->size()) != 0) {
        LogStringCopyFailure();
    }
}

std::uint64_t Serializer<ara::core::ErrorCode>::GetSize() const noexcept {
    return ERROR_CODE_PAYLOAD_SIZE;
}

void Serializer<ara::core::ErrorCode>::Serialize(unsigned char* buffer) const {
    unsigned char bytes[ERROR_CODE_PAYLOAD_SIZE] = {};
    bytes[4] = ERROR_CODE_KIND;
    std::memcpy(bytes + 5, &domainId_, sizeof(domainId_));
    std::memcpy(bytes + 13, &code_, sizeof(code_));
    if (buffer == nullptr || memcpy_s(buffer + position_, room_, bytes, sizeof(bytes)) != 0) {
        detail::LogScalarCopyFailure();
    }
}

}  // namespace kelp::serialize::dds
