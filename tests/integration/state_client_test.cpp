// SPDX-License-Identifier: Apache-2.0
// The state client against the scripted server over Cyclone DDS: how replies, transport errors and a
// lost or missing service reach the caller. Its state is process-wide, so each case runs in a copy of this program.
#include "ara/exec/state_client.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "ara/exec/function_group.h"
#include "ara/exec/function_group_state.h"
#include "ara/quill/common/log/log.h"
#include "ara_test/em_client_case.h"

namespace {

using ara_test::Lines;
const std::string SC = "[StateClient][";
const std::string INIT = "I " + SC + "Client method initialized successfully]";
const std::string SET =
    "I " + SC + "Begin setting function group state][function_group_name=MachineFG, target_state=Running]";
const std::string FIRST = "I " + SC + "Begin getting machine state initial transition result]";
const std::string GET = "I " + SC + "Begin getting function group state][function_group_name=MachineFG]";
const std::string SENT = "I " + SC + "Call method is returned on rpc client]",
                  DONE = "D " + SC + "Set state or get result successfully]";
const std::string OTHER = "D " + SC + "Failed to set state or get result due to other errors]";
const std::string COM = "D " + SC + "Failed to set state or get result due to communication error]";
const std::string GET_COM = "E " + SC + "Failed to get state due to communication error]",
                  NOT_USABLE = "E " + SC + "Not usable]";
const std::string EXEC3 = "I result Exec 3", GET_EXEC3 = EXEC3 + " state=unchanged";
const std::string CALL_1 = "call 1 ", CALL_2 = "call 2 MachineFG Running ", CALL_6 = "call 6 MachineFG ";

struct Case {
    const char *name, *calls;  ///< calls: S SetState(MachineFG, Running), I initial result, G GetState(MachineFG)
    Lines server;              ///< the server's method behaviours; none: the transport cannot start, no server
    Lines logged;              ///< every record of the contexts EMCL and TEST, in order
    Lines received;            ///< the server's "call" lines: the arguments in order, as it decoded them
};
// clang-format off
const Case CASES[] = {
    {"Success", "GIS", {"6=value:Startup"},
     {INIT, GET, "D " + SC + "Get state successfully]", "I result ok state=Startup", FIRST, SENT, DONE, "I result ok",
      SET, SENT, DONE, "I result ok"}, {CALL_6, CALL_1, CALL_2}},
    {"ExecErrorsPassUnchanged", "ISG", {"1=error:exec:6", "2=error:exec:5", "6=error:exec:7"},
     {INIT, FIRST, SENT, OTHER, "I result Exec 6", SET, SENT, OTHER, "I result Exec 5", GET,
      "E " + SC + "Failed to get state due to other errors]", "I result Exec 7 state=unchanged"},
     {CALL_1, CALL_2, CALL_6}},
    {"ComErrorsAreCommunicationErrors", "ISG", {"1=error:com:2", "2=error:com:1", "6=error:com:2"},
     {INIT, FIRST, SENT, COM, EXEC3, SET, SENT, COM, EXEC3, GET, GET_COM, GET_EXEC3}, {CALL_1, CALL_2, CALL_6}},
    // A foreign domain is not registered for the methods: the proxy turns it into Com code 3.
    {"ForeignDomainUndecodableAndDoubleReply", "SGI", {"2=error:4711:5", "6=garbage", "1=twice"},
     {INIT, SET, SENT, COM, EXEC3, GET, GET_COM, GET_EXEC3, FIRST, SENT, DONE, "I result ok"},
     {CALL_2, "call 6 garbage", "call 1 twice"}},
    {"ServerGoneMidCall", "SSG", {"2=exit"},
     {INIT, SET, SENT, OTHER, EXEC3, NOT_USABLE, EXEC3, NOT_USABLE, GET_EXEC3}, {CALL_2}},
    {"TransportCannotStart", "SIG", {},
     {"E " + SC + "Client failed to be initialized]", NOT_USABLE, EXEC3, NOT_USABLE, EXEC3, NOT_USABLE, GET_EXEC3}, {}},
    // Waits out the 1900 ms reply wait of GetState.
    {"GetStateNoReply", "G", {"6=none"},
     {INIT, GET, "E " + SC + "Waiting for method time out while getting state]", GET_EXEC3}, {CALL_6}},
};
// clang-format on

class StateClientTest : public ::testing::TestWithParam<Case> {};
TEST_P(StateClientTest, LogLinesResultsAndCalls) {
    const Case& c = GetParam();
    if (ara_test::RanInCopy(c.name)) {
        return;
    }
    const std::string tag = ara_test::OwnTag("state");
    setenv("KELP_DDS_CONFIG", c.server.empty() ? "<NoSuchElement/>" : tag.c_str(), 1);  // Cyclone refuses to start
    const auto em = c.server.empty() ? nullptr : ara_test::StartEmServer(c.server);
    const ara::quill::common::log::CaptureSink capture;
    const ara::exec::StateClient client;
    // A loaded machine may need more than the first wait; a miss logs nothing in EMCL.
    (void)(em && ara_test::Eventually([] { return ara::exec::CommunicationProcessing(); }));
    const ara::exec::FunctionGroup group(ara::exec::FunctionGroup::Preconstruct("MachineFG").Value());
    const ara::exec::FunctionGroupState running(ara::exec::FunctionGroupState::Preconstruct(group, "Running").Value());
    for (const char call : std::string(c.calls)) {
        ara::core::String state = "unchanged";
        auto future = call == 'S'   ? client.SetState(running)
                      : call == 'I' ? client.GetInitialMachineStateTransitionResult()
                                    : client.GetState("MachineFG", state);
        const bool ready = future.wait_for(std::chrono::seconds(30)) == ara::core::future_status::kReady;
        ara::quill::common::log::Log::GetLog("TEST")->info()
            << "result " << (ready ? ara_test::Outcome(future.GetResult()) : "none")
            << (call == 'G' ? " state=" + state : "");
    }
    EXPECT_EQ(ara_test::Logged(capture, true), c.logged);
    for (const std::string& line : c.received) {
        EXPECT_TRUE(em->WaitForLine("call") && em->Lines().back() == line) << ::testing::PrintToString(em->Lines());
    }
}

INSTANTIATE_TEST_SUITE_P(Cases, StateClientTest, ::testing::ValuesIn(CASES), [](const auto& p) {
    return p.param.name;
});

}  // namespace
