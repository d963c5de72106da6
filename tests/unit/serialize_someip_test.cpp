// SOME/IP encoders and decoders: exact bytes in both byte orders, string limits per
// length-field size, alignment padding, error payloads, structures with and without TLV,
// refusal of truncated streams, and encode-then-decode over many settings.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ara/exec/exec_error_domain.h"
#include "ara/exec/execution_state.h"
#include "ara/quill/common/log/log.h"
#include "kelp/serialize/someip/deserializer.h"
#include "kelp/serialize/someip/serializer.h"

namespace {

using ara::exec::Process;
using ara::quill::common::log::CaptureSink;
using kelp::serialize::ByteOrder;
using kelp::serialize::SerializationNode;
using kelp::serialize::SerializationNodeList;
using kelp::serialize::SERIALIZE_SIZE_ERROR;
using kelp::serialize::SerializeConfig;
using kelp::serialize::someip::Deserializer;
using kelp::serialize::someip::Serializer;
using Bytes = std::vector<unsigned char>;
using NodePtr = std::shared_ptr<SerializationNode>;

constexpr auto BE = ByteOrder::kBigEndian;
constexpr auto LE = ByteOrder::kLittleEndian;

SerializeConfig Config(ByteOrder order, std::uint64_t stringSize = 4U, bool raw = false) {
    SerializeConfig config;
    config.byteOrder = order;
    config.stringLengthFieldSize = stringSize;
    config.rawString = raw;
    return config;
}

NodePtr Node(std::uint8_t stringSize, ByteOrder order = BE) {
    auto node = std::make_shared<SerializationNode>();
    node->stringLengthFieldSize = stringSize;
    node->byteOrder = order;
    return node;
}

Bytes Concat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const auto& p : parts) {
        out.insert(out.end(), p.begin(), p.end());
    }
    return out;
}

/// Encodes `text` and returns the bytes (pre-filled with 0xAA, so unwritten padding shows).
Bytes EncodeString(const std::string& text,
                   const SerializeConfig& config,
                   NodePtr node,
                   std::uint64_t position = 0U,
                   bool noPadding = false) {
    Serializer<ara::core::String> s(text, config, node, 0U, position);
    s.SetNoPadding(noPadding);
    const std::uint64_t size = s.GetSize();
    if (size == SERIALIZE_SIZE_ERROR) {
        return {};
    }
    Bytes buffer(position + size, 0xAA);
    s.Serialize(buffer.data());
    return Bytes(buffer.begin() + static_cast<std::ptrdiff_t>(position), buffer.end());
}

TEST(SomeipScalarSerializerTest, WritesValueBytesInTheirOrder) {
    struct Case {
        const char* name;
        Bytes actual;
        Bytes expected;
    };
    auto encode = [](const auto& value, const SerializeConfig& config, NodePtr node) {
        using T = std::decay_t<decltype(value)>;
        Bytes buffer(sizeof(T), 0xAA);
        Serializer<T> s(value, config, std::move(node), buffer.size(), 0U);
        EXPECT_EQ(s.GetSize(), sizeof(T));
        s.Serialize(buffer.data());
        return buffer;
    };
    const std::vector<Case> cases = {
        {"int big-endian", encode(1, Config(BE), nullptr), {0x00, 0x00, 0x00, 0x01}},
        {"int little-endian", encode(1, Config(LE), nullptr), {0x01, 0x00, 0x00, 0x00}},
        {"negative int", encode(-2, Config(BE), nullptr), {0xFF, 0xFF, 0xFF, 0xFE}},
        {"node order wins over config", encode(0x01020304, Config(LE), Node(4U, BE)), {0x01, 0x02, 0x03, 0x04}},
        {"node little-endian", encode(0x01020304, Config(BE), Node(4U, LE)), {0x04, 0x03, 0x02, 0x01}},
        {"state", encode(ara::exec::ExecutionState::kTerminating, Config(BE), nullptr), {0x01}},
        {"bool", encode(true, Config(LE), nullptr), {0x01}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.actual, c.expected) << c.name;
    }
}

TEST(SomeipScalarSerializerTest, RefusedCopyLogsAndLeavesBuffer) {
    CaptureSink capture;
    Bytes buffer(4U, 0xAA);
    const int value = 7;
    Serializer<int>(value, Config(BE), nullptr, 3U, 0U).Serialize(buffer.data());
    EXPECT_EQ(buffer, Bytes(4U, 0xAA));
    EXPECT_EQ(capture.Texts("CM"),
              std::vector<std::string>{"[Someip Serializer] Memory copy return error, Invalid serialization."});
}

