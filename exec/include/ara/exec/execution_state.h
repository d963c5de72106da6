// SPDX-License-Identifier: Apache-2.0
// The execution states a process reports to Execution Management.
#ifndef ARA_EXEC_EXECUTION_STATE_H
#define ARA_EXEC_EXECUTION_STATE_H

#include <cstdint>
#include <map>
#include <string>

#include "ara/core/internal/export.h"

namespace ara::exec {

enum class ExecutionState : std::uint8_t {
    kRunning = 0,
    kTerminating = 1,
};

/// The states a process may report, with their names: exactly kRunning -> "kRunning" and
/// kTerminating -> "kTerminating". Built at library load; a state missing here is invalid.
ARA_EXPORT extern const std::map<ExecutionState, std::string> ExecutionStateNames;

}  // namespace ara::exec

#endif
