// SPDX-License-Identifier: Apache-2.0
// Names of the execution states, built at library load.
#include "ara/exec/execution_state.h"

namespace ara::exec {

const std::map<ExecutionState, std::string> ExecutionStateNames{
    {ExecutionState::kRunning, "kRunning"},
    {ExecutionState::kTerminating, "kTerminating"},
};

}  // namespace ara::exec
