// SPDX-License-Identifier: Apache-2.0
// Parsing of the environment settings that choose the sinks and the level threshold.
#include "log_config.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <utility>

namespace ara::quill::common::log::internal {
namespace {

std::string Normalize(std::string text) {
    const auto notBlank = [](unsigned char c) { return std::isspace(c) == 0; };
    text.erase(text.begin(), std::find_if(text.begin(), text.end(), notBlank));
    text.erase(std::find_if(text.rbegin(), text.rend(), notBlank).base(), text.end());
    std::transform(
        text.begin(), text.end(), text.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

constexpr std::array<std::pair<const char*, LogLevel>, 7> LEVEL_NAMES{{{"off", LogLevel::kOff},
                                                                       {"fatal", LogLevel::kFatal},
                                                                       {"error", LogLevel::kError},
                                                                       {"warn", LogLevel::kWarn},
                                                                       {"info", LogLevel::kInfo},
                                                                       {"debug", LogLevel::kDebug},
                                                                       {"verbose", LogLevel::kVerbose}}};

void ParseSinks(const std::string& value, bool dltBuiltIn, LogConfig& config) {
    unsigned sinks = 0U;
    bool sawNone = false;
    bool sawDltWithoutSupport = false;
    bool sawUnknown = false;
    std::size_t start = 0U;
    while (start <= value.size()) {
        std::size_t end = value.find(',', start);
        if (end == std::string::npos) {
            end = value.size();
        }
        const std::string name = Normalize(value.substr(start, end - start));
        if (name.empty()) {
            // Stray commas and blanks name nothing.
        } else if (name == "console") {
            sinks |= SINK_CONSOLE;
        } else if (name == "dlt") {
            if (dltBuiltIn) {
                sinks |= SINK_DLT;
            } else {
                sawDltWithoutSupport = true;
            }
        } else if (name == "none") {
            sawNone = true;
        } else {
            sawUnknown = true;
            config.complaints.push_back("ARA_LOG_SINK: unknown sink '" + name + "' ignored");
        }
        start = end + 1U;
    }
    if (sawDltWithoutSupport) {
        config.complaints.emplace_back("ARA_LOG_SINK: the dlt sink is not built in");
    }
    if (sinks == 0U && !(sawNone && !sawUnknown && !sawDltWithoutSupport)) {
        sinks = DEFAULT_SINKS;
        config.complaints.emplace_back("ARA_LOG_SINK: no usable sink in '" + value + "', using console");
    }
    config.sinks = sinks;
}

}  // namespace

LogConfig ParseLogConfig(const char* sinkValue, const char* levelValue, bool dltBuiltIn) {
    LogConfig config;
    if (sinkValue != nullptr && !Normalize(sinkValue).empty()) {
        ParseSinks(sinkValue, dltBuiltIn, config);
    }
    if (levelValue != nullptr) {
        const std::string name = Normalize(levelValue);
        const auto* found = std::find_if(
            LEVEL_NAMES.begin(), LEVEL_NAMES.end(), [&name](const auto& entry) { return name == entry.first; });
        if (found != LEVEL_NAMES.end()) {
            config.level = found->second;
        } else {
            config.complaints.push_back(std::string("ARA_LOG_LEVEL: unknown level '") + levelValue + "', using warn");
        }
    }
    return config;
}

const char* LevelName(LogLevel level) noexcept {
    for (const auto& entry : LEVEL_NAMES) {
        if (entry.second == level) {
            return entry.first;
        }
    }
    return "?";
}

}  // namespace ara::quill::common::log::internal
