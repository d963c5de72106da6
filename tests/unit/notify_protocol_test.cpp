// The notify protocol in emd: the datagram parser, the trace of a sender through a made-up
// /proc, the socket with real datagrams (systemd-notify's READY and BARRIER among them), and
// the variables the launcher gives a process.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <algorithm>
#include <fstream>

#include "ara_test/child_process.h"
#include "ara_test/temp_dir.h"
#include "launcher.h"
#include "notify_socket.h"

namespace {

using namespace tarn::em::daemon;  // NOLINT(google-build-using-namespace)
using namespace std::chrono_literals;

/// "ready stopping watchdog trigger status=.. extend=..", "refused"; " !" when a field was left out.
std::string Render(std::string_view text) {
    std::string problem;
    const auto m = ParseNotify(text, &problem);
    if (!m) {
        return "refused";
    }
    return std::string(m->ready ? "ready " : "") + (m->stopping ? "stopping " : "") + (m->watchdog ? "watchdog " : "") +
           (m->watchdogTrigger ? "trigger " : "") + (m->status ? "status=" + *m->status + " " : "") +
           (m->extendTimeout ? "extend=" + std::to_string(m->extendTimeout->count()) : "") +
           (problem.empty() ? "" : "!");
}

TEST(NotifyProtocolTest, ParsesDatagrams) {
    const std::pair<std::string, std::string> cases[] = {
        {"READY=1\nSTATUS=up and running", "ready status=up and running "},
        {"STOPPING=1\nWATCHDOG=1\n", "stopping watchdog "},
        {"WATCHDOG=trigger\nSTATUS=", "trigger status= "},
        {"READY=0\nBARRIER=1\nX_1=y", ""},  // valid assignments, none acted on
        {"no assignment\nREADY=1", "ready "},
        {"EXTEND_TIMEOUT_USEC=9223372036854775807", "extend=9223372036854775807"},
        {"EXTEND_TIMEOUT_USEC=9223372036854775808\nREADY=1", "ready !"},
        {"EXTEND_TIMEOUT_USEC=99999999999999999999", "!"},
        {"EXTEND_TIMEOUT_USEC=-1", "!"},
        {"EXTEND_TIMEOUT_USEC=5s", "!"},
        {std::string("READY=1\0", 8), "refused"},
        {"\n\n", "refused"},
        {"READY", "refused"},
        {"=1", "refused"},
        {"1READY=1", "refused"},
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(Render(text), expected) << ::testing::PrintToString(text);
    }
}

TEST(NotifyProtocolTest, TracesSenderToSupervisedAncestor) {
    const ara_test::TempDir proc;
    const std::pair<pid_t, std::string> stats[] = {{100, "(sh) S 1"},
                                                   {200, "(a) b) S 100"},
                                                   {300, "(x y) R 200"},
                                                   {400, "(lone) S 1"},
                                                   {500, "(loop) S 501"},
                                                   {501, "(loop) S 500"},
                                                   {600, "(cut) S"},
                                                   {601, "(bad) S 12x"}};
    for (const auto& [pid, stat] : stats) {
        std::filesystem::create_directory(proc / std::to_string(pid));
        proc.Write(std::to_string(pid) + "/stat", std::to_string(pid) + " " + stat + " 0 0 0\n");
    }
    const auto supervised = [](pid_t pid) { return pid == 100; };
    const std::pair<pid_t, pid_t> cases[] = {
        {100, 100}, {200, 100}, {300, 100}, {400, -1}, {500, -1}, {600, -1}, {601, -1}, {700, -1}, {1, -1}, {0, -1}};
    for (const auto& [sender, expected] : cases) {
        EXPECT_EQ(TraceToSupervised(sender, supervised, proc.Path()).value_or(-1), expected) << sender;
    }
}

/// Sends `text` to `address` as a datagram.
bool Send(const std::string& address, const std::string& text) {
    sockaddr_un to{};
    to.sun_family = AF_UNIX;
    std::copy(address.begin() + 1, address.end(), to.sun_path + 1);
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address.size());
    const bool sent = sendto(fd, text.data(), text.size(), 0, reinterpret_cast<sockaddr*>(&to), length) >= 0;
    close(fd);
    return sent;
}

