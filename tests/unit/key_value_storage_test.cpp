// SPDX-License-Identifier: Apache-2.0
// KeyValueStorage getters at the type boundaries, lookup and comparison, and loading from
// JSON files: structure, CRC verification matrix, bad files.
#include "tarn/em/util/key_value_storage.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "ara/quill/common/jsonParser/crc_sidecar.h"
#include "ara/quill/common/log/log.h"
#include "ara_test/temp_dir.h"
#include "tarn/em/util/json_key_value_storage.h"

namespace {

namespace json = ara::quill::common::jsonParser;
using tarn::em::util::JsonKeyValueStorage;
using Kvs = tarn::em::util::KeyValueStorage;
using List = Kvs::List;

Kvs FromJsonText(const std::string& text) {
    json::Document document;
    EXPECT_EQ(document.ParseText(text), json::PARSE_SUCCESS) << text;
    Kvs kvs;
    tarn::em::util::SetValue(document, kvs);
    return kvs;
}

// The value a getter gives, or nullopt when it refuses (then it must not write its output).
template <class T>
std::optional<T> Get(const Kvs& kvs, bool (Kvs::*getter)(T&) const) {
    T value{};
    if (!(kvs.*getter)(value)) {
        EXPECT_TRUE(value == T{}) << "a refusing getter wrote its output";
        return std::nullopt;
    }
    return value;
}

Kvs At(const Kvs& kvs, const std::string& key) {
    Kvs out;
    EXPECT_TRUE(kvs.GetValue(key, out)) << key;
    return out;
}

TEST(KeyValueStorageTest, NumericGettersAtTheTypeBoundaries) {
    struct Case {
        std::string json;
        const std::type_info& type;
        std::optional<int> int32;
        std::optional<unsigned int> uint32;
        std::optional<unsigned long> uint64;
        std::optional<double> real;
    };
    const auto none = std::nullopt;
    const Case cases[] = {
        {"0", typeid(unsigned), 0, 0U, 0UL, 0.0},
        {"2147483647", typeid(unsigned), 2147483647, 2147483647U, 2147483647UL, 2147483647.0},
        {"2147483648", typeid(unsigned), none, 2147483648U, 2147483648UL, 2147483648.0},
        {"4294967295", typeid(unsigned), none, 4294967295U, 4294967295UL, 4294967295.0},
        {"4294967296", typeid(unsigned long), none, none, 4294967296UL, 4294967296.0},
        {"18446744073709551615", typeid(unsigned long), none, none, 18446744073709551615UL, 18446744073709551615.0},
        {"18446744073709551616", typeid(double), none, none, none, 18446744073709551616.0},
        {"-1", typeid(int), -1, none, none, -1.0},
        {"-2147483648", typeid(int), -2147483647 - 1, none, none, -2147483648.0},
        {"-2147483649", typeid(long), none, none, none, -2147483649.0},
        {"-9223372036854775808", typeid(long), none, none, none, -9223372036854775808.0},
        {"-0.25e1", typeid(double), none, none, none, -2.5},
        {"true", typeid(bool), none, none, none, none},
        {"null", typeid(std::nullptr_t), none, none, none, none},
        {"\"7\"", typeid(std::string), none, none, none, none},
        {"[7]", typeid(List), none, none, none, none},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.json);
        const Kvs kvs = FromJsonText(c.json);
        EXPECT_EQ(kvs.GetTypeHash(), c.type.hash_code());
        EXPECT_EQ(Get(kvs, &Kvs::GetInt32), c.int32);
        EXPECT_EQ(Get(kvs, &Kvs::GetUint32), c.uint32);
        EXPECT_EQ(Get(kvs, &Kvs::GetUint64), c.uint64);
        EXPECT_EQ(Get(kvs, &Kvs::GetDouble), c.real);
    }
    // The getters go by the stored type, not by the magnitude.
    Kvs kvs;
    kvs.SetValue(5UL);
    EXPECT_EQ(Get(kvs, &Kvs::GetInt32), std::nullopt);
    EXPECT_EQ(Get(kvs, &Kvs::GetUint32), std::nullopt);
    kvs.SetValue(5L);
    EXPECT_EQ(Get(kvs, &Kvs::GetInt32), std::nullopt);
    EXPECT_EQ(Get(kvs, &Kvs::GetUint64), 5UL);
}

