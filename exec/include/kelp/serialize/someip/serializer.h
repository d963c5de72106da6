// SPDX-License-Identifier: Apache-2.0
// SOME/IP encoders of this library's values: the generic ones of the middleware (scalars,
// strings, error payloads) and those of `ara::exec::Process` and of a list of processes,
// which the clients read and emd writes.
#ifndef KELP_SERIALIZE_SOMEIP_SERIALIZER_H
#define KELP_SERIALIZE_SOMEIP_SERIALIZER_H

#include <cstdint>
#include <vector>

#include "ara/core/internal/export.h"
#include "ara/exec/process.h"
#include "kelp/serialize/someip/basic_serializer.h"

namespace kelp::serialize::someip {

/// `ara::exec::Process` (server side): optional structure length field, then the four
/// strings and the flag, each with the member configuration and its child node. With the
/// node's `isTlv` set each member carries its tag, written in the structure node's byte
/// order, and a static length field takes the member's `tlvLengthFieldSize`, as the decoder
/// reads it; a member without data id cannot be encoded then.
template <>
class ARA_EXPORT Serializer<ara::exec::Process> : public ValueSerializer<ara::exec::Process> {
public:
    using ValueSerializer<ara::exec::Process>::ValueSerializer;

    [[nodiscard]] std::uint64_t GetSize();
    void Serialize(unsigned char* buffer);

private:
    std::uint64_t Layout(unsigned char* buffer);
};

/// `std::vector<ara::exec::Process>` (server side): container length field holding the byte
/// length of the elements, then the elements, each with the member configuration and the
/// node's first child.
template <>
class ARA_EXPORT Serializer<std::vector<ara::exec::Process>> : public ValueSerializer<std::vector<ara::exec::Process>> {
public:
    using ValueSerializer<std::vector<ara::exec::Process>>::ValueSerializer;

    [[nodiscard]] std::uint64_t GetSize();
    void Serialize(unsigned char* buffer);

private:
    std::uint64_t Layout(unsigned char* buffer);
};

}  // namespace kelp::serialize::someip

#endif
