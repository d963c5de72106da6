// SPDX-License-Identifier: Apache-2.0
// A process that constructs every client and ends without making a call: the static endpoints,
// the transport and the extension library must go down cleanly at exit. The sanitizer builds
// turn a fault there into a failing exit code, which fails this test.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "ara/exec/execution_client.h"
#include "ara/exec/recovery_action_client.h"
#include "ara/exec/state_client.h"
#include "ara_test/em_client_case.h"

TEST(ClientsExitTest, EveryClientConstructedAndNoCallMade) {
    const std::string tag = ara_test::OwnTag("clients-exit");
    setenv("KELP_DDS_CONFIG", tag.c_str(), 1);
    const ara::exec::ExecutionClient execution;
    const ara::exec::StateClient state;
    const ara::exec::RecoveryActionClient recovery("phm");
    EXPECT_FALSE(ara::exec::CommunicationProcessing()) << "no server runs on this tag";
}
