// Who a supervised process runs as and what it may use, read back from /proc of the running
// process rather than from emd: user, groups, capabilities, no-new-privileges, resource
// limits, CPU affinity, scheduling, and the clean start (own session, default signal
// dispositions, no descriptor of emd's). Also the refusals at load of an executable or working
// directory that someone else could change. Needs root; each test runs in a copy of itself.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "ara_test/child_process.h"
#include "ara_test/emd_case.h"
#include "ara_test/temp_dir.h"

namespace {

using ara_test::Code;
using ara_test::Emd;
using ara_test::InCopy;

/// The pid emd lists for `name` once it runs, or -1.
pid_t PidOf(Emd& emd, const std::string& name) {
    pid_t pid = -1;
    ara_test::Eventually([&] {
        const std::string listed = emd.Listed(name);
        pid = listed.rfind("Running ", 0) == 0 ? static_cast<pid_t>(std::stoi(listed.substr(8U))) : -1;
        return pid > 0;
    });
    return pid;
}

std::string ReadAll(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// The value after "`key`:" in /proc/PID/status, whitespace collapsed to single spaces.
std::string StatusField(pid_t pid, const std::string& key) {
    std::istringstream lines(ReadAll("/proc/" + std::to_string(pid) + "/status"));
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind(key + ":", 0) == 0) {
            std::istringstream words(line.substr(key.size() + 1U));
            std::string word, value;
            while (words >> word) {
                value += (value.empty() ? "" : " ") + word;
            }
            return value;
        }
    }
    return "(none)";
}

/// Field `number` (1-based, as in proc(5)) of /proc/PID/stat.
std::string StatField(pid_t pid, int number) {
    const std::string text = ReadAll("/proc/" + std::to_string(pid) + "/stat");
    std::istringstream fields(text.substr(text.rfind(')') + 2U));
    std::string field;
    for (int i = 3; i <= number && fields >> field; ++i) {
    }
    return field;
}

/// "soft hard" of the limit whose /proc/PID/limits line starts with `name`.
std::string LimitOf(pid_t pid, const std::string& name) {
    std::istringstream lines(ReadAll("/proc/" + std::to_string(pid) + "/limits"));
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind(name, 0) == 0) {
            std::istringstream words(line.substr(name.size()));
            std::string soft, hard;
            words >> soft >> hard;
            return soft + " " + hard;
        }
    }
    return "(none)";
}

std::string Descriptors(pid_t pid) {
    std::string names;
    const std::string dir = "/proc/" + std::to_string(pid) + "/fd";
    for (int fd = 0; fd < 1024; ++fd) {
        struct stat info {};
        if (lstat((dir + "/" + std::to_string(fd)).c_str(), &info) == 0) {
            names += (names.empty() ? "" : ",") + std::to_string(fd);
        }
    }
    return names;
}

std::string Hex(unsigned long long mask) {
    std::ostringstream text;
    text.width(16);
    text.fill('0');
    text << std::hex << mask;
    return text.str();
}

