// SPDX-License-Identifier: Apache-2.0
// TLV framing, the SOME/IP and DDS encoders and decoders, and the request payloads: exact bytes,
// length-field limits, padding, error payloads, malformed and truncated input, round trips.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <memory>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "ara/exec/exec_error_domain.h"
#include "ara/exec/execution_state.h"
#include "ara/quill/common/log/log.h"
#include "kelp/brio/serialize/params_serializer.h"
#include "kelp/serialize/dds/deserializer.h"
#include "kelp/serialize/dds/serializer.h"
#include "kelp/serialize/someip/deserializer.h"
#include "kelp/serialize/someip/serializer.h"
#include "tlv/serialize/tlv_serialize_helper.h"

namespace {

using ara::core::ErrorCode;
using ara::exec::ExecErrc;
using ara::exec::ExecErrorDomain;
using ara::exec::Process;
using ara::quill::common::log::CaptureSink;
using kelp::serialize::ByteOrder;
using kelp::serialize::SerializationNode;
using kelp::serialize::SerializationNodeList;
using kelp::serialize::SerializeConfig;
using Bytes = std::vector<unsigned char>;
using NodePtr = std::shared_ptr<SerializationNode>;
using String = ara::core::String;
using List = std::vector<Process>;

constexpr auto BE = ByteOrder::kBigEndian;
constexpr auto LE = ByteOrder::kLittleEndian;
constexpr std::uint64_t E = kelp::serialize::SERIALIZE_SIZE_ERROR;
constexpr std::uint16_t NO_ID = 0xFFFFU;
const SerializeConfig DEFAULTS;
const Bytes AB = {0xEF, 0xBB, 0xBF, 'a', 'b', 0};        // a SOME/IP string: mark, "ab", terminator
const Bytes EMPTY = {0, 0, 0, 4, 0xEF, 0xBB, 0xBF, 0};   // "" after a 4-byte length field
const Bytes A = {0, 0, 0, 5, 0xEF, 0xBB, 0xBF, 'a', 0};  // "a" after a 4-byte length field

SerializeConfig Config(ByteOrder order, std::uint64_t stringSize = 4U, bool raw = false) {
    SerializeConfig config;
    config.byteOrder = order;
    config.stringLengthFieldSize = stringSize;
    config.rawString = raw;
    return config;
}

SerializeConfig Lengths(std::uint64_t structSize, std::uint64_t listSize = 4U, ByteOrder order = BE) {
    SerializeConfig config = Config(order);
    config.structLengthFieldSize = structSize;
    config.arrayLengthFieldSize = listSize;
    return config;
}

NodePtr Node(std::uint8_t stringSize, ByteOrder order = BE, std::uint16_t dataId = NO_ID, std::uint8_t alignment = 0U) {
    auto node = std::make_shared<SerializationNode>();
    node->stringLengthFieldSize = stringSize;
    node->byteOrder = order;
    node->dataId = dataId;
    node->alignment = alignment;
    return node;
}

NodePtr Dynamic(NodePtr node) {
    node->dynamicLengthField = true;
    return node;
}

Bytes Concat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const auto& p : parts) {
        out.insert(out.end(), p.begin(), p.end());
    }
    return out;
}

/// Every strict prefix of `bytes` is refused by `Decoder<T>` and never decodes to `full`.
template <template <typename> class Decoder, typename T, typename V>
void ExpectEveryPrefixRefused(const Bytes& bytes, const V& full, const SerializeConfig& config = DEFAULTS) {
    CaptureSink quiet;
    for (std::size_t n = 0U; n < bytes.size(); ++n) {
        // Each prefix in its own allocation, so that ASan catches a read past it.
        const Bytes prefix(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(n));
        const Decoder<T> d(prefix.data(), prefix.size(), config);
        EXPECT_EQ(d.GetSize(), E) << "prefix of " << n << " bytes";
        EXPECT_NE(d.GetValue(), full) << "prefix of " << n << " bytes";
    }
}

// ---- TLV framing ------------------------------------------------------------------------
using Tlv = tlv::serialize::TlvSerializeHelper;

TEST(TlvTest, LengthFieldInItsSizeAndOrder) {
    const std::vector<std::string> refused = {"[Someip Serializer] Memory copy struct static length fail."};
    // Length, field size, byte order, the bytes written over 0xAA, and whether it is refused.
    const std::vector<std::tuple<unsigned long, unsigned long, ByteOrder, Bytes, bool>> cases = {
        {0x1234U, 1U, BE, {0x34}, false},
        {0x12345U, 2U, LE, {0x45, 0x23}, false},
        {0x01020304U, 4U, LE, {4, 3, 2, 1}, false},
        {0U, 4U, BE, {0, 0, 0, 0}, false},
        {0x0102U, 2U, static_cast<ByteOrder>(7), {1, 2}, false},  // any order but 1 is big-endian
        {5U, 3U, BE, {}, true},
        {5U, 8U, BE, {}, true},
        {ULONG_MAX - 1U, 2U, BE, {}, true},  // the room (length + size) wraps to zero
    };
    for (const auto& [length, size, order, written, isRefused] : cases) {
        CaptureSink capture;
        Bytes buffer(6U, 0xAA);
        Tlv::CopyLengthField(buffer.data(), length, size, order);
        Bytes expected = written;
        expected.resize(6U, 0xAA);
        EXPECT_EQ(buffer, expected) << "length " << length << ", size " << size;
        EXPECT_EQ(capture.Texts("CM"), isRefused ? refused : std::vector<std::string>{}) << "size " << size;
    }
}

