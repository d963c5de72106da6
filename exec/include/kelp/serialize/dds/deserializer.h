// SPDX-License-Identifier: Apache-2.0
// DDS decoders of this library's values: the generic ones of the middleware (scalars,
// strings, error payloads) and those of `ara::exec::Process` and of a list of processes,
// which the clients read and emd writes.
#ifndef KELP_SERIALIZE_DDS_DESERIALIZER_H
#define KELP_SERIALIZE_DDS_DESERIALIZER_H

#include <cstdint>
#include <vector>

#include "ara/core/internal/export.h"
#include "ara/exec/process.h"
#include "kelp/serialize/dds/basic_deserializer.h"

namespace kelp::serialize::dds {

/// The five members of a process, one after the other.
template <>
class ARA_EXPORT Deserializer<ara::exec::Process> : public DeserializerBase {
public:
    using DeserializerBase::DeserializerBase;

    [[nodiscard]] std::uint64_t GetSize() const;
    [[nodiscard]] ara::exec::Process GetValue() const;
};

/// 32-bit element count, then the elements (SequenceContainerDeserializer).
template <>
class ARA_EXPORT Deserializer<std::vector<ara::exec::Process>> : public DeserializerBase {
public:
    using DeserializerBase::DeserializerBase;

    [[nodiscard]] std::uint64_t GetSize() const;
    /// The elements decoded before the first one that does not fit.
    [[nodiscard]] std::vector<ara::exec::Process> GetValue() const;
};

}  // namespace kelp::serialize::dds

#endif
