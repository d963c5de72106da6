// SPDX-License-Identifier: Apache-2.0
// Reports kRunning and then kTerminating to Execution Management and prints each outcome;
// exits non-zero when a report failed. Start it under a running Execution Management (or
// the test server, tests/support/src/em_test_server.cpp) on the same DDS domain.
#include <cstdio>

#include "ara/exec/exec_error_domain.h"
#include "ara/exec/execution_client.h"

int main() {
    const ara::exec::ExecutionClient client;
    int failed = 0;
    for (const ara::exec::ExecutionState state :
         {ara::exec::ExecutionState::kRunning, ara::exec::ExecutionState::kTerminating}) {
        const auto result = client.ReportExecutionState(state);
        const char* name = ara::exec::ExecutionStateNames.at(state).c_str();
        if (result.HasValue()) {
            std::printf("%s: reported\n", name);
        } else {
            std::printf("%s: failed, %s error %d: %s\n",
                        name,
                        result.Error().Domain().Name(),
                        result.Error().Value(),
                        result.Error().Domain().Message(result.Error().Value()));
            ++failed;
        }
    }
    return failed == 0 ? 0 : 1;
}
