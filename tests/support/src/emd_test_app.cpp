// SPDX-License-Identifier: Apache-2.0
// A process for emd to supervise in tests. Reports kRunning through the execution client
// (retrying until emd is found), then behaves as its mode says; on SIGTERM it reports
// kTerminating and exits 0 unless told to ignore the signal.
//
//   emd_test_app NAME MODE
//   MODE: run | never (never reports) | crash-at-start | crash-after:MS | ignore-term
//         | report-terminating-and-hang
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "ara/exec/execution_client.h"

namespace {
volatile std::sig_atomic_t g_terminate = 0;
}

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: emd_test_app NAME MODE\n");
        return 2;
    }
    const std::string mode = argv[2];
    if (mode == "crash-at-start") {
        return 3;
    }
    std::signal(
        SIGTERM, mode == "ignore-term" ? SIG_IGN : [](int) { g_terminate = 1; });
    const ara::exec::ExecutionClient client;
    if (mode != "never") {
        // The first report waits for discovery; a loaded machine may need many more tries
        // (emd ends a process that never reports with its start-up time-out).
        bool reported = false;
        while (!reported && g_terminate == 0) {
            reported = client.ReportExecutionState(ara::exec::ExecutionState::kRunning).HasValue();
            if (!reported) {
                usleep(100000U);
            }
        }
        if (!reported) {
            return 4;
        }
    }
    if (mode.rfind("crash-after:", 0) == 0) {
        usleep(static_cast<useconds_t>(std::stoul(mode.substr(12U)) * 1000U));
        std::abort();
    }
    if (mode == "report-terminating-and-hang") {
        (void)client.ReportExecutionState(ara::exec::ExecutionState::kTerminating);
    }
    while (g_terminate == 0 || mode == "report-terminating-and-hang") {
        pause();
    }
    (void)client.ReportExecutionState(ara::exec::ExecutionState::kTerminating);
    return 0;
}
