// SPDX-License-Identifier: Apache-2.0
// Pieces that every SOME/IP structure and container encoder shares: the valid length-field
// sizes and their limits, closing a leading length field, and writing a TLV tag.
#ifndef KELP_SERIALIZE_SOMEIP_LAYOUT_H
#define KELP_SERIALIZE_SOMEIP_LAYOUT_H

#include <cstdint>

#include "ara/core/memcpy_s.h"
#include "ara/quill/common/log/log.h"
#include "kelp/serialize/serialize_config.h"
#include "tlv/serialize/tlv_serialize_helper.h"

namespace kelp::serialize::someip::layout {

inline bool IsLengthFieldSize(std::uint64_t size) noexcept {
    return size == 0U || size == 1U || size == 2U || size == 4U;
}

/// Largest value a structure or container length field of `size` bytes can hold.
inline std::uint64_t MaxLength(std::uint64_t size) noexcept {
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
inline std::uint64_t CloseLengthField(
    unsigned char* buffer, std::uint64_t start, std::uint64_t end, std::uint64_t lengthFieldSize, ByteOrder order) {
    const std::uint64_t length = end - lengthFieldSize;
    if (lengthFieldSize != 0U) {
        if (length > MaxLength(lengthFieldSize)) {
            return SERIALIZE_SIZE_ERROR;
        }
        if (buffer != nullptr) {
            tlv::serialize::TlvSerializeHelper::CopyLengthField(buffer + start, length, lengthFieldSize, order);
        }
    }
    return end;
}

inline void WriteTag(unsigned char* buffer, std::uint64_t room, std::uint16_t tag, ByteOrder order) {
    const std::uint16_t wire = serialize::detail::ToOrder(tag, order);
    if (buffer == nullptr || memcpy_s(buffer, room, &wire, sizeof(wire)) != 0) {
        ara::quill::common::log::Log::GetLog("CM")->error()
            << "[Serialization]Copy TLV tag failed[dataId=" << (tag & 0x0FFFU) << "]";
    }
}

}  // namespace kelp::serialize::someip::layout

#endif
