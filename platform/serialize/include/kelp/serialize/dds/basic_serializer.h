// SPDX-License-Identifier: Apache-2.0
// DDS encoders: unaligned host-order concatenation without tags, marks or terminators.
// Strings and scalars for requests, and the reply forms a server writes.
#ifndef KELP_SERIALIZE_DDS_BASIC_SERIALIZER_H
#define KELP_SERIALIZE_DDS_BASIC_SERIALIZER_H

#include <cstdint>
#include <type_traits>
#include <vector>

#include "ara/core/error_code.h"
#include "ara/core/internal/export.h"
#include "ara/core/memcpy_s.h"
#include "ara/core/string.h"
#include "kelp/serialize/serialize_config.h"

namespace kelp::serialize::dds {

namespace detail {
ARA_EXPORT void LogScalarCopyFailure();
}  // namespace detail

/// An encoder of one value of type T, which it refers to (the value must outlive it). The
/// configuration is carried, not consulted.
template <typename T>
class ARA_EXPORT ValueSerializer {
public:
    ValueSerializer(const T& value, const SerializeConfig& config, std::uint64_t room = 0U, std::uint64_t position = 0U)
        : value_(&value), config_(config), room_(room), position_(position) {}

protected:
    const T* value_;
    SerializeConfig config_;
    std::uint64_t room_;
    std::uint64_t position_;
};

/// Fixed-size values (`int`, one-byte enumerations, `bool`): their bytes in host order.
template <typename T>
class Serializer : public ValueSerializer<T> {
    static_assert(std::is_trivially_copyable_v<T>, "DDS scalar serializer needs a trivially copyable type");

public:
    using ValueSerializer<T>::ValueSerializer;

    [[nodiscard]] std::uint64_t GetSize() const noexcept { return sizeof(T); }
    void Serialize(unsigned char* buffer) const {
        if (buffer == nullptr || memcpy_s(buffer + this->position_, this->room_, this->value_, sizeof(T)) != 0) {
            detail::LogScalarCopyFailure();
        }
    }
};

/// `ara::core::String` (also `std::string`, the same type here): 32-bit character count,
/// then the characters.
template <>
class ARA_EXPORT Serializer<ara::core::String> : public ValueSerializer<ara::core::String> {
public:
    using ValueSerializer<ara::core::String>::ValueSerializer;

    /// 4 + characters, or SERIALIZE_SIZE_ERROR when the count does not fit 32 bits.
    [[nodiscard]] std::uint64_t GetSize() const noexcept { return SizeFor(value_->size()); }
    [[nodiscard]] static std::uint64_t SizeFor(std::uint64_t characters) noexcept;
    void Serialize(unsigned char* buffer) const;
};

/// The 17-byte error reply in host order: 4 zero bytes, kind 1, domain id, code.
template <>
class ARA_EXPORT Serializer<ara::core::ErrorCode> {
public:
    Serializer(const ara::core::ErrorCode& value,
               const SerializeConfig& config,
               std::uint64_t room = 0U,
               std::uint64_t position = 0U)
        : domainId_(value.Domain().Id()), code_(value.Value()), config_(config), room_(room), position_(position) {}
    Serializer(std::uint64_t domainId,
               std::int32_t code,
               const SerializeConfig& config,
               std::uint64_t room = 0U,
               std::uint64_t position = 0U)
        : domainId_(domainId), code_(code), config_(config), room_(room), position_(position) {}

    [[nodiscard]] std::uint64_t GetSize() const noexcept;
    void Serialize(unsigned char* buffer) const;

private:
    std::uint64_t domainId_;
    std::int32_t code_;
    SerializeConfig config_;
    std::uint64_t room_;
    std::uint64_t position_;
};

}  // namespace kelp::serialize::dds

#endif
