// SPDX-License-Identifier: Apache-2.0
// Decodes a SOME/IP process list under fuzzed settings; whatever is accepted must come back
// unchanged after encoding it again with the same settings and decoding the result.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fuzz_settings.h"
#include "kelp/serialize/someip/deserializer.h"
#include "kelp/serialize/someip/serializer.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using List = std::vector<ara::exec::Process>;
    if (size < fuzz::SETTINGS_BYTES) {
        return 0;
    }
    const fuzz::Settings s = fuzz::MakeSettings(data);
    data += fuzz::SETTINGS_BYTES;
    size -= fuzz::SETTINGS_BYTES;
    const auto node = s.useNodes ? s.listNode : nullptr;
    const kelp::serialize::someip::Deserializer<List> decoder(data, size, s.config, node);
    if (decoder.GetSize() == kelp::serialize::SERIALIZE_SIZE_ERROR) {
        return 0;
    }
    const List list = decoder.GetValue();
    kelp::serialize::someip::Serializer<List> encoder(list, s.config, node);
    const std::uint64_t encodedSize = encoder.GetSize();
    if (encodedSize == kelp::serialize::SERIALIZE_SIZE_ERROR) {
        return 0;  // e.g. a TLV list that only the decoder's leniency accepted
    }
    std::vector<unsigned char> bytes(encodedSize, 0U);
    kelp::serialize::someip::Serializer<List>(list, s.config, node, bytes.size()).Serialize(bytes.data());
    const kelp::serialize::someip::Deserializer<List> again(bytes.data(), bytes.size(), s.config, node);
    if (again.GetSize() != encodedSize || again.GetValue() != list) {
        __builtin_trap();
    }
    return 0;
}
