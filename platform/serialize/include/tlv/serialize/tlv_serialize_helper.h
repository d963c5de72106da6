// SPDX-License-Identifier: Apache-2.0
// TLV framing of SOME/IP payloads: the 16-bit tag, the length-field writer and the tag
// scanner that indexes a stream by data id.
#ifndef TLV_SERIALIZE_TLV_SERIALIZE_HELPER_H
#define TLV_SERIALIZE_TLV_SERIALIZE_HELPER_H

#include <cstdint>
#include <unordered_map>

#include "ara/core/internal/export.h"
#include "kelp/serialize/serialize_config.h"

namespace tlv::serialize {

using ByteOrder = kelp::serialize::ByteOrder;

/// Where one member lies in a scanned stream.
struct DataIdParams {
    std::uint64_t offset{0U};          ///< first byte after the tag
    std::uint64_t size{0U};            ///< bytes after the tag, length field included
    std::uint8_t lengthFieldSize{0U};  ///< 0 for fixed-size wire types
};

/// Result of RecordDataId: the members by data id (first occurrence wins) and the number of
/// bytes scanned, or SERIALIZE_SIZE_ERROR (with no entries) for a malformed stream.
struct DataIdTable {
    std::unordered_map<std::uint16_t, DataIdParams> entries;
    std::uint64_t consumedSize{0U};
};

/// Wire types of the tag (bits 14-12).
enum class WireType : std::uint8_t {
    kOneByte = 0,
    kTwoBytes = 1,
    kFourBytes = 2,
    kEightBytes = 3,
    kStaticLength = 4,
    kLength1 = 5,
    kLength2 = 6,
    kLength4 = 7,
};

class ARA_EXPORT TlvSerializeHelper {
public:
    /// Writes `length` as a length field of `lengthFieldSize` (0, 1, 2 or 4) bytes at
    /// `destination`. Other sizes log and write nothing. The destination is trusted to hold
    /// `length + lengthFieldSize` bytes: the caller computed the size beforehand.
    static void CopyLengthField(unsigned char* destination,
                                unsigned long length,
                                unsigned long lengthFieldSize,
                                ByteOrder order);

    /// Scans `streamSize` bytes of tag-length-value members from `stream`. Values are not
    /// looked at; `staticLengthFieldSize` is the length-field size of wire type 4.
    /// @return the members by data id; consumedSize may exceed streamSize when the last
    ///         member's declared length runs past the end (decoders check sizes again).
    static DataIdTable RecordDataId(ByteOrder order,
                                    unsigned char staticLengthFieldSize,
                                    const unsigned char* stream,
                                    unsigned long streamSize);

    /// Tag of a length-delimited member (string, structure, container): wire type 5, 6 or 7
    /// from `lengthFieldSize` with a dynamic length field, else wire type 4.
    static std::uint16_t LengthDelimitedTag(std::uint16_t dataId,
                                            bool dynamicLengthField,
                                            std::uint64_t lengthFieldSize) noexcept;

    /// Tag of a fixed-size member of `valueSize` bytes: 4 bytes get wire type 2, one byte
    /// leaves the data id unchanged (wire type 0).
    static std::uint16_t FixedSizeTag(std::uint16_t dataId, std::uint64_t valueSize) noexcept;
};

}  // namespace tlv::serialize

#endif
