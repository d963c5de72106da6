// SPDX-License-Identifier: Apache-2.0
// An application as emd supervises it: reports kRunning, prints a line every interval to
// show it works, and on SIGTERM reports kTerminating and exits 0.
//
//   demo_app NAME [INTERVAL_MS]      (default interval 1000 ms)
//   demo_app --version
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "ara/exec/execution_client.h"

namespace {
volatile std::sig_atomic_t g_stop = 0;
}

int main(int argc, char** argv) {
    if (argc == 2 && std::string(argv[1]) == "--version") {
        std::printf("demo_app %s\n", ARA_EXEC_VERSION);
        return 0;
    }
    if (argc < 2 || argc > 3) {
        std::fprintf(stderr, "usage: demo_app NAME [INTERVAL_MS]\n");
        return 2;
    }
    const std::string name = argv[1];
    const unsigned long interval = argc == 3 ? std::strtoul(argv[2], nullptr, 10) : 1000UL;
    std::signal(SIGTERM, [](int) { g_stop = 1; });

    const ara::exec::ExecutionClient client;
    // The first report waits for Execution Management to be found; retry while it is not (on
    // a machine that starts hundreds of processes at once that may take a while). emd ends an
    // application that never reports with its start-up time-out.
    bool reported = false;
    for (int attempt = 1; !reported && g_stop == 0; ++attempt) {
        if (attempt == 100) {
            std::fprintf(
                stderr, "%s: Execution Management has not accepted kRunning yet, still trying\n", name.c_str());
        }
        reported = client.ReportExecutionState(ara::exec::ExecutionState::kRunning).HasValue();
        if (!reported) {
            usleep(200000U);
        }
    }
    if (!reported) {
        return 0;  // stopped before Execution Management answered
    }
    std::printf("%s (pid %d): running\n", name.c_str(), static_cast<int>(getpid()));
    std::fflush(stdout);
    for (unsigned long tick = 1U; g_stop == 0; ++tick) {
        usleep(static_cast<useconds_t>(interval * 1000U));
        if (g_stop == 0) {
            std::printf("%s: tick %lu\n", name.c_str(), tick);
            std::fflush(stdout);
        }
    }
    const bool terminating = client.ReportExecutionState(ara::exec::ExecutionState::kTerminating).HasValue();
    std::printf("%s: SIGTERM, kTerminating %s, exiting\n", name.c_str(), terminating ? "reported" : "not reported");
    return 0;
}
