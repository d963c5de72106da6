// DDS encoders and decoders: host-order bytes, error payloads, strings, processes and
// process lists, refusal of truncated streams, and encode-then-decode.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "ara/exec/exec_error_domain.h"
#include "ara/quill/common/log/log.h"
#include "kelp/serialize/dds/deserializer.h"
#include "kelp/serialize/dds/serializer.h"

namespace {

using ara::exec::Process;
using ara::quill::common::log::CaptureSink;
using kelp::serialize::SERIALIZE_SIZE_ERROR;
using kelp::serialize::SerializeConfig;
using kelp::serialize::dds::Deserializer;
using kelp::serialize::dds::Serializer;
using Bytes = std::vector<unsigned char>;

template <typename T>
Bytes Encode(const T& value) {
    Serializer<T> writer(value, SerializeConfig{}, 0U, 0U);
    const std::uint64_t size = writer.GetSize();
    Bytes buffer(size, 0xAA);
    Serializer<T>(value, SerializeConfig{}, size, 0U).Serialize(buffer.data());
    return buffer;
}

TEST(DdsSerializerTest, WireForms) {
    const SerializeConfig bigEndian = [] {
        SerializeConfig c;
        c.byteOrder = kelp::serialize::ByteOrder::kBigEndian;
        return c;
    }();
    struct Case {
        const char* name;
        Bytes actual;
        Bytes expected;
    };
    const std::vector<Case> cases = {
        {"empty string", Encode(ara::core::String{}), {0, 0, 0, 0}},
        {"ab", Encode(ara::core::String{"ab"}), {2, 0, 0, 0, 'a', 'b'}},
        {"int in host order whatever the config says", Encode(0x1234), {0x34, 0x12, 0, 0}},
        {"bool", Encode(true), {1}},
        {"process",
         Encode(Process{"p", "", "R", "", true}),
         {1, 0, 0, 0, 'p', 0, 0, 0, 0, 1, 0, 0, 0, 'R', 0, 0, 0, 0, 1}},
        {"process list", Encode(std::vector<Process>{Process{"", "", "", "", false}}), {1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                                                                        0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
        {"error code",
         Encode(ara::core::ErrorCode{ara::exec::ExecErrc::kBusy}),
         {0, 0, 0, 0, 1, 0x00, 0x03, 0, 0, 0, 0, 0, 0x80, 7, 0, 0, 0}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.actual, c.expected) << c.name;
    }
    Bytes buffer(4U, 0xAA);
    const int value = 0x01020304;
    Serializer<int>(value, bigEndian, 4U).Serialize(buffer.data());
    EXPECT_EQ(buffer, (Bytes{4, 3, 2, 1}));
}

TEST(DdsSerializerTest, RefusedCopiesLog) {
    CaptureSink capture;
    Bytes buffer(8U, 0xAA);
    const ara::core::String text = "abcd";
    Serializer<ara::core::String>(text, SerializeConfig{}, 6U, 0U).Serialize(buffer.data());
    EXPECT_EQ(buffer, (Bytes{4, 0, 0, 0, 0xAA, 0xAA, 0xAA, 0xAA}));  // count written, characters refused
    const int value = 1;
    Serializer<int>(value, SerializeConfig{}, 2U).Serialize(buffer.data());
    EXPECT_EQ(capture.Texts("CM"),
              (std::vector<std::string>{"[DDS Serializer String] Memory copy return error, Invalid serialization.",
                                        "[DDS Serializer] Memory copy return error, invalid data."}));
}

TEST(DdsErrorCodeTest, DecodesOnlySeventeenBytesOfKindOne) {
    const Bytes valid = Encode(ara::core::ErrorCode{ara::exec::ExecErrc::kBusy});
    Bytes kindZero = valid;
    kindZero[4] = 0U;
    Bytes longer = valid;
    longer.push_back(0U);
    struct Case {
        const char* name;
        Bytes bytes;
        std::uint64_t size;
        const char* log;
    };
    const std::vector<Case> cases = {
        {"valid", valid, 17U, nullptr},
        {"16 bytes",
         Bytes(valid.begin(), valid.end() - 1),
         SERIALIZE_SIZE_ERROR,
         "[DDSSerializeErrorCode][Construct deserialization for ErrorCode failed, invalid size parameter]"},
        {"18 bytes",
         longer,
         SERIALIZE_SIZE_ERROR,
         "Construct deserialization for ErrorCode failed, invalid size parameter!"},
        {"kind 0",
         kindZero,
         SERIALIZE_SIZE_ERROR,
         "Construct deserialization for ErrorCode failed, invalid type of ErrorCode!"},
    };
    for (const auto& c : cases) {
        CaptureSink capture;
        const Deserializer<ara::core::ErrorCode> d(c.bytes.data(), c.bytes.size(), SerializeConfig{});
        EXPECT_EQ(d.GetSize(), c.size) << c.name;
        if (c.log != nullptr) {
            EXPECT_EQ(capture.Texts("CM"), std::vector<std::string>{c.log}) << c.name;
        }
    }
    const Deserializer<ara::core::ErrorCode> d(valid.data(), valid.size(), SerializeConfig{});
    EXPECT_EQ(d.GetValue().first, ara::exec::ExecErrorDomain::kId);
    EXPECT_EQ(d.GetValue().second, 7);
}

TEST(DdsStringDeserializerTest, CountMustFitTheBytes) {
    struct Case {
        const char* name;
        Bytes bytes;
        std::uint64_t size;
        std::string value;
    };
    const std::vector<Case> cases = {
        {"empty", {0, 0, 0, 0}, 4U, ""},
        {"ab", {2, 0, 0, 0, 'a', 'b'}, 6U, "ab"},
        {"trailing bytes", {2, 0, 0, 0, 'a', 'b', 'c'}, 6U, "ab"},
        {"count past the end", {3, 0, 0, 0, 'a', 'b'}, SERIALIZE_SIZE_ERROR, ""},
        {"count 0xFFFFFFFF", {0xFF, 0xFF, 0xFF, 0xFF}, SERIALIZE_SIZE_ERROR, ""},
        {"count cut", {0, 0, 0}, SERIALIZE_SIZE_ERROR, ""},
        {"nothing", {}, SERIALIZE_SIZE_ERROR, ""},
    };
    for (const auto& c : cases) {
        CaptureSink capture;
        const Deserializer<ara::core::String> d(c.bytes.data(), c.bytes.size(), SerializeConfig{});
        EXPECT_EQ(d.GetSize(), c.size) << c.name;
        EXPECT_EQ(d.GetValue(), c.value) << c.name;
        EXPECT_EQ(capture.Contains("Deserialization of String failed, insufficient data."),
                  c.size == SERIALIZE_SIZE_ERROR)
            << c.name;
    }
}

TEST(DdsBoolDeserializerTest, NeedsOneByte) {
    const Bytes one = {1};
    EXPECT_EQ(Deserializer<bool>(one.data(), 1U, SerializeConfig{}).GetSize(), 1U);
    EXPECT_TRUE(Deserializer<bool>(one.data(), 1U, SerializeConfig{}).GetValue());
    CaptureSink capture;
    EXPECT_EQ(Deserializer<bool>(one.data(), 0U, SerializeConfig{}).GetSize(), SERIALIZE_SIZE_ERROR);
    EXPECT_TRUE(capture.Contains("Deserialization of trivially copyable type failed, insufficient data!"));
}

TEST(DdsProcessListTest, RoundTripAndTrailingBytes) {
    const std::vector<std::vector<Process>> lists = {
        {},
        {Process{"", "", "", "", false}},
        {Process{"em", "MachineFG", "Running", "kRunning", true}, Process{std::string(70000U, 'x'), "", "", "", false}},
    };
    for (const auto& list : lists) {
        Bytes bytes = Encode(list);
        const Deserializer<std::vector<Process>> d(bytes.data(), bytes.size(), SerializeConfig{});
        EXPECT_EQ(d.GetSize(), bytes.size());
        EXPECT_EQ(d.GetValue(), list);
        bytes.push_back(0x5A);
        const Deserializer<std::vector<Process>> longer(bytes.data(), bytes.size(), SerializeConfig{});
        EXPECT_EQ(longer.GetSize(), bytes.size() - 1U);
        EXPECT_EQ(longer.GetValue(), list);
    }
}

TEST(DdsProcessListTest, HugeCountIsRefusedWithoutReserving) {
    const Bytes bytes = {0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0};
    CaptureSink capture;
    const Deserializer<std::vector<Process>> d(bytes.data(), bytes.size(), SerializeConfig{});
    EXPECT_EQ(d.GetSize(), SERIALIZE_SIZE_ERROR);
    EXPECT_TRUE(d.GetValue().empty());
    EXPECT_TRUE(capture.Contains("Deserialization[DDS] size counter failed, insufficient data."));
    EXPECT_TRUE(capture.Contains("GetValue(): Deserialization of sequence container failed, insufficient data."));
}

TEST(DdsTruncationTest, EveryPrefixIsRefused) {
    const std::vector<Process> list = {Process{"proc", "fg", "Running", "kRunning", true},
                                       Process{"", "x", "", "", false}};
    const Bytes listBytes = Encode(list);
    const Bytes processBytes = Encode(list[0]);
    const Bytes stringBytes = Encode(ara::core::String{"abc"});
    const Bytes errorBytes = Encode(ara::core::ErrorCode{ara::exec::ExecErrc::kFailed});
    CaptureSink quiet;
    auto prefix = [](const Bytes& all, std::size_t n) {
        return Bytes(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(n));
    };
    for (std::size_t n = 0U; n < listBytes.size(); ++n) {
        const Bytes p = prefix(listBytes, n);
        const Deserializer<std::vector<Process>> d(p.data(), p.size(), SerializeConfig{});
        EXPECT_EQ(d.GetSize(), SERIALIZE_SIZE_ERROR) << "list prefix " << n;
        EXPECT_LT(d.GetValue().size(), list.size()) << "list prefix " << n;
    }
    for (std::size_t n = 0U; n < processBytes.size(); ++n) {
        const Bytes p = prefix(processBytes, n);
        const Deserializer<Process> d(p.data(), p.size(), SerializeConfig{});
        EXPECT_EQ(d.GetSize(), SERIALIZE_SIZE_ERROR) << "process prefix " << n;
        static_cast<void>(d.GetValue());
    }
    for (std::size_t n = 0U; n < stringBytes.size(); ++n) {
        const Bytes p = prefix(stringBytes, n);
        EXPECT_EQ(Deserializer<ara::core::String>(p.data(), p.size(), SerializeConfig{}).GetSize(),
                  SERIALIZE_SIZE_ERROR)
            << "string prefix " << n;
    }
    for (std::size_t n = 0U; n < errorBytes.size(); ++n) {
        const Bytes p = prefix(errorBytes, n);
        EXPECT_EQ(Deserializer<ara::core::ErrorCode>(p.data(), p.size(), SerializeConfig{}).GetSize(),
                  SERIALIZE_SIZE_ERROR)
            << "error prefix " << n;
    }
}

TEST(DdsProcessTest, ShortMemberLogsTheEnumerator) {
    const Bytes cut = {1, 0, 0, 0, 'p', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};  // flag missing
    CaptureSink capture;
    const Deserializer<Process> d(cut.data(), cut.size(), SerializeConfig{});
    EXPECT_EQ(d.GetSize(), SERIALIZE_SIZE_ERROR);
    EXPECT_TRUE(capture.Contains("Deserialization of trivially copyable type failed, insufficient data!"));
    capture.Clear();
    EXPECT_EQ(d.GetValue().processName, "p");
    EXPECT_TRUE(capture.Contains("Insufficient arguments from remote end"));
}

}  // namespace