constexpr unsigned long long Bit(int capability) {
    return 1ULL << capability;
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

    const std::string netBind = Hex(Bit(10));
    const std::string userSet = Hex(Bit(10) | Bit(0));
    const std::string netRaw = Hex(Bit(13));
    struct Row {
        pid_t pid;
        std::string what;
        std::string got;
        std::string expected;
    };
    const Row rows[] = {
        {user, "Uid", StatusField(user, "Uid"), "65534 65534 65534 65534"},
        {user, "Gid", StatusField(user, "Gid"), "65534 65534 65534 65534"},
        {user, "Groups", StatusField(user, "Groups"), "4 20"},
        {user, "Umask", StatusField(user, "Umask"), "0027"},
        {user, "CapEff", StatusField(user, "CapEff"), netBind},
        {user, "CapPrm", StatusField(user, "CapPrm"), netBind},
        {user, "CapAmb", StatusField(user, "CapAmb"), netBind},
        {user, "CapBnd", StatusField(user, "CapBnd"), userSet},
        {user, "NoNewPrivs", StatusField(user, "NoNewPrivs"), "1"},
        {user, "Cpus_allowed_list", StatusField(user, "Cpus_allowed_list"), "0"},
        {user, "open files", LimitOf(user, "Max open files"), "64 64"},
        {user, "core", LimitOf(user, "Max core file size"), "0 0"},
        {user, "stack", LimitOf(user, "Max stack size"), "unlimited unlimited"},
        {user, "nice", StatField(user, 19), "7"},
        {user, "policy (3: batch)", StatField(user, 41), "3"},
        // the clean start: a session of its own, nothing ignored or blocked, only 0, 1 and 2
        {user, "session", StatField(user, 6), std::to_string(user)},
        {user, "SigIgn", StatusField(user, "SigIgn"), Hex(0)},
        {user, "SigBlk", StatusField(user, "SigBlk"), Hex(0)},
        {user, "descriptors", Descriptors(user), "0,1,2"},
        {root, "Uid", StatusField(root, "Uid"), "0 0 0 0"},
        {root, "CapEff", StatusField(root, "CapEff"), netRaw},
        {root, "CapBnd", StatusField(root, "CapBnd"), netRaw},
        {root, "CapInh", StatusField(root, "CapInh"), netRaw},
        {root, "CapAmb", StatusField(root, "CapAmb"), Hex(0)},
        {root, "NoNewPrivs", StatusField(root, "NoNewPrivs"), "0"},
        {root, "policy (1: fifo)", StatField(root, 41), "1"},
        {root, "rt priority", StatField(root, 40), "10"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(row.got, row.expected) << row.what << " of " << (row.pid == user ? "user" : "root");
    }
}

TEST(EmdSandboxTest, ExecutablesAndDirectoriesOthersCanChangeAreRefusedAtLoad) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root to give files away";
    }
    const ara_test::TempDir dir;
    const std::string script = dir.Write("app.sh", "#!/bin/sh\nexec sleep 600\n");
    const std::string open = dir.Write("open.sh", "#!/bin/sh\nexec sleep 600\n");
    const std::string theirs = dir.Write("theirs.sh", "#!/bin/sh\nexec sleep 600\n");
    ASSERT_EQ(chmod(script.c_str(), 0755), 0);
    ASSERT_EQ(chmod(open.c_str(), 0777), 0);
    ASSERT_EQ(chmod(theirs.c_str(), 0755), 0);
    ASSERT_EQ(chown(theirs.c_str(), 65534, 65534), 0);  // nobody's
    const std::string shared = dir.Path() + "/shared";
    ASSERT_EQ(mkdir(shared.c_str(), 0775), 0);
    ASSERT_EQ(chown(shared.c_str(), 0, 65534), 0);  // writable by the group nogroup
    ASSERT_EQ(chmod(shared.c_str(), 0775), 0);
    const std::string sticky = dir.Path() + "/sticky";
    ASSERT_EQ(mkdir(sticky.c_str(), 0777), 0);
    ASSERT_EQ(chmod(sticky.c_str(), 01777), 0);
    const std::string inSticky = sticky + "/app.sh";
    ASSERT_EQ(link(script.c_str(), inSticky.c_str()), 0);

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
        ara_test::ChildProcess check({"/bin/sh", "-c", "exec \"$0\" --manifest \"$1\" --check 2>&1", EMD, manifest});
        (void)check.WaitForText("(read to the end)");
        const int exit = check.Wait();
        std::string output;
        for (const std::string& line : check.Lines()) {
            output += line + "\n";
        }
        if (row.refusal.empty()) {
            EXPECT_EQ(exit, 0) << row.members << "\n" << output;
        } else {
            EXPECT_EQ(exit, 3) << row.members;
            EXPECT_NE(output.find(row.refusal), std::string::npos) << output;
        }
    }
}

}  // namespace
