// Request payloads of the three requests in both encodings: bytes with and without member
// nodes, TLV tags, alignment across arguments, and broken configurations.
#include "kelp/brio/serialize/params_serializer.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ara/exec/execution_state.h"
#include "ara/quill/common/log/log.h"
#include "kelp/serialize/someip/deserializer.h"
#include "tlv/serialize/tlv_serialize_helper.h"

namespace {

using ara::exec::ExecutionState;
using ara::quill::common::log::CaptureSink;
using kelp::brio::serialize::ParamsSerializer;
using kelp::serialize::ByteOrder;
using kelp::serialize::SerializationNode;
using kelp::serialize::SerializationNodeList;
using kelp::serialize::SERIALIZE_SIZE_ERROR;
using kelp::serialize::SerializeConfig;
using kelp::serialize::SerializeType;
using Bytes = std::vector<unsigned char>;

constexpr auto BE = ByteOrder::kBigEndian;
constexpr auto LE = ByteOrder::kLittleEndian;

SerializeConfig MethodConfig(ByteOrder order) {
    SerializeConfig config;
    config.byteOrder = order;
    return config;
}

struct ChildSpec {
    std::uint16_t dataId;
    ByteOrder order;
    bool dynamic;
    std::uint8_t stringSize;
    std::uint8_t alignment;
};

SerializationNode MethodNode(bool tlv, const std::vector<ChildSpec>& children) {
    SerializationNode node;
    node.isTlv = tlv;
    if (!children.empty()) {
        node.children = std::make_shared<SerializationNodeList>();
        for (const auto& spec : children) {
            auto child = std::make_shared<SerializationNode>();
            child->dataId = spec.dataId;
            child->byteOrder = spec.order;
            child->dynamicLengthField = spec.dynamic;
            child->stringLengthFieldSize = spec.stringSize;
            child->alignment = spec.alignment;
            node.children->push_back(child);
        }
    }
    return node;
}

/// Both passes the way the request path runs them; the buffer is pre-filled with 0xAA so
/// that bytes the serializer leaves alone (padding) are visible.
template <typename... Args>
Bytes Request(SerializeType type, const SerializationNode& node, const SerializeConfig& config, const Args&... args) {
    ParamsSerializer serializer(nullptr, type, node, config);
    const std::uint64_t size = serializer.GetSerializedSize(args...);
    if (size == SERIALIZE_SIZE_ERROR) {
        return {};
    }
    Bytes payload(size, 0xAA);
    serializer.SerializeArguments(payload.data(), args...);
    return payload;
}

const ara::core::String AB = "ab";
const ara::core::String C = "c";
const Bytes MARK_AB = {0xEF, 0xBB, 0xBF, 'a', 'b', 0};
const Bytes MARK_C = {0xEF, 0xBB, 0xBF, 'c', 0};

Bytes Cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const auto& p : parts) {
        out.insert(out.end(), p.begin(), p.end());
    }
    return out;
}

