// SPDX-License-Identifier: Apache-2.0
// SOME/IP encoders: scalars, strings, and the reply forms a server writes (process, process
// list, error payload). Each computes its size first, then writes at buffer + position.
#ifndef KELP_SERIALIZE_SOMEIP_BASIC_SERIALIZER_H
#define KELP_SERIALIZE_SOMEIP_BASIC_SERIALIZER_H

#include <cstdint>
#include <cstring>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

#include "ara/core/error_code.h"
#include "ara/core/internal/export.h"
#include "ara/core/memcpy_s.h"
#include "ara/core/string.h"
#include "kelp/serialize/serialize_config.h"

namespace kelp::serialize::someip {

namespace detail {
ARA_EXPORT void LogScalarCopyFailure();
}  // namespace detail

/// Settings every SOME/IP encoder carries for one write.
class ARA_EXPORT SerializerBase {
public:
    /// Byte order of the value: the node's when one is attached, else the configuration's.
    [[nodiscard]] ByteOrder Order() const noexcept { return node_ ? node_->byteOrder : config_.byteOrder; }
    std::uint64_t Position() const noexcept { return position_; }

protected:
    SerializerBase(const SerializeConfig& config,
                   std::shared_ptr<SerializationNode> node,
                   std::uint64_t room,
                   std::uint64_t position)
        : config_(config), node_(std::move(node)), room_(room), position_(position) {}

    SerializeConfig config_;
    std::shared_ptr<SerializationNode> node_;
    std::uint64_t room_;
    std::uint64_t position_;
};

/// An encoder of one value of type T, which it refers to (the value must outlive it).
template <typename T>
class ARA_EXPORT ValueSerializer : public SerializerBase {
public:
    ValueSerializer(const T& value,
                    const SerializeConfig& config,
                    std::shared_ptr<SerializationNode> node = nullptr,
                    std::uint64_t room = 0U,
                    std::uint64_t position = 0U)
        : SerializerBase(config, std::move(node), room, position), value_(&value) {}

protected:
    const T* value_;
};

/// Fixed-size values: `int` (4 bytes in the value's byte order), one-byte enumerations
/// and `bool` (the byte as stored).
template <typename T>
class Serializer : public ValueSerializer<T> {
    static_assert(std::is_trivially_copyable_v<T> &&
                      (sizeof(T) == 1U || sizeof(T) == 2U || sizeof(T) == 4U || sizeof(T) == 8U),
                  "SOME/IP scalar serializer needs a 1, 2, 4 or 8 byte trivially copyable type");

public:
    using ValueSerializer<T>::ValueSerializer;

    [[nodiscard]] std::uint64_t GetSize() const noexcept { return sizeof(T); }
    [[nodiscard]] std::uint64_t GetSizeHelper() const noexcept { return sizeof(T); }
    void Serialize(unsigned char* buffer) const { SerializeHelper<T>(buffer); }

    template <typename U>
    void SerializeHelper(unsigned char* buffer) const {
        static_assert(std::is_same_v<U, T>, "SerializeHelper writes the serializer's own type");
        unsigned char bytes[sizeof(U)];
        std::memcpy(bytes, this->value_, sizeof(U));
        if constexpr (sizeof(U) == 2U) {
            Reorder<std::uint16_t>(bytes);
        } else if constexpr (sizeof(U) == 4U) {
            Reorder<std::uint32_t>(bytes);
        } else if constexpr (sizeof(U) == 8U) {
            Reorder<std::uint64_t>(bytes);
        }
        if (buffer == nullptr || memcpy_s(buffer + this->position_, this->room_, bytes, sizeof(U)) != 0) {
            detail::LogScalarCopyFailure();
        }
    }

private:
    /// Puts the `sizeof(UInt)` bytes at `bytes` into the value's byte order.
    template <typename UInt>
    void Reorder(unsigned char* bytes) const {
        UInt v{};
        std::memcpy(&v, bytes, sizeof(v));
        v = serialize::detail::ToOrder(v, this->Order());
        std::memcpy(bytes, &v, sizeof(v));
    }
};

/// `ara::core::String`: length field, byte-order mark, characters, terminator, and the
/// alignment padding that is counted but left to the buffer's owner.
template <>
class ARA_EXPORT Serializer<ara::core::String> : public ValueSerializer<ara::core::String> {
public:
    using ValueSerializer<ara::core::String>::ValueSerializer;

    /// Bytes the string takes, padding included, or SERIALIZE_SIZE_ERROR when the payload does
    /// not fit the length field. Records the chosen length-field size and the padding.
    [[nodiscard]] std::uint64_t GetSize();
    /// As GetSize, for a string of `characters` characters (the value itself is not read).
    [[nodiscard]] std::uint64_t GetSizeHelper(std::uint64_t characters);
    /// Writes the string; computes the size first when GetSize was not called. Padding bytes
    /// are not written.
    void Serialize(unsigned char* buffer);

    void SetNoPadding(bool noPadding) noexcept { noPadding_ = noPadding; }
    std::uint8_t ChosenLengthFieldSize() const noexcept { return chosenLengthFieldSize_; }
    std::uint8_t Padding() const noexcept { return padding_; }
    bool IsRaw() const noexcept { return node_ ? node_->rawString : config_.rawString; }

    /// Largest payload (mark, characters and terminator) a static length field can carry.
    [[nodiscard]] static std::uint64_t MaxPayload(std::uint64_t lengthFieldSize) noexcept;

private:
    std::uint64_t totalSize_{SERIALIZE_SIZE_ERROR};
    std::uint8_t chosenLengthFieldSize_{0U};
    std::uint8_t padding_{0U};
    bool noPadding_{false};
};

/// The 17-byte error reply: 4 zero bytes, kind 1, the 64-bit domain id and the 32-bit code in
/// the value's byte order.
template <>
class ARA_EXPORT Serializer<ara::core::ErrorCode> : public SerializerBase {
public:
    Serializer(const ara::core::ErrorCode& value,
               const SerializeConfig& config,
               std::shared_ptr<SerializationNode> node = nullptr,
               std::uint64_t room = 0U,
               std::uint64_t position = 0U)
        : SerializerBase(config, std::move(node), room, position),
          domainId_(value.Domain().Id()),
          code_(value.Value()) {}
    /// For a domain that has no object in this process.
    Serializer(std::uint64_t domainId,
               std::int32_t code,
               const SerializeConfig& config,
               std::shared_ptr<SerializationNode> node = nullptr,
               std::uint64_t room = 0U,
               std::uint64_t position = 0U)
        : SerializerBase(config, std::move(node), room, position), domainId_(domainId), code_(code) {}

    [[nodiscard]] std::uint64_t GetSize() const noexcept;
    void Serialize(unsigned char* buffer) const;

private:
    std::uint64_t domainId_;
    std::int32_t code_;
};

}  // namespace kelp::serialize::someip

#endif
