// SPDX-License-Identifier: Apache-2.0
// Fuzzes the dds error-payload decoder and the one-byte decoder.
#include <cstddef>
#include <cstdint>

#include "fuzz_settings.h"
#include "kelp/serialize/dds/deserializer.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < fuzz::SETTINGS_BYTES) {
        return 0;
    }
    const fuzz::Settings s = fuzz::MakeSettings(data);
    data += fuzz::SETTINGS_BYTES;
    size -= fuzz::SETTINGS_BYTES;
    const kelp::serialize::dds::Deserializer<ara::core::ErrorCode> code(data, size, s.config);
    const std::uint64_t codeSize = code.GetSize();
    fuzz::CheckSize(codeSize, size);
    if (codeSize != kelp::serialize::SERIALIZE_SIZE_ERROR) {
        static_cast<void>(code.GetValue());
    }
    const kelp::serialize::dds::Deserializer<bool> flag(data, size, s.config);
    fuzz::CheckSize(flag.GetSize(), size);
    static_cast<void>(flag.GetValue());
    return 0;
}
