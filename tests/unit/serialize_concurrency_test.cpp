// Encoders and decoders from several threads at once over one shared, read-only node tree:
// no hidden shared state (the sanitizer build of this label runs under TSan).
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "ara/exec/execution_state.h"
#include "ara/quill/common/log/log.h"
#include "kelp/brio/serialize/params_serializer.h"
#include "kelp/serialize/someip/deserializer.h"
#include "kelp/serialize/someip/serializer.h"

namespace {

using ara::exec::Process;
using kelp::serialize::SerializationNode;
using kelp::serialize::SerializationNodeList;
using kelp::serialize::SERIALIZE_SIZE_ERROR;
using kelp::serialize::SerializeConfig;

TEST(SerializeConcurrencyTest, SharedNodeTreeAcrossThreads) {
    auto method = std::make_shared<SerializationNode>();
    method->isTlv = true;
    method->children = std::make_shared<SerializationNodeList>();
    for (std::uint16_t id = 1U; id <= 2U; ++id) {
        auto child = std::make_shared<SerializationNode>();
        child->dataId = id;
        child->dynamicLengthField = true;
        method->children->push_back(child);
    }
    const std::vector<Process> list = {Process{"a", "b", "c", "d", true}, Process{"", "", "", "", false}};
    std::vector<unsigned char> encoded;
    {
        kelp::serialize::someip::Serializer<std::vector<Process>> writer(list, SerializeConfig{});
        encoded.resize(writer.GetSize());
        kelp::serialize::someip::Serializer<std::vector<Process>>(list, SerializeConfig{}, nullptr, encoded.size())
            .Serialize(encoded.data());
    }
    const std::vector<unsigned char> truncated(encoded.begin(), encoded.end() - 1);
    const ara::core::String name = "MachineFG";

    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 300; ++i) {
                kelp::brio::serialize::ParamsSerializer request(
                    nullptr, kelp::serialize::SerializeType::kSomeip, *method, SerializeConfig{});
                std::vector<unsigned char> payload(request.GetSerializedSize(name, true));
                request.SerializeArguments(payload.data(), name, true);
                if (payload.size() != 2U + 1U + 13U + 2U + 1U || payload[0] != 0x50U) {
                    ++mismatches;
                }
                const kelp::serialize::someip::Deserializer<std::vector<Process>> good(
                    encoded.data(), encoded.size(), SerializeConfig{});
                if (good.GetValue() != list) {
                    ++mismatches;
                }
                // Refusals log from every thread at once.
                const kelp::serialize::someip::Deserializer<std::vector<Process>> bad(
                    truncated.data(), truncated.size(), SerializeConfig{});
                if (bad.GetSize() != SERIALIZE_SIZE_ERROR) {
                    ++mismatches;
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(mismatches.load(), 0);
}

}  // namespace
