// TLV framing: length-field bytes in both byte orders, the tag scanner on well-formed and
// malformed streams, and the wire type each tag form carries.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <string>
#include <vector>

#include "ara/quill/common/log/log.h"
#include "tlv/serialize/tlv_serialize_helper.h"

namespace {

using ara::quill::common::log::CaptureSink;
using kelp::serialize::ByteOrder;
using kelp::serialize::SERIALIZE_SIZE_ERROR;
using tlv::serialize::TlvSerializeHelper;
using Bytes = std::vector<unsigned char>;

constexpr auto BE = ByteOrder::kBigEndian;
constexpr auto LE = ByteOrder::kLittleEndian;
const std::string LENGTH_FAIL = "[Someip Serializer] Memory copy struct static length fail.";

struct LengthFieldCase {
    const char* name;
    unsigned long length;
    unsigned long fieldSize;
    ByteOrder order;
    Bytes expected;  // the first 6 bytes of a buffer pre-filled with 0xAA
    bool logsFailure;
};

TEST(TlvLengthFieldTest, WritesTheFieldInItsSizeAndOrder) {
    const std::vector<LengthFieldCase> cases = {
        {"size 0 writes nothing", 0x1234U, 0U, BE, {0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA}, false},
        {"size 1 keeps the low byte", 0x1234U, 1U, BE, {0x34, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA}, false},
        {"size 2 big-endian", 0x1234U, 2U, BE, {0x12, 0x34, 0xAA, 0xAA, 0xAA, 0xAA}, false},
        {"size 2 little-endian", 0x1234U, 2U, LE, {0x34, 0x12, 0xAA, 0xAA, 0xAA, 0xAA}, false},
        {"size 2 truncates to 16 bits", 0x12345U, 2U, BE, {0x23, 0x45, 0xAA, 0xAA, 0xAA, 0xAA}, false},
        {"size 4 big-endian", 0x01020304U, 4U, BE, {0x01, 0x02, 0x03, 0x04, 0xAA, 0xAA}, false},
        {"size 4 little-endian", 0x01020304U, 4U, LE, {0x04, 0x03, 0x02, 0x01, 0xAA, 0xAA}, false},
        {"size 4 of zero still fits its room", 0U, 4U, BE, {0x00, 0x00, 0x00, 0x00, 0xAA, 0xAA}, false},
        {"byte order values other than 1 are big-endian",
         0x0102U,
         2U,
         static_cast<ByteOrder>(7),
         {0x01, 0x02, 0xAA, 0xAA, 0xAA, 0xAA},
         false},
        {"size 3 is refused", 5U, 3U, BE, {0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA}, true},
        {"size 8 is refused", 5U, 8U, BE, {0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA}, true},
        // The room given to the copy is length + size; when that wraps the copy is refused.
        {"room wrapping to zero is refused", ULONG_MAX - 1U, 2U, BE, {0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA}, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        CaptureSink capture;
        Bytes buffer(6U, 0xAA);
        TlvSerializeHelper::CopyLengthField(buffer.data(), c.length, c.fieldSize, c.order);
        EXPECT_EQ(buffer, c.expected);
        EXPECT_EQ(capture.Contains(LENGTH_FAIL), c.logsFailure);
        if (c.logsFailure) {
            ASSERT_EQ(capture.Records().size(), 1U);
            EXPECT_EQ(capture.Records()[0].ctxId, "CM");
        }
    }
}

struct Entry {
    std::uint16_t id;
    std::uint64_t offset;
    std::uint64_t size;
    std::uint8_t lengthFieldSize;
};

struct ScanCase {
    const char* name;
    ByteOrder order;
    unsigned char staticSize;
    Bytes stream;
    std::uint64_t consumed;
    std::vector<Entry> entries;
    const char* log;  // exact error text, or null for none
};

TEST(TlvRecordDataIdTest, IndexesMembersOrRefusesTheStream) {
    const std::vector<ScanCase> cases = {
        {"empty stream", BE, 4U, {}, 0U, {}, nullptr},
        {"one byte", BE, 4U, {0x50}, SERIALIZE_SIZE_ERROR, {}, "[TLV] Lack of enough code stream to get tag"},
        {"wire type 5", BE, 4U, {0x50, 0x01, 0x03, 0xA, 0xB, 0xC}, 6U, {{1U, 2U, 4U, 1U}}, nullptr},
        {"reserved bit ignored", BE, 4U, {0x80, 0x01, 0x7F}, 3U, {{1U, 2U, 1U, 0U}}, nullptr},
        {"fixed sizes 1 2 4 8",
         BE,
         4U,
         {0x00, 0x01, 9, 0x10, 0x02, 9, 9, 0x20, 0x03, 9, 9, 9, 9, 0x30, 0x04, 9, 9, 9, 9, 9, 9, 9, 9},
         23U,
         {{1U, 2U, 1U, 0U}, {2U, 5U, 2U, 0U}, {3U, 9U, 4U, 0U}, {4U, 15U, 8U, 0U}},
         nullptr},
        {"little-endian tag and length",
         LE,
         4U,
         {0x09, 0x70, 0x01, 0x00, 0x00, 0x00, 0x55},
         7U,
         {{9U, 2U, 5U, 4U}},
         nullptr},
        {"big-endian wire type 6", BE, 4U, {0x6F, 0xFF, 0x00, 0x01, 0x55}, 5U, {{0xFFFU, 2U, 3U, 2U}}, nullptr},
        {"wire type 4 uses the static size 2", BE, 2U, {0x40, 0x07, 0x00, 0x02, 1, 2}, 6U, {{7U, 2U, 4U, 2U}}, nullptr},
        {"wire type 4 uses the static size 4",
         BE,
         4U,
         {0x40, 0x07, 0x00, 0x00, 0x00, 0x01, 1},
         7U,
         {{7U, 2U, 5U, 4U}},
         nullptr},
        {"wire type 4 with static size 0 is refused silently",
         BE,
         0U,
         {0x40, 0x07, 0x01, 1},
         SERIALIZE_SIZE_ERROR,
         {},
         nullptr},
        {"wire type 4 with static size 3 steps over 3 bytes",
         BE,
         3U,
         {0x40, 0x07, 9, 9, 9},
         5U,
         {{7U, 2U, 3U, 3U}},
         nullptr},
        {"duplicate data id keeps the first",
         BE,
         4U,
         {0x00, 0x01, 0xAA, 0x00, 0x01, 0xBB},
         6U,
         {{1U, 2U, 1U, 0U}},
         nullptr},
        {"duplicate with another wire type keeps the first",
         BE,
         4U,
         {0x50, 0x02, 0x01, 0xAA, 0x20, 0x02, 1, 2, 3, 4},
         10U,
         {{2U, 2U, 2U, 1U}},
         nullptr},
        {"length field cut off (wire type 6)",
         BE,
         4U,
         {0x60, 0x05, 0x00},
         SERIALIZE_SIZE_ERROR,
         {},
         "[TLV] Lack of enough code stream to get pos length[dataId5]"},
        {"length field missing (wire type 5)",
         BE,
         4U,
         {0x50, 0x0A},
         SERIALIZE_SIZE_ERROR,
         {},
         "[TLV] Lack of enough code stream to get pos length[dataId10]"},
        {"length field cut off (wire type 7)",
         BE,
         4U,
         {0x00, 0x01, 0xAA, 0x70, 0x03, 0x00, 0x00, 0x00},
         SERIALIZE_SIZE_ERROR,
         {},
         "[TLV] Lack of enough code stream to get pos length[dataId3]"},
        {"static length field cut off",
         BE,
         4U,
         {0x40, 0x08, 0x00},
         SERIALIZE_SIZE_ERROR,
         {},
         "[TLV] Lack of enough code stream to get pos length[dataId8]"},
        {"one byte left after a member",
         BE,
         4U,
         {0x00, 0x01, 0xAA, 0x00},
         SERIALIZE_SIZE_ERROR,
         {},
         "[TLV] Lack of enough code stream to get tag"},
        {"declared length past the end is reported through consumedSize",
         BE,
         4U,
         {0x50, 0x01, 0x10, 0xAA},
         19U,
         {{1U, 2U, 17U, 1U}},
         nullptr},
        {"declared length ending on the error mark is malformed",
         BE,
         4U,
         {0x70, 0x01, 0xFF, 0xFF, 0xFF, 0xF9},
         SERIALIZE_SIZE_ERROR,
         {},
         nullptr},
        {"fixed value past the end", BE, 4U, {0x30, 0x01, 0x01}, 10U, {{1U, 2U, 8U, 0U}}, nullptr},
        {"maximal 4-byte length",
         BE,
         4U,
         {0x70, 0x01, 0xFF, 0xFF, 0xFF, 0xFF},
         6U + 0xFFFFFFFFULL,
         {{1U, 2U, 4U + 0xFFFFFFFFULL, 4U}},
         nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        CaptureSink capture;
        const auto table = TlvSerializeHelper::RecordDataId(c.order, c.staticSize, c.stream.data(), c.stream.size());
        EXPECT_EQ(table.consumedSize, c.consumed);
        ASSERT_EQ(table.entries.size(), c.entries.size());
        for (const auto& e : c.entries) {
            const auto it = table.entries.find(e.id);
            ASSERT_NE(it, table.entries.end()) << "data id " << e.id;
            EXPECT_EQ(it->second.offset, e.offset);
            EXPECT_EQ(it->second.size, e.size);
            EXPECT_EQ(it->second.lengthFieldSize, e.lengthFieldSize);
        }
        if (c.log != nullptr) {
            EXPECT_EQ(capture.Texts("CM"), std::vector<std::string>{c.log});
        } else {
            EXPECT_TRUE(capture.Texts().empty());
        }
    }
}

TEST(TlvRecordDataIdTest, NullStreamIsEmpty) {
    const auto table = TlvSerializeHelper::RecordDataId(BE, 4U, nullptr, 5U);
    EXPECT_EQ(table.consumedSize, 0U);
    EXPECT_TRUE(table.entries.empty());
}

TEST(TlvTagTest, WireTypeFollowsTheMemberForm) {
    struct Case {
        std::uint16_t actual;
        std::uint16_t expected;
    };
    const std::vector<Case> cases = {
        {TlvSerializeHelper::LengthDelimitedTag(5U, false, 1U), 0x4005U},
        {TlvSerializeHelper::LengthDelimitedTag(5U, false, 4U), 0x4005U},
        {TlvSerializeHelper::LengthDelimitedTag(5U, true, 1U), 0x5005U},
        {TlvSerializeHelper::LengthDelimitedTag(5U, true, 2U), 0x6005U},
        {TlvSerializeHelper::LengthDelimitedTag(5U, true, 3U), 0x0005U},
        {TlvSerializeHelper::LengthDelimitedTag(5U, true, 4U), 0x7005U},
        {TlvSerializeHelper::LengthDelimitedTag(5U, true, 0U), 0x0005U},
        {TlvSerializeHelper::LengthDelimitedTag(5U, true, 8U), 0x0005U},
        {TlvSerializeHelper::LengthDelimitedTag(0xFFFU, true, 4U), 0x7FFFU},
        {TlvSerializeHelper::FixedSizeTag(5U, 4U), 0x2005U},
        {TlvSerializeHelper::FixedSizeTag(5U, 1U), 0x0005U},
        {TlvSerializeHelper::FixedSizeTag(5U, 2U), 0x1005U},
        {TlvSerializeHelper::FixedSizeTag(5U, 8U), 0x3005U},
    };
    for (std::size_t i = 0U; i < cases.size(); ++i) {
        EXPECT_EQ(cases[i].actual, cases[i].expected) << "case " << i;
    }
}

}  // namespace
