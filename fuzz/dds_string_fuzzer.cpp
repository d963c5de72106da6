// SPDX-License-Identifier: Apache-2.0
// Fuzzes the DDS string decoder.
#include <cstddef>
#include <cstdint>

#include "kelp/serialize/dds/deserializer.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const kelp::serialize::dds::Deserializer<ara::core::String> text(data, size, kelp::serialize::SerializeConfig{});
    const std::uint64_t textSize = text.GetSize();
    if (textSize != kelp::serialize::SERIALIZE_SIZE_ERROR &&
        (textSize > size || text.GetValue().size() + 4U != textSize)) {
        __builtin_trap();
    }
    return 0;
}
