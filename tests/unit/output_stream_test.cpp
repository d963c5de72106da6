// SPDX-License-Identifier: Apache-2.0
// How emd turns a process's output into log records: lines cut at line feeds and at 4096
// bytes (never inside a character), bytes that could break a log escaped, and the token
// bucket of 1000 lines refilled at 200 per second with its count of dropped lines.
#include "output_stream.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using tarn::em::daemon::OutputRecord;
using tarn::em::daemon::OutputStream;
using Texts = std::vector<std::string>;
using namespace std::chrono_literals;

const std::string A4095(4095U, 'a');
const std::string P = "[Output][process=p] ";

TEST(OutputStreamTest, CutsAndEscapesLines) {
    struct Case {
        const char* name;
        Texts reads;  // fed one after the other, then the stream ends
        Texts logged;
    };
    const Case cases[] = {
        {"CRLF and LF", {"one\r\ntwo\n\n"}, {P + "one", P + "two", P}},
        {"a line over two reads", {"par", "tial\n"}, {P + "partial"}},
        {"a last line without a line feed", {"x\nlast"}, {P + "x", P + "last"}},
        {"control bytes but tab", {std::string("a\0b\rc\x1b\x7f\td\n", 10U)}, {P + "a\\x00b\\x0dc\\x1b\\x7f\td"}},
        {"invalid UTF-8",
         {"\xc3\xa9\xe2\x82\xac|\xff|\xc3|\xe2\x82|\xed\xa0\x80|\xc0\xaf|\xf4\x90\x80\x80\n"},
         {P + "\xc3\xa9\xe2\x82\xac|\\xff|\\xc3|\\xe2\\x82|\\xed\\xa0\\x80|\\xc0\\xaf|\\xf4\\x90\\x80\\x80"}},
        {"4096 bytes are one line", {A4095 + "a\r\n"}, {P + A4095 + "a"}},
        {"4097 bytes are two", {A4095 + "aa\n"}, {P + A4095 + "a", P + "a"}},
        {"a character is not cut", {A4095 + "\xc3\xa9\n"}, {P + A4095, P + "\xc3\xa9"}},
        {"nor one that a read cut", {A4095 + "\xc3", "\xa9z\n"}, {P + A4095, P + "\xc3\xa9z"}},
    };
    for (const Case& c : cases) {
        const auto now = OutputStream::Clock::now();
        OutputStream stream("p", now);
        std::vector<OutputRecord> records;
        for (const std::string& read : c.reads) {
            stream.Feed(read, now, records);
        }
        stream.Finish(now, records);
        Texts logged;
        for (const OutputRecord& record : records) {
            EXPECT_FALSE(record.dropReport) << c.name;
            logged.push_back(record.text);
        }
        EXPECT_EQ(logged, c.logged) << c.name;
    }
}

TEST(OutputStreamTest, LimitsTheRateAndCountsWhatItDrops) {
    struct Case {
        const char* name;
        int first;  // lines at once
        std::chrono::milliseconds pause;
        int second;    // lines after the pause
        Texts logged;  // "N lines" per run of lines, and the drop reports
    };
    const std::string dropped = "[Output][Lines dropped][process=p, count=";
    const Case cases[] = {
        {"exactly the burst", 1000, 0ms, 0, {"1000 lines"}},
        {"one over the burst, reported at the end", 1001, 0ms, 0, {"1000 lines", dropped + "1]"}},
        {"dropping until a second's worth is back", 1001, 999ms, 1, {"1000 lines", dropped + "2]"}},
        {"which it is after 1 s, reported before the next line",
         1001,
         1s,
         201,
         {"1000 lines", dropped + "1]", "200 lines", dropped + "1]"}},
        {"full after a quiet spell, but no more than full", 1000, 10s, 1001, {"2000 lines", dropped + "1]"}},
    };
    for (const Case& c : cases) {
        const auto start = OutputStream::Clock::now();
        OutputStream stream("p", start);
        std::vector<OutputRecord> records;
        for (int i = 0; i < c.first + c.second; ++i) {
            stream.Feed("line\n", i < c.first ? start : start + c.pause, records);
        }
        stream.Finish(start + c.pause, records);
        Texts logged;
        int run = 0;
        for (std::size_t i = 0U; i <= records.size(); ++i) {
            if (i < records.size() && !records[i].dropReport) {
                ++run;
                continue;
            }
            if (run > 0) {
                logged.push_back(std::to_string(run) + " lines");
            }
            run = 0;
            if (i < records.size()) {
                logged.push_back(records[i].text);
            }
        }
        EXPECT_EQ(logged, c.logged) << c.name;
    }
}

}  // namespace