TEST(ParamsSerializerTest, RequestPayloads) {
    const auto someip = SerializeType::kSomeip;
    const auto dds = SerializeType::kDds;
    const SerializationNode none = MethodNode(false, {});
    const SerializationNode tlvState = MethodNode(true, {{1U, BE, false, 4U, 0U}, {2U, BE, false, 4U, 0U}});
    const SerializationNode tlvStateLe = MethodNode(true, {{1U, LE, false, 4U, 0U}, {2U, LE, false, 4U, 0U}});
    const SerializationNode tlvStatic = MethodNode(true, {{3U, BE, false, 4U, 0U}, {4U, BE, false, 2U, 0U}});
    const SerializationNode tlvDynamic = MethodNode(true, {{3U, BE, true, 4U, 0U}, {0xABCU, BE, true, 4U, 0U}});
    const SerializationNode tlvRestart = MethodNode(true, {{5U, BE, true, 4U, 0U}, {6U, BE, false, 4U, 0U}});
    const SerializationNode aligned = MethodNode(false, {{0xFFFFU, BE, false, 4U, 4U}, {0xFFFFU, BE, false, 4U, 4U}});
    const SerializationNode plainNodes =
        MethodNode(false, {{0xFFFFU, LE, false, 2U, 0U}, {0xFFFFU, BE, false, 1U, 0U}});
    const auto running = ExecutionState::kTerminating;
    struct Case {
        const char* name;
        Bytes actual;
        Bytes expected;
    };
    const std::vector<Case> cases = {
        {"ReportExecutionState, SOME/IP, big-endian",
         Request(someip, none, MethodConfig(BE), 0x1234, running),
         {0, 0, 0x12, 0x34, 1}},
        {"ReportExecutionState, SOME/IP, little-endian",
         Request(someip, none, MethodConfig(LE), 0x1234, running),
         {0x34, 0x12, 0, 0, 1}},
        {"SetState, SOME/IP",
         Request(someip, none, MethodConfig(BE), AB, C),
         Cat({{0, 0, 0, 6}, MARK_AB, {0, 0, 0, 5}, MARK_C})},
        {"ProcessRestart, SOME/IP",
         Request(someip, none, MethodConfig(BE), AB, true),
         Cat({{0, 0, 0, 6}, MARK_AB, {1}})},
        {"ReportExecutionState, TLV: 2 + 4 + 2 + 1 bytes",
         Request(someip, tlvState, MethodConfig(LE), 0x1234, running),
         {0x20, 0x01, 0, 0, 0x12, 0x34, 0x00, 0x02, 1}},
        {"ReportExecutionState, TLV little-endian members",
         Request(someip, tlvStateLe, MethodConfig(BE), 0x1234, running),
         {0x01, 0x20, 0x34, 0x12, 0, 0, 0x02, 0x00, 1}},
        {"SetState, TLV static length fields",
         Request(someip, tlvStatic, MethodConfig(BE), AB, C),
         Cat({{0x40, 0x03, 0, 0, 0, 6}, MARK_AB, {0x40, 0x04, 0, 5}, MARK_C})},
        {"SetState, TLV dynamic length fields",
         Request(someip, tlvDynamic, MethodConfig(BE), AB, C),
         Cat({{0x50, 0x03, 6}, MARK_AB, {0x5A, 0xBC, 5}, MARK_C})},
        {"ProcessRestart, TLV",
         Request(someip, tlvRestart, MethodConfig(BE), AB, false),
         Cat({{0x50, 0x05, 6}, MARK_AB, {0x00, 0x06, 0}})},
        // First string: (4 + 0 + 16 + 6) mod 4 = 2, two bytes of padding; second string at 12:
        // (4 + 12 + 16 + 5) mod 4 = 1, three bytes of padding.
        {"SetState with alignment 4",
         Request(someip, aligned, MethodConfig(BE), AB, C),
         Cat({{0, 0, 0, 6}, MARK_AB, {0xAA, 0xAA}, {0, 0, 0, 5}, MARK_C, {0xAA, 0xAA, 0xAA}})},
        {"SetState with member nodes of their own sizes",
         Request(someip, plainNodes, MethodConfig(BE), AB, C),
         Cat({{6, 0}, MARK_AB, {5}, MARK_C})},
        {"ReportExecutionState, DDS",
         Request(dds, none, MethodConfig(BE), 0x1234, ExecutionState::kTerminating),
         {0x34, 0x12, 0, 0, 1}},
        {"SetState, DDS ignores nodes",
         Request(dds, tlvStatic, MethodConfig(BE), AB, ara::core::String{}),
         {2, 0, 0, 0, 'a', 'b', 0, 0, 0, 0}},
        {"ProcessRestart, DDS", Request(dds, none, MethodConfig(BE), AB, true), {2, 0, 0, 0, 'a', 'b', 1}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.actual, c.expected) << c.name;
    }
}

