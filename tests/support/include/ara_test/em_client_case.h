// SPDX-License-Identifier: Apache-2.0
// What the client tests against the scripted server (em_test_server) share: each case runs in a
// copy of the test program, since a client's endpoint is process-wide; the server is started with
// scripted methods; the client's records and the calls' results are compared as lines.
#ifndef ARA_TEST_EM_CLIENT_CASE_H
#define ARA_TEST_EM_CLIENT_CASE_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ara/quill/common/log/log.h"
#include "ara_test/child_process.h"

namespace ara_test {

using Lines = std::vector<std::string>;

/// In the test process: runs the case `name` of a parameterized test (or the test "Suite.Name")
/// in a copy of this program, with `env` added, expects it to pass and returns true. In the copy:
/// false, the caller runs it.
inline bool RanInCopy(const std::string& name,
                      Lines env = {},
                      std::chrono::seconds timeout = std::chrono::seconds(120)) {
    if (std::getenv("ARA_TEST_CASE_COPY") != nullptr) {
        return false;
    }
    env.push_back("ARA_TEST_CASE_COPY=1");
    ChildProcess copy(
        {"/proc/self/exe", std::string("--gtest_filter=") + (name.find('.') == std::string::npos ? "*/" : "") + name},
        env);
    EXPECT_TRUE(copy.WaitForLine("[  PASSED  ]", timeout) && copy.Wait() == 0)
        << ::testing::PrintToString(copy.Lines());
    return true;
}

/// The live (not zombie) children of `parent`, by their first argument.
inline std::map<std::string, pid_t> Children(pid_t parent) {
    std::map<std::string, pid_t> alive;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        std::ifstream stat(entry.path() / "stat");
        std::string pid, comm, state, ppid, arg0, arg1;
        stat >> pid >> comm >> state >> ppid;
        std::ifstream cmdline(entry.path() / "cmdline");
        if (ppid == std::to_string(parent) && state != "Z" && std::getline(cmdline, arg0, '\0') &&
            std::getline(cmdline, arg1, '\0')) {
            alive[arg1] = static_cast<pid_t>(std::stoi(pid));
        }
    }
    return alive;
}

/// Polls `condition` every 20 ms until it holds or `timeout` has passed; its last answer.
template <typename Condition>
bool Eventually(Condition condition, std::chrono::milliseconds timeout = std::chrono::seconds(30)) {
    for (const auto end = std::chrono::steady_clock::now() + timeout; !condition();) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

/// A port base that no other test running on this machine holds: slot k of 20 is the base
/// 10000 + 1100 k (a domain's ports for indices 0-9 lie within 1030 of the base, for the
/// domains 0 to 4), taken by an exclusive lock on /tmp/ara_exec_test_ports.<k> that this
/// process holds until it ends.
inline int OwnPortBase() {
    static const int base = [] {
        for (int slot = 0; slot < 20; ++slot) {
            const std::string path = "/tmp/ara_exec_test_ports." + std::to_string(slot);
            const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
            if (fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) == 0) {
                return 10000 + 1100 * slot;  // the descriptor stays open: it is the lock
            }
            if (fd >= 0) {
                close(fd);
            }
        }
        return 10000 + 1100 * static_cast<int>(getpid() % 20);
    }();
    return base;
}

/// A discovery configuration that keeps this process, and those it starts with it, apart from
/// every other test: a Tag of its own, and ports of its own. Serving processes take the ports
/// of participant indices 0-9 whatever their Tag, so a Tag alone would share them.
inline std::string OwnTag(const std::string& prefix) {
    return "<Discovery><Tag>" + prefix + "-" + std::to_string(getpid()) + "</Tag><Ports><Base>" +
           std::to_string(OwnPortBase()) + "</Base></Ports></Discovery>";
}

#ifdef EM_TEST_SERVER
/// The scripted server with method behaviours `methods` ("ID=BEHAVIOUR"), once it is ready.
inline std::unique_ptr<ChildProcess> StartEmServer(const Lines& methods, const Lines& env = {}) {
    Lines argv{EM_TEST_SERVER};
    for (const std::string& method : methods) {
        argv.insert(argv.end(), {"--method", method});
    }
    auto server = std::make_unique<ChildProcess>(argv, env);
    EXPECT_TRUE(server->WaitForLine("ready")) << "the test server did not start";
    return server;
}
#endif

/// "ok", or the error's domain name and value, as in "Exec 3".
template <typename R>
std::string Outcome(const R& result) {
    return result ? "ok" : result.Error().Domain().Name() + (" " + std::to_string(result.Error().Value()));
}

/// The records of the contexts EMCL and TEST and those whose text starts with `prefix`, as their
/// level's letter and text ("I [...]"); verbose ones only with `verbose`.
inline Lines Logged(const ara::quill::common::log::CaptureSink& capture, bool verbose, const char* prefix = "[EMCL") {
    Lines lines;
    for (const auto& r : capture.Records()) {
        if ((r.ctxId == "EMCL" || r.ctxId == "TEST" || r.text.rfind(prefix, 0) == 0) &&
            (verbose || r.level != ara::quill::common::log::LogLevel::kVerbose)) {
            lines.push_back(std::string(1, "-FEWIDV"[static_cast<int>(r.level)]) + " " + r.text);
        }
    }
    return lines;
}

}  // namespace ara_test

#endif
