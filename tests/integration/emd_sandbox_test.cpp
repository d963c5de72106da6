// SPDX-License-Identifier: Apache-2.0
// Who a supervised process runs as and what it may use, read back from /proc of the running
// process rather than from emd: user, groups, capabilities, no-new-privileges, resource
// limits, CPU affinity, scheduling, and the clean start (own session, default signal
// dispositions, no descriptor of emd's). Also the refusals at load of an executable or working
// directory that someone else could change. Needs root; each test runs in a copy of itself.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "ara_test/child_process.h"
#include "ara_test/emd_case.h"
#include "ara_test/temp_dir.h"

namespace {

using ara_test::Code;
using ara_test::Emd;
using ara_test::InCopy;
using ara_test::PidOf;
using ara_test::ProcLines;
using ara_test::StatField;

std::string Descriptors(pid_t pid) {
    std::set<int> fds;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd")) {
        fds.insert(std::stoi(entry.path().filename().string()));
    }
    std::string names;
    for (const int fd : fds) {
        names += (names.empty() ? "" : ",") + std::to_string(fd);
    }
    return names;
}

TEST(EmdSandboxTest, ProcessRunsWithExactlyItsIdentityCapabilitiesLimitsAndScheduling) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root to change users and capabilities";
    }
    if (!InCopy()) {
        return;
    }
    const ara_test::TempDir dir;
    const std::string manifest = dir.Write("manifest.json", R"({
      "functionGroups": {"MachineFG": {"states": ["Running"], "initialState": "Running"}},
      "processes": {
        "user": {"executable": "/bin/sleep", "arguments": ["600"], "functionGroup": "MachineFG",
                 "states": ["Running"], "readiness": "spawn",
                 "user": "nobody", "supplementaryGroups": ["adm", 20], "umask": "0027", "noNewPrivileges": true,
                 "capabilities": {"bounding": ["CAP_NET_BIND_SERVICE", "CAP_CHOWN"],
                                  "ambient": ["CAP_NET_BIND_SERVICE"]},
                 "limits": {"nofile": 64, "core": 0, "stack": "infinity"},
                 "cpuAffinity": [0], "scheduling": {"policy": "batch", "nice": 7}},
        "root": {"executable": "/bin/sleep", "arguments": ["600"], "functionGroup": "MachineFG",
                 "states": ["Running"], "readiness": "spawn",
                 "capabilities": {"bounding": ["CAP_NET_RAW"]}, "scheduling": {"policy": "fifo", "priority": 10}},
        "nocpu": {"executable": "/bin/sleep", "arguments": ["600"], "functionGroup": "MachineFG",
                  "states": ["Running"], "readiness": "spawn", "cpuAffinity": [1023]}}})");
    Emd emd(manifest, true);
    // nocpu's CPU does not exist: its launch fails with the reason, the transition with it.
    EXPECT_EQ(Code(emd.state_.GetInitialMachineStateTransitionResult()), "Exec 6");
    EXPECT_TRUE(emd.Process().WaitForText("cannot take its CPU affinity or scheduling for /bin/sleep"));
    const pid_t user = PidOf(emd, "user");
    const pid_t root = PidOf(emd, "root");
    ASSERT_GT(user, 0);
    ASSERT_GT(root, 0);

    // Capability masks: CAP_CHOWN is bit 0, CAP_NET_BIND_SERVICE bit 10, CAP_NET_RAW bit 13.
    EXPECT_EQ(ProcLines(user,
                        {"Uid:",
                         "Gid:",
                         "Groups:",
                         "Umask:",
                         "CapInh:",
                         "CapPrm:",
                         "CapEff:",
                         "CapBnd:",
                         "CapAmb:",
                         "NoNewPrivs:",
                         "Cpus_allowed_list:",
                         "SigIgn:",
                         "SigBlk:",
                         "Max open files",
                         "Max core file size",
                         "Max stack size"}),
              "Uid: 65534 65534 65534 65534\nGid: 65534 65534 65534 65534\nGroups: 4 20\nUmask: 0027\n"
              "CapInh: 0000000000000400\nCapPrm: 0000000000000400\nCapEff: 0000000000000400\n"
              "CapBnd: 0000000000000401\nCapAmb: 0000000000000400\nNoNewPrivs: 1\nCpus_allowed_list: 0\n"
              "SigIgn: 0000000000000000\nSigBlk: 0000000000000000\nMax open files 64 64 files\n"
              "Max core file size 0 0 bytes\nMax stack size unlimited unlimited bytes\n");
    EXPECT_EQ(ProcLines(root, {"Uid:", "CapInh:", "CapPrm:", "CapEff:", "CapBnd:", "CapAmb:", "NoNewPrivs:"}),
              "Uid: 0 0 0 0\nCapInh: 0000000000002000\nCapPrm: 0000000000002000\nCapEff: 0000000000002000\n"
              "CapBnd: 0000000000002000\nCapAmb: 0000000000000000\nNoNewPrivs: 0\n");
    // nice 7 and policy 3 (batch); a session of its own; only 0, 1 and 2 open. fifo (1) at 10.
    EXPECT_EQ(StatField(user, 19) + " " + StatField(user, 41) + " " + StatField(user, 6),
              "7 3 " + std::to_string(user));
    EXPECT_EQ(Descriptors(user), "0,1,2");
    EXPECT_EQ(StatField(root, 41) + " " + StatField(root, 40), "1 10");
}

