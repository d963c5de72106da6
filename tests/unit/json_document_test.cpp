// SPDX-License-Identifier: Apache-2.0
// The JSON document: result codes for bad files, limits, CRC sidecars, total accessors.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "ara/quill/common/jsonParser/crc_sidecar.h"
#include "ara/quill/common/jsonParser/document.h"
#include "ara/quill/common/log/log.h"
#include "ara_test/temp_dir.h"
#include "rapidjson_config.h"

namespace {

namespace json = ara::quill::common::jsonParser;
using json::CrcVerification;
using json::Document;

// Any RapidJSON assertion reached by a test is a missing check in the parser.
class JsonDocumentTest : public ::testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(json::detail::RapidJsonAssertionCount(), assertionsBefore_); }

    ara_test::TempDir dir_;
    ara::quill::common::log::CaptureSink capture_;
    std::uint64_t assertionsBefore_{json::detail::RapidJsonAssertionCount()};
};

TEST_F(JsonDocumentTest, ParseResultCodes) {
    ASSERT_EQ(::mkfifo((dir_ / "fifo").c_str(), 0600), 0);
    std::filesystem::resize_file(dir_.Write("sparse", ""), std::uintmax_t{1} << 40U);
    int files = 0;
    const auto file = [&](const std::string& contents) { return dir_.Write(std::to_string(files++), contents); };
    const auto nested = [](std::size_t depth, const char* inner) {
        return std::string(depth, '[') + inner + std::string(depth, ']');
    };
    const std::string ok = file("[1]");
    const std::tuple<std::string, CrcVerification, std::int32_t> cases[] = {
        {ok, CrcVerification::kNot, json::PARSE_SUCCESS},
        {ok, CrcVerification::kWeak, json::PARSE_SUCCESS},
        {ok, CrcVerification::kStrong, json::PARSE_CRC_CHECK_FAILED},
        {ok, static_cast<CrcVerification>(3), json::PARSE_INVALID_VERIFICATION},
        {dir_ / "missing", CrcVerification::kNot, json::PARSE_FILE_OPEN_FAILED},
        {dir_ / "fifo", CrcVerification::kNot, json::PARSE_FILE_OPEN_FAILED},
        {"/dev/zero", CrcVerification::kNot, json::PARSE_FILE_OPEN_FAILED},
        // Exactly at the size limit, and one byte over it.
        {file(std::string(Document::MAX_FILE_SIZE - 1U, ' ') + "0"), CrcVerification::kNot, json::PARSE_SUCCESS},
        {file(std::string(Document::MAX_FILE_SIZE, ' ') + "0"), CrcVerification::kNot, json::PARSE_FILE_TOO_LARGE},
        {dir_ / "sparse", CrcVerification::kNot, json::PARSE_FILE_TOO_LARGE},
        {file(nested(Document::MAX_DEPTH, "")), CrcVerification::kNot, json::PARSE_SUCCESS},
        {file(nested(Document::MAX_DEPTH, "{\"a\":1}")), CrcVerification::kNot, json::PARSE_TOO_DEEP},
        {file(nested(100000U, "")), CrcVerification::kNot, json::PARSE_TOO_DEEP},
        {file("[1,]"), CrcVerification::kNot, json::PARSE_SYNTAX_ERROR},
        {file("[1e400]"), CrcVerification::kNot, json::PARSE_SYNTAX_ERROR},
        {file("[\"\xc3\x28\"]"), CrcVerification::kNot, json::PARSE_SYNTAX_ERROR},  // not UTF-8
    };
    for (const auto& [path, verification, expected] : cases) {
        Document document;
        const std::int32_t result = document.Parse(path, verification);
        EXPECT_EQ(result, expected) << path << " " << static_cast<int>(verification);
        EXPECT_EQ(document.HasParseError(), result != json::PARSE_SUCCESS) << path;
        EXPECT_EQ(document.GetParseError().empty(), result == json::PARSE_SUCCESS) << path;
        EXPECT_TRUE(result == json::PARSE_SUCCESS || document.IsNull()) << path;
    }
}

TEST_F(JsonDocumentTest, SyntaxErrorNamesLineAndColumnAndIsLogged) {
    Document document;
    const std::string path = dir_.Write("syntax.json", "[1,\n 2,\n x]");
    ASSERT_EQ(document.Parse(path, CrcVerification::kNot), json::PARSE_SYNTAX_ERROR);
    EXPECT_THAT(document.GetParseError(), ::testing::StartsWith("line 3, column 2: "));
    EXPECT_THAT(capture_.Texts("JSON"),
                ::testing::ElementsAre("[Document][Parse failed][path=" + path +
                                       "][result=5][error=" + document.GetParseError() + "]"));
}