TEST(SomeipStringSerializerTest, WireForms) {
    auto tlvDynamic = Node(4U);
    tlvDynamic->dataId = 1U;
    tlvDynamic->dynamicLengthField = true;
    auto tlvStatic = Node(2U);
    tlvStatic->dataId = 1U;
    auto aligned4 = Node(4U);
    aligned4->alignment = 4U;
    auto aligned8 = Node(4U);
    aligned8->alignment = 8U;
    auto rawNode = Node(1U);
    rawNode->rawString = true;
    const Bytes ab = {0x61, 0x62};
    const Bytes markAb = {0xEF, 0xBB, 0xBF, 0x61, 0x62, 0x00};
    struct Case {
        const char* name;
        Bytes actual;
        Bytes expected;
    };
    const std::vector<Case> cases = {
        {"empty, 4-byte field", EncodeString("", Config(BE), nullptr), {0, 0, 0, 4, 0xEF, 0xBB, 0xBF, 0}},
        {"empty raw", EncodeString("", Config(BE, 4U, true), nullptr), {0, 0, 0, 0}},
        {"1-byte field", EncodeString("ab", Config(BE, 1U), nullptr), Concat({{6}, markAb})},
        {"2-byte big-endian", EncodeString("ab", Config(BE, 2U), nullptr), Concat({{0, 6}, markAb})},
        {"2-byte little-endian", EncodeString("ab", Config(LE, 2U), nullptr), Concat({{6, 0}, markAb})},
        {"4-byte little-endian", EncodeString("ab", Config(LE, 4U), nullptr), Concat({{6, 0, 0, 0}, markAb})},
        {"no length field", EncodeString("ab", Config(BE, 0U), nullptr), markAb},
        {"raw with 2-byte field", EncodeString("ab", Config(BE, 2U, true), nullptr), Concat({{0, 2}, ab})},
        {"raw from the node", EncodeString("ab", Config(BE), rawNode), Concat({{2}, ab})},
        {"node settings win", EncodeString("ab", Config(LE, 1U, true), Node(2U, BE)), Concat({{0, 6}, markAb})},
        {"TLV dynamic field", EncodeString("ab", Config(BE), tlvDynamic), Concat({{6}, markAb})},
        {"TLV static field", EncodeString("ab", Config(BE), tlvStatic), Concat({{0, 6}, markAb})},
        {"TLV members are never padded",
         EncodeString("ab",
                      Config(BE),
                      [] {
                          auto n = Node(4U);
                          n->dataId = 2U;
                          n->alignment = 8U;
                          return n;
                      }()),
         Concat({{0, 0, 0, 6}, markAb})},
        // (4 + 0 + 16 + 6) mod 4 = 2: two bytes of padding, counted but not written.
        {"alignment 4 at 0", EncodeString("ab", Config(BE), aligned4), Concat({{0, 0, 0, 6}, markAb, {0xAA, 0xAA}})},
        // (4 + 2 + 16 + 6) mod 4 = 0: no padding.
        {"alignment 4 at 2", EncodeString("ab", Config(BE), aligned4, 2U), Concat({{0, 0, 0, 6}, markAb})},
        // (4 + 0 + 16 + 6) mod 8 = 2: six bytes of padding.
        {"alignment 8 at 0", EncodeString("ab", Config(BE), aligned8), Concat({{0, 0, 0, 6}, markAb, Bytes(6U, 0xAA)})},
        {"no padding when asked", EncodeString("ab", Config(BE), aligned8, 0U, true), Concat({{0, 0, 0, 6}, markAb})},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.actual, c.expected) << c.name;
    }
}