TEST(NotifyProtocolTest, SocketTakesDatagramsUpToTheLimitAndAnswersBarriers) {
    NotifySocket socket;
    std::string error;
    ASSERT_TRUE(socket.Open(error)) << error;
    EXPECT_EQ(socket.Address(), "@ara-emd/notify/" + std::to_string(getpid()));
    std::vector<std::string> got;
    const auto take = [&](pid_t pid, const NotifyMessage& m) {
        got.push_back(std::to_string(pid) + (m.ready ? " ready" : "") + (m.status ? " " + *m.status : ""));
    };
    const std::string status = "READY=1\nSTATUS=";
    ASSERT_TRUE(Send(socket.Address(), status + std::string(MAX_NOTIFY_DATAGRAM - status.size(), 'x')));
    ASSERT_TRUE(Send(socket.Address(), status + std::string(MAX_NOTIFY_DATAGRAM - status.size() + 1U, 'y')));
    ASSERT_TRUE(Send(socket.Address(), "STATUS=last"));
    socket.Receive(take);
    EXPECT_EQ(got,
              (std::vector<std::string>{
                  std::to_string(getpid()) + " ready " + std::string(MAX_NOTIFY_DATAGRAM - status.size(), 'x'),
                  std::to_string(getpid()) + " last"}));

    // systemd-notify sends READY with its parent's pid, then BARRIER=1 with a pipe it waits on.
    if (access("/usr/bin/systemd-notify", X_OK) != 0) {
        GTEST_SKIP() << "systemd-notify (Debian package systemd) is not installed";
    }
    got.clear();
    ara_test::ChildProcess notify({"/usr/bin/systemd-notify", "--ready", "--status=up"},
                                  {"NOTIFY_SOCKET=" + socket.Address()});
    while (got.size() < 2U) {
        pollfd input{socket.Descriptor(), POLLIN, 0};
        ASSERT_EQ(poll(&input, 1, 30000), 1);
        socket.Receive(take);
    }
    EXPECT_EQ(got, (std::vector<std::string>{std::to_string(getpid()) + " ready up", std::to_string(notify.Pid())}));
    EXPECT_EQ(notify.Wait(), 0);  // it fails when its barrier's pipe was not closed
}

TEST(NotifyProtocolTest, LauncherGivesNotifyVariables) {
    setenv("NOTIFY_SOCKET", "@emd-own-manager", 1);  // never passed on
    setenv("WATCHDOG_PID", "1", 1);
    const ara_test::TempDir dir;
    struct Case {
        Readiness readiness;
        std::chrono::milliseconds watchdog;
        std::vector<std::string> environment;
        std::string expected;  // PID: the child's own
    } const cases[] = {
        {Readiness::kReport, 0ms, {}, ""},
        {Readiness::kNotify, 0ms, {}, "NOTIFY_SOCKET=@n "},
        {Readiness::kReport, 1500ms, {}, "NOTIFY_SOCKET=@n WATCHDOG_PID=PID WATCHDOG_USEC=1500000 "},
        {Readiness::kNotify, 0ms, {"NOTIFY_SOCKET=@own"}, "NOTIFY_SOCKET=@own "},
        {Readiness::kSpawn, 20ms, {"WATCHDOG_PID=7"}, "NOTIFY_SOCKET=@n WATCHDOG_PID=7 WATCHDOG_USEC=20000 "},
    };
    PosixLauncher launcher("@n");
    for (const Case& c : cases) {
        ProcessConfig config;
        config.executable = "/bin/sh";
        config.arguments = {"-c", "env | grep -E '^(NOTIFY_SOCKET|WATCHDOG_)' | sort | tr '\\n' ' ' > env.txt"};
        config.workingDirectory = dir.Path();
        config.readiness = c.readiness;
        config.watchdog = c.watchdog;
        config.environment = c.environment;
        const SpawnResult spawned = launcher.Spawn(config);
        int status = 0;
        ASSERT_EQ(waitpid(spawned.pid, &status, 0), spawned.pid) << spawned.error;
        std::string text;
        std::getline(std::ifstream(dir / "env.txt"), text);
        const auto at = c.expected.find("=PID");
        EXPECT_EQ(text,
                  at == std::string::npos ? c.expected
                                          : std::string(c.expected).replace(at + 1U, 3U, std::to_string(spawned.pid)));
    }
    unsetenv("NOTIFY_SOCKET");
    unsetenv("WATCHDOG_PID");
}

}  // namespace
