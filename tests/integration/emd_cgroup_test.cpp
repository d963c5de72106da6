// SPDX-License-Identifier: Apache-2.0
// emd's cgroups seen from outside: limits read back from the cgroup files, processes counted and
// found gone in /proc, the kernel's OOM counter. A test needing what the machine lacks (root, a
// controller, cgroup.kill) skips, or fails when ARA_EXEC_REQUIRE_CGROUPS names it.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <tuple>

#include "ara_test/child_process.h"
#include "ara_test/emd_case.h"
#include "ara_test/temp_dir.h"
#include "cgroups.h"

namespace {

using namespace std::chrono_literals;
using ara_test::Emd;
using ara_test::Eventually;
using ara_test::Shell;
using tarn::em::daemon::CgroupHierarchy;
using tarn::em::daemon::Cgroups;

/// Why the test cannot run here: no root, or no `needs` (controllers, or "kill" for cgroup.kill);
/// "" when it can. What ARA_EXEC_REQUIRE_CGROUPS names must be there: its absence fails.
std::string Lacking(const std::vector<std::string>& needs) {
    if (geteuid() != 0) {
        return "not root";
    }
    const std::vector<CgroupHierarchy> found = Cgroups::Detect();
    for (const std::string& need : needs) {
        const bool has = std::any_of(found.begin(), found.end(), [&need](const CgroupHierarchy& h) {
            const std::string probe = h.ownDirectory + "/ara-test." + std::to_string(getpid());
            const bool kill = need == "kill" && h.unified && mkdir(probe.c_str(), 0755) == 0 &&
                              access((probe + "/cgroup.kill").c_str(), F_OK) == 0;
            return (rmdir(probe.c_str()) == 0 && kill) ||
                   std::count(h.controllers.begin(), h.controllers.end(), need) > 0;
        });
        if (!has) {
            const char* required = std::getenv("ARA_EXEC_REQUIRE_CGROUPS");
            EXPECT_EQ((" " + std::string(required != nullptr ? required : "") + " ").find(" " + need + " "),
                      std::string::npos)
                << "no " << need << " here, though ARA_EXEC_REQUIRE_CGROUPS names it";
            return "no " + need + " here";
        }
    }
    return {};
}

#define REQUIRE_CGROUPS(...) \
    if (const std::string lacking = Lacking({__VA_ARGS__}); !lacking.empty()) GTEST_SKIP() << lacking

/// `file` of the group of emd's process `name`: v2's `v2File` where the group has it, else the
/// v1 hierarchy of `controller`'s `v1File`; "" when neither exists.
std::string GroupFile(
    pid_t emd, const std::string& name, const char* v2File, const char* controller, const char* v1File) {
    for (const CgroupHierarchy& h :
         tarn::em::daemon::ParseCgroupHierarchies(ara_test::ReadText("/proc/self/mountinfo"),
                                                  ara_test::ReadText("/proc/" + std::to_string(emd) + "/cgroup"))) {
        const std::string file = h.ownDirectory + "/ara-emd." + std::to_string(emd) + "/" + name + ".process/" +
                                 (h.unified ? v2File : v1File);
        if ((h.unified || std::count(h.controllers.begin(), h.controllers.end(), controller) > 0) &&
            access(file.c_str(), F_OK) == 0) {
            return file;
        }
    }
    return {};
}

/// The number after `key` in a file of "key value" lines, or -1.
long long Counter(const std::string& file, const std::string& key) {
    std::istringstream lines(ara_test::ReadText(file));
    std::string name;
    long long value = -1;
    while (lines >> name >> value && name != key) {
    }
    return name == key ? value : -1;
}

/// The live processes whose cgroup is emd's group for process `name`.
std::set<pid_t> InGroup(pid_t emd, const std::string& name) {
    std::set<pid_t> pids;
    const std::string group = "/ara-emd." + std::to_string(emd) + "/" + name + ".process\n";
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const std::string pid = entry.path().filename();
        if (std::isdigit(pid[0]) != 0 &&
            ara_test::ReadText("/proc/" + pid + "/cgroup").find(group) != std::string::npos &&
            !ara_test::Gone(std::stoi(pid))) {
            pids.insert(std::stoi(pid));
        }
    }
    return pids;
}

