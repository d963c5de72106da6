// SPDX-License-Identifier: Apache-2.0
// Turns the first two bytes of a fuzz input into serializer settings, so that one target
// covers the configuration-only, member-node and TLV forms of its decoder.
#ifndef ARA_EXEC_FUZZ_FUZZ_SETTINGS_H
#define ARA_EXEC_FUZZ_FUZZ_SETTINGS_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "kelp/serialize/serialize_config.h"

namespace fuzz {

using kelp::serialize::ByteOrder;
using kelp::serialize::SerializationNode;
using kelp::serialize::SerializationNodeList;
using kelp::serialize::SerializeConfig;

constexpr std::size_t SETTINGS_BYTES = 2U;

struct Settings {
    SerializeConfig config;
    bool useNodes{false};
    std::shared_ptr<SerializationNode> listNode;     ///< container node, child 0 is elementNode
    std::shared_ptr<SerializationNode> elementNode;  ///< process node, children are the members
    std::shared_ptr<SerializationNode> memberNode;   ///< the first member (a string)
};

inline std::uint8_t Pick(std::uint8_t index, const std::uint8_t (&values)[4]) {
    return values[index & 3U];
}

/// Settings from two bytes:
///   byte 0: bit 0 little-endian, bits 1-2 string length field {0,1,2,4}, bits 3-4 structure
///           length field {0,1,2,4}, bit 5 member nodes, bit 6 TLV, bit 7 raw strings;
///   byte 1: bits 0-1 container length field {0,1,2,4}, bits 2-3 alignment {0,2,4,8},
///           bit 4 dynamic length fields, bit 5 no padding, bits 6-7 TLV length field {1,2,4,0}.
inline Settings MakeSettings(const std::uint8_t* bytes) {
    static constexpr std::uint8_t SIZES[4] = {0U, 1U, 2U, 4U};
    static constexpr std::uint8_t ALIGNMENTS[4] = {0U, 2U, 4U, 8U};
    static constexpr std::uint8_t TLV_SIZES[4] = {1U, 2U, 4U, 0U};
    const std::uint8_t a = bytes[0];
    const std::uint8_t b = bytes[1];
    const ByteOrder order = (a & 1U) != 0U ? ByteOrder::kLittleEndian : ByteOrder::kBigEndian;
    const bool tlv = (a & 0x40U) != 0U;

    Settings s;
    s.config.byteOrder = order;
    s.config.stringLengthFieldSize = Pick(static_cast<std::uint8_t>(a >> 1U), SIZES);
    s.config.structLengthFieldSize = Pick(static_cast<std::uint8_t>(a >> 3U), SIZES);
    s.config.arrayLengthFieldSize = Pick(b, SIZES);
    s.config.rawString = (a & 0x80U) != 0U;
    s.useNodes = (a & 0x20U) != 0U;

    s.elementNode = std::make_shared<SerializationNode>();
    s.elementNode->byteOrder = order;
    s.elementNode->isTlv = tlv;
    s.elementNode->structLengthFieldSize = Pick(static_cast<std::uint8_t>(a >> 3U), SIZES);
    s.elementNode->tlvLengthFieldSize = Pick(static_cast<std::uint8_t>(b >> 6U), TLV_SIZES);
    s.elementNode->children = std::make_shared<SerializationNodeList>();
    for (std::uint16_t i = 0U; i < 5U; ++i) {
        auto member = std::make_shared<SerializationNode>();
        member->byteOrder = order;
        member->dataId = tlv ? static_cast<std::uint16_t>(i + 1U) : 0xFFFFU;
        member->stringLengthFieldSize = Pick(static_cast<std::uint8_t>(a >> 1U), SIZES);
        member->tlvLengthFieldSize = Pick(static_cast<std::uint8_t>(b >> 6U), TLV_SIZES);
        member->rawString = (a & 0x80U) != 0U;
        member->alignment = Pick(static_cast<std::uint8_t>(b >> 2U), ALIGNMENTS);
        member->dynamicLengthField = (b & 0x10U) != 0U;
        member->skipPadding = (b & 0x20U) != 0U;
        s.elementNode->children->push_back(member);
    }
    s.memberNode = (*s.elementNode->children)[0];

    s.listNode = std::make_shared<SerializationNode>();
    s.listNode->byteOrder = order;
    s.listNode->arrayLengthFieldSize = Pick(b, SIZES);
    s.listNode->children = std::make_shared<SerializationNodeList>(SerializationNodeList{s.elementNode});
    return s;
}

/// Stops the fuzzer when a decoder claims more bytes than it was given.
inline void CheckSize(std::uint64_t size, std::size_t available) {
    if (size != kelp::serialize::SERIALIZE_SIZE_ERROR && size > available) {
        __builtin_trap();
    }
}

}  // namespace fuzz

#endif
