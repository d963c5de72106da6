// The JSON of emd's own service: every text is escaped so that a strict parser (the one emctl
// uses) reads back what was meant, whatever bytes a manifest or a process handed emd.
#include "status_json.h"

#include <gtest/gtest.h>

#include <string>

#include "ara/quill/common/jsonParser/document.h"

namespace {

using ara::quill::common::jsonParser::Document;
using ara::quill::common::jsonParser::PARSE_SUCCESS;
using namespace tarn::em::daemon;  // NOLINT(google-build-using-namespace)

TEST(StatusJsonTest, TextsAreEscapedAndInvalidUtf8Replaced) {
    const std::string bad = "\xEF\xBF\xBD";  // U+FFFD as the parser gives it back
    struct Case {
        std::string text, json, read;  ///< input, what is written, what a parser reads back
    };
    const Case cases[] = {
        {"a\"b\\c/", R"("a\"b\\c/")", "a\"b\\c/"},
        {"\b\f\n\r\t", R"("\b\f\n\r\t")", "\b\f\n\r\t"},
        {std::string("a\0b\x01\x1f\x7f", 6),
         R"("a\u0000b\u0001\u001f)"
         "\x7f\"",
         std::string("a\0b\x01\x1f\x7f", 6)},
        {"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF",
         "\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF\"",
         "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF"},
        {"\x80x", R"("\ufffdx")", bad + "x"},                                          // stray continuation byte
        {"x\xC3", R"("x\ufffd")", "x" + bad},                                          // cut off at the end
        {"\xE2\x82", R"("\ufffd\ufffd")", bad + bad},                                  // cut off, longer
        {"\xE2(\xA1", R"("\ufffd(\ufffd")", bad + "(" + bad},                          // broken in the middle
        {"\xC0\xAF", R"("\ufffd\ufffd")", bad + bad},                                  // overlong, two bytes
        {"\xE0\x80\xAF", R"("\ufffd\ufffd\ufffd")", bad + bad + bad},                  // overlong, three bytes
        {"\xED\xA0\x80", R"("\ufffd\ufffd\ufffd")", bad + bad + bad},                  // a surrogate
        {"\xF4\x90\x80\x80", R"("\ufffd\ufffd\ufffd\ufffd")", bad + bad + bad + bad},  // beyond U+10FFFF
        {"\xF8\x88\x80\x80\x80", R"("\ufffd\ufffd\ufffd\ufffd\ufffd")", bad + bad + bad + bad + bad},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(JsonString(c.text), c.json) << c.json;
        Document document;
        ASSERT_EQ(document.ParseText(JsonString(c.text)), PARSE_SUCCESS) << c.json << ": " << document.GetParseError();
        EXPECT_EQ(document.GetString(), c.read) << c.json;
    }
}

TEST(StatusJsonTest, DocumentsReadBackWithNullsForWhatIsAbsent) {
    ProcessStatus process;
    process.name = "we\"ird";
    process.functionGroup = "Demo";
    process.phase = "Starting";
    process.statusText = "half\nway \xFF";
    process.readyAfter = std::chrono::milliseconds(1234);
    process.dependsOn = {{"db", Condition::kRunning}, {"migrate", Condition::kTerminated}};
    Document p;
    ASSERT_EQ(p.ParseText(ProcessStatusJson(process)), PARSE_SUCCESS);
    EXPECT_EQ(p.Member("name").GetString(), "we\"ird");
    EXPECT_TRUE(p.HasMember("pid") && p.Member("pid").IsNull());  // no OS process
    EXPECT_EQ(p.Member("statusText").GetString(), "half\nway \xEF\xBF\xBD");
    EXPECT_TRUE(p.HasMember("lastExit") && p.Member("lastExit").IsNull());
    EXPECT_EQ(p.Member("readyAfterMs").GetInt64(), 1234);
    EXPECT_TRUE(p.HasMember("sinceWatchdogMs") && p.Member("sinceWatchdogMs").IsNull());
    ASSERT_EQ(p.Member("dependsOn").Size(), 2U);
    EXPECT_EQ(p.Member("dependsOn").Element(1).Member("condition").GetString(), "terminated");

    Manifest manifest;
    manifest.processes.resize(2U);
    manifest.processes[0].name = "a";
    manifest.processes[1].name = "b";
    manifest.processes[1].dependsOn = {{"a", Condition::kRunning}};
    Document d;
    ASSERT_EQ(d.ParseText(DependenciesJson(manifest)), PARSE_SUCCESS);
    ASSERT_EQ(d.Member("processes").Size(), 2U);
    EXPECT_EQ(d.Member("processes").Element(0).Member("dependsOn").Size(), 0U);
    EXPECT_EQ(d.Member("processes").Element(1).Member("dependsOn").Element(0).Member("process").GetString(), "a");

    Document b;
    ASSERT_EQ(b.ParseText(BlameJson("", {})), PARSE_SUCCESS);
    EXPECT_TRUE(b.HasMember("functionGroup") && b.Member("functionGroup").IsNull());
    EXPECT_TRUE(b.Member("processes").IsArray());
}

}  // namespace
