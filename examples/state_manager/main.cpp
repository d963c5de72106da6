// SPDX-License-Identifier: Apache-2.0
// Reads the state of Function Group "MachineFG", asks for its transition to "Running" and
// prints each outcome; exits non-zero when a call failed. Start it under a running Execution
// Management (or the test server, tests/support/src/em_test_server.cpp) on the same DDS domain.
#include <chrono>
#include <cstdio>

#include "ara/exec/function_group.h"
#include "ara/exec/function_group_state.h"
#include "ara/exec/state_client.h"

namespace {

/// Prints `what` and the outcome of `result`; true on success.
bool Print(const char* what, const ara::core::Result<void, ara::core::ErrorCode>& result) {
    if (result.HasValue()) {
        std::printf("%s: ok\n", what);
        return true;
    }
    const ara::core::ErrorCode& error = result.Error();
    std::printf("%s: failed, %s error %d: %s\n",
                what,
                error.Domain().Name(),
                error.Value(),
                error.Domain().Message(error.Value()));
    return false;
}

}  // namespace

int main() {
    const ara::exec::StateClient client;
    // Waits once for the service (up to 1.4 s): GetState itself only checks for 10 ms.
    if (!ara::exec::CommunicationProcessing()) {
        std::printf("Execution Management's state manager service is not available\n");
        return 1;
    }
    ara::core::String state;
    bool ok = Print("get state of MachineFG", client.GetState("MachineFG", state).GetResult());
    if (ok) {
        std::printf("MachineFG is in state %s\n", state.c_str());
    }

    // The group and the state only view these texts, which outlive both objects.
    const ara::exec::FunctionGroup group(ara::exec::FunctionGroup::Preconstruct("MachineFG").Value());
    const ara::exec::FunctionGroupState running(ara::exec::FunctionGroupState::Preconstruct(group, "Running").Value());
    auto transition = client.SetState(running);
    if (transition.wait_for(std::chrono::seconds(10)) != ara::core::future_status::kReady) {
        std::printf("set MachineFG to Running: no answer within 10 s\n");
        return 1;
    }
    ok = Print("set MachineFG to Running", transition.GetResult()) && ok;
    return ok ? 0 : 1;
}
