// SPDX-License-Identifier: Apache-2.0
// emd supervising programs none of us wrote: shell scripts that speak the notify protocol
// through Debian's systemd-notify, and sleep. What started when is read from /proc; the
// dependency order, the watchdog and the escalation to a group's onFailure state are checked
// against it and against the public clients (a refused dependency cycle is in the manifest
// schema table, which runs emd --check). Each test runs in a fresh copy of this program.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <sstream>

#include "ara_test/emd_case.h"
#include "ara_test/temp_dir.h"

namespace {

using namespace std::chrono_literals;
using ara_test::Code;
using ara_test::Emd;
using ara_test::InCopy;
using ara_test::PidOf;

/// An executable shell script `name` in `dir`.
std::string Script(const ara_test::TempDir& dir, const std::string& name, const std::string& body) {
    const std::string path = dir.Write(name, "#!/bin/sh\n" + body + "\n");
    chmod(path.c_str(), 0755);
    return path;
}

/// When `pid` started, in clock ticks since boot.
long long StartTicks(pid_t pid) {
    return std::stoll("0" + ara_test::StatField(pid, 22));
}

/// The index of the first output line of `emd` that holds `text`, or -1.
long FirstLine(Emd& emd, const std::string& text) {
    const auto& lines = emd.Process().Lines();
    const auto found = std::find_if(
        lines.begin(), lines.end(), [&](const std::string& l) { return l.find(text) != std::string::npos; });
    return found == lines.end() ? -1L : static_cast<long>(found - lines.begin());
}

TEST(EmdSupervisionTest, StartsInDependencyOrderAndStopsInReverse) {
    if (!InCopy()) {
        return;
    }
    const ara_test::TempDir dir;
    // db is ready 0.5 s after its start; migrate, which needs db, runs 0.3 s; app needs both.
    const std::string db = Script(dir, "db.sh", "sleep 0.5\nsystemd-notify --ready --status=serving\nexec sleep 600");
    const std::string migrate = Script(dir, "migrate.sh", "sleep 0.3\nexit 0");
    const std::string manifest =
        dir.Write("manifest.json",
                  R"({"functionGroups": {"MachineFG": {"states": ["Running"], "initialState": "Running"}},
            "processes": {
              "app": {"executable": "/bin/sleep", "arguments": ["600"], "functionGroup": "MachineFG",
                      "states": ["Running"], "readiness": "spawn",
                      "dependsOn": {"db": "running", "migrate": "terminated"}},
              "migrate": {"executable": ")" +
                      migrate + R"(", "functionGroup": "MachineFG", "states": ["Running"],
                          "readiness": "spawn", "dependsOn": {"db": "running"}},
              "db": {"executable": ")" +
                      db + R"(", "functionGroup": "MachineFG", "states": ["Running"],
                     "readiness": "notify", "startupTimeoutMs": 20000}}})");
    Emd emd(manifest, true);
    EXPECT_EQ(Code(emd.state_.GetInitialMachineStateTransitionResult()), "ok");
    const pid_t dbPid = PidOf(emd, "db");
    const pid_t appPid = PidOf(emd, "app");
    ASSERT_GT(dbPid, 0);
    ASSERT_GT(appPid, 0);
    EXPECT_EQ(emd.Listed("migrate"), "Terminated");
    // app cannot have started before db was ready and migrate had run: 0.8 s after db at least.
    const long long ticksPerSecond = sysconf(_SC_CLK_TCK);
    EXPECT_GE(StartTicks(appPid) - StartTicks(dbPid), ticksPerSecond * 8 / 10);

    emd.Process().Kill(SIGTERM);
    EXPECT_EQ(emd.Process().Wait(), 0);
    (void)emd.Process().WaitForText("[emd][Stopped]", 5s);
    const long appStop = FirstLine(emd, "[Supervisor][Stopping][process=app");
    const long dbStop = FirstLine(emd, "[Supervisor][Stopping][process=db");
    ASSERT_GE(appStop, 0);
    EXPECT_GT(dbStop, appStop);
}

TEST(EmdSupervisionTest, MissedWatchdogRestartsThenTheStartLimitEscalatesMachineFG) {
    if (!InCopy()) {
        return;
    }
    const ara_test::TempDir dir;
    // Ready, then silent: every watchdog period of 300 ms is missed.
    const std::string mute = Script(dir, "mute.sh", "systemd-notify --ready\nexec sleep 600");
    const std::string manifest =
        dir.Write("manifest.json",
                  R"({"functionGroups": {"MachineFG": {"states": ["Running", "Degraded"], "initialState": "Running",
                                             "onFailure": "Degraded"}},
            "processes": {
              "mute": {"executable": ")" +
                      mute + R"(", "functionGroup": "MachineFG", "states": ["Running"],
                       "readiness": "notify", "watchdogMs": 300, "startupTimeoutMs": 20000,
                       "restart": {"maxRestarts": 1, "backoffMs": 100}},
              "fallback": {"executable": "/bin/sleep", "arguments": ["600"], "functionGroup": "MachineFG",
                           "states": ["Degraded"], "readiness": "spawn"}}})");
    Emd emd(manifest, true);
    EXPECT_EQ(Code(emd.state_.GetInitialMachineStateTransitionResult()), "ok");
    const pid_t first = PidOf(emd, "mute");
    ASSERT_GT(first, 0);
    std::ifstream environ("/proc/" + std::to_string(first) + "/environ");
    const std::string environment((std::istreambuf_iterator<char>(environ)), std::istreambuf_iterator<char>());
    EXPECT_NE(environment.find(std::string("WATCHDOG_USEC=300000") + '\0'), std::string::npos);
    EXPECT_NE(environment.find("WATCHDOG_PID=" + std::to_string(first) + '\0'), std::string::npos);

    ASSERT_TRUE(emd.Process().WaitForText("[Supervisor][Watchdog missed, sending SIGKILL][process=mute, pid=" +
                                          std::to_string(first)));
    ASSERT_TRUE(emd.Process().WaitForText("[Supervisor][Restart scheduled][process=mute"));
    ASSERT_TRUE(
        emd.Process().WaitForText("[Supervisor][Escalating to the onFailure state][function_group=MachineFG, "
                                  "process=mute, to=Degraded]"));
    EXPECT_TRUE(ara_test::Eventually([&] { return emd.GetState("MachineFG") == "Degraded"; }));
    EXPECT_GT(PidOf(emd, "fallback"), 0);
    EXPECT_EQ(emd.Listed("mute"), "Idle");  // withdrawn: it does not run in Degraded
    EXPECT_TRUE(ara_test::Gone(first));
}

}  // namespace
