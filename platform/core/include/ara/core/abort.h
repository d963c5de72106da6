// SPDX-License-Identifier: Apache-2.0
// ara::core::Abort: the one way the platform ends a process on a broken contract.
#ifndef ARA_CORE_ABORT_H
#define ARA_CORE_ABORT_H

#include "ara/core/internal/export.h"

namespace ara::core {

/// Called with the abort text before the process is ended; must not return normally.
using AbortHandler = void (*)() noexcept;

/// Installs a handler that runs before the process aborts; returns the previous one.
/// @thread-safety safe to call from any thread.
ARA_EXPORT AbortHandler SetAbortHandler(AbortHandler handler) noexcept;

/// Writes "[ara::core::Abort] <text>" and a line end to standard error, runs the installed
/// handler (if any), then ends the process with std::abort(). Never returns.
[[noreturn]] ARA_EXPORT void Abort(const char* text) noexcept;

}  // namespace ara::core

#endif
