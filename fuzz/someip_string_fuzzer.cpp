// SPDX-License-Identifier: Apache-2.0
// Fuzzes the SOME/IP string decoder with configuration-only, member-node and TLV settings.
#include <cstddef>
#include <cstdint>

#include "fuzz_settings.h"
#include "kelp/serialize/someip/deserializer.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < fuzz::SETTINGS_BYTES) {
        return 0;
    }
    const fuzz::Settings s = fuzz::MakeSettings(data);
    const std::uint64_t position = data[1];
    data += fuzz::SETTINGS_BYTES;
    size -= fuzz::SETTINGS_BYTES;
    const kelp::serialize::someip::Deserializer<ara::core::String> text(
        data, size, s.config, s.useNodes ? s.memberNode : nullptr, position);
    const std::uint64_t textSize = text.GetSize();
    fuzz::CheckSize(textSize, size);
    if (textSize != kelp::serialize::SERIALIZE_SIZE_ERROR && text.GetValue().size() > textSize) {
        __builtin_trap();
    }
    return 0;
}