TEST(EmdSandboxTest, ExecutablesAndDirectoriesOthersCanChangeAreRefusedAtLoad) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root to give files away";
    }
    const ara_test::TempDir dir;
    // A script or (empty body) a directory with this mode and owner.
    const auto make = [&dir](const std::string& name, const char* body, mode_t mode, uid_t uid, gid_t gid) {
        const std::string path = body != nullptr ? dir.Write(name, body) : dir.Path() + "/" + name;
        EXPECT_TRUE(body != nullptr || mkdir(path.c_str(), 0700) == 0);
        EXPECT_EQ(chown(path.c_str(), uid, gid) + chmod(path.c_str(), mode), 0) << path;
        return path;
    };
    const char* sleeps = "#!/bin/sh\nexec sleep 600\n";
    const std::string script = make("app.sh", sleeps, 0755, 0, 0);
    const std::string open = make("open.sh", sleeps, 0777, 0, 0);
    const std::string theirs = make("theirs.sh", sleeps, 0755, 65534, 65534);  // nobody's
    const std::string shared = make("shared", nullptr, 0775, 0, 65534);        // nogroup may write
    const std::string sticky = make("sticky", nullptr, 01777, 0, 0);
    const std::string inSticky = make("sticky/app.sh", sleeps, 0755, 0, 0);

    struct Row {
        std::string members;
        std::string refusal;  ///< empty: accepted
    };
    const Row rows[] = {
        {"\"executable\": \"" + script + "\"", ""},
        {"\"executable\": \"" + open + "\"", "/processes/p/executable: " + open + " is writable by others"},
        {"\"executable\": \"" + theirs + "\"", "/processes/p/executable: " + theirs + " belongs to uid 65534"},
        {"\"executable\": \"" + theirs + "\", \"user\": \"nobody\"", ""},  // its own user may change it
        {"\"executable\": \"" + script + "\", \"workingDirectory\": \"" + shared + "\"",
         "/processes/p/workingDirectory: " + shared + " is writable by others"},
        {"\"executable\": \"" + inSticky + "\"", ""},  // a sticky directory above protects what is root's
        {"\"executable\": \"" + script + "\", \"workingDirectory\": \"" + sticky + "\"",
         "/processes/p/workingDirectory: " + sticky + " is writable by others"},
    };
    for (const Row& row : rows) {
        const std::string manifest =
            dir.Write("manifest.json",
                      R"({"functionGroups": {"MachineFG": {"states": ["Running"],
            "initialState": "Running"}}, "processes": {"p": {)" +
                          row.members + R"(, "functionGroup": "MachineFG", "states": ["Running"]}}})");
        const auto [exit, output] = ara_test::CheckManifest(manifest);
        if (row.refusal.empty()) {
            EXPECT_EQ(exit, 0) << row.members << "\n" << output;
        } else {
            EXPECT_EQ(exit, 3) << row.members;
            EXPECT_NE(output.find(row.refusal), std::string::npos) << output;
        }
    }
}

}  // namespace
