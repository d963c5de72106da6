// KeyValueStorage getters at the type boundaries, lookup and comparison, and loading from
// JSON files: structure, CRC verification matrix, malformed files.
#include "tarn/em/util/key_value_storage.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <optional>
#include <set>
#include <string>

#include "ara/quill/common/jsonParser/crc_sidecar.h"
#include "ara/quill/common/jsonParser/document.h"
#include "ara/quill/common/log/log.h"
#include "ara_test/temp_dir.h"
#include "tarn/em/util/json_key_value_storage.h"

namespace {

using ara::quill::common::jsonParser::Document;
using ara::quill::common::log::CaptureSink;
using tarn::em::util::JsonKeyValueStorage;
using tarn::em::util::KeyValueStorage;
using List = KeyValueStorage::List;

const char* const CRC_LINE = "[JsonKeyValueStorage][Find error in crc check, load json failed]";
const char* const INTENSITY_LINE = "[JsonKeyValueStorage][Check intensity is not in strong, weak or not]";

KeyValueStorage FromJsonText(const std::string& text) {
    Document document;
    EXPECT_EQ(document.ParseText(text), ara::quill::common::jsonParser::PARSE_SUCCESS) << text;
    KeyValueStorage kvs;
    tarn::em::util::SetValue(document, kvs);
    return kvs;
}

// The value a getter gives, or nullopt when it refuses (then it must not write its output).
template <class T, class Getter>
std::optional<T> GetAs(const KeyValueStorage& kvs, Getter getter) {
    T value{};
    const T before = value;
    if (!(kvs.*getter)(value)) {
        EXPECT_EQ(value, before) << "a refusing getter wrote its output";
        return std::nullopt;
    }
    return value;
}
template <class T>
std::optional<T> Get(const KeyValueStorage& kvs, bool (KeyValueStorage::*getter)(T&) const noexcept) {
    return GetAs<T>(kvs, getter);
}
template <class T>
std::optional<T> Get(const KeyValueStorage& kvs, bool (KeyValueStorage::*getter)(T&) const) {
    return GetAs<T>(kvs, getter);
}

KeyValueStorage At(const KeyValueStorage& kvs, const std::string& key) {
    KeyValueStorage out;
    EXPECT_TRUE(kvs.GetValue(key, out)) << key;
    return out;
}

TEST(KeyValueStorageTest, NumericGettersAtTheTypeBoundaries) {
    struct Case {
        std::string json;
        std::size_t type;
        std::optional<int> int32;
        std::optional<unsigned int> uint32;
        std::optional<unsigned long> uint64;
        std::optional<double> real;
    };
    const std::size_t U32 = typeid(unsigned int).hash_code();
    const std::size_t I32 = typeid(int).hash_code();
    const std::size_t U64 = typeid(unsigned long).hash_code();
    const std::size_t I64 = typeid(long).hash_code();
    const std::size_t DBL = typeid(double).hash_code();
    const auto none = std::nullopt;
    const Case cases[] = {
        {"0", U32, 0, 0U, 0UL, 0.0},
        {"2147483647", U32, 2147483647, 2147483647U, 2147483647UL, 2147483647.0},
        {"2147483648", U32, none, 2147483648U, 2147483648UL, 2147483648.0},
        {"4294967295", U32, none, 4294967295U, 4294967295UL, 4294967295.0},
        {"4294967296", U64, none, none, 4294967296UL, 4294967296.0},
        {"18446744073709551615", U64, none, none, 18446744073709551615UL, 18446744073709551615.0},
        {"18446744073709551616", DBL, none, none, none, 18446744073709551616.0},
        {"-1", I32, -1, none, none, -1.0},
        {"-2147483648", I32, -2147483647 - 1, none, none, -2147483648.0},
        {"-2147483649", I64, none, none, none, -2147483649.0},
        {"-9223372036854775808", I64, none, none, none, -9223372036854775808.0},
        {"1.5", DBL, none, none, none, 1.5},
        {"1.0", DBL, none, none, none, 1.0},
        {"-0.25e1", DBL, none, none, none, -2.5},
        {"true", typeid(bool).hash_code(), none, none, none, none},
        {"null", typeid(std::nullptr_t).hash_code(), none, none, none, none},
        {"\"7\"", typeid(std::string).hash_code(), none, none, none, none},
        {"[7]", typeid(List).hash_code(), none, none, none, none},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.json);
        const KeyValueStorage kvs = FromJsonText(c.json);
        EXPECT_EQ(kvs.GetTypeHash(), c.type);
        EXPECT_EQ(Get(kvs, &KeyValueStorage::GetInt32), c.int32);
        EXPECT_EQ(Get(kvs, &KeyValueStorage::GetUint32), c.uint32);
        EXPECT_EQ(Get(kvs, &KeyValueStorage::GetUint64), c.uint64);
        EXPECT_EQ(Get(kvs, &KeyValueStorage::GetDouble), c.real);
    }
}

