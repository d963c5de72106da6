// SPDX-License-Identifier: Apache-2.0
// The notify protocol in emd: the datagram parser, the trace of a sender through a made-up /proc,
// and the socket's size limit; the barrier and a process's variables are emd_readiness_test's.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <sstream>

#include "ara_test/temp_dir.h"
#include "notify_socket.h"

namespace {

using namespace tarn::em::daemon;  // NOLINT(google-build-using-namespace)

/// "ready stopping watchdog trigger status=.. extend=..", "refused"; "!" last when a field was left out.
std::string Render(std::string_view text) {
    std::string problem;
    const auto m = ParseNotify(text, &problem);
    return !m ? "refused"
              : std::string(m->ready ? "ready " : "") + (m->stopping ? "stopping " : "") +
                    (m->watchdog ? "watchdog " : "") + (m->watchdogTrigger ? "trigger " : "") +
                    (m->status ? "status=" + *m->status + " " : "") +
                    (m->extendTimeout ? "extend=" + std::to_string(m->extendTimeout->count()) : "") +
                    (problem.empty() ? "" : "!");
}

TEST(NotifyProtocolTest, ParsesDatagrams) {
    const std::pair<std::string, std::string> cases[] = {
        {"READY=1\nWATCHDOG=1\nSTATUS=up and running\nno assignment\nBARRIER=1",
         "ready watchdog status=up and running "},
        {"STOPPING=1\nWATCHDOG=trigger\nREADY=0\nSTATUS=\n", "stopping trigger status= "},
        {"EXTEND_TIMEOUT_USEC=9223372036854775807", "extend=9223372036854775807"},
        {"EXTEND_TIMEOUT_USEC=9223372036854775808\nREADY=1", "ready !"},
        {"EXTEND_TIMEOUT_USEC=99999999999999999999\nEXTEND_TIMEOUT_USEC=5s", "!"},  // each left out
        {std::string("READY=1\0", 8), "refused"},
        {"READY\n\n=1\n1READY=1\nREADY =1", "refused"},  // no line is an assignment
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(Render(text), expected) << ::testing::PrintToString(text);
    }
}

TEST(NotifyProtocolTest, TracesSenderToSupervisedAncestor) {
    const ara_test::TempDir proc;
    // The command name may hold spaces and ')'; 500 and 501 are each other's parent.
    std::istringstream stats(
        "100 (sh) S 1|200 (a) b) S 100|300 (x y) R 200|400 (l) S 1|500 (o) S 501|501 (o) S 500|"
        "600 (cut) S|601 (b) S 12x");
    for (std::string stat; std::getline(stats, stat, '|');) {
        const std::string pid = stat.substr(0U, 3U);
        std::filesystem::create_directory(proc / pid);
        proc.Write(pid + "/stat", stat + " 0 0 0\n");
    }
    const auto supervised = [](pid_t pid) { return pid == 100; };
    const std::pair<pid_t, pid_t> cases[] = {
        {100, 100}, {200, 100}, {300, 100}, {400, -1}, {500, -1}, {600, -1}, {601, -1}, {700, -1}, {1, -1}, {0, -1}};
    for (const auto& [sender, expected] : cases) {
        EXPECT_EQ(TraceToSupervised(sender, supervised, proc.Path()).value_or(-1), expected) << sender;
    }
}

TEST(NotifyProtocolTest, SocketTakesDatagramsUpToTheLimit) {
    NotifySocket socket;
    std::string error;
    ASSERT_TRUE(socket.Open(error)) << error;
    sockaddr_un to{AF_UNIX, {}};
    std::copy(socket.Address().begin() + 1, socket.Address().end(), to.sun_path + 1);  // abstract: sun_path[0] == 0
    const int out = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const auto Send = [&](const std::string& text) {
        const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + socket.Address().size());
        return sendto(out, text.data(), text.size(), 0, reinterpret_cast<sockaddr*>(&to), length) >= 0;
    };
    const std::string fits(MAX_NOTIFY_DATAGRAM - 7U, 'x');  // "STATUS=" and this: the longest taken
    ASSERT_TRUE(Send("STATUS=" + fits));
    ASSERT_TRUE(Send("STATUS=" + fits + "y"));
    ASSERT_TRUE(Send("STATUS=last"));
    std::vector<std::string> got;
    socket.Receive(
        [&](pid_t pid, const NotifyMessage& m) { got.push_back(std::to_string(pid) + m.status.value_or("")); });
    EXPECT_EQ(got, (std::vector<std::string>{std::to_string(getpid()) + fits, std::to_string(getpid()) + "last"}));
    close(out);
}

}  // namespace