/// emd has exited 0 after SIGTERM and left no group of its own in any hierarchy.
void StopAndCheckRemoved(Emd& emd) {
    const pid_t pid = emd.Process().Pid();
    emd.Process().Kill(SIGTERM);
    EXPECT_EQ(emd.Process().Wait(), 0);
    for (const CgroupHierarchy& h : Cgroups::Detect()) {
        EXPECT_FALSE(std::filesystem::exists(h.ownDirectory + "/ara-emd." + std::to_string(pid))) << h.ownDirectory;
    }
}

TEST(EmdCgroupTest, ForkLoopAndMemoryHogAreHeldInTheirOwnGroups) {
    REQUIRE_CGROUPS("pids", "memory", "cpu");
    if (!ara_test::InCopy()) {
        return;
    }
    const ara_test::TempDir dir;
    // dash gives up once a fork fails, tail once it is killed for memory; both are started again.
    Emd emd(ara_test::WriteManifest(
        dir,
        ara_test::MachineGroup(),
        Shell(
            "forker", "while :; do sleep 60 & done", R"(, "cgroup": {"pidsMax": 8}, "restart": {"maxRestarts": 100})") +
            ", " +
            Shell("hog",
                  "exec tail /dev/zero",
                  R"(, "cgroup": {"memoryMax": 16777216, "cpuMax": {"quotaUs": 50000}, "required": true},
                     "restart": {"maxRestarts": 1000, "backoffMs": 200})")));
    const pid_t emdPid = emd.Process().Pid();
    EXPECT_EQ(ara_test::ReadText(GroupFile(emdPid, "forker", "pids.max", "pids", "pids.max")), "8\n");
    EXPECT_EQ(ara_test::ReadText(GroupFile(emdPid, "hog", "memory.max", "memory", "memory.limit_in_bytes")),
              "16777216\n");
    const std::string quota = ara_test::ReadText(GroupFile(emdPid, "hog", "cpu.max", "cpu", "cpu.cfs_quota_us"));
    EXPECT_TRUE(quota == "50000 100000\n" || quota == "50000\n") << quota;
    const std::string refused = GroupFile(emdPid, "forker", "pids.events", "pids", "pids.events");
    EXPECT_TRUE(Eventually([&] { return Counter(refused, "max") > 0; }));
    std::size_t most = 0U;
    for (int sample = 0; sample < 100; ++sample) {  // counted from /proc while it forks
        most = std::max(most, InGroup(emdPid, "forker").size());
        std::this_thread::sleep_for(10ms);
    }
    EXPECT_LE(most, 8U);
    EXPECT_GT(most, 1U);
    // Killed in its own group, restarted in it, killed again: the group's counter counts both.
    const std::string oom = GroupFile(emdPid, "hog", "memory.events", "memory", "memory.oom_control");
    EXPECT_TRUE(Eventually([&] { return Counter(oom, "oom_kill") >= 2; }));
    EXPECT_EQ(emd.GetState("MachineFG"), "Running");
    StopAndCheckRemoved(emd);
}

TEST(EmdCgroupTest, OrphanedGrandchildDiesWithItsProcess) {
    REQUIRE_CGROUPS("kill");
    if (!ara_test::InCopy()) {
        return;
    }
    const ara_test::TempDir dir;
    std::string v1Only;
    std::string line;
    for (std::istringstream lines(ara_test::ReadText("/proc/self/mountinfo")); std::getline(lines, line);) {
        v1Only += line.find(" - cgroup2 ") == std::string::npos ? line + "\n" : "";
    }
    // How the process ends once its grandchild runs; emd stops it (first: a process has one state
    // client); without cgroup2 in emd's view (v1), the tree ends by signals and a v1 group's sweep.
    const std::tuple<std::string, bool, bool> rows[] = {
        {"exec sleep 600", true, false}, {"exit 3", false, false}, {"exit 3", false, true}};
    for (const auto& [end, stop, v1] : rows) {
        if (v1 && v1Only.find(" - cgroup ") == std::string::npos) {
            continue;  // no v1 hierarchy here
        }
        setenv("EMD_CGROUP_MOUNTINFO", v1 ? dir.Write("v1_only", v1Only).c_str() : "/proc/self/mountinfo", 1);
        const std::string what = end + (v1 ? ", v1" : "");
        std::remove((dir / "orphan").c_str());
        // The subshell forks the grandchild and exits: it is orphaned at once, in a session of its own.
        const std::string script = "(setsid sh -c 'echo $$ > " + (dir / "orphan") +
                                   "; exec sleep 601' &); while [ ! -s " + (dir / "orphan") +
                                   " ]; do sleep 0.05; done; " + end;
        Emd emd(
            dir.Write("manifest.json",
                      R"({"functionGroups": {"MachineFG": {"states": ["Running", "Off"], "initialState": "Running"}},
                              "processes": {)" +
                          Shell("tree", script, R"(, "terminationTimeoutMs": 10000)") + "}}"));
        const pid_t emdPid = emd.Process().Pid();
        ASSERT_TRUE(Eventually([&] { return !ara_test::ReadText(dir / "orphan").empty(); })) << what;
        const pid_t orphan = std::stoi(ara_test::ReadText(dir / "orphan"));
        EXPECT_TRUE(Eventually([&] {  // its parent gone, emd, the subreaper, inherits it (unless it is gone already)
            return ara_test::Children(emdPid)["601"] == orphan || ara_test::Gone(orphan);
        })) << what;
        EXPECT_TRUE(InGroup(emdPid, "tree").count(orphan) == 1U || ara_test::Gone(orphan)) << what;
        if (stop) {
            EXPECT_EQ(emd.SetState("MachineFG", "Off"), "ok") << what;
        }
        // Gone, and reaped by emd, its subreaper: not even a zombie is left.
        EXPECT_TRUE(Eventually([&] { return !std::filesystem::exists("/proc/" + std::to_string(orphan)); })) << what;
        StopAndCheckRemoved(emd);
    }
}

TEST(EmdCgroupTest, LimitOnAMissingControllerRefusesTheManifestWhenRequired) {
    // A v2 hierarchy of emd's own making, with cpu and pids but no memory, and no v1 at all.
    const std::string membership = ara_test::ReadText("/proc/self/cgroup");
    const std::size_t v2 = membership.find("0::/");
    if (v2 == std::string::npos) {
        GTEST_SKIP() << "no cgroup v2 line in /proc/self/cgroup";
    }
    const ara_test::TempDir dir;
    dir.Write("cgroup.controllers", "cpu pids\n");
    const std::string mountinfo =
        dir.Write("mountinfo",
                  "40 30 0:37 " + membership.substr(v2 + 3U, membership.find('\n', v2) - v2 - 3U) + " " + dir.Path() +
                      " rw - cgroup2 cgroup2 rw\n");
    const std::tuple<const char*, int, std::string> rows[] = {
        {R"({"memoryMax": 65536, "required": true})", 3, ": /processes/p~1x/cgroup/memoryMax: no memory controller on"},
        {R"({"memoryMax": 65536})", 0, "[/processes/p~1x/cgroup/memoryMax: no memory controller on this machine"},
        {R"({"cpuMax": {"quotaUs": 5000}, "pidsMax": 4, "required": true})", 0, ": valid, 1 function groups"}};
    for (const auto& [cgroup, exit, text] : rows) {
        const std::string manifest = ara_test::WriteManifest(
            dir, ara_test::MachineGroup(), Shell("p/x", "true", std::string(R"(, "cgroup": )") + cgroup));
        const auto [status, output] = ara_test::CheckManifest(manifest, {"EMD_CGROUP_MOUNTINFO=" + mountinfo});
        EXPECT_NE(output.find(text), std::string::npos) << cgroup << output;
        EXPECT_EQ(status, exit) << cgroup;
    }
}

}  // namespace