TEST(KeyValueStorageTest, GettersGoByStoredTypeNotByMagnitude) {
    KeyValueStorage kvs;
    kvs.SetValue(5UL);
    EXPECT_EQ(Get(kvs, &KeyValueStorage::GetInt32), std::nullopt);
    EXPECT_EQ(Get(kvs, &KeyValueStorage::GetUint32), std::nullopt);
    kvs.SetValue(5L);
    EXPECT_EQ(Get(kvs, &KeyValueStorage::GetInt32), std::nullopt);
    EXPECT_EQ(Get(kvs, &KeyValueStorage::GetUint64), 5UL);
    EXPECT_EQ(Get(KeyValueStorage(), &KeyValueStorage::GetDouble), std::nullopt);
}

TEST(KeyValueStorageTest, GetValueFindsTheFirstElementWithTheKey) {
    const KeyValueStorage root = FromJsonText(
        R"([{"key": "a", "value": 1}, {"key": "ab", "value": 2}, {"key": "a", "value": 3}, 4, {"key": "", "value": 5}])");
    // The bare element 4 has an empty key and comes before the entry with key "".
    for (const auto& [key, expected] : {std::pair{"a", 1U}, std::pair{"ab", 2U}, std::pair{"", 4U}}) {
        KeyValueStorage out;
        ASSERT_TRUE(root.GetValue(key, out)) << key;
        EXPECT_EQ(out.GetKey(), key);
        EXPECT_EQ(Get(out, &KeyValueStorage::GetUint32), expected) << key;
    }
    List list;
    ASSERT_TRUE(root.GetList(list));
    KeyValueStorage out;
    ASSERT_TRUE(root.GetValue("a", out));
    EXPECT_TRUE(out == list[0]) << "the found element shares the stored value";
    const KeyValueStorage before = out;
    EXPECT_FALSE(root.GetValue("A", out));
    EXPECT_FALSE(list[0].GetValue("a", out)) << "not a list";
    EXPECT_TRUE(out == before) << "a failed lookup leaves out alone";
}

TEST(KeyValueStorageTest, LookupIntoItselfKeepsTheListAlive) {
    KeyValueStorage kvs = FromJsonText(R"([{"key": "x", "value": [{"key": "y", "value": "deep"}]}])");
    ASSERT_TRUE(kvs.GetValue("x", kvs));  // replaces the only owner of the list being walked
    ASSERT_TRUE(kvs.GetValue("y", kvs));
    EXPECT_EQ(Get(kvs, &KeyValueStorage::GetString), "deep");
}

TEST(KeyValueStorageTest, EqualityIsIdentityOfTheStoredValue) {
    const KeyValueStorage a = FromJsonText("[1, 2]");
    const KeyValueStorage copy = a;
    EXPECT_TRUE(a == a);
    EXPECT_TRUE(a == copy);
    EXPECT_TRUE(a != FromJsonText("[1, 2]"));
    KeyValueStorage renamed = a;
    renamed.SetKey("other");
    EXPECT_TRUE(renamed != a);
}

// Loading files.
class JsonKeyValueStorageTest : public ::testing::Test {
protected:
    std::string WriteJson(const std::string& name, const std::string& text) { return dir_.Write(name, text); }

    ara_test::TempDir dir_;
    CaptureSink capture_;
};

const char* const MANIFEST = R"({
  "key": "machine",
  "checksum": "ignored",
  "value": [
    {"key": "name", "value": "ecu-1"},
    {"key": "enabled", "value": true},
    {"key": "nothing", "value": null},
    {"key": "limits", "value": {"key": "cpu", "value": [{"key": "max", "value": 4294967296}]}},
    {"key": "args", "value": ["-v", 2, [3, 4]]},
    {"key": "", "value": "empty key"},
    {"key": 7, "value": "key is not a string"},
    {"key": "no value"},
    {"a": 1, "b": 2}
  ]
})";