TEST(KeyValueStorageTest, GetValueFindsTheFirstElementWithTheKey) {
    const Kvs root = FromJsonText(
        R"([{"key": "a", "value": 1}, {"key": "ab", "value": 2}, {"key": "a", "value": 3}, 4, {"key": "", "value": 5}])");
    // The bare element 4 has an empty key and comes before the entry with key "".
    for (const auto& [key, expected] : {std::pair{"a", 1U}, std::pair{"ab", 2U}, std::pair{"", 4U}}) {
        EXPECT_EQ(At(root, key).GetKey(), key);
        EXPECT_EQ(Get(At(root, key), &Kvs::GetUint32), expected) << key;
    }
    Kvs out = At(root, "a");
    EXPECT_FALSE(root.GetValue("A", out));
    EXPECT_FALSE(out.GetValue("a", out)) << "not a list";
    EXPECT_TRUE(out == At(root, "a")) << "a failed lookup leaves out alone";
    // A lookup into itself keeps the list it walks alive.
    Kvs kvs = FromJsonText(R"([{"key": "x", "value": [{"key": "y", "value": "deep"}]}])");
    ASSERT_TRUE(kvs.GetValue("x", kvs));  // replaces the only owner of the list being walked
    ASSERT_TRUE(kvs.GetValue("y", kvs));
    EXPECT_EQ(Get(kvs, &Kvs::GetString), "deep");
}

TEST(KeyValueStorageTest, EqualityIsIdentityOfTheStoredValue) {
    const Kvs a = FromJsonText("[1, 2]");
    Kvs copy = a;
    EXPECT_TRUE(a == copy);
    EXPECT_TRUE(a != FromJsonText("[1, 2]"));
    copy.SetKey("other");
    EXPECT_TRUE(copy != a);
}

class JsonKeyValueStorageTest : public ::testing::Test {
protected:
    ara_test::TempDir dir_;
    ara::quill::common::log::CaptureSink capture_;
};

TEST_F(JsonKeyValueStorageTest, RootKindDecidesWhatIsStored) {
    const std::string manifest = R"({"key": "machine", "checksum": "ignored", "value": [
        {"key": "name", "value": "ecu-1"},
        {"key": "limits", "value": {"key": "cpu", "value": [{"key": "max", "value": 4294967296}]}},
        {"key": "args", "value": ["-v", [3, 4]]},
        {"key": "", "value": true},
        {"key": 7, "value": "key is not a string"},
        {"key": "no value"},
        {"a": 1}]})";
    Kvs root;
    ASSERT_TRUE(JsonKeyValueStorage::LoadFromJson(dir_.Write("m.json", manifest), root, "not"));
    EXPECT_EQ(root.GetKey(), "machine");
    EXPECT_EQ(Get(At(root, "name"), &Kvs::GetString), "ecu-1");
    EXPECT_EQ(Get(At(root, ""), &Kvs::GetBool), true);
    // An object value is a nested entry with its own key.
    const Kvs cpu = Get(At(root, "limits"), &Kvs::GetStorage).value_or(Kvs());
    EXPECT_EQ(cpu.GetKey(), "cpu");
    EXPECT_EQ(Get(At(cpu, "max"), &Kvs::GetUint64), 4294967296UL);
    // Array elements have empty keys; nested arrays are lists.
    const List args = Get(At(root, "args"), &Kvs::GetList).value_or(List{});
    ASSERT_EQ(args.size(), 2U);
    EXPECT_TRUE(args[0].GetKey().empty() && Get(args[0], &Kvs::GetString) == "-v");
    EXPECT_EQ(Get(args[1], &Kvs::GetList).value_or(List{}).size(), 2U);
    // Malformed entries stay empty elements; "checksum" is ignored.
    const List entries = Get(root, &Kvs::GetList).value_or(List{});
    ASSERT_EQ(entries.size(), 7U);
    for (std::size_t i = 4U; i < 7U; ++i) {
        EXPECT_TRUE(entries[i].GetKey().empty() && entries[i].GetTypeHash() == 0U) << i;
    }
    Kvs out;
    EXPECT_FALSE(root.GetValue("checksum", out));
    // An array root is stored as the list; other roots load but leave the output as it was.
    ASSERT_TRUE(
        JsonKeyValueStorage::LoadFromJson(dir_.Write("a.json", R"([{"key": "k", "value": 1}, 2])"), out, "not"));
    EXPECT_EQ(out.GetKey(), "");
    EXPECT_EQ(Get(out, &Kvs::GetList).value_or(List{}).size(), 2U);
    for (const char* text : {"5", "\"text\"", "null", "true", R"({"a": 1})"}) {
        const Kvs before = out;
        EXPECT_TRUE(JsonKeyValueStorage::LoadFromJson(dir_.Write("s.json", text), out, "not")) << text;
        EXPECT_TRUE(out == before) << text;
    }
}