TEST(SomeipStringSerializerTest, SizeLimitsPerLengthField) {
    auto dynamic = Node(4U);
    dynamic->dataId = 3U;
    dynamic->dynamicLengthField = true;
    auto threeBytes = Node(3U);
    threeBytes->skipPadding = true;
    struct Case {
        const char* name;
        SerializeConfig config;
        NodePtr node;
        std::uint64_t characters;
        std::uint64_t size;
        std::uint8_t lengthFieldSize;
    };
    const std::vector<Case> cases = {
        {"1-byte field at its maximum", Config(BE, 1U), nullptr, 251U, 256U, 1U},
        {"1-byte field one over", Config(BE, 1U), nullptr, 252U, SERIALIZE_SIZE_ERROR, 1U},
        {"1-byte raw at its maximum", Config(BE, 1U, true), nullptr, 255U, 256U, 1U},
        {"1-byte raw one over", Config(BE, 1U, true), nullptr, 256U, SERIALIZE_SIZE_ERROR, 1U},
        {"300 characters in a 1-byte field", Config(BE, 1U), nullptr, 300U, SERIALIZE_SIZE_ERROR, 1U},
        {"2-byte field at its maximum", Config(BE, 2U), nullptr, 65531U, 65537U, 2U},
        {"2-byte field one over", Config(BE, 2U), nullptr, 65532U, SERIALIZE_SIZE_ERROR, 2U},
        {"4-byte field at 4294967280", Config(BE, 4U), nullptr, 4294967276U, 4294967284U, 4U},
        {"4-byte field one over", Config(BE, 4U), nullptr, 4294967277U, SERIALIZE_SIZE_ERROR, 4U},
        {"4-byte raw at 4294967280", Config(BE, 4U, true), nullptr, 4294967280U, 4294967284U, 4U},
        {"3-byte field allows 4294967295", Config(BE), threeBytes, 4294967291U, 4294967298U, 3U},
        {"3-byte field one over", Config(BE), threeBytes, 4294967292U, SERIALIZE_SIZE_ERROR, 3U},
        {"dynamic: 255 bytes take 1", Config(BE), dynamic, 251U, 256U, 1U},
        {"dynamic: 256 bytes take 2", Config(BE), dynamic, 252U, 258U, 2U},
        {"dynamic: 65535 bytes take 2", Config(BE), dynamic, 65531U, 65537U, 2U},
        {"dynamic: 65536 bytes take 4", Config(BE), dynamic, 65532U, 65540U, 4U},
        {"aligned 1-byte field one over",
         Config(BE),
         [] {
             auto n = Node(1U);
             n->alignment = 4U;
             return n;
         }(),
         252U,
         SERIALIZE_SIZE_ERROR,
         1U},
    };
    const ara::core::String unused;
    for (const auto& c : cases) {
        Serializer<ara::core::String> s(unused, c.config, c.node);
        EXPECT_EQ(s.GetSizeHelper(c.characters), c.size) << c.name;
        EXPECT_EQ(s.ChosenLengthFieldSize(), c.lengthFieldSize) << c.name;
    }
}

TEST(SomeipStringSerializerTest, StringsAtTheFieldMaximumRoundTrip) {
    for (const std::uint64_t fieldSize : {1U, 2U}) {
        const std::uint64_t characters = (fieldSize == 1U ? 0xFFU : 0xFFFFU) - 4U;
        const std::string text(characters, 'x');
        const auto config = Config(LE, fieldSize);
        const Bytes bytes = EncodeString(text, config, nullptr);
        ASSERT_EQ(bytes.size(), fieldSize + characters + 4U);
        EXPECT_EQ(bytes[0], 0xFF);
        EXPECT_EQ(bytes[fieldSize - 1U], 0xFF);
        const Deserializer<ara::core::String> d(bytes.data(), bytes.size(), config);
        EXPECT_EQ(d.GetSize(), bytes.size());
        EXPECT_EQ(d.GetValue(), text);
        EXPECT_TRUE(EncodeString(text + "y", config, nullptr).empty()) << "one over, field size " << fieldSize;
    }
}

TEST(SomeipStringSerializerTest, LengthFieldOfSizeThreeIsNotWritten) {
    CaptureSink capture;
    auto node = Node(3U);
    const Bytes bytes = EncodeString("a", Config(BE), node);
    EXPECT_EQ(bytes, (Bytes{0xAA, 0xAA, 0xAA, 0xEF, 0xBB, 0xBF, 0x61, 0x00}));
    EXPECT_TRUE(capture.Contains("[Someip Serializer] Memory copy struct static length fail."));
}

TEST(SomeipErrorCodeTest, EncodesAndDecodesTheSeventeenBytes) {
    const Bytes expectedBe = {0, 0, 0, 0, 1, 0x80, 0, 0, 0, 0, 0, 0x03, 0, 0, 0, 0, 5};
    const ara::core::ErrorCode code = ara::exec::ExecErrc::kCancelled;
    Bytes buffer(17U, 0xAA);
    Serializer<ara::core::ErrorCode> writer(code, Config(BE), nullptr, buffer.size());
    EXPECT_EQ(writer.GetSize(), 17U);
    writer.Serialize(buffer.data());
    EXPECT_EQ(buffer, expectedBe);

    const Deserializer<ara::core::ErrorCode> reader(expectedBe.data(), expectedBe.size(), Config(BE));
    EXPECT_EQ(reader.GetSize(), 17U);
    EXPECT_EQ(reader.GetValue().first, 0x8000000000000300ULL);
    EXPECT_EQ(reader.GetValue().second, 5);

    // Little-endian reverses the id as a whole; a foreign domain id and a negative code.
    Serializer<ara::core::ErrorCode>(0x0102030405060708ULL, -3, Config(LE), nullptr, buffer.size())
        .Serialize(buffer.data());
    EXPECT_EQ(buffer, (Bytes{0, 0, 0, 0, 1, 8, 7, 6, 5, 4, 3, 2, 1, 0xFD, 0xFF, 0xFF, 0xFF}));
    const Deserializer<ara::core::ErrorCode> le(buffer.data(), buffer.size(), Config(LE));
    EXPECT_EQ(le.GetValue().first, 0x0102030405060708ULL);
    EXPECT_EQ(le.GetValue().second, -3);
}