TEST_F(JsonKeyValueStorageTest, ObjectRootIsReadAsNestedEntries) {
    using K = KeyValueStorage;
    K root;
    ASSERT_TRUE(JsonKeyValueStorage::LoadFromJson(WriteJson("m.json", MANIFEST), root, "not"));
    EXPECT_EQ(root.GetKey(), "machine");
    EXPECT_EQ(Get(At(root, "name"), &K::GetString), "ecu-1");
    EXPECT_EQ(Get(At(root, "enabled"), &K::GetBool), true);
    EXPECT_TRUE(At(root, "nothing").IsNull());
    // An object value is a nested entry with its own key.
    const auto cpu = Get(At(root, "limits"), &K::GetStorage);
    ASSERT_TRUE(cpu.has_value());
    EXPECT_EQ(cpu->GetKey(), "cpu");
    EXPECT_EQ(Get(At(*cpu, "max"), &K::GetUint64), 4294967296UL);
    // Array elements have empty keys; nested arrays are lists.
    const auto args = Get(At(root, "args"), &K::GetList);
    ASSERT_TRUE(args.has_value() && args->size() == 3U);
    EXPECT_EQ((*args)[0].GetKey(), "");
    EXPECT_EQ(Get((*args)[0], &K::GetString), "-v");
    const auto inner = Get((*args)[2], &K::GetList);
    ASSERT_TRUE(inner.has_value() && inner->size() == 2U);
    EXPECT_EQ(Get((*inner)[1], &K::GetUint32), 4U);
    // An empty key is kept; malformed entries stay empty elements; "checksum" is ignored.
    EXPECT_EQ(Get(At(root, ""), &K::GetString), "empty key");
    const auto entries = Get(root, &K::GetList);
    ASSERT_TRUE(entries.has_value() && entries->size() == 9U);
    for (std::size_t i = 6U; i < 9U; ++i) {
        EXPECT_TRUE((*entries)[i].GetKey().empty() && (*entries)[i].GetTypeHash() == 0U) << i;
    }
    K out;
    EXPECT_FALSE(root.GetValue("checksum", out));
    EXPECT_TRUE(capture_.Texts("EM").empty());
}

TEST_F(JsonKeyValueStorageTest, RootKindDecidesWhatIsStored) {
    KeyValueStorage out;
    ASSERT_TRUE(JsonKeyValueStorage::LoadFromJson(WriteJson("a.json", R"([{"key": "k", "value": 1}, 2])"), out, "not"));
    EXPECT_EQ(out.GetKey(), "");
    EXPECT_EQ(Get(out, &KeyValueStorage::GetList).value_or(List{}).size(), 2U);
    // Other roots load but leave the output as it was.
    for (const char* root : {"5", "\"text\"", "null", "true", R"({"a": 1})"}) {
        KeyValueStorage kept;
        kept.SetKey("kept");
        kept.SetValue(1.5);
        const KeyValueStorage before = kept;
        EXPECT_TRUE(JsonKeyValueStorage::LoadFromJson(WriteJson("s.json", root), kept, "not")) << root;
        EXPECT_TRUE(kept == before) << root;
    }
}

TEST_F(JsonKeyValueStorageTest, CrcVerificationMatrix) {
    enum class Sidecar { kMissing, kMatching, kWrong, kMalformed };
    struct Case {
        const char* intensity;
        Sidecar sidecar;
        bool loads;
    };
    const Case cases[] = {
        {"strong", Sidecar::kMissing, false},
        {"strong", Sidecar::kMatching, true},
        {"strong", Sidecar::kWrong, false},
        {"strong", Sidecar::kMalformed, false},
        {"weak", Sidecar::kMissing, true},
        {"weak", Sidecar::kMatching, true},
        {"weak", Sidecar::kWrong, false},
        {"weak", Sidecar::kMalformed, false},
        {"not", Sidecar::kMissing, true},
        {"not", Sidecar::kWrong, true},
        {"not", Sidecar::kMalformed, true},
        // Unknown texts mean weak.
        {"Strong", Sidecar::kMissing, true},
        {"Strong", Sidecar::kMatching, true},
        {"Strong", Sidecar::kWrong, false},
        {"", Sidecar::kWrong, false},
    };
    const std::string path = WriteJson("c.json", R"({"key": "k", "value": 1})");
    const std::uint32_t crc = ara::quill::common::jsonParser::Crc32(ara_test::TempDir::Read(path));
    const std::string sidecars[] = {"",
                                    ara::quill::common::jsonParser::FormatCrc32(crc) + "\n",
                                    ara::quill::common::jsonParser::FormatCrc32(crc + 1U),
                                    "not a crc"};
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.intensity) + " sidecar " + std::to_string(static_cast<int>(c.sidecar)));
        static_cast<void>(::unlink((path + ".crc32").c_str()));
        if (c.sidecar != Sidecar::kMissing) {
            dir_.Write("c.json.crc32", sidecars[static_cast<int>(c.sidecar)]);
        }
        capture_.Clear();
        KeyValueStorage out;
        EXPECT_EQ(JsonKeyValueStorage::LoadFromJson(path, out, c.intensity), c.loads);
        EXPECT_EQ(out.GetKey(), c.loads ? "k" : "");
        const bool known = std::set<std::string>{"strong", "weak", "not"}.count(c.intensity) != 0U;
        std::vector<std::string> expected;
        for (const auto& [line, present] : {std::pair{INTENSITY_LINE, !known}, std::pair{CRC_LINE, !c.loads}}) {
            if (present) {
                expected.emplace_back(line);
            }
        }
        EXPECT_EQ(capture_.Texts("EM"), expected);
    }
}