// The first bracket past the depth limit, counted outside strings (the first element's
// brackets and escaped quote are text).
TEST_F(JsonDocumentTest, TooDeepNamesLineAndColumnOfTheFirstBracketPastTheLimit) {
    Document document;
    const std::string text =
        "[\"[{\\\"\",\n " + std::string(Document::MAX_DEPTH, '[') + std::string(Document::MAX_DEPTH + 1U, ']');
    ASSERT_EQ(document.ParseText(text), json::PARSE_TOO_DEEP);
    EXPECT_EQ(document.GetParseError(), "line 2, column 129: nested deeper than 128");
}

TEST_F(JsonDocumentTest, AccessorsAreTotal) {
    Document document;
    EXPECT_FALSE(document.HasParseError());
    ASSERT_EQ(document.ParseText(R"({"s": "a\u0000b", "n": -3, "a": [true], "s": "dup"})"), json::PARSE_SUCCESS);
    EXPECT_EQ(document.Size(), 4U);
    EXPECT_EQ(document.Member("s").GetString(), std::string("a\0b", 3U)) << "first of duplicate members";
    const Document number = document.Member("n");
    EXPECT_TRUE(number.IsInt() && !number.IsUint());
    EXPECT_EQ(number.GetUint() + number.GetUint64() + number.Size(), 0U);
    EXPECT_EQ(number.GetDouble(), -3.0);
    EXPECT_TRUE(number.GetString().empty() && !number.GetBool() && !number.HasMember("x"));
    EXPECT_TRUE(number.Member("x").IsNull() && number.Element(0U).IsNull());
    EXPECT_FALSE(document.HasMember("missing") || document.Member("missing").IsObject());
    const Document array = document.Member("a");
    EXPECT_TRUE(array.Size() == 1U && array.Element(0U).GetBool() && array.Element(1U).IsNull());
    EXPECT_FALSE(array.HasMember("0"));
    EXPECT_EQ(document.MemberName(3U) + document.MemberValue(3U).GetString(), "sdup") << "duplicates in order";
    EXPECT_TRUE(document.MemberName(4U).empty() && document.MemberValue(4U).IsNull());
    EXPECT_TRUE(array.MemberName(0U).empty() && array.MemberValue(0U).IsNull());
    // A failed parse empties the document; handles taken earlier keep their tree alive.
    EXPECT_EQ(document.ParseText("[1, 2"), json::PARSE_SYNTAX_ERROR);
    EXPECT_TRUE(document.IsNull() && document.Size() == 0U && document.HasParseError());
    EXPECT_TRUE(array.Element(0U).GetBool());
    ASSERT_EQ(document.ParseText("{}"), json::PARSE_SUCCESS);
    EXPECT_TRUE(!document.HasParseError() && document.GetParseError().empty());
    Document moved = std::move(document);
    EXPECT_TRUE(moved.IsObject());
    EXPECT_TRUE(document.IsNull());  // NOLINT(bugprone-use-after-move): a moved-from document is null
}

TEST(CrcSidecarTest, Crc32AndItsText) {
    EXPECT_EQ(json::Crc32("123456789"), 0xCBF43926U);  // the standard check value
    EXPECT_EQ(json::FormatCrc32(0x0000ABCDU), "0000abcd");
    const std::pair<std::string, std::optional<std::uint32_t>> texts[] = {
        {"0000abcd\n", 0xABCDU},
        {"ffffffff", 0xFFFFFFFFU},
        {"0000ABCD", {}},
        {"0000abc", {}},
        {"0000abcd\r", {}},
        {"0000abcg", {}},
    };
    for (const auto& [text, expected] : texts) {
        std::uint32_t crc = 7U;
        EXPECT_EQ(json::ParseCrc32Text(text, crc), expected.has_value()) << text;
        EXPECT_EQ(crc, expected.value_or(7U)) << text;
    }
}

// The ara_crc32 command, run as a child process, and the parser reading its sidecars.
TEST_F(JsonDocumentTest, Crc32ToolExitCodes) {
    const std::string path = dir_.Write("t.json", "[1]");
    const auto run = [](const std::string& arguments) {
        const int status = std::system((std::string(ARA_CRC32_TOOL) + " " + arguments + " >/dev/null 2>&1").c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    };
    EXPECT_EQ(run("--help"), 0);
    EXPECT_EQ(run("stamp " + path), 2);
    EXPECT_EQ(run("check " + path), 4);
    EXPECT_EQ(run("check " + dir_ / "missing"), 3);
    EXPECT_EQ(run("write " + path), 0);
    EXPECT_EQ(run("check " + path), 0);
    Document document;
    EXPECT_EQ(document.Parse(path, CrcVerification::kStrong), json::PARSE_SUCCESS);
    dir_.Write("t.json", "[2]");
    EXPECT_EQ(run("check " + path), 1);
    dir_.Write("t.json.crc32", "garbage");
    EXPECT_EQ(run("check " + path), 5);
    std::filesystem::remove(path + ".crc32");
    std::filesystem::create_directory(path + ".crc32");
    EXPECT_EQ(run("write " + path), 6);
    // A sidecar that exists but cannot be read fails even weak verification.
    EXPECT_EQ(document.Parse(path, CrcVerification::kWeak), json::PARSE_CRC_CHECK_FAILED);
}

}  // namespace
