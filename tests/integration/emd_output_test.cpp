// SPDX-License-Identifier: Apache-2.0
// Where emd sends what its processes print, with shell scripts that write to standard output
// and error: into emd's log tagged with the process's name (a last line without a line feed
// too), nowhere, into a file owned by the process's user, or emd's own. emd raises
// its own descriptor limit, and each child gets the original one back (read from /proc).
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/resource.h>
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

/// The soft limit of open files of `pid`.
std::string Nofile(pid_t pid) {
    std::istringstream words(ara_test::ProcLines(pid, {"Max open files"}));
    std::string soft;
    words >> soft >> soft >> soft >> soft;
    return soft;
}

TEST(EmdOutputTest, OutputGoesWhereTheManifestSaysAndChildrenKeepTheDescriptorLimit) {
    if (!ara_test::InCopy()) {
        return;
    }
    const ara_test::TempDir dir;
    const bool root = geteuid() == 0;
    const passwd* nobody = getpwnam("nobody");
    ASSERT_NE(nobody, nullptr);
    // talker exits at once, its last line without a line feed: logged at the end of the stream.
    const std::string processes =
        ara_test::Shell("talker", "echo out one; echo err two >&2; printf late; exit 0", "") + ", " +
        ara_test::Shell("quiet",
                        "echo quiet line; echo quiet line >&2; : > " + dir / "quiet.done" + "; exec sleep 600",
                        R"(, "output": "null", "dependsOn": {"talker": "terminated", "plain": "terminated"})") +
        ", " + ara_test::Shell("plain", "echo plain line", R"(, "output": "inherit")") + ", " +
        ara_test::Shell("filer",
                        "echo to file; echo to file >&2; exec sleep 600",
                        R"(, "output": "file:)" + dir / "filer.log" + "\"" + (root ? R"(, "user": "nobody")" : "")) +
        ", " + ara_test::Shell("probe", "exec sleep 600", "") + ", " +
        ara_test::Shell("capped", "exec sleep 601", R"(, "limits": {"nofile": 64})");
    const std::string manifest = ara_test::WriteManifest(dir, ara_test::MachineGroup(), processes);
    // emd starts with a low soft limit, which it raises for itself and gives back to its children.
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 512U);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    ara_test::ChildProcess emd({"/bin/sh", "-c", "exec \"$0\" --manifest \"$1\" 2>&1", EMD, manifest});
    ASSERT_TRUE(emd.WaitForLine("ready"));

    ASSERT_TRUE(emd.WaitForText("[Output][process=talker] out one"));
    ASSERT_TRUE(emd.WaitForText("[Output][process=talker] err two"));
    ASSERT_TRUE(emd.WaitForText("[Output][process=talker] late"));
    ASSERT_TRUE(emd.WaitForText("[Supervisor][Process completed][process=talker"));

    std::string written;
    EXPECT_TRUE(ara_test::Eventually([&] {
        std::ifstream file(dir / "filer.log");
        written.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
        return written == "to file\nto file\n";
    })) << written;
    struct stat info {};
    ASSERT_EQ(stat((dir / "filer.log").c_str(), &info), 0);
    EXPECT_EQ(info.st_uid, root ? nobody->pw_uid : geteuid());
    EXPECT_EQ(info.st_mode & 0777U, 0640U);

    ara_test::Alive alive;
    EXPECT_TRUE(ara_test::Eventually([&] {
        alive = ara_test::Children(emd.Pid());
        return alive.count("600") == 1U && alive.count("601") == 1U && access((dir / "quiet.done").c_str(), F_OK) == 0;
    }));
    EXPECT_EQ(Nofile(emd.Pid()), std::to_string(std::min<rlim_t>(limit.rlim_max, 65536U)));
    EXPECT_EQ(Nofile(alive["600"]), std::to_string(limit.rlim_cur));
    EXPECT_EQ(Nofile(alive["601"]), "64");  // its own limit wins

    emd.Kill(SIGTERM);
    (void)emd.WaitForText("[emd][Stopped]", 10s);
    const auto& lines = emd.Lines();
    EXPECT_NE(std::find(lines.begin(), lines.end(), "plain line"), lines.end());  // as written, on emd's output
    for (const std::string& line : lines) {
        EXPECT_EQ(line.find("quiet line"), std::string::npos) << line;
        EXPECT_EQ(line.find("to file"), std::string::npos) << line;
    }
}

}  // namespace
