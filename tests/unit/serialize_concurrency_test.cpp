// SPDX-License-Identifier: Apache-2.0
// Encoders and decoders from several threads at once over one shared, read-only node tree:
// no hidden shared state (the sanitizer build of this label runs under TSan).
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "kelp/brio/serialize/params_serializer.h"
#include "kelp/serialize/someip/deserializer.h"
#include "kelp/serialize/someip/serializer.h"

namespace {

namespace ks = kelp::serialize;
using List = std::vector<ara::exec::Process>;
using Reader = ks::someip::Deserializer<List>;

TEST(SerializeConcurrencyTest, SharedNodeTreeAcrossThreads) {
    const ks::SerializeConfig defaults;
    ks::SerializationNode method;  // TLV members with data ids 1 and 2 and dynamic length fields
    method.isTlv = true;
    method.children = std::make_shared<ks::SerializationNodeList>();
    for (std::uint16_t id = 1U; id <= 2U; ++id) {
        method.children->push_back(std::make_shared<ks::SerializationNode>());
        method.children->back()->dataId = id;
        method.children->back()->dynamicLengthField = true;
    }
    const List list = {{"a", "b", "c", "d", true}, {"", "", "", "", false}};
    ks::someip::Serializer<List> writer(list, defaults, nullptr, 4096U);
    std::vector<unsigned char> bytes(writer.GetSize());
    writer.Serialize(bytes.data());
    const ara::core::String name = "MachineFG";
    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 300; ++i) {
                kelp::brio::serialize::ParamsSerializer request(nullptr, ks::SerializeType::kSomeip, method, defaults);
                std::vector<unsigned char> payload(request.GetSerializedSize(name, true));
                request.SerializeArguments(payload.data(), name, true);
                const bool tagged = payload.size() == 2U + 1U + 13U + 2U + 1U && payload[0] == 0x50U;
                const bool decoded = Reader(bytes.data(), bytes.size(), defaults).GetValue() == list;
                // The refusal of a truncated list logs from every thread at once.
                const bool refused =
                    Reader(bytes.data(), bytes.size() - 1U, defaults).GetSize() == ks::SERIALIZE_SIZE_ERROR;
                mismatches += (tagged && decoded && refused) ? 0 : 1;
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(mismatches.load(), 0);
}

}  // namespace
