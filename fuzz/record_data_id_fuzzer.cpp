// SPDX-License-Identifier: Apache-2.0
// Fuzzes the TLV tag scanner: byte order and static length-field size from the first byte.
#include <cstddef>
#include <cstdint>

#include "tlv/serialize/tlv_serialize_helper.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1U) {
        return 0;
    }
    const auto order =
        (data[0] & 1U) != 0U ? kelp::serialize::ByteOrder::kLittleEndian : kelp::serialize::ByteOrder::kBigEndian;
    const auto staticSize = static_cast<unsigned char>(data[0] >> 1U);
    const auto table = tlv::serialize::TlvSerializeHelper::RecordDataId(order, staticSize, data + 1, size - 1U);
    for (const auto& entry : table.entries) {
        // Every recorded member starts inside the stream.
        if (entry.second.offset > size - 1U) {
            __builtin_trap();
        }
    }
    if (table.consumedSize == kelp::serialize::SERIALIZE_SIZE_ERROR && !table.entries.empty()) {
        __builtin_trap();
    }
    return 0;
}
