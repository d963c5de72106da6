// SPDX-License-Identifier: Apache-2.0
// Where emd finds its own cgroups: lines of /proc/self/mountinfo and /proc/self/cgroup as
// kernels, systemd and containers write them, and lines that are not.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cgroups.h"

namespace {

using tarn::em::daemon::ParseCgroupHierarchies;

const std::string V2 = "40 30 0:37 / /sys/fs/cgroup/unified rw,relatime - cgroup2 cgroup2 rw\n";
const std::string MEMORY = "34 30 0:31 / /sys/fs/cgroup/memory rw,relatime - cgroup cgroup rw,memory\n";
const std::string PIDS = "38 30 0:35 / /sys/fs/cgroup/pids rw,relatime - cgroup cgroup rw,pids\n";
const std::string SYSTEMD = "39 30 0:36 / /sys/fs/cgroup/systemd rw,relatime - cgroup cgroup rw,xattr,name=systemd\n";
const std::string HERE = "9:name=systemd:/\n8:pids:/\n4:memory:/process_api/h\n0::/\n";

TEST(CgroupDetectionTest, FindsEachHierarchyAndTheGroupInIt) {
    const struct {
        const char* what;
        std::string mountinfo, membership;
        std::vector<std::string> expected;  // "v2 DIR" or "v1 CONTROLLERS DIR"
    } rows[] = {
        {"v2 (mounted twice) beside v1 mounts, in a memory group; not cgroups, controllers emd does not use",
         V2 + "22 1 0:21 / /sys rw - sysfs sysfs rw\n" + MEMORY + PIDS + SYSTEMD +
             "35 30 0:32 / /d rw - cgroup cgroup rw,devices\n60 1 0:37 / /mnt/v2 rw - cgroup2 cgroup2 rw\n",
         "5:devices:/\n" + HERE,
         {"v2 /sys/fs/cgroup/unified", "v1 memory /sys/fs/cgroup/memory/process_api/h", "v1 pids /sys/fs/cgroup/pids"}},
        {"co-mounted controllers, optional fields before the separator",
         "31 30 0:28 / /sys/fs/cgroup/cpu,cpuacct rw,nosuid shared:9 master:2 - cgroup cgroup rw,cpu,cpuacct\n",
         "2:cpuacct,cpu:/emd\n",
         {"v1 cpu,cpuacct /sys/fs/cgroup/cpu,cpuacct/emd"}},
        {"a mount's root is cut from the group's path",
         "50 30 0:31 /process_api /mnt/mem rw - cgroup cgroup rw,memory\n",
         HERE,
         {"v1 memory /mnt/mem/h"}},
        {"the group is the mount's root",
         "50 30 0:31 /process_api/h /m rw - cgroup none rw,memory\n",
         HERE,
         {"v1 memory /m"}},
        {"a mount that does not reach the group, then one that does",
         "50 30 0:31 /process /a rw - cgroup cgroup rw,memory\n" + MEMORY,
         HERE,
         {"v1 memory /sys/fs/cgroup/memory/process_api/h"}},
        {"v2 only, at the root of a systemd machine",
         "28 22 0:26 / /sys/fs/cgroup rw,nosuid - cgroup2 cgroup2 rw,nsdelegate\n",
         "0::/system.slice/emd.service\n",
         {"v2 /sys/fs/cgroup/system.slice/emd.service"}},
        {"an escaped mount point", "40 30 0:37 / /cg\\040two\\134x rw - cgroup2 cgroup2 rw\n", HERE, {"v2 /cg two\\x"}},
        {"hierarchies without a line of membership", MEMORY + V2, "1:name=systemd:/\n", {}},
        {"lines cut short or garbled",
         "garbage\n40 30 0:37 / /x rw - cgroup2\n- cgroup2 cgroup2 rw\n\n",
         "junk\n0::\n4:memory\n",
         {}},
    };
    for (const auto& row : rows) {
        std::vector<std::string> found;
        for (const auto& h : ParseCgroupHierarchies(row.mountinfo, row.membership)) {
            std::string controllers;
            for (const std::string& c : h.controllers) {
                controllers += (controllers.empty() ? "" : ",") + c;
            }
            found.push_back(h.unified ? "v2 " + h.ownDirectory : "v1 " + controllers + " " + h.ownDirectory);
        }
        EXPECT_EQ(found, row.expected) << row.what;
    }
}

}  // namespace
