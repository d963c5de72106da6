// Interpretation of ARA_LOG_SINK / ARA_LOG_LEVEL and the four-character DLT ids.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "log_config.h"
#include "short_id.h"

namespace {

using ara::quill::common::log::LogLevel;
using ara::quill::common::log::internal::LogConfig;
using ara::quill::common::log::internal::ParseLogConfig;
using ara::quill::common::log::internal::ShortId;
using ara::quill::common::log::internal::SINK_CONSOLE;
using ara::quill::common::log::internal::SINK_DLT;

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
        {"", "", true, SINK_CONSOLE, LogLevel::kWarn, 1U},
        {"console", "fatal", true, SINK_CONSOLE, LogLevel::kFatal, 0U},
        {"dlt", "error", true, SINK_DLT, LogLevel::kError, 0U},
        {" Console , DLT ", "INFO", true, SINK_CONSOLE | SINK_DLT, LogLevel::kInfo, 0U},
        {"console,,", "debug", true, SINK_CONSOLE, LogLevel::kDebug, 0U},
        {"none", "verbose", true, 0U, LogLevel::kVerbose, 0U},
        {"none,console", " warn ", true, SINK_CONSOLE, LogLevel::kWarn, 0U},
        {"console,syslog", nullptr, true, SINK_CONSOLE, LogLevel::kWarn, 1U},
        {"syslog", nullptr, true, SINK_CONSOLE, LogLevel::kWarn, 2U},
        {"none,syslog", nullptr, true, SINK_CONSOLE, LogLevel::kWarn, 2U},
        {"dlt", nullptr, false, SINK_CONSOLE, LogLevel::kWarn, 2U},
        {"dlt,console", nullptr, false, SINK_CONSOLE, LogLevel::kWarn, 1U},
        {nullptr, "loud", true, SINK_CONSOLE, LogLevel::kWarn, 1U},
        {nullptr, "warning", true, SINK_CONSOLE, LogLevel::kWarn, 1U},
        {nullptr, "off", true, SINK_CONSOLE, LogLevel::kOff, 0U},
    };
    for (const auto& c : cases) {
        const LogConfig config = ParseLogConfig(c.sink, c.level, c.dltBuiltIn);
        const std::string name = std::string("sink=") + (c.sink != nullptr ? c.sink : "(unset)") +
                                 " level=" + (c.level != nullptr ? c.level : "(unset)");
        EXPECT_EQ(config.sinks, c.sinks) << name;
        EXPECT_EQ(config.level, c.expectedLevel) << name;
        EXPECT_EQ(config.complaints.size(), c.complaints) << name;
    }
}

TEST(LogConfigTest, ShortIds) {
    struct Case {
        const char* name;
        std::set<std::string> taken;
        const char* expected;
    };
    const Case cases[] = {
        {"EM", {}, "EM"},
        {"EMCL", {}, "EMCL"},
        {"CM", {"EM"}, "CM"},
        {"CHECKER", {}, "CHKR"},
        {"EM_CLIENT", {}, "EMCL"},
        {"AUDIO", {}, "AUDI"},
        {"checker", {}, "chkr"},
        {"CHECKER", {"CHKR"}, "CHK1"},
        {"CHECKERS", {"CHKR", "CHK1"}, "CHK2"},
        {"EM", {"EM"}, "EM1"},
        {"X", {"X", "X1", "X2", "X3", "X4", "X5", "X6", "X7", "X8", "X9"}, "X"},
    };
    for (const auto& c : cases) {
        const std::string id = ShortId(c.name, c.taken);
        EXPECT_EQ(id, c.expected) << c.name;
        EXPECT_LE(id.size(), 4U) << c.name;
    }
}

}  // namespace