TEST(SomeipErrorCodeTest, RefusesAnythingButSeventeenBytesOfKindOne) {
    Bytes valid = {0, 0, 0, 0, 1, 0x80, 0, 0, 0, 0, 0, 0x03, 0, 0, 0, 0, 5};
    Bytes kindTwo = valid;
    kindTwo[4] = 2U;
    Bytes longer = valid;
    longer.push_back(0U);
    struct Case {
        const char* name;
        Bytes bytes;
        std::uint64_t size;
        const char* log;
    };
    const std::vector<Case> cases = {
        {"empty",
         {},
         SERIALIZE_SIZE_ERROR,
         "[SomeipDeserializerErrorCode][Construct deserialization for ErrorCode failed, invalid size parameter]"},
        {"16 bytes",
         Bytes(valid.begin(), valid.end() - 1),
         SERIALIZE_SIZE_ERROR,
         "[SomeipDeserializerErrorCode][Construct deserialization for ErrorCode failed, invalid size parameter]"},
        {"18 bytes",
         longer,
         SERIALIZE_SIZE_ERROR,
         "Construct deserialization for ErrorCode failed, invalid size parameter!"},
        {"kind 2",
         kindTwo,
         SERIALIZE_SIZE_ERROR,
         "Construct deserialization for ErrorCode failed, invalid type of ErrorCode!"},
        {"valid", valid, 17U, nullptr},
    };
    for (const auto& c : cases) {
        CaptureSink capture;
        const Deserializer<ara::core::ErrorCode> d(c.bytes.data(), c.bytes.size(), Config(BE));
        EXPECT_EQ(d.GetSize(), c.size) << c.name;
        if (c.log != nullptr) {
            EXPECT_EQ(capture.Texts("CM"), std::vector<std::string>{c.log}) << c.name;
        } else {
            EXPECT_TRUE(capture.Texts().empty()) << c.name;
        }
    }
}

TEST(SomeipStringDeserializerTest, AcceptsValidAndRefusesBrokenStrings) {
    auto tlv = Node(4U);
    tlv->dataId = 4U;
    tlv->tlvLengthFieldSize = 1U;
    auto aligned = Node(4U);
    aligned->alignment = 4U;
    struct Case {
        const char* name;
        Bytes bytes;
        SerializeConfig config;
        NodePtr node;
        std::uint64_t size;
        std::string value;
        std::uint64_t padding;
    };
    const std::uint64_t E = SERIALIZE_SIZE_ERROR;
    const std::vector<Case> cases = {
        {"empty", {0, 0, 0, 4, 0xEF, 0xBB, 0xBF, 0}, Config(BE), nullptr, 8U, "", 0U},
        {"ab", {0, 0, 0, 6, 0xEF, 0xBB, 0xBF, 'a', 'b', 0}, Config(BE), nullptr, 10U, "ab", 0U},
        {"trailing bytes are not part of it",
         {0, 0, 0, 6, 0xEF, 0xBB, 0xBF, 'a', 'b', 0, 7, 7},
         Config(BE),
         nullptr,
         10U,
         "ab",
         0U},
        {"little-endian 2-byte field", {6, 0, 0xEF, 0xBB, 0xBF, 'a', 'b', 0}, Config(LE, 2U), nullptr, 8U, "ab", 0U},
        {"raw", {0, 0, 0, 2, 'a', 'b'}, Config(BE, 4U, true), nullptr, 6U, "ab", 0U},
        {"raw without length field reads nothing", {'a', 'b'}, Config(BE, 0U, true), nullptr, 0U, "", 0U},
        {"TLV member uses the TLV field size", {6, 0xEF, 0xBB, 0xBF, 'a', 'b', 0}, Config(BE), tlv, 7U, "ab", 0U},
        {"aligned member reports its padding",
         {0, 0, 0, 6, 0xEF, 0xBB, 0xBF, 'a', 'b', 0, 0, 0},
         Config(BE),
         aligned,
         10U,
         "ab",
         2U},
        {"length 3: mark without terminator", {0, 0, 0, 3, 0xEF, 0xBB, 0xBF}, Config(BE), nullptr, E, "", 0U},
        {"terminator not zero", {0, 0, 0, 6, 0xEF, 0xBB, 0xBF, 'a', 'b', 1}, Config(BE), nullptr, E, "", 0U},
        {"wrong mark", {0, 0, 0, 6, 0xEF, 0xBB, 0xBE, 'a', 'b', 0}, Config(BE), nullptr, E, "", 0U},
        {"length past the end", {0, 0, 0, 7, 0xEF, 0xBB, 0xBF, 'a', 'b', 0}, Config(BE), nullptr, E, "", 0U},
        {"huge length", {0xFF, 0xFF, 0xFF, 0xFF, 0xEF, 0xBB, 0xBF, 0}, Config(BE), nullptr, E, "", 0U},
        {"length field cut", {0, 0}, Config(BE), nullptr, E, "", 0U},
        {"raw length past the end", {0, 3, 'a', 'b'}, Config(BE, 2U, true), nullptr, E, "", 0U},
        {"nothing", {}, Config(BE), nullptr, E, "", 0U},
    };
    for (const auto& c : cases) {
        CaptureSink capture;
        const Deserializer<ara::core::String> d(c.bytes.data(), c.bytes.size(), c.config, c.node);
        EXPECT_EQ(d.GetSize(), c.size) << c.name;
        EXPECT_EQ(d.GetValue(), c.value) << c.name;
        EXPECT_EQ(d.GetPadding(), c.padding) << c.name;
        EXPECT_EQ(capture.Contains("Construct deserialization for String failed, insufficient data."),
                  c.size == SERIALIZE_SIZE_ERROR)
            << c.name;
    }
}

