// SPDX-License-Identifier: Apache-2.0
// Clients of every class constructed on several threads at once, with no server: each
// construction re-applies its class's endpoint settings while other threads construct clients
// of the same or another class, or run the one-time set-up that reads those settings.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "ara/exec/execution_client.h"
#include "ara/exec/recovery_action_client.h"
#include "ara/exec/state_client.h"
#include "ara/quill/common/log/log.h"
#include "ara_test/em_client_case.h"

TEST(ClientsConcurrentConstructionTest, EveryClassOnFourThreadsAtOnce) {
    setenv("KELP_DDS_CONFIG", ara_test::OwnTag("clients-concurrent").c_str(), 1);
    const ara::quill::common::log::CaptureSink capture;
    constexpr int THREADS = 4;
    std::atomic<int> starting{THREADS};
    std::vector<std::thread> threads;
    for (int t = 0; t < THREADS; ++t) {
        threads.emplace_back([&starting, t] {
            starting.fetch_sub(1);
            while (starting.load() > 0) {
                std::this_thread::yield();
            }
            for (int round = 0; round < 3; ++round) {
                switch ((t + round) % 3) {
                    case 0: {
                        const ara::exec::StateClient client;
                        break;
                    }
                    case 1: {
                        const ara::exec::ExecutionClient client;
                        break;
                    }
                    default: {
                        const ara::exec::RecoveryActionClient client("phm");
                        break;
                    }
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    // Each class ran its one-time set-up once, and it bound every method of the class.
    const auto texts = capture.Texts("EMCL");
    for (const std::string name : {"StateClient", "ExecutionClient", "RecoveryActionClient"}) {
        EXPECT_EQ(std::count(texts.begin(), texts.end(), "[" + name + "][Client method initialized successfully]"), 1)
            << name;
    }
}