TEST(TlvTest, ScannerIndexesMembersOrRefusesTheStream) {
    struct Entry {
        std::uint16_t id;
        std::uint64_t offset, size;
        std::uint8_t lengthFieldSize;
    };
    struct Case {
        const char* name;
        ByteOrder order;
        unsigned char staticSize;
        Bytes stream;
        std::uint64_t consumed;
        std::vector<Entry> entries;
        std::string log;  // exact error text, empty for none
    };
    const std::string noTag = "[TLV] Lack of enough code stream to get tag";
    const auto noLength = [](int id) {
        return "[TLV] Lack of enough code stream to get pos length[dataId" + std::to_string(id) + "]";
    };
    const std::vector<Case> cases = {
        {"empty stream", BE, 4U, {}, 0U, {}, ""},
        {"wire type 5", BE, 4U, {0x50, 0x01, 0x03, 0xA, 0xB, 0xC}, 6U, {{1U, 2U, 4U, 1U}}, ""},
        {"reserved bit ignored", BE, 4U, {0x80, 0x01, 0x7F}, 3U, {{1U, 2U, 1U, 0U}}, ""},
        {"fixed sizes 1, 2", BE, 4U, {0x00, 1, 9, 0x10, 2, 9, 9}, 7U, {{1U, 2U, 1U, 0U}, {2U, 5U, 2U, 0U}}, ""},
        {"fixed size 8", BE, 4U, {0x30, 4, 9, 9, 9, 9, 9, 9, 9, 9}, 10U, {{4U, 2U, 8U, 0U}}, ""},
        {"little-endian tag and length", LE, 4U, {0x09, 0x70, 1, 0, 0, 0, 0x55}, 7U, {{9U, 2U, 5U, 4U}}, ""},
        {"big-endian wire type 6", BE, 4U, {0x6F, 0xFF, 0x00, 0x01, 0x55}, 5U, {{0xFFFU, 2U, 3U, 2U}}, ""},
        {"wire type 4, static size 2", BE, 2U, {0x40, 0x07, 0x00, 0x02, 1, 2}, 6U, {{7U, 2U, 4U, 2U}}, ""},
        {"wire type 4, static size 0 is refused silently", BE, 0U, {0x40, 0x07, 0x01, 1}, E, {}, ""},
        {"wire type 4, static size 3 steps over 3 bytes", BE, 3U, {0x40, 0x07, 9, 9, 9}, 5U, {{7U, 2U, 3U, 3U}}, ""},
        {"duplicate: first wins", BE, 4U, {0x50, 2, 1, 0xAA, 0x20, 2, 1, 2, 3, 4}, 10U, {{2U, 2U, 2U, 1U}}, ""},
        {"length field cut off (wire type 7)", BE, 4U, {0, 1, 0xAA, 0x70, 3, 0, 0, 0}, E, {}, noLength(3)},
        {"static length field cut off", BE, 4U, {0x40, 0x08, 0x00}, E, {}, noLength(8)},
        {"one byte left after a member", BE, 4U, {0x00, 0x01, 0xAA, 0x00}, E, {}, noTag},
        // A declared length past the end is reported through the consumed size.
        {"declared length past the end", BE, 4U, {0x50, 0x01, 0x10, 0xAA}, 19U, {{1U, 2U, 17U, 1U}}, ""},
        {"declared length ending on the error mark", BE, 4U, {0x70, 0x01, 0xFF, 0xFF, 0xFF, 0xF9}, E, {}, ""},
        {"maximal 4-byte length", BE, 4U, {0x70, 0x01, 0xFF, 0xFF, 0xFF, 0xFF}, 6U + E, {{1U, 2U, 4U + E, 4U}}, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        CaptureSink capture;
        const auto table = Tlv::RecordDataId(c.order, c.staticSize, c.stream.data(), c.stream.size());
        EXPECT_EQ(table.consumedSize, c.consumed);
        ASSERT_EQ(table.entries.size(), c.entries.size());
        for (const auto& e : c.entries) {
            const auto it = table.entries.find(e.id);
            ASSERT_NE(it, table.entries.end()) << "data id " << e.id;
            EXPECT_EQ(it->second.offset, e.offset);
            EXPECT_EQ(it->second.size, e.size);
            EXPECT_EQ(it->second.lengthFieldSize, e.lengthFieldSize);
        }
        EXPECT_EQ(capture.Texts("CM"), c.log.empty() ? std::vector<std::string>{} : std::vector<std::string>{c.log});
    }
    EXPECT_EQ(Tlv::RecordDataId(BE, 4U, nullptr, 5U).consumedSize, 0U);
    EXPECT_TRUE(Tlv::RecordDataId(BE, 4U, nullptr, 5U).entries.empty());
}

TEST(TlvTest, TagWireTypeFollowsTheMemberForm) {
    // By size 0 to 8: the wire type of a dynamic length field and that of a fixed-size value.
    const int dynamicTypes[] = {0, 5, 6, 0, 7, 0, 0, 0, 0};
    const int fixedTypes[] = {0, 0, 1, 0, 2, 0, 0, 0, 3};
    for (std::uint64_t size = 0U; size <= 8U; ++size) {
        EXPECT_EQ(Tlv::LengthDelimitedTag(0xFFFU, true, size), 0x0FFF | (dynamicTypes[size] << 12)) << size;
        EXPECT_EQ(Tlv::LengthDelimitedTag(5U, false, size), 0x4005U) << size;
        EXPECT_EQ(Tlv::FixedSizeTag(5U, size), 0x0005 | (fixedTypes[size] << 12)) << size;
    }
}

// ---- SOME/IP ----------------------------------------------------------------------------
using kelp::serialize::someip::Deserializer;
using kelp::serialize::someip::ErrorCodeValue;
using kelp::serialize::someip::Serializer;

const Bytes PAD = {0xAA, 0xAA};                                                     // counted, not written
const Bytes CANCELLED = {0, 0, 0, 0, 1, 0x80, 0, 0, 0, 0, 0, 0x03, 0, 0, 0, 0, 5};  // big-endian

/// A structure node whose five members carry the data ids 1 to 5; their own string size and
/// alignment do not apply to TLV members.
NodePtr TlvProcessNode(bool dynamic, std::uint8_t staticSize, ByteOrder order = BE) {
    auto node = Node(4U, order);
    node->isTlv = true;
    node->tlvLengthFieldSize = staticSize;
    node->structLengthFieldSize = 2U;
    node->children = std::make_shared<SerializationNodeList>();
    for (std::uint16_t id = 1U; id <= 5U; ++id) {
        node->children->push_back(Node(4U, order, id, 8U));
        node->children->back()->dynamicLengthField = dynamic;
        node->children->back()->tlvLengthFieldSize = staticSize;
    }
    return node;
}

/// The bytes of `value` written at `at` into a buffer pre-filled with 0xAA (so that padding
/// shows), from `at` on; nothing when the value cannot be encoded.
template <typename T>
Bytes Encode(
    const T& value, const SerializeConfig& cfg, NodePtr node = nullptr, std::uint64_t at = 0U, bool noPad = false) {
    Serializer<T> writer(value, cfg, std::move(node), 4096U, at);
    if constexpr (std::is_same_v<T, String>) {
        writer.SetNoPadding(noPad);
    }
    const std::uint64_t size = writer.GetSize();
    if (size == E) {
        return {};
    }
    Bytes buffer(at + size, 0xAA);
    writer.Serialize(buffer.data());
    return Bytes(buffer.begin() + static_cast<std::ptrdiff_t>(at), buffer.end());
}

/// The last log text of a decoder refusing `bytes`, or "accepted".
template <typename T>
std::string Refusal(const Bytes& bytes, const SerializeConfig& config = DEFAULTS, NodePtr node = nullptr) {
    CaptureSink capture;
    if (Deserializer<T>(bytes.data(), bytes.size(), config, std::move(node)).GetSize() != E) {
        return "accepted";
    }
    return capture.Texts("CM").empty() ? "" : capture.Texts("CM").back();
}

TEST(SomeipTest, WritesExactBytes) {
    auto raw = Node(1U);
    raw->rawString = true;
    const String s = "ab";
    const ErrorCode cancelled = ExecErrc::kCancelled;
    const Process running{"", "", "", "", true};
    const Process a{"a", "", "", "", false};
    // Padding makes length field + position + 16-byte header + payload a multiple of the alignment.
    const std::vector<std::tuple<const char*, Bytes, Bytes>> cases = {
        {"int little-endian", Encode(1, Config(LE)), {1, 0, 0, 0}},
        {"negative int", Encode(-2, Config(BE)), {0xFF, 0xFF, 0xFF, 0xFE}},
        {"node order wins over config", Encode(0x01020304, Config(LE), Node(4U, BE)), {1, 2, 3, 4}},
        {"node little-endian", Encode(0x01020304, Config(BE), Node(4U, LE)), {4, 3, 2, 1}},
        {"state", Encode(ara::exec::ExecutionState::kTerminating, Config(BE)), {1}},
        {"bool", Encode(true, Config(LE)), {1}},
        {"empty string", Encode<String>("", Config(BE)), EMPTY},
        {"empty raw string", Encode<String>("", Config(BE, 4U, true)), {0, 0, 0, 0}},
        {"1-byte field", Encode(s, Config(BE, 1U)), Concat({{6}, AB})},
        {"2-byte big-endian", Encode(s, Config(BE, 2U)), Concat({{0, 6}, AB})},
        {"2-byte little-endian", Encode(s, Config(LE, 2U)), Concat({{6, 0}, AB})},
        {"4-byte little-endian", Encode(s, Config(LE, 4U)), Concat({{6, 0, 0, 0}, AB})},
        {"no length field", Encode(s, Config(BE, 0U)), AB},
        {"raw with 2-byte field", Encode(s, Config(BE, 2U, true)), {0, 2, 'a', 'b'}},
        {"raw from the node", Encode(s, Config(BE), raw), {2, 'a', 'b'}},
        {"node settings win", Encode(s, Config(LE, 1U, true), Node(2U)), Concat({{0, 6}, AB})},
        {"TLV dynamic field", Encode(s, Config(BE), Dynamic(Node(4U, BE, 1U))), Concat({{6}, AB})},
        {"TLV static field", Encode(s, Config(BE), Node(2U, BE, 1U)), Concat({{0, 6}, AB})},
        {"TLV never padded", Encode(s, Config(BE), Node(4U, BE, 2U, 8U)), Concat({{0, 0, 0, 6}, AB})},
        {"align 4 at 0: 26 mod 4 = 2", Encode(s, Config(BE), Node(4U, BE, NO_ID, 4U)), Concat({{0, 0, 0, 6}, AB, PAD})},
        {"align 4 at 2: 28 mod 4 = 0", Encode(s, Config(BE), Node(4U, BE, NO_ID, 4U), 2U), Concat({{0, 0, 0, 6}, AB})},
        {"align 8 at 0", Encode(s, Config(BE), Node(4U, BE, NO_ID, 8U)), Concat({{0, 0, 0, 6}, AB, PAD, PAD, PAD})},
        {"no padding asked", Encode(s, Config(BE), Node(4U, BE, NO_ID, 8U), 0U, true), Concat({{0, 0, 0, 6}, AB})},
        {"3-byte field not written", Encode(s, Config(BE), Node(3U)), Concat({{0xAA, 0xAA, 0xAA}, AB})},
        {"error code", Encode(cancelled, Config(BE)), CANCELLED},
        // Little-endian reverses the domain id as a whole.
        {"error code LE", Encode(cancelled, Config(LE)), {0, 0, 0, 0, 1, 0, 3, 0, 0, 0, 0, 0, 0x80, 5, 0, 0, 0}},
        {"list", Encode(List(1U, running), DEFAULTS), Concat({{0, 0, 0, 0x21}, EMPTY, EMPTY, EMPTY, EMPTY, {1}})},
        {"structure length", Encode(a, Lengths(1U)), Concat({{34}, A, EMPTY, EMPTY, EMPTY, {0}})},
        {"TLV members",
         Encode(Process{"a", "", "", "", true}, DEFAULTS, TlvProcessNode(true, 4U)),
         {0x00, 32,                                 // structure length
          0x50, 0x01, 5, 0xEF, 0xBB, 0xBF, 'a', 0,  // data id 1, wire type 5
          0x50, 0x02, 4, 0xEF, 0xBB, 0xBF, 0,       // data id 2
          0x50, 0x03, 4, 0xEF, 0xBB, 0xBF, 0,       // data id 3
          0x50, 0x04, 4, 0xEF, 0xBB, 0xBF, 0,       // data id 4
          0x00, 0x05, 1}},                          // flag, wire type 0
    };
    for (const auto& [name, actual, expected] : cases) {
        EXPECT_EQ(actual, expected) << name;
    }
}

TEST(SomeipTest, EncoderRefusesWhatDoesNotFit) {
    CaptureSink capture;
    Bytes buffer(4U, 0xAA);
    const int value = 7;
    Serializer<int>(value, Config(BE), nullptr, 3U).Serialize(buffer.data());  // room too small
    EXPECT_EQ(buffer, Bytes(4U, 0xAA));
    EXPECT_EQ(capture.Texts("CM"),
              std::vector<std::string>{"[Someip Serializer] Memory copy return error, Invalid serialization."});
    auto tlv = TlvProcessNode(false, 4U);
    (*tlv->children)[2]->dataId = NO_ID;  // a TLV member without data id
    EXPECT_EQ(Serializer<Process>(Process{}, DEFAULTS, tlv).GetSize(), E);
    // 6 x 33 + 57 = 255 bytes fit a 1-byte list length field, one more character does not.
    List list(6U, Process{"", "", "", "", false});
    list.push_back(Process{std::string(24U, 'x'), "", "", "", false});
    EXPECT_EQ(Serializer<List>(list, Lengths(0U, 1U)).GetSize(), 256U);
    list.back().processName += 'x';
    EXPECT_EQ(Serializer<List>(list, Lengths(0U, 1U)).GetSize(), E);
}

TEST(SomeipTest, StringSizeLimitsPerLengthField) {
    auto dynamic = Dynamic(Node(4U, BE, 3U));
    auto threeBytes = Node(3U);
    threeBytes->skipPadding = true;
    const String unused;
    // Configuration, node, characters; then the size and the length-field size chosen.
    const std::vector<std::tuple<SerializeConfig, NodePtr, std::uint64_t, std::uint64_t, std::uint64_t>> cases = {
        {Config(BE, 1U), nullptr, 251U, 256U, 1U},  // the largest string, then one character more
        {Config(BE, 1U), nullptr, 252U, E, 1U},
        {Config(BE, 1U, true), nullptr, 255U, 256U, 1U},
        {Config(BE, 1U, true), nullptr, 256U, E, 1U},
        {Config(BE, 2U), nullptr, 65531U, 65537U, 2U},
        {Config(BE, 2U), nullptr, 65532U, E, 2U},
        {Config(BE, 4U), nullptr, 4294967276U, 4294967284U, 4U},  // a 4-byte field stops at 4294967280
        {Config(BE, 4U), nullptr, 4294967277U, E, 4U},
        {Config(BE), threeBytes, 4294967291U, 4294967298U, 3U},  // other sizes stop at 4294967295
        {Config(BE), threeBytes, 4294967292U, E, 3U},
        {Config(BE), dynamic, 251U, 256U, 1U},  // a dynamic field takes the smallest size that fits
        {Config(BE), dynamic, 252U, 258U, 2U},
        {Config(BE), dynamic, 65531U, 65537U, 2U},
        {Config(BE), dynamic, 65532U, 65540U, 4U},
        {Config(BE), Node(1U, BE, NO_ID, 4U), 252U, E, 1U},  // aligned, one over
    };
    for (const auto& [config, node, characters, size, lengthFieldSize] : cases) {
        Serializer<String> writer(unused, config, node);
        EXPECT_EQ(writer.GetSizeHelper(characters), size) << characters << " characters";
        EXPECT_EQ(writer.ChosenLengthFieldSize(), lengthFieldSize) << characters << " characters";
    }
}

TEST(SomeipTest, DecoderReadsValidInput) {
    const Bytes flags = {1, 0, 2};  // any byte but 0 is true
    EXPECT_TRUE(Deserializer<bool>(&flags[0], 1U, DEFAULTS).GetValue());
    EXPECT_FALSE(Deserializer<bool>(&flags[1], 1U, DEFAULTS).GetValue());
    EXPECT_TRUE(Deserializer<bool>(&flags[2], 1U, DEFAULTS).GetValue());
    EXPECT_FALSE(Deserializer<bool>(&flags[0], 0U, DEFAULTS).GetValue());
    EXPECT_EQ(Deserializer<ErrorCode>(CANCELLED.data(), 17U, Config(BE)).GetSize(), 17U);
    EXPECT_EQ(Deserializer<ErrorCode>(CANCELLED.data(), 17U, Config(BE)).GetValue(),
              (ErrorCodeValue{ExecErrorDomain::kId, 5}));
    const Bytes le = {0, 0, 0, 0, 1, 8, 7, 6, 5, 4, 3, 2, 1, 0xFD, 0xFF, 0xFF, 0xFF};
    EXPECT_EQ(Deserializer<ErrorCode>(le.data(), 17U, Config(LE)).GetValue(),
              (ErrorCodeValue{0x0102030405060708ULL, -3}));
    // A structure length larger than the members: the extra bytes belong to the structure.
    const Bytes padded = Concat({{36}, A, EMPTY, EMPTY, EMPTY, {0, 0x77, 0x77}});
    const Deserializer<Process> process(padded.data(), padded.size(), Lengths(1U));
    EXPECT_EQ(process.GetSize(), 37U);
    EXPECT_EQ(process.GetValue(), (Process{"a", "", "", "", false}));
    // TLV members in any order; an unknown data id is skipped, a missing one keeps its default.
    const Bytes tlv = {0x00, 20,                                 // structure length
                       0x00, 0x05, 1,                            // flag first
                       0x50, 0x09, 3, 1,    2,    3,             // unknown data id 9
                       0x50, 0x03, 5, 0xEF, 0xBB, 0xBF, 'r', 0,  // data id 3
                       0x00, 0x05, 0};                           // duplicate flag: first wins
    CaptureSink capture;
    const Deserializer<Process> reader(tlv.data(), tlv.size(), DEFAULTS, TlvProcessNode(true, 4U));
    EXPECT_EQ(reader.GetSize(), 22U);
    EXPECT_EQ(reader.GetValue(), (Process{"", "", "r", "", true}));
    EXPECT_TRUE(capture.Contains("Deserialization, cannot find dataId[dataId=1]"));
    EXPECT_TRUE(capture.Contains("Deserialization, check has the same serialize config"));
    // A list of one process followed by a byte that is not part of it, and an empty list.
    const Bytes bytes = Concat({{0, 0, 0, 0x21}, EMPTY, EMPTY, EMPTY, EMPTY, {1, 0x55}});
    const Deserializer<List> list(bytes.data(), bytes.size(), DEFAULTS);
    EXPECT_EQ(list.GetSize(), 37U);
    EXPECT_EQ(list.GetValue(), List(1U, Process{"", "", "", "", true}));
    const Bytes empty = {0, 0, 0, 0};
    EXPECT_EQ(Deserializer<List>(empty.data(), 4U, DEFAULTS).GetSize(), 4U);
    EXPECT_TRUE(Deserializer<List>(empty.data(), 4U, DEFAULTS).GetValue().empty());
}

TEST(SomeipTest, DecoderRefusesMalformedInputWithItsLog) {
    const std::string badString = "Construct deserialization for String failed, insufficient data.";
    const std::string badError = "Construct deserialization for ErrorCode failed, invalid ";
    const std::string badStruct = "Deserialization[Someip] size counter failed, insufficient data.";
    const std::string tooShort = "[SomeipDeserializerErrorCode][" + badError + "size parameter]";
    const NodePtr tlv = TlvProcessNode(true, 4U);
    Bytes kindTwo = CANCELLED;
    kindTwo[4] = 2U;
    // A structure length 1 short of the members; a list of 0x22 bytes: one process and a stray byte.
    const Bytes shortStruct = Concat({{33}, A, EMPTY, EMPTY, EMPTY, {0}});
    const Bytes strayByte = Concat({{0, 0, 0, 0x22}, EMPTY, EMPTY, EMPTY, EMPTY, {1, 1}});
    const std::vector<std::tuple<const char*, std::string, std::string>> cases = {
        {"mark without terminator", Refusal<String>({0, 0, 0, 3, 0xEF, 0xBB, 0xBF}, Config(BE)), badString},
        {"terminator not zero", Refusal<String>({0, 0, 0, 6, 0xEF, 0xBB, 0xBF, 'a', 'b', 1}, Config(BE)), badString},
        {"wrong mark", Refusal<String>({0, 0, 0, 6, 0xEF, 0xBB, 0xBE, 'a', 'b', 0}, Config(BE)), badString},
        {"huge length", Refusal<String>({0xFF, 0xFF, 0xFF, 0xFF, 0xEF, 0xBB, 0xBF, 0}, Config(BE)), badString},
        {"raw length past the end", Refusal<String>({0, 3, 'a', 'b'}, Config(BE, 2U, true)), badString},
        {"bool", Refusal<bool>({}), "Invalid parameter for trivially copyable type: size, it's insufficient!"},
        {"16-byte error", Refusal<ErrorCode>(Bytes(CANCELLED.begin(), CANCELLED.end() - 1), Config(BE)), tooShort},
        {"18-byte error", Refusal<ErrorCode>(Concat({CANCELLED, {0}}), Config(BE)), badError + "size parameter!"},
        {"error of kind 2", Refusal<ErrorCode>(kindTwo, Config(BE)), badError + "type of ErrorCode!"},
        {"structure length too short", Refusal<Process>(shortStruct, Lengths(1U)), badStruct},
        {"TLV member too long", Refusal<Process>({0, 5, 0x50, 1, 9, 0xEF, 0xBB}, DEFAULTS, tlv), badStruct},
        {"stray list byte", Refusal<List>(strayByte), "GetSize failed for Vector deserialization, insufficient data!"},
    };
    for (const auto& [name, actual, expected] : cases) {
        EXPECT_EQ(actual, expected) << name;
    }
    CaptureSink capture;
    EXPECT_EQ(Deserializer<List>(strayByte.data(), strayByte.size(), DEFAULTS).GetValue().size(), 1U);
    EXPECT_TRUE(capture.Contains("GetValue failed for Vector deserialization, insufficient data!"));
}

// ---- DDS --------------------------------------------------------------------------------
template <typename T>
using DdsReader = kelp::serialize::dds::Deserializer<T>;
template <typename T>
using DdsWriter = kelp::serialize::dds::Serializer<T>;

const Bytes BUSY = {0, 0, 0, 0, 1, 0, 3, 0, 0, 0, 0, 0, 0x80, 7, 0, 0, 0};  // host order

template <typename T>
Bytes EncodeDds(const T& value, const SerializeConfig& config = DEFAULTS) {
    const std::uint64_t size = DdsWriter<T>(value, config, 0U, 0U).GetSize();
    Bytes buffer(size, 0xAA);
    DdsWriter<T>(value, config, size, 0U).Serialize(buffer.data());
    return buffer;
}

TEST(DdsTest, WritesExactBytesInHostOrder) {
    EXPECT_EQ(EncodeDds(String{}), (Bytes{0, 0, 0, 0}));
    EXPECT_EQ(EncodeDds(String{"ab"}), (Bytes{2, 0, 0, 0, 'a', 'b'}));
    EXPECT_EQ(EncodeDds(0x01020304, Config(BE)), (Bytes{4, 3, 2, 1})) << "whatever the configuration says";
    EXPECT_EQ(EncodeDds(true), Bytes{1});
    EXPECT_EQ(EncodeDds(Process{"p", "", "R", "", true}),
              (Bytes{1, 0, 0, 0, 'p', 0, 0, 0, 0, 1, 0, 0, 0, 'R', 0, 0, 0, 0, 1}));
    EXPECT_EQ(EncodeDds(List(1U, Process{})), (Bytes{1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(EncodeDds(ErrorCode{ExecErrc::kBusy}), BUSY);
    CaptureSink capture;
    Bytes buffer(8U, 0xAA);
    const String text = "abcd";
    DdsWriter<String>(text, DEFAULTS, 6U, 0U).Serialize(buffer.data());
    EXPECT_EQ(buffer, (Bytes{4, 0, 0, 0, 0xAA, 0xAA, 0xAA, 0xAA}));  // count written, characters refused
    const int value = 1;
    DdsWriter<int>(value, DEFAULTS, 2U).Serialize(buffer.data());
    EXPECT_EQ(capture.Texts("CM"),
              (std::vector<std::string>{"[DDS Serializer String] Memory copy return error, Invalid serialization.",
                                        "[DDS Serializer] Memory copy return error, invalid data."}));
}

TEST(DdsTest, DecoderReadsValuesUpToTheirEndAndRefusesMalformedInput) {
    const Bytes text = {2, 0, 0, 0, 'a', 'b', 'c'};
    EXPECT_EQ(DdsReader<String>(text.data(), text.size(), DEFAULTS).GetSize(), 6U);
    EXPECT_EQ(DdsReader<String>(text.data(), text.size(), DEFAULTS).GetValue(), "ab");
    EXPECT_TRUE(DdsReader<bool>(&text[0], 1U, DEFAULTS).GetValue());  // any byte but 0 is true
    EXPECT_EQ(DdsReader<ErrorCode>(BUSY.data(), 17U, DEFAULTS).GetSize(), 17U);
    EXPECT_EQ(DdsReader<ErrorCode>(BUSY.data(), 17U, DEFAULTS).GetValue(), (ErrorCodeValue{ExecErrorDomain::kId, 7}));
    const List list = {Process{"em", "MachineFG", "Running", "kRunning", true},
                       Process{std::string(70000U, 'x'), "", "", "", false}};
    const Bytes bytes = Concat({EncodeDds(list), {0x5A}});  // and a byte that is not part of the list
    EXPECT_EQ(DdsReader<List>(bytes.data(), bytes.size(), DEFAULTS).GetSize(), bytes.size() - 1U);
    EXPECT_EQ(DdsReader<List>(bytes.data(), bytes.size(), DEFAULTS).GetValue(), list);
    // Malformed input is refused with its log.
    CaptureSink capture;
    const Bytes pastTheEnd = {3, 0, 0, 0, 'a', 'b'};
    EXPECT_EQ(DdsReader<String>(pastTheEnd.data(), pastTheEnd.size(), DEFAULTS).GetValue(), "");
    const Bytes maxCount = {0xFF, 0xFF, 0xFF, 0xFF};
    EXPECT_EQ(DdsReader<String>(maxCount.data(), maxCount.size(), DEFAULTS).GetSize(), E);
    EXPECT_TRUE(capture.Contains("Deserialization of String failed, insufficient data."));
    EXPECT_EQ(DdsReader<bool>(maxCount.data(), 0U, DEFAULTS).GetSize(), E);
    EXPECT_TRUE(capture.Contains("Deserialization of trivially copyable type failed, insufficient data!"));
    EXPECT_EQ(DdsReader<ErrorCode>(BUSY.data(), 16U, DEFAULTS).GetSize(), E);
    EXPECT_TRUE(capture.Contains(
        "[DDSSerializeErrorCode][Construct deserialization for ErrorCode failed, invalid size parameter]"));
    const Bytes noFlag = {1, 0, 0, 0, 'p', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};  // a process without its flag
    EXPECT_EQ(DdsReader<Process>(noFlag.data(), noFlag.size(), DEFAULTS).GetSize(), E);
    EXPECT_EQ(DdsReader<Process>(noFlag.data(), noFlag.size(), DEFAULTS).GetValue().processName, "p");
    EXPECT_TRUE(capture.Contains("Insufficient arguments from remote end"));
    const Bytes hugeCount = {0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0};  // refused without reserving room for it
    const DdsReader<List> huge(hugeCount.data(), hugeCount.size(), DEFAULTS);
    EXPECT_EQ(huge.GetSize(), E);
    EXPECT_TRUE(huge.GetValue().empty());
    EXPECT_TRUE(capture.Contains("Deserialization[DDS] size counter failed, insufficient data."));
    EXPECT_TRUE(capture.Contains("GetValue(): Deserialization of sequence container failed, insufficient data."));
}

TEST(DecoderTest, EveryPrefixIsRefused) {
    const List list = {Process{"proc", "fg", "Running", "kRunning", true}, Process{"", "x", "", "", false}};
    ExpectEveryPrefixRefused<Deserializer, List>(Encode(list, DEFAULTS), list);
    ExpectEveryPrefixRefused<Deserializer, Process>(Encode(list[0], Lengths(2U)), list[0], Lengths(2U));
    ExpectEveryPrefixRefused<Deserializer, Process>(Encode(list[0], DEFAULTS), list[0]);
    ExpectEveryPrefixRefused<Deserializer, String>(Concat({{0, 0, 0, 6}, AB}), String{"ab"}, Config(BE));
    ExpectEveryPrefixRefused<Deserializer, ErrorCode>(CANCELLED, ErrorCodeValue{ExecErrorDomain::kId, 5});
    ExpectEveryPrefixRefused<DdsReader, List>(EncodeDds(list), list);
    ExpectEveryPrefixRefused<DdsReader, Process>(EncodeDds(list[0]), list[0]);
    ExpectEveryPrefixRefused<DdsReader, String>(EncodeDds(String{"abc"}), String{"abc"});
    ExpectEveryPrefixRefused<DdsReader, ErrorCode>(BUSY, ErrorCodeValue{ExecErrorDomain::kId, 7});
}

// ---- Request payloads -------------------------------------------------------------------
using ara::exec::ExecutionState;
using kelp::brio::serialize::ParamsSerializer;
using kelp::serialize::SerializeType;

SerializationNode MethodNode(bool tlv, const SerializationNodeList& children) {
    SerializationNode node;
    node.isTlv = tlv;
    if (!children.empty()) {
        node.children = std::make_shared<SerializationNodeList>(children);
    }
    return node;
}

/// Both passes the way the request path runs them, into a buffer pre-filled with 0xAA.
template <typename... Args>
Bytes Request(SerializeType type, const SerializationNode& node, ByteOrder order, const Args&... args) {
    ParamsSerializer serializer(nullptr, type, node, Config(order));
    const std::uint64_t size = serializer.GetSerializedSize(args...);
    if (size == E) {
        return {};
    }
    Bytes payload(size, 0xAA);
    serializer.SerializeArguments(payload.data(), args...);
    return payload;
}

// ReportExecutionState (pid, state), SetState (two strings) and ProcessRestart (string, flag).
TEST(ParamsSerializerTest, RequestPayloads) {
    const auto ip = SerializeType::kSomeip;
    const auto dds = SerializeType::kDds;
    const auto state = ExecutionState::kTerminating;
    const String ab = "ab", c = "c", over(252U, 'o'), fits(251U, 'f');
    const Bytes C = {0xEF, 0xBB, 0xBF, 'c', 0};  // and AB: the strings on the wire
    const Bytes pad = {0xAA, 0xAA};              // padding is counted, not written
    const SerializationNode none = MethodNode(false, {});
    const SerializationNode tlvState = MethodNode(true, {Node(4U, BE, 1U), Node(4U, BE, 2U)});
    const SerializationNode tlvStateLe = MethodNode(true, {Node(4U, LE, 1U), Node(4U, LE, 2U)});
    const SerializationNode tlvStatic = MethodNode(true, {Node(4U, BE, 3U), Node(2U, BE, 4U)});
    const SerializationNode tlvDynamic = MethodNode(true, {Dynamic(Node(4U, BE, 3U)), Dynamic(Node(4U, BE, 0xABCU))});
    const SerializationNode tlvRestart = MethodNode(true, {Dynamic(Node(4U, BE, 5U)), Node(4U, BE, 6U)});
    const SerializationNode aligned = MethodNode(false, {Node(4U, BE, NO_ID, 4U), Node(4U, BE, NO_ID, 8U)});
    const SerializationNode ownSizes = MethodNode(false, {Node(2U, LE), Node(1U, BE)});
    const SerializationNode oneByte = MethodNode(false, {Node(1U, BE), Node(1U, BE)});
    const std::vector<std::tuple<const char*, Bytes, Bytes>> cases = {
        {"report, big-endian", Request(ip, none, BE, 0x1234, state), {0, 0, 0x12, 0x34, 1}},
        {"report, little-endian", Request(ip, none, LE, 0x1234, state), {0x34, 0x12, 0, 0, 1}},
        {"set state", Request(ip, none, BE, ab, c), Concat({{0, 0, 0, 6}, AB, {0, 0, 0, 5}, C})},
        {"restart", Request(ip, none, BE, ab, true), Concat({{0, 0, 0, 6}, AB, {1}})},
        // Tag, value, tag, value: 2 + 4 + 2 + 1 bytes; the member configuration is big-endian.
        {"report, TLV", Request(ip, tlvState, LE, 0x1234, state), {0x20, 1, 0, 0, 0x12, 0x34, 0, 2, 1}},
        {"report, TLV little-endian", Request(ip, tlvStateLe, BE, 0x1234, state), {1, 0x20, 0x34, 0x12, 0, 0, 2, 0, 1}},
        {"set, TLV static", Request(ip, tlvStatic, BE, ab, c), Concat({{0x40, 3, 0, 0, 0, 6}, AB, {0x40, 4, 0, 5}, C})},
        {"set, TLV dynamic", Request(ip, tlvDynamic, BE, ab, c), Concat({{0x50, 3, 6}, AB, {0x5A, 0xBC, 5}, C})},
        {"restart, TLV", Request(ip, tlvRestart, BE, ab, false), Concat({{0x50, 5, 6}, AB, {0, 6, 0}})},
        // First string: (4 + 0 + 16 + 6) mod 4 = 2, two bytes of padding; second string at 12:
        // (4 + 12 + 16 + 5) mod 8 = 5, three bytes of padding.
        {"aligned", Request(ip, aligned, BE, ab, c), Concat({{0, 0, 0, 6}, AB, pad, {0, 0, 0, 5}, C, pad, {0xAA}})},
        {"set, members of their own sizes", Request(ip, ownSizes, BE, ab, c), Concat({{6, 0}, AB, {5}, C})},
        {"set, one string too long", Request(ip, oneByte, BE, fits, over), {}},
        {"report, DDS", Request(dds, none, BE, 0x1234, state), {0x34, 0x12, 0, 0, 1}},
        {"set, DDS ignores nodes", Request(dds, tlvStatic, BE, ab, String{}), {2, 0, 0, 0, 'a', 'b', 0, 0, 0, 0}},
        {"restart, DDS", Request(dds, none, BE, ab, true), {2, 0, 0, 0, 'a', 'b', 1}},
    };
    for (const auto& [name, actual, expected] : cases) {
        EXPECT_EQ(actual, expected) << name;
    }
    EXPECT_EQ(Request(ip, oneByte, BE, fits, fits).size(), 512U);  // strings at the 1-byte maximum
}

TEST(ParamsSerializerTest, MoreArgumentsThanMemberNodesOrAWrongSerializeType) {
    const SerializationNode node = MethodNode(false, {Node(4U)});
    const auto state = ExecutionState::kRunning;
    CaptureSink capture;
    EXPECT_TRUE(Request(SerializeType::kSomeip, node, BE, 7, state, state).empty());  // refused, logged once
    EXPECT_EQ(capture.Texts("CM"), std::vector<std::string>{"Wrong method serialize config, serialize error!"});
    capture.Clear();
    ParamsSerializer serializer(nullptr, SerializeType::kSomeip, node, Config(BE));
    Bytes payload(6U, 0xAA);
    serializer.SerializeArguments(payload.data(), 7, state);  // the write pass skips the extra one
    EXPECT_EQ(payload, (Bytes{0, 0, 0, 7, 0xAA, 0xAA}));
    EXPECT_TRUE(capture.Texts().empty());
    // A wrong serialize type writes nothing.
    ParamsSerializer wrongType(nullptr, static_cast<SerializeType>(1), SerializationNode{}, Config(BE));
    EXPECT_EQ(wrongType.GetSerializedSize(String{"ab"}, true), E);
    wrongType.DoSerialize(payload.data(), String{"ab"});
    wrongType.DoSerialize(payload.data(), true);
    EXPECT_EQ(payload, (Bytes{0, 0, 0, 7, 0xAA, 0xAA}));
    EXPECT_EQ(capture.Texts("CM"), std::vector<std::string>(4U, "Wrong serialize type, serialize error!"));
}

}  // namespace
