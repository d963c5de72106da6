// SPDX-License-Identifier: Apache-2.0
// The execution client against the scripted server over Cyclone DDS, with and without an
// extension library. Its state is process-wide, so each case runs in a copy of this program.
#include "ara/exec/execution_client.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "ara/quill/common/log/log.h"
#include "ara_test/em_client_case.h"

namespace {

using ara_test::Lines;
const std::string EC = "[ExecutionClient][";
const std::string ECI = "[ExecutionClientInner][";
const std::string INIT = "I " + EC + "Client method initialized successfully]";
const std::string LOADED = "D " + ECI + "Dlopen libexec_extension success]";
const std::string AFTER = "D " + ECI + "Get exec after report hook function symbol success]";
const std::string NO_LIBRARY = "W " + ECI +
                               "EM dlopen failed][dlopen_error=libexec_client_extension.so: cannot open "
                               "shared object file: No such file or directory]";
const Lines OK = {"I " + EC + "Report execution state successfully]", "I result ok"};
const std::string ERROR = "E " + EC + "Failed to report execution state][cm_or_em_error=";
const Lines FAILED = {"E " + EC + "Failed to report execution state]", "I result Exec 1"};

/// `lines`, then those of a report of `state` with the hooks named in `hooks`, then `outcome`, then `more`.
Lines Sent(Lines lines, char state, const std::string& hooks, const Lines& outcome, const Lines& more = FAILED) {
    lines.push_back("I " + EC + "Report execution state info][state=" + (state == '0' ? "kRunning]" : "kTerminating]"));
    for (const std::string which : {"before", "after"}) {
        const std::string fn = "I " + EC + "Client call function to set attribute " + which + " report ";
        const Lines hook = hooks.find(which) == std::string::npos
                               ? Lines{"D " + EC + "Hook function " + which + " report is not registered]"}
                               : Lines{fn + "start]", "I [TestHook][" + which + "][state=" + state + "]", fn + "end]"};
        lines.insert(lines.end(), hook.begin(), hook.end());
        lines.push_back(which == "before" ? "I " + EC + "Call method is returned on rpc client]" : outcome[0]);
    }
    lines.insert(lines.end(), outcome.begin() + 1, outcome.end());
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

struct Case {
    const char *name, *server, *hooks, *states;  ///< server: method 0's behaviour, "late": "ok" once a report missed it
    Lines logged;  ///< every record of the contexts EMCL, TEST and of ExecutionClientInner, in order
};
// clang-format off
const Case CASES[] = {
    {"Success", "ok", HOOKS_BOTH, "021",
     Sent(Sent({INIT, LOADED, "D " + ECI + "Get exec before report hook function symbol success]", AFTER},
               '0', "before after", OK, {"E " + EC + "Invalid input arguments]", FAILED[1]}),
          '1', "before after", OK, {})},
    {"ExecError", "error:exec:6", HOOKS_AFTER_ONLY, "0",
     Sent({INIT, LOADED, "W " + ECI + "Load symbol of exec before report hook function failed][error=" HOOKS_AFTER_ONLY
                         "/libexec_client_extension.so: undefined symbol: ExecBeforeReportState]", AFTER},
          '0', "after", {ERROR + "Transition to the requested Function Group state failed]"})},
    {"ComError", "error:com:2", HOOKS_NONE, "1", Sent({INIT, NO_LIBRARY}, '1', "", {ERROR + "kMaxSamplesExceeded]"})},
    {"ForeignDomain", "error:4711:5", HOOKS_NONE, "0",
     Sent({INIT, NO_LIBRARY}, '0', "", {ERROR + "kNetworkBindingFailure]"})},
    // Waits out the 1.4 s discovery wait: a report fails, logging nothing in EMCL; a later one succeeds.
    {"ServerStartsLater", "late", HOOKS_NONE, "0", Sent({INIT, NO_LIBRARY, FAILED[1]}, '0', "", OK, {})},
};
// clang-format on

class ExecutionClientTest : public ::testing::TestWithParam<Case> {};
TEST_P(ExecutionClientTest, LogLinesHooksResultsAndCalls) {
    const Case& c = GetParam();
    if (ara_test::RanInCopy(c.name, {"LD_LIBRARY_PATH=" + std::string(c.hooks)})) {
        return;
    }
    setenv("KELP_DDS_CONFIG", ara_test::OwnTag("exec").c_str(), 1);
    auto em = std::string(c.server) == "late" ? nullptr : ara_test::StartEmServer({"0=" + std::string(c.server)});
    const ara::quill::common::log::CaptureSink capture;
    const ara::exec::ExecutionClient exec;
    for (const char state : std::string(c.states)) {
        bool found = false;  // a report that found no service logs nothing in EMCL: again, as an application would
        for (int attempt = 0; attempt < 400 && !found; ++attempt) {
            const std::size_t before = capture.Texts("EMCL").size();
            const auto result = exec.ReportExecutionState(static_cast<ara::exec::ExecutionState>(state - '0'));
            found = capture.Texts("EMCL").size() != before;
            if (found || !em) {  // no server yet: the late case's first report, which finds no service
                ara::quill::common::log::Log::GetLog("TEST")->info() << "result " << ara_test::Outcome(result);
            }
            if (!em) {
                em = ara_test::StartEmServer({"0=ok"});
            }
            usleep(found ? 0U : 50000U);  // not found: a loaded machine may need more than the first wait
        }
    }
    EXPECT_EQ(ara_test::Logged(capture, true, ECI.c_str()), c.logged);
    for (const char state : std::string(c.states)) {  // valid states reach the server, with our id
        EXPECT_TRUE(state == '2' || (em->WaitForLine("call") &&
                                     em->Lines().back() == "call 0 " + std::to_string(getpid()) + " " + state + " "))
            << em->Lines().back();
    }
}

INSTANTIATE_TEST_SUITE_P(Cases, ExecutionClientTest, ::testing::ValuesIn(CASES), [](const auto& p) {
    return p.param.name;
});

}  // namespace
