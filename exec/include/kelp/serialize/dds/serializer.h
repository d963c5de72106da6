// SPDX-License-Identifier: Apache-2.0
// DDS encoders of this library's values: the generic ones of the middleware (scalars,
// strings, error payloads) and those of `ara::exec::Process` and of a list of processes,
// which the clients read and emd writes.
#ifndef KELP_SERIALIZE_DDS_SERIALIZER_H
#define KELP_SERIALIZE_DDS_SERIALIZER_H

#include <cstdint>
#include <vector>

#include "ara/core/internal/export.h"
#include "ara/exec/process.h"
#include "kelp/serialize/dds/basic_serializer.h"

namespace kelp::serialize::dds {

/// `ara::exec::Process` (server side): the five members in their DDS forms.
template <>
class ARA_EXPORT Serializer<ara::exec::Process> : public ValueSerializer<ara::exec::Process> {
public:
    using ValueSerializer<ara::exec::Process>::ValueSerializer;

    [[nodiscard]] std::uint64_t GetSize() const noexcept;
    void Serialize(unsigned char* buffer) const;
};

/// `std::vector<ara::exec::Process>` (server side): 32-bit element count, then the elements.
template <>
class ARA_EXPORT Serializer<std::vector<ara::exec::Process>> : public ValueSerializer<std::vector<ara::exec::Process>> {
public:
    using ValueSerializer<std::vector<ara::exec::Process>>::ValueSerializer;

    [[nodiscard]] std::uint64_t GetSize() const noexcept;
    void Serialize(unsigned char* buffer) const;
};

}  // namespace kelp::serialize::dds

#endif
