// SPDX-License-Identifier: Apache-2.0
// DDS decoders of replies: error payload, string, flag, process and process list, all in
// host order without alignment.
#ifndef KELP_SERIALIZE_DDS_BASIC_DESERIALIZER_H
#define KELP_SERIALIZE_DDS_BASIC_DESERIALIZER_H

#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "ara/core/error_code.h"
#include "ara/core/internal/export.h"
#include "ara/core/string.h"
#include "kelp/serialize/serialize_config.h"

namespace kelp::serialize::dds {

namespace detail {
/// Size of the element count in front of a string or a sequence.
constexpr std::uint64_t COUNT_SIZE = 4U;
/// The count at `data`, in host order; `data` must hold COUNT_SIZE bytes.
inline std::uint32_t ReadCount(const unsigned char* data) noexcept {
    std::uint32_t count{};
    std::memcpy(&count, data, sizeof(count));
    return count;
}
}  // namespace detail

/// (error domain id, error code value) read from an error payload.
using ErrorCodeValue = std::pair<std::uint64_t, std::int32_t>;

/// The byte range of one decoder. The configuration is carried, not consulted.
class ARA_EXPORT DeserializerBase {
public:
    DeserializerBase(const unsigned char* data, std::uint64_t size, const SerializeConfig& config)
        : data_(data), size_(data == nullptr ? 0U : size), config_(config) {}

protected:
    const unsigned char* data_;
    std::uint64_t size_;
    SerializeConfig config_;
};

template <typename T>
class Deserializer;

/// The 17-byte error reply in host order.
template <>
class ARA_EXPORT Deserializer<ara::core::ErrorCode> : public DeserializerBase {
public:
    using DeserializerBase::DeserializerBase;

    [[nodiscard]] std::uint64_t GetSize() const;
    [[nodiscard]] ErrorCodeValue GetValue() const { return GetValueHelper(); }
    [[nodiscard]] ErrorCodeValue GetValueHelper() const;
};

/// 32-bit character count, then the characters.
template <>
class ARA_EXPORT Deserializer<ara::core::String> : public DeserializerBase {
public:
    using DeserializerBase::DeserializerBase;

    [[nodiscard]] std::uint64_t GetSize() const;
    [[nodiscard]] ara::core::String GetValue() const;
};

template <>
class ARA_EXPORT Deserializer<bool> : public DeserializerBase {
public:
    using DeserializerBase::DeserializerBase;

    [[nodiscard]] std::uint64_t GetSize() const;
    [[nodiscard]] bool GetValue() const;
};

}  // namespace kelp::serialize::dds

#endif
