// SPDX-License-Identifier: Apache-2.0
// Fuzzes the DDS process decoder.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fuzz_settings.h"
#include "kelp/serialize/dds/deserializer.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const kelp::serialize::dds::Deserializer<ara::exec::Process> decoder(
        data, size, kelp::serialize::SerializeConfig{});
    fuzz::CheckSize(decoder.GetSize(), size);
    static_cast<void>(decoder.GetValue());
    return 0;
}
