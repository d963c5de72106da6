// SPDX-License-Identifier: Apache-2.0
// Server-side wire forms of the skeleton: request arguments read in the encoding the client's
// parameter serializer writes (no deployment nodes), and replies written in the forms the
// client's method proxy reads.
#ifndef KELP_BRIO_DETAIL_SKELETON_CODEC_H
#define KELP_BRIO_DETAIL_SKELETON_CODEC_H

#include <cstdint>
#include <cstring>
#include <optional>
#include <tuple>
#include <type_traits>
#include <vector>

#include "ara/core/error_code.h"
#include "ara/core/result.h"
#include "ara/core/string.h"
#include "kelp/serialize/dds/basic_deserializer.h"
#include "kelp/serialize/dds/basic_serializer.h"
#include "kelp/serialize/serialize_config.h"
#include "kelp/serialize/someip/basic_deserializer.h"
#include "kelp/serialize/someip/basic_serializer.h"

namespace kelp::brio::detail {

using kelp::serialize::SerializeConfig;
using kelp::serialize::SerializeType;

/// Reads one argument at `offset` and advances it; false when the bytes do not hold one.
template <typename T>
bool ReadArgument(SerializeType type,
                  const SerializeConfig& config,
                  const unsigned char* data,
                  std::uint64_t size,
                  std::uint64_t& offset,
                  T& value) {
    if (offset > size || (type != SerializeType::kDds && type != SerializeType::kSomeip)) {
        return false;
    }
    const std::uint64_t left = size - offset;
    if constexpr (std::is_same_v<T, ara::core::String>) {
        std::uint64_t used = kelp::serialize::SERIALIZE_SIZE_ERROR;
        if (type == SerializeType::kDds) {
            const kelp::serialize::dds::Deserializer<ara::core::String> reader(data + offset, left, config);
            used = reader.GetSize();
            if (used <= left) {
                value = reader.GetValue();
            }
        } else {
            const kelp::serialize::someip::Deserializer<ara::core::String> reader(data + offset, left, config);
            used = reader.GetSize();
            if (used <= left) {
                value = reader.GetValue();
                used += reader.GetPadding();
            }
        }
        if (used > left) {  // also the size-error mark
            return false;
        }
        offset += used;
        return true;
    } else {
        static_assert(sizeof(T) == 1U || sizeof(T) == 4U, "arguments are 1 or 4 bytes");
        if (left < sizeof(T)) {
            return false;
        }
        if constexpr (sizeof(T) == 4U) {
            std::uint32_t raw = 0U;
            std::memcpy(&raw, data + offset, sizeof(raw));
            if (type == SerializeType::kSomeip) {
                raw = kelp::serialize::detail::ToOrder(raw, config.byteOrder);
            }
            std::memcpy(&value, &raw, sizeof(raw));
        } else if constexpr (std::is_same_v<T, bool>) {
            if (data[offset] > 1U) {
                return false;
            }
            value = data[offset] == 1U;
        } else {
            value = static_cast<T>(data[offset]);
        }
        offset += sizeof(T);
        return true;
    }
}

/// The arguments of one request, or nullopt when the payload does not hold exactly them.
template <typename... Args>
std::optional<std::tuple<Args...>> ReadArguments(SerializeType type,
                                                 const SerializeConfig& config,
                                                 const unsigned char* data,
                                                 std::uint64_t size) {
    std::tuple<Args...> values{};
    std::uint64_t offset = 0U;
    const bool ok = std::apply(
        [&](Args&... each) { return (ReadArgument(type, config, data, size, offset, each) && ... && true); }, values);
    if (!ok || offset != size) {
        return std::nullopt;
    }
    return values;
}

/// The reply payload of `result` in `type`'s form: the value, or the 17-byte error payload.
/// False when it cannot be encoded.
template <typename R>
bool WriteReply(SerializeType type,
                const SerializeConfig& config,
                const ara::core::Result<R, ara::core::ErrorCode>& result,
                std::vector<unsigned char>& bytes) {
    bytes.clear();
    if (type != SerializeType::kDds && type != SerializeType::kSomeip) {
        return false;
    }
    if (!result.HasValue()) {
        bytes.resize(kelp::serialize::ERROR_CODE_PAYLOAD_SIZE);
        if (type == SerializeType::kDds) {
            kelp::serialize::dds::Serializer<ara::core::ErrorCode>(result.Error(), config, bytes.size())
                .Serialize(bytes.data());
        } else {
            kelp::serialize::someip::Serializer<ara::core::ErrorCode>(result.Error(), config, nullptr, bytes.size())
                .Serialize(bytes.data());
        }
        return true;
    }
    if constexpr (std::is_void_v<R>) {
        return true;
    } else {
        // A SOME/IP list is written with the member configuration, a string with the
        // method's, as the proxy reads them.
        const bool methodConfig = type == SerializeType::kDds || std::is_same_v<R, ara::core::String>;
        const SerializeConfig used = methodConfig ? config : SerializeConfig{};
        std::uint64_t size = kelp::serialize::SERIALIZE_SIZE_ERROR;
        if (type == SerializeType::kDds) {
            size = kelp::serialize::dds::Serializer<R>(result.Value(), used).GetSize();
        } else {
            size = kelp::serialize::someip::Serializer<R>(result.Value(), used).GetSize();
        }
        if (size >= kelp::serialize::SERIALIZE_SIZE_ERROR) {
            return false;
        }
        // One spare byte: a SOME/IP string's padding is counted but not written.
        bytes.resize(static_cast<std::size_t>(size) + 1U);
        if (type == SerializeType::kDds) {
            kelp::serialize::dds::Serializer<R>(result.Value(), used, size).Serialize(bytes.data());
        } else {
            kelp::serialize::someip::Serializer<R>(result.Value(), used, nullptr, size).Serialize(bytes.data());
        }
        bytes.resize(static_cast<std::size_t>(size));
        return true;
    }
}

}  // namespace kelp::brio::detail

#endif
