// SPDX-License-Identifier: Apache-2.0
// SOME/IP decoders of replies: error payload, string, flag, process and process list.
// Each works over a received byte range; GetSize validates and measures, GetValue decodes.
#ifndef KELP_SERIALIZE_SOMEIP_BASIC_DESERIALIZER_H
#define KELP_SERIALIZE_SOMEIP_BASIC_DESERIALIZER_H

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "ara/core/error_code.h"
#include "ara/core/internal/export.h"
#include "ara/core/string.h"
#include "kelp/serialize/serialize_config.h"

namespace kelp::serialize::someip {

/// (error domain id, error code value) read from an error payload.
using ErrorCodeValue = std::pair<std::uint64_t, std::int32_t>;

/// The byte range and settings of one decoder.
class ARA_EXPORT DeserializerBase {
public:
    /// The node's byte order when one is attached, else the configuration's.
    [[nodiscard]] ByteOrder Order() const noexcept { return node_ ? node_->byteOrder : config_.byteOrder; }

    /// `position` is the offset of `data` in the message, used for alignment.
    DeserializerBase(const unsigned char* data,
                     std::uint64_t size,
                     const SerializeConfig& config,
                     std::shared_ptr<SerializationNode> node = nullptr,
                     std::uint64_t position = 0U)
        : data_(data),
          size_(data == nullptr ? 0U : size),
          config_(config),
          node_(std::move(node)),
          position_(position) {}

protected:

    const unsigned char* data_;
    std::uint64_t size_;  ///< bytes readable from data_
    SerializeConfig config_;
    std::shared_ptr<SerializationNode> node_;
    std::uint64_t position_;  ///< offset of data_ in the message, for alignment
};

template <typename T>
class Deserializer;

/// The 17-byte error reply. Anything shorter or longer, or of another kind than 1, is refused.
template <>
class ARA_EXPORT Deserializer<ara::core::ErrorCode> : public DeserializerBase {
public:
    using DeserializerBase::DeserializerBase;

    /// 17, or SERIALIZE_SIZE_ERROR.
    [[nodiscard]] std::uint64_t GetSize() const;
    /// (domain id, code); fields that cannot be read stay 0. Call only after GetSize succeeded.
    [[nodiscard]] ErrorCodeValue GetValue() const { return GetValueHelper(); }
    [[nodiscard]] ErrorCodeValue GetValueHelper() const;
};

/// `ara::core::String`: length field, mark EF BB BF, characters, terminator 00 (raw: characters
/// only), then alignment padding for a non-TLV member whose node asks for it.
template <>
class ARA_EXPORT Deserializer<ara::core::String> : public DeserializerBase {
public:
    Deserializer(const unsigned char* data,
                 std::uint64_t size,
                 const SerializeConfig& config,
                 std::shared_ptr<SerializationNode> node = nullptr,
                 std::uint64_t position = 0U);

    /// Length field + mark + characters + terminator, or SERIALIZE_SIZE_ERROR.
    [[nodiscard]] std::uint64_t GetSize() const;
    /// The characters; empty when the stream was refused.
    [[nodiscard]] ara::core::String GetValue() const;
    /// Padding bytes that follow the value (not part of GetSize).
    [[nodiscard]] std::uint64_t GetPadding() const noexcept { return padding_; }

private:
    void SetDataLength();

    bool valid_{false};
    std::uint64_t lengthFieldSize_{0U};
    std::uint64_t mark_{4U};
    std::uint64_t characters_{0U};
    std::uint64_t padding_{0U};
};

/// One byte, 0 or 1 as stored.
template <>
class ARA_EXPORT Deserializer<bool> : public DeserializerBase {
public:
    using DeserializerBase::DeserializerBase;

    /// 1, or SERIALIZE_SIZE_ERROR when no byte is available.
    [[nodiscard]] std::uint64_t GetSize() const;
    [[nodiscard]] bool GetValue() const;
};

}  // namespace kelp::serialize::someip

#endif
