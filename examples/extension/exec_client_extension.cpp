// SPDX-License-Identifier: Apache-2.0
// An extension library for the execution client: the two report hooks, each printing the
// state it is given. Install it as libexec_client_extension.so where the dynamic loader
// looks (or put its directory on LD_LIBRARY_PATH) and every ExecutionClient in a process
// calls it around each report.
#include <cstdio>

#include "ara/exec/execution_state.h"

namespace {

const char* StateName(ara::exec::ExecutionState state) {
    switch (state) {
        case ara::exec::ExecutionState::kRunning:
            return "kRunning";
        case ara::exec::ExecutionState::kTerminating:
            return "kTerminating";
    }
    return "unknown";
}

void Print(const char* when, ara::exec::ExecutionState state) {
    std::printf("exec_client_extension: %s report of %s\n", when, StateName(state));
    std::fflush(stdout);
}

}  // namespace

extern "C" {

/// Called before the report of `state` is sent.
__attribute__((visibility("default"))) void ExecBeforeReportState(ara::exec::ExecutionState state) {
    Print("before", state);
}

/// Called after the report of `state` was sent, before its answer is awaited.
__attribute__((visibility("default"))) void ExecAfterReportState(ara::exec::ExecutionState state) {
    Print("after", state);
}

}  // extern "C"
