// SPDX-License-Identifier: Apache-2.0
// emd under a service manager: the test plays the manager, binds the NOTIFY_SOCKET it gives emd
// and checks what arrives and when; an address emd cannot use leaves it serving, with one log
// line. Each case runs in a copy of this program with its own DDS tag.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <csignal>
#include <ctime>

#include "ara_test/emd_case.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// The manager's socket at `address` ("@" leads an abstract name).
class Manager {
public:
    explicit Manager(std::string address) : fd_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un sa{AF_UNIX, {}};
        const bool abstract = address[0] == '@';
        address[0] = abstract ? '\0' : address[0];
        address.copy(sa.sun_path, sizeof(sa.sun_path) - 1U);
        const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address.size() + !abstract);
        EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr*>(&sa), length), 0);
    }
    ~Manager() { close(fd_); }
    /// The next datagram; "" when none came within `timeout`.
    std::string Next(std::chrono::milliseconds timeout) {
        char data[4096];
        pollfd in{fd_, POLLIN, 0};
        const ssize_t got = poll(&in, 1, static_cast<int>(timeout.count())) > 0 ? recv(fd_, data, sizeof(data), 0) : 0;
        return std::string(data, static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    }

private:
    int fd_;
};

/// The UTC time stamp leading a log line ("2026-11-25T09:16:52.819143Z ..."), in microseconds; 0 without one.
long long LoggedAt(const std::string& line) {
    std::tm time{};
    const char* rest = strptime(line.c_str(), "%Y-%m-%dT%H:%M:%S.", &time);
    return rest == nullptr ? 0 : static_cast<long long>(timegm(&time)) * 1000000LL + std::atoll(rest);
}

class EmdServiceManagerTest : public ::testing::TestWithParam<std::string> {};

TEST_P(EmdServiceManagerTest, ReadyThenHalfPeriodPingsThenStoppingBeforeExit) {
    if (!ara_test::InCopy()) {
        return;
    }
    unsetenv("WATCHDOG_PID");
    const ara_test::TempDir dir;
    const std::string address = GetParam() == "path" ? dir / "notify" : "@ara-test-manager/" + std::to_string(getpid());
    Manager manager(address);
    const std::string manifest = ara_test::WriteManifest(  // slow takes 2 s to stop
        dir,
        ara_test::MachineGroup(),
        ara_test::Shell(
            "slow", "trap 'sleep 2; exit 0' TERM; while :; do sleep 0.1; done", R"(, "terminationTimeoutMs": 30000)"));
    ara_test::ChildProcess emd({"/bin/sh", "-c", "exec \"$0\" --manifest \"$1\" 2>&1", EMD, manifest},
                               {"NOTIFY_SOCKET=" + address, "WATCHDOG_USEC=1000000"});
    const std::string ready = manager.Next(60s);
    const auto arrived = std::chrono::system_clock::now().time_since_epoch() / 1us;
    EXPECT_EQ(ready.substr(0U, ready.find("\nSTATUS=")), "READY=1");
    // READY=1 came after the services were offered (emd's log line of it, by its time stamp).
    ASSERT_TRUE(emd.WaitForText("[emd][Services offered]"));
    const long long offered = LoggedAt(emd.Lines().back());
    EXPECT_TRUE(offered > 0 && offered <= arrived) << offered << " " << arrived;

    std::vector<long long> gaps;  // ms between pings (the first, from READY=1, is dropped)
    for (auto last = Clock::now(), until = last + 4500ms; Clock::now() < until;) {
        const std::string text = manager.Next(100ms);
        if (!text.empty()) {
            EXPECT_EQ(text, "WATCHDOG=1");
            gaps.push_back((Clock::now() - last) / 1ms);
            last = Clock::now();
        }
    }
    gaps.erase(gaps.begin());
    ASSERT_GE(gaps.size(), 4U);
    std::sort(gaps.begin(), gaps.end());
    EXPECT_GE(gaps[gaps.size() / 2U], 350);  // the median is half of WATCHDOG_USEC, not a quarter, not all
    EXPECT_LE(gaps[gaps.size() / 2U], 800);

    const pid_t slow = ara_test::Children(emd.Pid())["-c"];  // sh -c ...
    ASSERT_GT(slow, 0);
    kill(emd.Pid(), SIGTERM);
    std::string text;
    while ((text = manager.Next(30s)) == "WATCHDOG=1") {
    }
    EXPECT_EQ(text.substr(0U, text.find("\nSTATUS=")), "STOPPING=1");
    EXPECT_FALSE(ara_test::Gone(slow));  // told when the stop began, not once it is done
    EXPECT_EQ(emd.Wait(), 0);
    while (!(text = manager.Next(0ms)).empty()) {
        EXPECT_EQ(text, "WATCHDOG=1");  // STOPPING=1 once
    }
}

INSTANTIATE_TEST_SUITE_P(AddressForms, EmdServiceManagerTest, ::testing::Values("path", "abstract"));

class EmdBadNotifySocketTest : public ::testing::TestWithParam<std::pair<std::string, std::string>> {};

TEST_P(EmdBadNotifySocketTest, OneLogLineAndServes) {
    if (!ara_test::InCopy()) {
        return;
    }
    setenv("NOTIFY_SOCKET", GetParam().first.c_str(), 1);
    setenv("WATCHDOG_USEC", "100000", 1);  // a failing ping every 50 ms
    const ara_test::TempDir dir;
    ara_test::Emd emd(ara_test::WriteManifest(dir, ara_test::MachineGroup(), ""), true);
    EXPECT_EQ(emd.GetState("MachineFG"), "Running");
    EXPECT_FALSE(emd.Process().WaitForText("(what came meanwhile)", 1s));
    std::string told;
    for (const std::string& line : emd.Process().Lines()) {
        told += line.find("[emd][Service manager not told]") != std::string::npos ? line + "\n" : "";
    }
    EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), 1) << told;
    EXPECT_NE(told.find(GetParam().second), std::string::npos) << told;
}

INSTANTIATE_TEST_SUITE_P(
    Addresses,
    EmdBadNotifySocketTest,
    ::testing::Values(std::pair{"@ara-test-nobody-binds-this", "message=READY=1, reason=Connection refused"},
                      std::pair{"/tmp/" + std::string(120U, 'x'), "the path is longer than 107 bytes"},
                      std::pair{"relative/notify", "it is neither a path nor"}));

}  // namespace