TEST(SomeipBoolDeserializerTest, NeedsOneByte) {
    const Bytes one = {1}, zero = {0}, two = {2};
    EXPECT_TRUE(Deserializer<bool>(one.data(), 1U, Config(BE)).GetValue());
    EXPECT_FALSE(Deserializer<bool>(zero.data(), 1U, Config(BE)).GetValue());
    EXPECT_TRUE(Deserializer<bool>(two.data(), 1U, Config(BE)).GetValue());
    CaptureSink capture;
    const Deserializer<bool> empty(one.data(), 0U, Config(BE));
    EXPECT_EQ(empty.GetSize(), SERIALIZE_SIZE_ERROR);
    EXPECT_FALSE(empty.GetValue());
    EXPECT_EQ(capture.Texts("CM"),
              std::vector<std::string>{"Invalid parameter for trivially copyable type: size, it's insufficient!"});
}

// The default-settings process list of one process with empty strings and flag 1.
const Bytes ONE_EMPTY_PROCESS = {0,    0, 0, 0x21, 0,    0,    0,    4,    0xEF, 0xBB, 0xBF, 0,    0,
                                 0,    0, 4, 0xEF, 0xBB, 0xBF, 0,    0,    0,    0,    4,    0xEF, 0xBB,
                                 0xBF, 0, 0, 0,    0,    4,    0xEF, 0xBB, 0xBF, 0,    1};

TEST(SomeipProcessListTest, DefaultSettingsBytes) {
    const std::vector<Process> list = {Process{"", "", "", "", true}};
    Serializer<std::vector<Process>> writer(list, SerializeConfig{}, nullptr, 64U);
    ASSERT_EQ(writer.GetSize(), 37U);
    Bytes buffer(37U, 0xAA);
    writer.Serialize(buffer.data());
    EXPECT_EQ(buffer, ONE_EMPTY_PROCESS);

    const Deserializer<std::vector<Process>> reader(
        ONE_EMPTY_PROCESS.data(), ONE_EMPTY_PROCESS.size(), SerializeConfig{});
    EXPECT_EQ(reader.GetSize(), 37U);
    EXPECT_EQ(reader.GetValue(), list);
}

TEST(SomeipProcessListTest, EmptyListAndTrailingBytes) {
    const Bytes empty = {0, 0, 0, 0};
    EXPECT_EQ(Deserializer<std::vector<Process>>(empty.data(), 4U, SerializeConfig{}).GetSize(), 4U);
    EXPECT_TRUE(Deserializer<std::vector<Process>>(empty.data(), 4U, SerializeConfig{}).GetValue().empty());
    Bytes longer = ONE_EMPTY_PROCESS;
    longer.push_back(0x55);
    const Deserializer<std::vector<Process>> d(longer.data(), longer.size(), SerializeConfig{});
    EXPECT_EQ(d.GetSize(), 37U);
    EXPECT_EQ(d.GetValue().size(), 1U);
}

