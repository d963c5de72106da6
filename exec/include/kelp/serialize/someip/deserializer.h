// SPDX-License-Identifier: Apache-2.0
// SOME/IP decoders of this library's values: the generic ones of the middleware (scalars,
// strings, error payloads) and those of `ara::exec::Process` and of a list of processes,
// which the clients read and emd writes.
#ifndef KELP_SERIALIZE_SOMEIP_DESERIALIZER_H
#define KELP_SERIALIZE_SOMEIP_DESERIALIZER_H

#include <cstdint>
#include <vector>

#include "ara/core/internal/export.h"
#include "ara/exec/process.h"
#include "kelp/serialize/someip/basic_deserializer.h"

namespace kelp::serialize::someip {

/// `ara::exec::Process`: optional structure length field, then the members (four strings,
/// the flag) with the member configuration and the node's children; with the node's
/// `isTlv` set the members are found by data id.
template <>
class ARA_EXPORT Deserializer<ara::exec::Process> : public DeserializerBase {
public:
    using DeserializerBase::DeserializerBase;

    [[nodiscard]] std::uint64_t GetSize() const;
    /// The decoded process; members that cannot be decoded keep their defaults.
    [[nodiscard]] ara::exec::Process GetValue() const;
};

/// `std::vector<ara::exec::Process>`: container length field (byte length of the elements),
/// then the elements, each decoded with the member configuration and the node's first child.
template <>
class ARA_EXPORT Deserializer<std::vector<ara::exec::Process>> : public DeserializerBase {
public:
    using DeserializerBase::DeserializerBase;

    [[nodiscard]] std::uint64_t GetSize() const;
    /// The elements decoded before the first one that does not fit.
    [[nodiscard]] std::vector<ara::exec::Process> GetValue() const;
};

}  // namespace kelp::serialize::someip

#endif
