// SPDX-License-Identifier: Apache-2.0
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

}  // namespace