TEST(SomeipProcessListTest, ElementThatDoesNotFitIsRefused) {
    // The container claims 0x22 bytes: one process (33) and one stray byte that is no process.
    Bytes bytes = ONE_EMPTY_PROCESS;
    bytes[3] = 0x22;
    bytes.push_back(0x01);
    CaptureSink capture;
    const Deserializer<std::vector<Process>> d(bytes.data(), bytes.size(), SerializeConfig{});
    EXPECT_EQ(d.GetSize(), SERIALIZE_SIZE_ERROR);
    EXPECT_TRUE(capture.Contains("GetSize failed for Vector deserialization, insufficient data!"));
    capture.Clear();
    EXPECT_EQ(d.GetValue().size(), 1U);  // the element before the broken one
    EXPECT_TRUE(capture.Contains("GetValue failed for Vector deserialization, insufficient data!"));
}

// Every decoder refuses every strict prefix of a valid encoding, without reading past it.
TEST(SomeipTruncationTest, EveryPrefixIsRefused) {
    const std::vector<Process> list = {Process{"proc", "fg", "Running", "kRunning", true},
                                       Process{"", "x", "", "", false}};
    Serializer<std::vector<Process>> listWriter(list, SerializeConfig{}, nullptr, 1024U);
    Bytes listBytes(listWriter.GetSize(), 0U);
    listWriter.Serialize(listBytes.data());

    SerializeConfig structConfig;
    structConfig.structLengthFieldSize = 2U;
    Serializer<Process> processWriter(list[0], structConfig, nullptr, 1024U);
    Bytes processBytes(processWriter.GetSize(), 0U);
    processWriter.Serialize(processBytes.data());
    Serializer<Process> plainWriter(list[0], SerializeConfig{}, nullptr, 1024U);
    Bytes plainBytes(plainWriter.GetSize(), 0U);
    plainWriter.Serialize(plainBytes.data());

    const Bytes stringBytes = {0, 0, 0, 6, 0xEF, 0xBB, 0xBF, 'a', 'b', 0};
    const Bytes errorBytes = {0, 0, 0, 0, 1, 0x80, 0, 0, 0, 0, 0, 0x03, 0, 0, 0, 0, 5};
    CaptureSink quiet;
    for (std::size_t n = 0U; n < listBytes.size(); ++n) {
        // Copy the prefix into its own allocation so that ASan catches any read past it.
        const Bytes prefix(listBytes.begin(), listBytes.begin() + static_cast<std::ptrdiff_t>(n));
        const Deserializer<std::vector<Process>> d(prefix.data(), prefix.size(), SerializeConfig{});
        EXPECT_EQ(d.GetSize(), SERIALIZE_SIZE_ERROR) << "list prefix " << n;
        static_cast<void>(d.GetValue());
    }
    for (std::size_t n = 0U; n < processBytes.size(); ++n) {
        const Bytes prefix(processBytes.begin(), processBytes.begin() + static_cast<std::ptrdiff_t>(n));
        EXPECT_EQ(Deserializer<Process>(prefix.data(), prefix.size(), structConfig).GetSize(), SERIALIZE_SIZE_ERROR)
            << "process prefix " << n;
    }
    for (std::size_t n = 0U; n < plainBytes.size(); ++n) {
        const Bytes prefix(plainBytes.begin(), plainBytes.begin() + static_cast<std::ptrdiff_t>(n));
        EXPECT_EQ(Deserializer<Process>(prefix.data(), prefix.size(), SerializeConfig{}).GetSize(),
                  SERIALIZE_SIZE_ERROR)
            << "plain process prefix " << n;
    }
    for (std::size_t n = 0U; n < stringBytes.size(); ++n) {
        const Bytes prefix(stringBytes.begin(), stringBytes.begin() + static_cast<std::ptrdiff_t>(n));
        EXPECT_EQ(Deserializer<ara::core::String>(prefix.data(), prefix.size(), Config(BE)).GetSize(),
                  SERIALIZE_SIZE_ERROR)
            << "string prefix " << n;
    }
    for (std::size_t n = 0U; n < errorBytes.size(); ++n) {
        const Bytes prefix(errorBytes.begin(), errorBytes.begin() + static_cast<std::ptrdiff_t>(n));
        EXPECT_EQ(Deserializer<ara::core::ErrorCode>(prefix.data(), prefix.size(), Config(BE)).GetSize(),
                  SERIALIZE_SIZE_ERROR)
            << "error prefix " << n;
    }
}