TEST_F(JsonKeyValueStorageTest, BadFilesGiveFalseAndLeaveTheOutputAlone) {
    // Deeper than the parser accepts, but well formed.
    const std::string deep = std::string(100000, '[') + std::string(100000, ']');
    ASSERT_EQ(::mkdir((dir_ / "dir.json").c_str(), 0755), 0);
    ASSERT_EQ(::mkfifo((dir_ / "fifo.json").c_str(), 0600), 0);
    const std::string big = dir_ / "big.json";
    const int fd = ::open(big.c_str(), O_WRONLY | O_CREAT, 0644);
    ASSERT_GE(fd, 0);
    const int truncated = ::ftruncate(fd, static_cast<off_t>(Document::MAX_FILE_SIZE) + 1);
    ::close(fd);
    ASSERT_EQ(truncated, 0);

    const std::pair<const char*, std::string> cases[] = {
        {"missing", dir_ / "missing.json"},
        {"directory", dir_ / "dir.json"},
        {"fifo", dir_ / "fifo.json"},
        {"oversized", big},
        {"truncated", WriteJson("truncated.json", std::string(MANIFEST).substr(0, 120))},
        {"not json",
         WriteJson("binary.json",
                   std::string("\x7f"
                               "ELF\x02\x01\x01\0\0\0",
                               10))},
        {"number too big", WriteJson("huge.json", "[1e400]")},
        {"bad utf-8", WriteJson("utf8.json", "[\"\xc3\x28\"]")},
        {"deep nesting", WriteJson("deep.json", deep)},
    };
    for (const auto& [what, path] : cases) {
        SCOPED_TRACE(what);
        capture_.Clear();
        KeyValueStorage out;
        out.SetKey("kept");
        const KeyValueStorage before = out;
        for (const char* intensity : {"strong", "weak", "not"}) {
            EXPECT_FALSE(JsonKeyValueStorage::LoadFromJson(path, out, intensity)) << intensity;
            EXPECT_TRUE(out == before) << intensity;
        }
        // Under "strong" a file that can be read fails on its missing sidecar first.
        const bool readable = std::set<std::string>{"missing", "directory", "fifo", "oversized"}.count(what) == 0U;
        EXPECT_EQ(capture_.Texts("EM"), readable ? std::vector<std::string>{CRC_LINE} : std::vector<std::string>{});
        EXPECT_EQ(capture_.Texts("JSON").size(), 3U) << "the parser logs each failure";
    }
}

TEST_F(JsonKeyValueStorageTest, LargeDocumentLoadsCompletely) {
    constexpr unsigned int ENTRIES = 20000U;
    std::string text = R"({"key": "big", "value": [)";
    for (unsigned int i = 0U; i < ENTRIES; ++i) {
        text += (i == 0U ? "" : ",");
        text += R"({"key": "k)" + std::to_string(i) + R"(", "value": {"key": "n", "value": [)" + std::to_string(i) +
                ", -" + std::to_string(i) + ", 1.5, \"s\"]}}";
    }
    text += "]}";
    ASSERT_LT(text.size(), Document::MAX_FILE_SIZE);
    const std::string path = WriteJson("big.json", text);
    ASSERT_EQ(ara::quill::common::jsonParser::WriteCrcSidecar(path),
              ara::quill::common::jsonParser::CrcWrite::kWritten);

    KeyValueStorage root;
    ASSERT_TRUE(JsonKeyValueStorage::LoadFromJson(path, root, "strong"));
    EXPECT_EQ(Get(root, &KeyValueStorage::GetList).value_or(List{}).size(), ENTRIES);
    for (const unsigned int i : {0U, 1U, ENTRIES / 2U, ENTRIES - 1U}) {
        const auto nested = Get(At(root, "k" + std::to_string(i)), &KeyValueStorage::GetStorage);
        ASSERT_TRUE(nested.has_value()) << i;
        EXPECT_EQ(nested->GetKey(), "n");
        const List numbers = Get(*nested, &KeyValueStorage::GetList).value_or(List{});
        ASSERT_EQ(numbers.size(), 4U);
        EXPECT_EQ(Get(numbers[0], &KeyValueStorage::GetUint32), i);
        EXPECT_EQ(Get(numbers[1], &KeyValueStorage::GetInt32), -static_cast<int>(i));
    }
}

}  // namespace
