// SPDX-License-Identifier: Apache-2.0
// Reading the sink list and level threshold from the environment (ARA_LOG_SINK, ARA_LOG_LEVEL).
#ifndef ARA_QUILL_COMMON_LOG_SRC_LOG_CONFIG_H
#define ARA_QUILL_COMMON_LOG_SRC_LOG_CONFIG_H

#include <string>
#include <vector>

#include "ara/quill/common/log/log.h"

namespace ara::quill::common::log::internal {

/// Bits of LogConfig::sinks.
constexpr unsigned SINK_CONSOLE = 1U;
constexpr unsigned SINK_DLT = 2U;

constexpr unsigned DEFAULT_SINKS = SINK_CONSOLE;
constexpr LogLevel DEFAULT_LEVEL = LogLevel::kWarn;

struct LogConfig {
    unsigned sinks{DEFAULT_SINKS};
    LogLevel level{DEFAULT_LEVEL};
    /// One line per rejected or ignored setting, for the caller to print once.
    std::vector<std::string> complaints;
};

/// Interprets the two settings; a null pointer means "not set". Sink names are a comma list
/// of console, dlt and none (case-insensitive, blanks around names ignored). Unknown names are
/// ignored; a list that names no usable sink and is not exactly "none" falls back to the
/// console. `dltBuiltIn` false turns "dlt" into a complaint and drops it.
LogConfig ParseLogConfig(const char* sinkValue, const char* levelValue, bool dltBuiltIn);

/// "fatal" ... "verbose" for the six levels, "off" for kOff.
const char* LevelName(LogLevel level) noexcept;

}  // namespace ara::quill::common::log::internal

#endif
