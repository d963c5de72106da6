// SPDX-License-Identifier: Apache-2.0
// The console sink: one line per record on standard error.
#ifndef ARA_QUILL_COMMON_LOG_SRC_CONSOLE_SINK_H
#define ARA_QUILL_COMMON_LOG_SRC_CONSOLE_SINK_H

#include <string>

#include "ara/quill/common/log/log.h"

namespace ara::quill::common::log::internal {

/// Writes "<UTC time> [<ctx>] [<level>] <text>" as one line to fd 2 with a single write, so
/// concurrent writers (also other processes sharing the stream) do not interleave within a line.
/// Line breaks inside `text` are written as spaces.
void WriteConsoleRecord(const std::string& ctxId, LogLevel level, const std::string& text) noexcept;

/// Writes "ara log: <text>" to standard error; for the library's own diagnostics.
void WriteDiagnostic(const std::string& text) noexcept;

}  // namespace ara::quill::common::log::internal

#endif
