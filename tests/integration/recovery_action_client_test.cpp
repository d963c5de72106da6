// SPDX-License-Identifier: Apache-2.0
// The recovery action client against the scripted server over Cyclone DDS; each case runs in a copy of this program.
#include "ara/exec/recovery_action_client.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

#include "ara/quill/common/log/log.h"
#include "ara_test/em_client_case.h"

namespace {

using ara_test::Lines;
const std::string RAC = "[RecoveryActionClient][", INIT = "I " + RAC + "Client method initialized successfully]";
const std::string BEGIN = "I " + RAC + "Begin restarting process]",
                  SENT = "I " + RAC + "Call method is returned on rpc client]";
const std::string LIST = "I " + RAC + "Get process states info]",
                  LIST_ERROR = "E " + RAC + "Failed to get process states]";
const std::string LIST_CAUSE = "E " + RAC + "Failed to get process states][cm_or_em_error=", EXEC1 = "I result Exec 1";
const std::string NAME = "V " + RAC + "Get process name based on pid][pid=4242]";
const std::string NAME_SENT = "V " + RAC + "Get process name, call method is returned on rpc client]";
const std::string NOT_USABLE = "E " + RAC + "Not usable]", UNCHANGED = " list=1:unchanged", NO_NAME = " name=-";
const std::string CALL_3 = "call 3 app true ", CALL_4 = "call 4 phm ", CALL_5 = "call 5 4242 ";

/// calls: R/r ProcessRestart(app, true/false), S GetProcessStates, N GetProcessName(4242), T 4x50 threads.
struct Case {
    const char *name, *calls;
    Lines server;    ///< the server's method behaviours; none: the transport cannot start, no server
    Lines logged;    ///< every record of the contexts EMCL and TEST, in order (with T: verbose ones left out)
    Lines received;  ///< the server's "call" lines: the arguments in order, as it decoded them
};
// clang-format off
const Case CASES[] = {
    {"Success", "rSN", {"4=list:3", "5=value:app"},
     {INIT, BEGIN, SENT, "D " + RAC + "Process restart successfully]", "I result ok", LIST, SENT,
      "I " + RAC + "Get process states successfully]", "I result ok list=3:app", NAME, NAME_SENT,
      "I result ok name=app"},
     {"call 3 app false ", CALL_4, CALL_5}},
    // Only Com code 2 is busy: code 2 in the Exec domain is a general error.
    {"ExecErrors", "RSN", {"3=error:exec:6", "4=error:exec:2", "5=error:exec:2"},
     {INIT, BEGIN, SENT, "D " + RAC + "Failed to restart process due to other errors]", "I result Exec 6", LIST, SENT,
      LIST_CAUSE + "Invalid argument was passed]", LIST_ERROR, EXEC1 + UNCHANGED, NAME, NAME_SENT,
      "E " + RAC + "Get process name failed][cm_or_em_error=Invalid argument was passed]",
      "E " + RAC + "Get process name failed, can't find process][process_pid=4242]", EXEC1 + NO_NAME},
     {CALL_3, CALL_4, CALL_5}},
    {"ComErrors", "RS", {"3=error:com:2", "4=error:com:2"},
     {INIT, BEGIN, SENT, "D " + RAC + "Failed to restart process due to communication error]", "I result Exec 3", LIST,
      SENT, LIST_CAUSE + "kMaxSamplesExceeded]", LIST_ERROR, "I result Exec 7" + UNCHANGED},
     {CALL_3, CALL_4}},
    // A list cut short does not decode (Com code 3, not busy). Waits out the 1900 ms reply wait of the name.
    {"UndecodableAndNoReply", "SN", {"4=garbage", "5=none"},
     {INIT, LIST, SENT, LIST_CAUSE + "kNetworkBindingFailure]", LIST_ERROR, EXEC1 + UNCHANGED, NAME, NAME_SENT,
      "E " + RAC + "Failed to get process name][error_data=Some unspecified error occurred]", EXEC1 + NO_NAME},
     {"call 4 garbage", CALL_5}},
    {"TransportCannotStart", "RSN", {},
     {"E " + RAC + "Client failed to be initialized]", NOT_USABLE, EXEC1, NOT_USABLE, EXEC1 + UNCHANGED, NOT_USABLE,
      EXEC1 + NO_NAME}, {}},
    {"ConcurrentNames", "NT", {"5=echo"}, {INIT, "I result ok name=4242", "I result 200 of 200 right"}, {}},
};
// clang-format on

class RecoveryActionClientTest : public ::testing::TestWithParam<Case> {};
TEST_P(RecoveryActionClientTest, LogLinesResultsAndCalls) {
    const Case& c = GetParam();
    if (ara_test::RanInCopy(c.name)) {
        return;
    }
    const std::string tag = ara_test::OwnTag("recovery");
    setenv("KELP_DDS_CONFIG", c.server.empty() ? "<NoSuchElement/>" : tag.c_str(), 1);  // Cyclone refuses to start
    const auto em = c.server.empty() ? nullptr : ara_test::StartEmServer(c.server);
    const ara::quill::common::log::CaptureSink capture;
    const ara::exec::RecoveryActionClient client("phm");
    std::atomic<int> right{0};
    std::vector<ara::exec::Process> list{{"unchanged", "", "", "", false}};  // S comes once a case
    const auto lookups = [&](int first) {
        for (int pid = first; pid < first + 50; ++pid) {
            right += client.GetProcessName(pid).ValueOr("-") == std::to_string(pid) ? 1 : 0;
        }
    };
    for (const char call : std::string(c.calls)) {
        std::string shown;
        // A call that found no service logs nothing in EMCL: again, as a health manager would.
        bool found = call == 'T';
        for (int attempt = 0; attempt < 400 && !found; ++attempt, usleep(found ? 0U : 50000U)) {
            const std::size_t before = capture.Texts("EMCL").size();
            if (call == 'N') {
                const auto name = client.GetProcessName(4242);
                shown = ara_test::Outcome(name) + " name=" + name.ValueOr("-");
            } else if (call == 'S') {
                shown = ara_test::Outcome(client.GetProcessStates(list));
                shown += " list=" + std::to_string(list.size()) + ":" + list[0].processName;
            } else {  // a missing answer: the copy's 120 s limit
                shown = ara_test::Outcome(client.ProcessRestart("app", call == 'R').GetResult());
            }
            found = capture.Texts("EMCL").size() != before;
        }
        if (call == 'T') {  // after an N: the service is known
            std::thread a(lookups, 100000), b(lookups, 200000), d(lookups, 300000), e(lookups, 400000);
            a.join(), b.join(), d.join(), e.join();
            shown = std::to_string(right.load()) + " of 200 right";
        }
        ara::quill::common::log::Log::GetLog("TEST")->info() << "result " << shown;
    }
    // The concurrent lookups' verbose lines come in no fixed order.
    EXPECT_EQ(ara_test::Logged(capture, c.calls[1] != 'T'), c.logged);
    for (const std::string& line : c.received) {
        EXPECT_TRUE(em->WaitForLine("call") && em->Lines().back() == line) << ::testing::PrintToString(em->Lines());
    }
}

INSTANTIATE_TEST_SUITE_P(Cases, RecoveryActionClientTest, ::testing::ValuesIn(CASES), [](const auto& p) {
    return p.param.name;
});

}  // namespace
