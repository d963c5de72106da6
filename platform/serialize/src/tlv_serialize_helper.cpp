// SPDX-License-Identifier: Apache-2.0
// TLV length-field writer, tag forming and the tag scanner.
#include "tlv/serialize/tlv_serialize_helper.h"

#include <cstring>

#include "ara/core/memcpy_s.h"
#include "ara/quill/common/log/log.h"

namespace tlv::serialize {

namespace {

using ara::quill::common::log::Log;
using kelp::serialize::SERIALIZE_SIZE_ERROR;
namespace sd = kelp::serialize::detail;

DataIdTable Malformed() {
    DataIdTable table;
    table.consumedSize = SERIALIZE_SIZE_ERROR;
    return table;
}

}  // namespace

void TlvSerializeHelper::CopyLengthField(unsigned char* destination,
                                         unsigned long length,
                                         unsigned long lengthFieldSize,
                                         ByteOrder order) {
    // The room handed to the copy is what the caller computed for this member, not what is
    // left in the buffer: the caller sized the buffer before writing.
    const unsigned long room = length + lengthFieldSize;
    int result = 0;
    switch (lengthFieldSize) {
        case 0U:
            return;
        case 1U: {
            const auto v = static_cast<std::uint8_t>(length);
            result = memcpy_s(destination, room, &v, sizeof(v));
            break;
        }
        case 2U: {
            const std::uint16_t v = sd::ToOrder(static_cast<std::uint16_t>(length), order);
            result = memcpy_s(destination, room, &v, sizeof(v));
            break;
        }
        case 4U: {
            const std::uint32_t v = sd::ToOrder(static_cast<std::uint32_t>(length), order);
            result = memcpy_s(destination, room, &v, sizeof(v));
            break;
        }
        default:
            result = -1;
            break;
    }
    if (result != 0) {
        Log::GetLog("CM")->error() << "[Someip Serializer] Memory copy struct static length fail.";
    }
}

DataIdTable TlvSerializeHelper::RecordDataId(ByteOrder order,
                                             unsigned char staticLengthFieldSize,
                                             const unsigned char* stream,
                                             unsigned long streamSize) {
    DataIdTable table;
    if (stream == nullptr || streamSize == 0U) {
        return table;
    }
    std::uint64_t pos = 0U;
    while (pos < streamSize) {
        if (streamSize - pos == 1U) {
            Log::GetLog("CM")->error() << "[TLV] Lack of enough code stream to get tag";
            return Malformed();
        }
        std::uint16_t tag{};
        std::memcpy(&tag, stream + pos, sizeof(tag));
        tag = sd::ToOrder(tag, order);
        const auto dataId = static_cast<std::uint16_t>(tag & 0x0FFFU);
        const auto wireType = static_cast<std::uint8_t>((tag >> 12U) & 0x7U);
        const std::uint64_t offset = pos + 2U;
        const std::uint64_t left = streamSize - offset;

        DataIdParams params;
        params.offset = offset;
        if (wireType <= 3U) {
            params.size = 1ULL << wireType;
        } else {
            std::uint64_t lengthFieldSize = 0U;
            switch (wireType) {
                case 5U:
                    lengthFieldSize = 1U;
                    break;
                case 6U:
                    lengthFieldSize = 2U;
                    break;
                case 7U:
                    lengthFieldSize = 4U;
                    break;
                default:
                    if (staticLengthFieldSize == 0U) {
                        return Malformed();
                    }
                    lengthFieldSize = staticLengthFieldSize;
                    break;
            }
            if (left < lengthFieldSize) {
                Log::GetLog("CM")->error()
                    << "[TLV] Lack of enough code stream to get pos length[dataId" << dataId << "]";
                return Malformed();
            }
            params.lengthFieldSize = static_cast<std::uint8_t>(lengthFieldSize);
            if (lengthFieldSize == 1U || lengthFieldSize == 2U || lengthFieldSize == 4U) {
                params.size = lengthFieldSize + sd::ReadLengthField(stream + offset, lengthFieldSize, order);
            } else {
                // A static size other than 1, 2 or 4 is stepped over as if it were the whole member.
                params.size = lengthFieldSize;
            }
        }
        table.entries.emplace(dataId, params);
        pos = offset + params.size;
    }
    if (pos == SERIALIZE_SIZE_ERROR) {
        // A last member whose declared length ends exactly at the error mark: report it as
        // malformed, so that a table with entries never carries the mark.
        return Malformed();
    }
    table.consumedSize = pos;
    return table;
}

std::uint16_t TlvSerializeHelper::LengthDelimitedTag(std::uint16_t dataId,
                                                     bool dynamicLengthField,
                                                     std::uint64_t lengthFieldSize) noexcept {
    if (!dynamicLengthField) {
        return static_cast<std::uint16_t>(dataId | 0x4000U);
    }
    // Size 3 maps to wire type 0 on purpose; no encoder chooses it.
    static constexpr std::uint16_t WIRE_TYPE_BY_SIZE[5] = {0U, 5U, 6U, 0U, 7U};
    if (lengthFieldSize < 1U || lengthFieldSize > 4U) {
        return dataId;
    }
    return static_cast<std::uint16_t>(dataId | (WIRE_TYPE_BY_SIZE[lengthFieldSize] << 12U));
}

std::uint16_t TlvSerializeHelper::FixedSizeTag(std::uint16_t dataId, std::uint64_t valueSize) noexcept {
    switch (valueSize) {
        case 2U:
            return static_cast<std::uint16_t>(dataId | 0x1000U);
        case 4U:
            return static_cast<std::uint16_t>(dataId | 0x2000U);
        case 8U:
            return static_cast<std::uint16_t>(dataId | 0x3000U);
        default:
            return dataId;
    }
}

}  // namespace tlv::serialize
