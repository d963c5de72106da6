// SPDX-License-Identifier: Apache-2.0
// The size and kind check of a 17-byte error payload, shared by both encodings; only the
// texts of two messages differ between them.
#ifndef KELP_SERIALIZE_SRC_ERROR_PAYLOAD_CHECK_H
#define KELP_SERIALIZE_SRC_ERROR_PAYLOAD_CHECK_H

#include <cstdint>

#include "ara/core/memcpy_s.h"
#include "ara/quill/common/log/log.h"
#include "kelp/serialize/serialize_config.h"

namespace kelp::serialize::detail {

struct ErrorPayloadTexts {
    const char* tooShort;    ///< fewer than 17 bytes
    const char* copyFailed;  ///< the kind byte could not be copied
};

/// 17 for a valid error payload, otherwise SERIALIZE_SIZE_ERROR with its log line.
inline std::uint64_t CheckErrorPayload(const unsigned char* data, std::uint64_t size, const ErrorPayloadTexts& texts) {
    const auto log = [] { return ara::quill::common::log::Log::GetLog("CM"); };  // only on the failure paths
    if (size < ERROR_CODE_PAYLOAD_SIZE) {
        log()->error() << texts.tooShort;
        return SERIALIZE_SIZE_ERROR;
    }
    unsigned char kind = 0U;
    if (memcpy_s(&kind, sizeof(kind), data + 4, sizeof(kind)) != 0) {
        log()->error() << texts.copyFailed;
    }
    if (kind != ERROR_CODE_KIND) {
        log()->error() << "Construct deserialization for ErrorCode failed, invalid type of ErrorCode!";
        return SERIALIZE_SIZE_ERROR;
    }
    if (size != ERROR_CODE_PAYLOAD_SIZE) {
        log()->error() << "Construct deserialization for ErrorCode failed, invalid size parameter!";
        return SERIALIZE_SIZE_ERROR;
    }
    return ERROR_CODE_PAYLOAD_SIZE;
}

}  // namespace kelp::serialize::detail

#endif
