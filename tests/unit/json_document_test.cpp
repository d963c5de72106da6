// The JSON document: result codes for bad files, limits, CRC sidecars, total accessors.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

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
    void SetUp() override { assertionsBefore_ = json::detail::RapidJsonAssertionCount(); }
    void TearDown() override { EXPECT_EQ(json::detail::RapidJsonAssertionCount(), assertionsBefore_); }

    std::string Sparse(const std::string& name, std::size_t size) {
        const std::string path = dir_ / name;
        const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT, 0644);
        EXPECT_GE(fd, 0);
        EXPECT_EQ(::ftruncate(fd, static_cast<off_t>(size)), 0);
        ::close(fd);
        return path;
    }

    ara_test::TempDir dir_;
    ara::quill::common::log::CaptureSink capture_;
    std::uint64_t assertionsBefore_{0U};
};

TEST_F(JsonDocumentTest, ParseResultCodes) {
    ASSERT_EQ(::mkdir((dir_ / "dir").c_str(), 0755), 0);
    ASSERT_EQ(::mkfifo((dir_ / "fifo").c_str(), 0600), 0);
    const std::string ok = dir_.Write("ok.json", "[1]");
    // Exactly at the size limit: whitespace and one value.
    const std::string atLimit = dir_.Write("limit.json", std::string(Document::MAX_FILE_SIZE - 1U, ' ') + "0");
    const std::string overLimit = dir_.Write("over.json", std::string(Document::MAX_FILE_SIZE, ' ') + "0");
    const std::string depthOk =
        dir_.Write("depth.json", std::string(Document::MAX_DEPTH, '[') + std::string(Document::MAX_DEPTH, ']'));
    const std::string depthOver = dir_.Write(
        "deeper.json", std::string(Document::MAX_DEPTH, '[') + "{\"a\":1}" + std::string(Document::MAX_DEPTH, ']'));
    struct Case {
        std::string path;
        CrcVerification verification;
        std::int32_t result;
    };
    const Case cases[] = {
        {ok, CrcVerification::kNot, json::PARSE_SUCCESS},
        {ok, CrcVerification::kWeak, json::PARSE_SUCCESS},
        {ok, CrcVerification::kStrong, json::PARSE_CRC_CHECK_FAILED},
        {ok, static_cast<CrcVerification>(3), json::PARSE_INVALID_VERIFICATION},
        {ok, static_cast<CrcVerification>(-1), json::PARSE_INVALID_VERIFICATION},
        {dir_ / "missing", CrcVerification::kNot, json::PARSE_FILE_OPEN_FAILED},
        {dir_ / "dir", CrcVerification::kNot, json::PARSE_FILE_OPEN_FAILED},
        {dir_ / "fifo", CrcVerification::kNot, json::PARSE_FILE_OPEN_FAILED},
        {"/dev/zero", CrcVerification::kNot, json::PARSE_FILE_OPEN_FAILED},
        {atLimit, CrcVerification::kNot, json::PARSE_SUCCESS},
        {overLimit, CrcVerification::kNot, json::PARSE_FILE_TOO_LARGE},
        {Sparse("sparse", std::size_t{1} << 40U), CrcVerification::kNot, json::PARSE_FILE_TOO_LARGE},
        {depthOk, CrcVerification::kNot, json::PARSE_SUCCESS},
        {depthOver, CrcVerification::kNot, json::PARSE_TOO_DEEP},
        {dir_.Write("syntax.json", "[1,\n 2,\n x]"), CrcVerification::kNot, json::PARSE_SYNTAX_ERROR},
    };
    for (const Case& c : cases) {
        Document document;
        const std::int32_t result = document.Parse(c.path, c.verification);
        EXPECT_EQ(result, c.result) << c.path << " " << static_cast<int>(c.verification);
        EXPECT_EQ(document.HasParseError(), result != json::PARSE_SUCCESS) << c.path;
        EXPECT_EQ(document.GetParseError().empty(), result == json::PARSE_SUCCESS) << c.path;
        if (result != json::PARSE_SUCCESS) {
            EXPECT_TRUE(document.IsNull()) << c.path;
        }
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

TEST_F(JsonDocumentTest, AccessorsAreTotal) {
    Document document;
    ASSERT_EQ(document.ParseText(R"({"s": "a\u0000b", "n": -3, "o": {"x": null}, "a": [true], "s": "dup"})"),
              json::PARSE_SUCCESS);
    EXPECT_EQ(document.Size(), 5U);
    EXPECT_EQ(document.Member("s").GetString(), std::string("a\0b", 3U)) << "first of duplicate members";
    const Document number = document.Member("n");
    EXPECT_TRUE(number.IsInt() && !number.IsUint());
    EXPECT_EQ(number.GetUint() + number.GetUint64() + number.Size(), 0U);
    EXPECT_EQ(number.GetInt64(), -3);
    EXPECT_EQ(number.GetDouble(), -3.0);
    EXPECT_EQ(number.GetString(), "");
    EXPECT_FALSE(number.GetBool() || number.HasMember("x"));
    EXPECT_TRUE(number.Member("x").IsNull() && number.Element(0U).IsNull());
    EXPECT_TRUE(document.Member("o").HasMember("x") && document.Member("o").Member("x").IsNull());
    EXPECT_FALSE(document.HasMember("missing") || document.Member("missing").IsObject());
    const Document array = document.Member("a");
    EXPECT_TRUE(array.Size() == 1U && array.Element(0U).GetBool());
    EXPECT_TRUE(array.Element(1U).IsNull() && array.Element(static_cast<std::size_t>(-1)).IsNull());
    EXPECT_FALSE(array.HasMember("0"));

    // A failed parse empties the document; handles taken earlier keep their tree alive.
    EXPECT_EQ(document.ParseText("[1, 2"), json::PARSE_SYNTAX_ERROR);
    EXPECT_TRUE(document.IsNull() && document.Size() == 0U && document.HasParseError());
    EXPECT_TRUE(array.Element(0U).GetBool());
    ASSERT_EQ(document.ParseText("{}"), json::PARSE_SUCCESS);
    EXPECT_FALSE(document.HasParseError());
    EXPECT_TRUE(document.GetParseError().empty());
    EXPECT_FALSE(Document().HasParseError());

    Document moved = std::move(document);
    EXPECT_TRUE(moved.IsObject());
    EXPECT_TRUE(document.IsNull());  // NOLINT(bugprone-use-after-move): a moved-from document is null
    EXPECT_EQ(document.Size(), 0U);
}

TEST(CrcSidecarTest, Crc32AndItsText) {
    EXPECT_EQ(json::Crc32("123456789"), 0xCBF43926U);  // the standard check value
    EXPECT_EQ(json::Crc32(""), 0U);
    EXPECT_EQ(json::FormatCrc32(0xCBF43926U), "cbf43926");
    EXPECT_EQ(json::FormatCrc32(0x0000ABCDU), "0000abcd");

    const std::pair<std::string, std::optional<std::uint32_t>> texts[] = {
        {"0000abcd", 0xABCDU},
        {"0000abcd\n", 0xABCDU},
        {"ffffffff", 0xFFFFFFFFU},
        {"0000ABCD", {}},
        {"0000abc", {}},
        {"0000abcd0", {}},
        {"0000abcd\n\n", {}},
        {"0000abcd\r\n", {}},
        {" 000abcd", {}},
        {"0000abcg", {}},
        {"", {}},
        {"0x00abcd", {}},
    };
    for (const auto& [text, expected] : texts) {
        std::uint32_t crc = 7U;
        EXPECT_EQ(json::ParseCrc32Text(text, crc), expected.has_value()) << text;
        EXPECT_EQ(crc, expected.value_or(7U)) << text;
    }
}

// The ara_crc32 command, run as a child process.
TEST_F(JsonDocumentTest, Crc32ToolExitCodes) {
    const std::string tool = ARA_CRC32_TOOL;
    const std::string path = dir_.Write("t.json", "[1]");
    const auto run = [&tool](const std::string& arguments) {
        const int status = std::system((tool + " " + arguments + " >/dev/null 2>&1").c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    };
    EXPECT_EQ(run("--help"), 0);
    EXPECT_EQ(run(""), 2);
    EXPECT_EQ(run("stamp " + path), 2);
    EXPECT_EQ(run("check " + path), 4);
    EXPECT_EQ(run("write " + dir_ / "missing"), 3);
    EXPECT_EQ(run("check " + dir_ / "missing"), 3);
    EXPECT_EQ(run("write " + path), 0);
    EXPECT_EQ(run("check " + path), 0);
    EXPECT_EQ(json::CheckCrcSidecar(path), json::CrcCheck::kMatch);
    Document document;
    EXPECT_EQ(document.Parse(path, CrcVerification::kStrong), json::PARSE_SUCCESS);
    dir_.Write("t.json", "[2]");
    EXPECT_EQ(run("check " + path), 1);
    EXPECT_EQ(document.Parse(path, CrcVerification::kWeak), json::PARSE_CRC_CHECK_FAILED);
    dir_.Write("t.json.crc32", "garbage");
    EXPECT_EQ(run("check " + path), 5);
    ASSERT_EQ(::unlink((path + ".crc32").c_str()), 0);
    ASSERT_EQ(::mkdir((path + ".crc32").c_str(), 0755), 0);
    EXPECT_EQ(run("write " + path), 6);
    // A sidecar that exists but cannot be read fails even weak verification.
    EXPECT_EQ(document.Parse(path, CrcVerification::kWeak), json::PARSE_CRC_CHECK_FAILED);
}

}  // namespace
