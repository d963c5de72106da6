// SPDX-License-Identifier: Apache-2.0
// Settings shared by every encoder and decoder and by the transports that report them: encoding kind, byte order, the
// per-method configuration, the per-member deployment node, and the byte-order and size helpers.
#ifndef KELP_SERIALIZE_SERIALIZE_CONFIG_H
#define KELP_SERIALIZE_SERIALIZE_CONFIG_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "ara/core/internal/export.h"

namespace kelp::serialize {

/// Size returned by every size computation when a value cannot be encoded or decoded.
constexpr std::uint64_t SERIALIZE_SIZE_ERROR = 0xFFFFFFFFULL;

/// An error reply: 4 bytes the decoders ignore (written as 0), the kind byte (1), the 64-bit
/// domain id at offset 5 and the 32-bit code at offset 13.
constexpr std::size_t ERROR_CODE_PAYLOAD_SIZE = 17U;
constexpr unsigned char ERROR_CODE_KIND = 1U;

/// Encoding of a whole method. Values other than kDds and kSomeip are carried but refused.
enum class SerializeType : std::uint8_t {
    kDds = 0,
    kSomeip = 2,
};

/// 1 means little-endian (host order on our targets); every other value means big-endian.
enum class ByteOrder : std::uint8_t {
    kBigEndian = 0,
    kLittleEndian = 1,
};

/// Per-method settings. Default construction gives the member configuration used for each
/// argument of a method that carries TLV data ids. Fields not read by this library are carried.
class ARA_EXPORT SerializeConfig {
public:
    SerializeConfig() = default;
    SerializeConfig(const SerializeConfig&) = default;
    SerializeConfig& operator=(const SerializeConfig&) = default;
    virtual ~SerializeConfig() = default;

    std::uint8_t setting1{1U};
    std::uint8_t setting2{0U};
    std::uint8_t setting3{0U};
    std::uint8_t setting4{0U};
    std::uint8_t setting5{0U};
    std::uint8_t setting6{1U};
    std::uint8_t setting7{0U};
    ByteOrder byteOrder{ByteOrder::kBigEndian};  ///< used when no node is attached
    std::uint64_t lengthFieldSizeA{4U};
    std::uint64_t stringLengthFieldSize{4U};  ///< 0, 1, 2 or 4 bytes in front of a string
    std::uint64_t arrayLengthFieldSize{4U};   ///< in front of a container without node
    std::uint64_t lengthFieldSizeC{0U};
    std::uint64_t structLengthFieldSize{0U};  ///< in front of a structure without node; 0: none
    bool rawString{false};                    ///< no byte-order mark and no terminator
    bool secondFlag{true};
    std::uint64_t word1{0U};
    std::uint64_t word2{0U};
};

struct SerializationNode;
using SerializationNodeList = std::vector<std::shared_ptr<SerializationNode>>;

/// Deployment of one argument, result or structure member. Its settings take precedence
/// over the SerializeConfig's while it is attached.
struct SerializationNode {
    std::uint8_t alignment{0U};  ///< alignment after a string member; below 2: none
    ByteOrder byteOrder{ByteOrder::kBigEndian};
    bool rawString{false};
    bool dynamicLengthField{false};  ///< TLV: length-field size chosen from the payload size
    std::uint8_t setting1{0U};
    std::uint8_t setting2{0U};
    std::uint8_t arrayLengthFieldSize{4U};
    std::uint8_t stringLengthFieldSize{4U};
    std::uint8_t structLengthFieldSize{0U};
    std::uint8_t setting3{0U};
    std::uint16_t setting4{0U};
    std::uint16_t dataId{0xFFFFU};  ///< 0xFFFF: no data id, no tag
    std::uint8_t tlvLengthFieldSize{4U};
    bool isTlv{false};        ///< on a method's (or structure's) node: its members carry tags
    bool skipPadding{false};  ///< no alignment padding after this member
    std::uint8_t setting5{0U};
    std::shared_ptr<SerializationNodeList> children;

    bool HasDataId() const noexcept { return dataId != 0xFFFFU; }
    /// The i-th child node, or null when there is none.
    std::shared_ptr<SerializationNode> Child(std::size_t index) const {
        return (children && index < children->size()) ? (*children)[index] : nullptr;
    }
};

namespace detail {

/// Room left in a buffer of `room` bytes once `used` are taken; never below 0.
inline std::uint64_t Remaining(std::uint64_t room, std::uint64_t used) noexcept {
    return room > used ? room - used : 0U;
}

inline std::uint16_t ToOrder(std::uint16_t value, ByteOrder order) noexcept {
    return order == ByteOrder::kLittleEndian ? value : __builtin_bswap16(value);
}
inline std::uint32_t ToOrder(std::uint32_t value, ByteOrder order) noexcept {
    return order == ByteOrder::kLittleEndian ? value : __builtin_bswap32(value);
}
inline std::uint64_t ToOrder(std::uint64_t value, ByteOrder order) noexcept {
    return order == ByteOrder::kLittleEndian ? value : __builtin_bswap64(value);
}

/// Reads a length field of 1, 2 or 4 bytes from `data` in `order`; any other size reads 0.
/// The caller has checked that `size` bytes are readable.
inline std::uint32_t ReadLengthField(const unsigned char* data, std::uint64_t size, ByteOrder order) noexcept {
    switch (size) {
        case 1U:
            return data[0];
        case 2U: {
            std::uint16_t v{};
            std::memcpy(&v, data, sizeof(v));
            return ToOrder(v, order);
        }
        case 4U: {
            std::uint32_t v{};
            std::memcpy(&v, data, sizeof(v));
            return ToOrder(v, order);
        }
        default:
            return 0U;
    }
}

}  // namespace detail
}  // namespace kelp::serialize

#endif
