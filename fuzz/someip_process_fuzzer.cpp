// SPDX-License-Identifier: Apache-2.0
// Fuzzes the SOME/IP process decoder with configuration-only, member-node and TLV settings.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fuzz_settings.h"
#include "kelp/serialize/someip/deserializer.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < fuzz::SETTINGS_BYTES) {
        return 0;
    }
    const fuzz::Settings s = fuzz::MakeSettings(data);
    data += fuzz::SETTINGS_BYTES;
    size -= fuzz::SETTINGS_BYTES;
    const kelp::serialize::someip::Deserializer<ara::exec::Process> decoder(
        data, size, s.config, s.useNodes ? s.elementNode : nullptr);
    fuzz::CheckSize(decoder.GetSize(), size);
    static_cast<void>(decoder.GetValue());
    return 0;
}