TEST(ParamsSerializerTest, TlvArgumentsAreFoundByTheScanner) {
    const SerializationNode node = MethodNode(true, {{3U, BE, true, 4U, 0U}, {4U, BE, false, 4U, 0U}});
    const Bytes payload = Request(SerializeType::kSomeip, node, MethodConfig(BE), AB, C);
    const auto table = tlv::serialize::TlvSerializeHelper::RecordDataId(BE, 4U, payload.data(), payload.size());
    ASSERT_EQ(table.consumedSize, payload.size());
    const auto& second = table.entries.at(4U);
    const kelp::serialize::someip::Deserializer<ara::core::String> text(
        payload.data() + second.offset, second.size, SerializeConfig{}, node.children->at(1));
    EXPECT_EQ(text.GetValue(), "c");
}

TEST(ParamsSerializerTest, MoreArgumentsThanMemberNodes) {
    const SerializationNode node = MethodNode(false, {{0xFFFFU, BE, false, 4U, 0U}});
    CaptureSink capture;
    ParamsSerializer serializer(nullptr, SerializeType::kSomeip, node, MethodConfig(BE));
    const int pid = 7;
    serializer.DoGetSomeipSize(pid);
    EXPECT_EQ(serializer.GetSomeipSize(), 4U);
    serializer.DoGetSomeipSize(ExecutionState::kRunning);
    EXPECT_EQ(serializer.GetSomeipSize(), SERIALIZE_SIZE_ERROR);
    serializer.DoGetSomeipSize(ExecutionState::kRunning);  // stays refused, logs nothing more
    EXPECT_EQ(capture.Texts("CM"), std::vector<std::string>{"Wrong method serialize config, serialize error!"});

    capture.Clear();
    serializer.ResetCursor();
    Bytes payload(6U, 0xAA);
    serializer.DoSerialize(payload.data(), pid);
    serializer.DoSerialize(payload.data(), ExecutionState::kTerminating);
    EXPECT_EQ(payload, (Bytes{0, 0, 0, 7, 0xAA, 0xAA}));
    EXPECT_TRUE(capture.Texts().empty());
}

TEST(ParamsSerializerTest, WrongSerializeTypeWritesNothing) {
    CaptureSink capture;
    ParamsSerializer serializer(nullptr, static_cast<SerializeType>(1), SerializationNode{}, MethodConfig(BE));
    EXPECT_EQ(serializer.GetSerializedSize(AB, true), SERIALIZE_SIZE_ERROR);
    Bytes payload(4U, 0xAA);
    serializer.DoSerialize(payload.data(), AB);
    serializer.DoSerialize(payload.data(), true);
    EXPECT_EQ(payload, Bytes(4U, 0xAA));
    EXPECT_EQ(capture.Texts("CM"), std::vector<std::string>(4U, "Wrong serialize type, serialize error!"));
}

TEST(ParamsSerializerTest, StringTooLongForItsFieldFailsTheSizePass) {
    const SerializationNode node = MethodNode(false, {{0xFFFFU, BE, false, 1U, 0U}, {0xFFFFU, BE, false, 1U, 0U}});
    const ara::core::String fits(251U, 'f');
    const ara::core::String over(252U, 'o');
    ParamsSerializer ok(nullptr, SerializeType::kSomeip, node, MethodConfig(BE));
    EXPECT_EQ(ok.GetSerializedSize(fits, fits), 512U);
    ParamsSerializer refused(nullptr, SerializeType::kSomeip, node, MethodConfig(BE));
    EXPECT_EQ(refused.GetSerializedSize(fits, over), SERIALIZE_SIZE_ERROR);
    SerializeConfig oneByte = MethodConfig(BE);
    oneByte.stringLengthFieldSize = 1U;
    ParamsSerializer noNodes(nullptr, SerializeType::kSomeip, SerializationNode{}, oneByte);
    EXPECT_EQ(noNodes.GetSerializedSize(over, true), SERIALIZE_SIZE_ERROR);
}

}  // namespace
