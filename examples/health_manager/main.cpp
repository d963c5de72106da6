// SPDX-License-Identifier: Apache-2.0
// Lists the processes Execution Management knows with their states, then asks the name of this
// program's own process id, and prints each outcome; exits non-zero when a call failed. Start
// it under a running Execution Management (or the test server,
// tests/support/src/em_test_server.cpp) on the same DDS domain.
#include <unistd.h>

#include <cstdio>
#include <vector>

#include "ara/exec/recovery_action_client.h"

namespace {

/// Prints `what` and the error of a failed call.
void PrintError(const char* what, const ara::core::ErrorCode& error) {
    std::printf("%s: failed, %s error %d: %s\n",
                what,
                error.Domain().Name(),
                error.Value(),
                error.Domain().Message(error.Value()));
}

}  // namespace

int main() {
    const ara::exec::RecoveryActionClient client("health_manager");
    bool ok = true;

    std::vector<ara::exec::Process> processes;
    const auto listed = client.GetProcessStates(processes);
    if (listed.HasValue()) {
        std::printf("%zu processes\n", processes.size());
        for (const ara::exec::Process& process : processes) {
            std::printf("  %s (%s): %s, pid %s, %s\n",
                        process.processName.c_str(),
                        process.functionGroupName.c_str(),
                        process.processState.c_str(),
                        process.processId.empty() ? "-" : process.processId.c_str(),
                        process.isRunning ? "running" : "not running");
        }
    } else {
        PrintError("list processes", listed.Error());
        ok = false;
    }

    const int self = static_cast<int>(getpid());
    const auto name = client.GetProcessName(self);
    if (name.HasValue()) {
        std::printf("process %d is %s\n", self, name.Value().c_str());
    } else {
        PrintError("name of this process", name.Error());
        ok = false;
    }
    return ok ? 0 : 1;
}
