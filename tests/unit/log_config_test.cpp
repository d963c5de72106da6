// Interpretation of ARA_LOG_SINK / ARA_LOG_LEVEL and the four-character DLT ids.
#include "log_config.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "short_id.h"

namespace {

using namespace ara::quill::common::log;
using namespace ara::quill::common::log::internal;

TEST(LogConfigTest, SinkAndLevelSettings) {
    struct Case {
        const char* sink;
        const char* level;
        bool dltBuiltIn;
        unsigned sinks;
        LogLevel expectedLevel;
        std::size_t complaints;
    };
    const Case cases[] = {
        {nullptr, nullptr, true, SINK_CONSOLE, LogLevel::kWarn, 0U},
        {" Console , DLT ", "INFO", true, SINK_CONSOLE | SINK_DLT, LogLevel::kInfo, 0U},
        {"console,,", "debug", true, SINK_CONSOLE, LogLevel::kDebug, 0U},
        {"none", "verbose", true, 0U, LogLevel::kVerbose, 0U},
        {"console,syslog", "warning", true, SINK_CONSOLE, LogLevel::kWarn, 2U},
        {"none,syslog", nullptr, true, SINK_CONSOLE, LogLevel::kWarn, 2U},
        {"dlt", "fatal", false, SINK_CONSOLE, LogLevel::kFatal, 2U},
        {"dlt,none", nullptr, false, SINK_CONSOLE, LogLevel::kWarn, 2U},
    };
    for (const auto& c : cases) {
        const LogConfig config = ParseLogConfig(c.sink, c.level, c.dltBuiltIn);
        const std::string name = std::string(c.sink != nullptr ? c.sink : "-") + "/" + (c.level ? c.level : "-");
        EXPECT_EQ(config.sinks, c.sinks) << name;
        EXPECT_EQ(config.level, c.expectedLevel) << name;
        EXPECT_EQ(config.complaints.size(), c.complaints) << name;
    }
}

TEST(LogConfigTest, ShortIds) {
    const std::tuple<const char*, std::set<std::string>, const char*> cases[] = {
        {"EMCL", {}, "EMCL"},
        {"CHECKER", {}, "CHKR"},
        {"EM_CLIENT", {}, "EMCL"},
        {"AUDIO", {}, "AUDI"},
        {"CHECKERS", {"CHKR", "CHK1"}, "CHK2"},
        {"EM", {"EM"}, "EM1"},
        {"X", {"X", "X1", "X2", "X3", "X4", "X5", "X6", "X7", "X8", "X9"}, "X"},
    };
    for (const auto& [name, taken, expected] : cases) {
        EXPECT_EQ(ShortId(name, taken), expected) << name;
    }
}

}  // namespace