const char* const CRC_LINE = "[JsonKeyValueStorage][Find error in crc check, load json failed]";

TEST_F(JsonKeyValueStorageTest, CrcVerificationMatrix) {
    const std::string text = R"({"key": "k", "value": 1})";
    const std::string path = dir_.Write("c.json", text);
    const std::string matching = json::FormatCrc32(json::Crc32(text)) + "\n";
    const std::string wrong = json::FormatCrc32(json::Crc32(text) + 1U);
    const std::optional<std::string> missing;
    const std::tuple<std::string, std::optional<std::string>, bool> cases[] = {
        {"strong", missing, false},
        {"strong", matching, true},
        {"strong", wrong, false},
        {"strong", "not a crc", false},
        {"weak", missing, true},
        {"weak", matching, true},
        {"weak", wrong, false},
        {"weak", "not a crc", false},
        {"not", wrong, true},
        {"not", "not a crc", true},
        // Unknown texts mean weak.
        {"Strong", missing, true},
        {"", wrong, false},
    };
    for (const auto& [intensity, sidecar, loads] : cases) {
        SCOPED_TRACE(intensity + " sidecar " + sidecar.value_or("missing"));
        std::filesystem::remove(path + ".crc32");
        if (sidecar) {
            dir_.Write("c.json.crc32", *sidecar);
        }
        capture_.Clear();
        Kvs out;
        EXPECT_EQ(JsonKeyValueStorage::LoadFromJson(path, out, intensity), loads);
        EXPECT_EQ(out.GetKey(), loads ? "k" : "");
        EXPECT_EQ(capture_.Contains(CRC_LINE), !loads);
        EXPECT_EQ(capture_.Contains("[JsonKeyValueStorage][Check intensity is not in strong, weak or not]"),
                  intensity != "strong" && intensity != "weak" && intensity != "not");
    }
}

TEST_F(JsonKeyValueStorageTest, BadFilesGiveFalseAndLeaveTheOutputAlone) {
    // Under "strong" a file that can be read fails on its missing sidecar first.
    const std::pair<std::string, bool> cases[] = {{dir_ / "missing.json", false},
                                                  {dir_.Write("truncated.json", R"({"key": "k", "val)"), true}};
    for (const auto& [path, crcLine] : cases) {
        capture_.Clear();
        Kvs out;
        out.SetKey("kept");
        const Kvs before = out;
        for (const char* intensity : {"strong", "weak", "not"}) {
            EXPECT_FALSE(JsonKeyValueStorage::LoadFromJson(path, out, intensity)) << path << intensity;
            EXPECT_TRUE(out == before) << path << intensity;
        }
        EXPECT_EQ(capture_.Texts("EM"), crcLine ? std::vector<std::string>{CRC_LINE} : std::vector<std::string>{});
        EXPECT_EQ(capture_.Texts("JSON").size(), 3U) << "the parser logs each failure";
    }
}

}  // namespace