TEST(SomeipProcessTest, StructureLengthFieldBoundsTheMembers) {
    SerializeConfig config;
    config.structLengthFieldSize = 1U;
    const Process process{"a", "", "", "", false};
    Serializer<Process> writer(process, config, nullptr, 64U);
    ASSERT_EQ(writer.GetSize(), 1U + 9U + 3U * 8U + 1U);
    Bytes bytes(writer.GetSize(), 0xAA);
    writer.Serialize(bytes.data());
    EXPECT_EQ(bytes[0], 34U);
    EXPECT_EQ(Bytes(bytes.begin() + 1, bytes.begin() + 10), (Bytes{0, 0, 0, 5, 0xEF, 0xBB, 0xBF, 'a', 0}));

    // A structure length larger than the members: the extra bytes belong to the structure.
    Bytes padded = bytes;
    padded[0] = 36U;
    padded.push_back(0x77);
    padded.push_back(0x77);
    const Deserializer<Process> reader(padded.data(), padded.size(), config);
    EXPECT_EQ(reader.GetSize(), 37U);
    EXPECT_EQ(reader.GetValue(), process);

    // A structure length smaller than its members is refused.
    Bytes shortened = bytes;
    shortened[0] = 33U;
    CaptureSink capture;
    EXPECT_EQ(Deserializer<Process>(shortened.data(), shortened.size(), config).GetSize(), SERIALIZE_SIZE_ERROR);
    EXPECT_TRUE(capture.Contains("Deserialization[Someip] size counter failed, insufficient data."));
}

NodePtr TlvProcessNode(bool dynamic, std::uint8_t staticSize, ByteOrder order = BE) {
    auto node = std::make_shared<SerializationNode>();
    node->isTlv = true;
    node->byteOrder = order;
    node->tlvLengthFieldSize = staticSize;
    node->structLengthFieldSize = 2U;
    node->children = std::make_shared<SerializationNodeList>();
    for (std::uint16_t id = 1U; id <= 5U; ++id) {
        auto child = std::make_shared<SerializationNode>();
        child->dataId = id;
        child->byteOrder = order;
        child->dynamicLengthField = dynamic;
        child->stringLengthFieldSize = staticSize;
        child->tlvLengthFieldSize = staticSize;
        node->children->push_back(child);
    }
    return node;
}

TEST(SomeipProcessTest, TlvMembersCarryTags) {
    const Process process{"a", "", "", "", true};
    auto node = TlvProcessNode(true, 4U);
    Serializer<Process> writer(process, SerializeConfig{}, node, 64U);
    Bytes bytes(writer.GetSize(), 0xAA);
    writer.Serialize(bytes.data());
    const Bytes expected = {0x00, 32,                                 // structure length
                            0x50, 0x01, 5, 0xEF, 0xBB, 0xBF, 'a', 0,  // data id 1, wire type 5
                            0x50, 0x02, 4, 0xEF, 0xBB, 0xBF, 0,       // data id 2
                            0x50, 0x03, 4, 0xEF, 0xBB, 0xBF, 0,       // data id 3
                            0x50, 0x04, 4, 0xEF, 0xBB, 0xBF, 0,       // data id 4
                            0x00, 0x05, 1};                           // flag, wire type 0
    EXPECT_EQ(bytes, expected);
    const Deserializer<Process> reader(bytes.data(), bytes.size(), SerializeConfig{}, node);
    EXPECT_EQ(reader.GetSize(), bytes.size());
    EXPECT_EQ(reader.GetValue(), process);
}

TEST(SomeipProcessTest, TlvMembersInAnyOrderUnknownIdsSkippedMissingDefaulted) {
    auto node = TlvProcessNode(true, 4U);
    const Bytes bytes = {0x00, 20,                                 // structure length
                         0x00, 0x05, 1,                            // flag first
                         0x50, 0x09, 3, 1,    2,    3,             // unknown data id 9
                         0x50, 0x03, 5, 0xEF, 0xBB, 0xBF, 'r', 0,  // data id 3
                         0x00, 0x05, 0};                           // duplicate flag: first wins
    CaptureSink capture;
    const Deserializer<Process> reader(bytes.data(), bytes.size(), SerializeConfig{}, node);
    EXPECT_EQ(reader.GetSize(), 22U);
    const Process value = reader.GetValue();
    EXPECT_EQ(value, (Process{"", "", "r", "", true}));
    EXPECT_TRUE(capture.Contains("Deserialization, cannot find dataId[dataId=1]"));
    EXPECT_TRUE(capture.Contains("Deserialization, check has the same serialize config"));
}

