// SPDX-License-Identifier: Apache-2.0
// Lays the arguments of one method request into one payload: a size pass over every
// argument, then a write pass in the same order, in the DDS or the SOME/IP form, with a TLV
// tag in front of each argument when the method's node says so.
#ifndef KELP_BRIO_SERIALIZE_PARAMS_SERIALIZER_H
#define KELP_BRIO_SERIALIZE_PARAMS_SERIALIZER_H

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <type_traits>

#include "ara/core/internal/export.h"
#include "ara/core/string.h"
#include "kelp/serialize/serialize_config.h"

namespace kelp::brio::serialize {

using kelp::serialize::SerializationNode;
using kelp::serialize::SerializeConfig;
using kelp::serialize::SerializeType;

/// One object per request, used by the requesting thread only. Argument types: `int`,
/// one-byte enumerations (`ara::exec::ExecutionState`), `bool`, `ara::core::String`.
///
/// Order of use: for SOME/IP call DoGetSomeipSize for every argument, read GetSomeipSize(),
/// ResetCursor(), allocate, then DoSerialize for every argument with the payload start.
/// GetSerializedSize and SerializeArguments do both passes for a whole argument list.
class ARA_EXPORT ParamsSerializer {
public:
    /// `buffer` is the write position of the DDS form and of SOME/IP arguments without
    /// member nodes; it may be null when the payload is not allocated yet, then the first
    /// DoSerialize call supplies it.
    ParamsSerializer(unsigned char* buffer,
                     SerializeType type,
                     const SerializationNode& methodNode,
                     const SerializeConfig& config);
    ~ParamsSerializer();
    ParamsSerializer(const ParamsSerializer&) = delete;
    ParamsSerializer& operator=(const ParamsSerializer&) = delete;

    /// Size pass for one argument (SOME/IP form). After an error the running size stays
    /// SERIALIZE_SIZE_ERROR.
    template <typename T>
    void DoGetSomeipSize(const T& argument) {
        SomeipSize(MakeArgument(argument));
    }

    /// Write pass for one argument at `buffer` (the payload start), in the form of the
    /// method's serialize type.
    template <typename T>
    void DoSerialize(unsigned char* buffer, const T& argument) {
        Write(buffer, MakeArgument(argument));
    }

    /// SOME/IP write of one argument at the payload start given to the last DoSerialize.
    template <typename T>
    void DoSomeipSerialize(const T& argument) {
        SomeipWrite(MakeArgument(argument));
    }

    /// Bytes counted by the size pass so far, or SERIALIZE_SIZE_ERROR.
    [[nodiscard]] std::uint64_t GetSomeipSize() const noexcept { return runningSize_; }
    /// Points the cursor back at the first member node and clears the write offset.
    void ResetCursor() noexcept;

    /// Payload size of a whole argument list in the method's form, or SERIALIZE_SIZE_ERROR
    /// (also for a serialize type other than DDS and SOME/IP). Leaves the object ready for
    /// SerializeArguments.
    template <typename... Args>
    std::uint64_t GetSerializedSize(const Args&... args) {
        const std::uint64_t size = SizeOfAll({MakeArgument(args)...});
        ResetCursor();
        return size;
    }

    /// Write pass of a whole argument list at `buffer`, which holds GetSerializedSize bytes.
    template <typename... Args>
    void SerializeArguments(unsigned char* buffer, const Args&... args) {
        (DoSerialize(buffer, args), ...);
    }

private:
    enum class Kind : std::uint8_t { kInt, kEnum, kBool, kString };
    struct Argument {
        Kind kind;
        std::int32_t intValue;
        std::uint8_t byteValue;
        const ara::core::String* text;
    };
    static Argument MakeArgument(const int& v) noexcept { return {Kind::kInt, v, 0U, nullptr}; }
    /// A one-byte enumeration (an execution state, for one) travels as its byte.
    template <typename E, typename = std::enable_if_t<std::is_enum_v<E> && sizeof(E) == 1U>>
    static Argument MakeArgument(const E& v) noexcept {
        return {Kind::kEnum, 0, static_cast<std::uint8_t>(v), nullptr};
    }
    static Argument MakeArgument(const bool& v) noexcept {
        return {Kind::kBool, 0, static_cast<std::uint8_t>(v ? 1U : 0U), nullptr};
    }
    static Argument MakeArgument(const ara::core::String& v) noexcept { return {Kind::kString, 0, 0U, &v}; }

    static std::uint64_t MemberSize(const Argument& argument,
                                    const SerializeConfig& config,
                                    const std::shared_ptr<SerializationNode>& node,
                                    std::uint64_t position);
    std::uint64_t SizeOfAll(std::initializer_list<Argument> args);
    void SomeipSize(const Argument& argument);
    void Write(unsigned char* buffer, const Argument& argument);
    void SomeipWrite(const Argument& argument);
    void DdsWrite(const Argument& argument);

    unsigned char* writePointer_;
    unsigned char* base_{nullptr};
    SerializeType type_;
    SerializeConfig config_;
    SerializationNode node_;
    std::shared_ptr<kelp::serialize::SerializationNodeList> children_;
    std::size_t cursor_{0U};
    std::uint64_t runningSize_{0U};
    std::uint64_t writeOffset_{0U};
};

}  // namespace kelp::brio::serialize

#endif
