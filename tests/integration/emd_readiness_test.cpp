// SPDX-License-Identifier: Apache-2.0
// emd with a process that tells it is ready through the notify protocol (NOTIFY_SOCKET), while
// a stranger's datagram is ignored and the notify variables emd itself was given never reach
// the process. Each case runs in a copy of this program with a discovery tag of its own.
#include <gtest/gtest.h>
#include <unistd.h>

#include "ara_test/emd_case.h"

namespace {

struct Case {
    const char* skipUnless;  ///< a command that fails where the case cannot run
    std::string executable;
    std::string arguments;  ///< JSON list
};

class EmdReadinessTest : public ::testing::TestWithParam<Case> {};

TEST_P(EmdReadinessTest, NotifiedReadinessCompletesTheTransition) {
    if (std::system(GetParam().skipUnless) != 0) {
        GTEST_SKIP() << "cannot run here: " << GetParam().skipUnless;
    }
    if (!ara_test::InCopy()) {
        return;
    }
    setenv("NOTIFY_SOCKET", "@not-emd", 1);  // what a manager of emd's would give: not passed on
    setenv("WATCHDOG_PID", "1", 1);
    const ara_test::TempDir dir;
    const std::string manifest = dir.Write(
        "m.json",
        R"({"functionGroups": {"MachineFG": {"states": ["Running"], "initialState": "Running"}}, "processes": {"p": {
        "executable": ")" +
            GetParam().executable + R"(", "arguments": )" + GetParam().arguments +
            R"(, "functionGroup": "MachineFG", "states": ["Running"], "readiness": "notify", "startupTimeoutMs": 60000}}})");
    ara_test::Emd emd(manifest, true);
    EXPECT_EQ(ara_test::Code(emd.state_.GetInitialMachineStateTransitionResult()), "ok");  // p is ready

    ara_test::ChildProcess stranger({"/usr/bin/systemd-notify", "--ready"},
                                    {"NOTIFY_SOCKET=@ara-emd/notify/" + std::to_string(emd.Process().Pid())});
    EXPECT_EQ(stranger.Wait(), 0);  // its barrier was answered
    EXPECT_TRUE(emd.Process().WaitForText(
        "[Notify][Datagram from a process emd did not start, ignored][pid=" + std::to_string(getpid()) + "]"));
}

INSTANTIATE_TEST_SUITE_P(
    Senders,
    EmdReadinessTest,
    ::testing::Values(
        // systemd-notify, from a subshell: READY=1 comes with the subshell's pid.
        Case{"test -x /usr/bin/systemd-notify",
             "/bin/sh",
             R"(["-c", "test -z \"$WATCHDOG_PID\" && (systemd-notify --ready --status=up; true); exec sleep 600"])"},
        // A daemon of the distribution. It needs root (it drops to its own user); in a mount
        // namespace of its own, its configuration names no time server, so it neither reaches
        // the network nor sets the clock.
        Case{
            "test -x /usr/bin/systemd-notify && test $(id -u) = 0 && test -x /lib/systemd/systemd-timesyncd && id "
            "systemd-timesync >/dev/null && "
            "unshare --mount true",
            "/usr/bin/unshare",
            R"(["--mount", "--propagation", "private", "/bin/sh", "-c", "printf '[Time]\\nNTP=\\nFallbackNTP=\\n' >)"
            R"( /tmp/timesyncd.$$ && mount --bind /tmp/timesyncd.$$ /etc/systemd/timesyncd.conf && rm /tmp/timesyncd.$$)"
            R"( && exec /lib/systemd/systemd-timesyncd"])"}));

}  // namespace