TEST(SomeipProcessTest, TlvMemberRunningPastTheStructureIsRefused) {
    auto node = TlvProcessNode(true, 4U);
    const Bytes bytes = {0x00, 5, 0x50, 0x01, 9, 0xEF, 0xBB};
    EXPECT_EQ(Deserializer<Process>(bytes.data(), bytes.size(), SerializeConfig{}, node).GetSize(),
              SERIALIZE_SIZE_ERROR);
}

TEST(SomeipProcessTest, TlvMemberWithoutDataIdCannotBeEncoded) {
    auto node = TlvProcessNode(false, 4U);
    (*node->children)[2]->dataId = 0xFFFFU;
    const Process process;
    EXPECT_EQ(Serializer<Process>(process, SerializeConfig{}, node).GetSize(), SERIALIZE_SIZE_ERROR);
}

// Encode then decode gives back the list for every combination of settings below.
TEST(SomeipRoundTripTest, ProcessListsUnderManySettings) {
    const std::vector<Process> list = {Process{"", "", "", "", false},
                                       Process{"em_daemon", "MachineFG", "Running", "kRunning", true},
                                       Process{std::string(300U, 'p'), "fg", "Terminated", "", false}};
    struct Setting {
        const char* name;
        SerializeConfig config;
        NodePtr node;
    };
    std::vector<Setting> settings;
    for (const ByteOrder order : {BE, LE}) {
        for (const std::uint64_t arraySize : {0U, 2U, 4U}) {
            for (const std::uint64_t structSize : {0U, 1U, 2U, 4U}) {
                SerializeConfig config;
                config.byteOrder = order;
                config.arrayLengthFieldSize = arraySize;
                config.structLengthFieldSize = structSize;
                settings.push_back({"config only", config, nullptr});
            }
        }
        for (const std::uint8_t stringSize : {std::uint8_t{2U}, std::uint8_t{4U}}) {
            for (const std::uint8_t alignment : {std::uint8_t{0U}, std::uint8_t{4U}, std::uint8_t{8U}}) {
                auto element = std::make_shared<SerializationNode>();
                element->byteOrder = order;
                element->structLengthFieldSize = 4U;
                element->children = std::make_shared<SerializationNodeList>();
                for (int i = 0; i < 5; ++i) {
                    auto member = std::make_shared<SerializationNode>();
                    member->byteOrder = order;
                    member->stringLengthFieldSize = stringSize;
                    member->alignment = alignment;
                    member->rawString = (i == 1);
                    element->children->push_back(member);
                }
                auto list_node = std::make_shared<SerializationNode>();
                list_node->byteOrder = order;
                list_node->arrayLengthFieldSize = 4U;
                list_node->children = std::make_shared<SerializationNodeList>(SerializationNodeList{element});
                settings.push_back({"member nodes", SerializeConfig{}, list_node});
            }
        }
        for (const bool dynamic : {false, true}) {
            for (const std::uint8_t staticSize : {std::uint8_t{2U}, std::uint8_t{4U}}) {
                auto list_node = std::make_shared<SerializationNode>();
                list_node->byteOrder = order;
                list_node->arrayLengthFieldSize = 4U;
                list_node->children = std::make_shared<SerializationNodeList>(
                    SerializationNodeList{TlvProcessNode(dynamic, staticSize, order)});
                settings.push_back({"TLV members", SerializeConfig{}, list_node});
            }
        }
    }
    for (std::size_t i = 0U; i < settings.size(); ++i) {
        const auto& s = settings[i];
        Serializer<std::vector<Process>> writer(list, s.config, s.node, 4096U);
        const std::uint64_t size = writer.GetSize();
        ASSERT_NE(size, SERIALIZE_SIZE_ERROR) << s.name << " #" << i;
        Bytes bytes(size, 0U);
        writer.Serialize(bytes.data());
        const Deserializer<std::vector<Process>> reader(bytes.data(), bytes.size(), s.config, s.node);
        EXPECT_EQ(reader.GetSize(), size) << s.name << " #" << i;
        EXPECT_EQ(reader.GetValue(), list) << s.name << " #" << i;
    }
}

TEST(SomeipRoundTripTest, ListTooLongForItsLengthFieldIsRefused) {
    SerializeConfig config;
    config.arrayLengthFieldSize = 1U;
    const std::vector<Process> list(8U, Process{"", "", "", "", false});  // 8 x 33 bytes > 255
    EXPECT_EQ(Serializer<std::vector<Process>>(list, config).GetSize(), SERIALIZE_SIZE_ERROR);
    const std::vector<Process> fits(7U, Process{"", "", "", "", false});
    EXPECT_EQ(Serializer<std::vector<Process>>(fits, config).GetSize(), 1U + 7U * 33U);
}

}  // namespace
