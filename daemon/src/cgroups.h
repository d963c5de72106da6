// SPDX-License-Identifier: Apache-2.0
// The cgroups of the supervised processes: which hierarchies this machine has and where emd
// itself sits in them, emd's own root in each hierarchy it uses (`ara-emd.<pid>` beside emd's
// own group), one group per process below it with the manifest's limits, the descriptors a
// launched child joins them through, the end of a process's whole tree, and its memory and CPU
// use. cgroup v2 is used for a controller where v2 has it, v1 for controllers only v1 has; the
// v2 hierarchy, when mounted, always tracks every process and ends its tree with cgroup.kill.
// Only the event loop's thread calls it.
#ifndef TARN_EM_DAEMON_CGROUPS_H
#define TARN_EM_DAEMON_CGROUPS_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ara/quill/common/log/log.h"
#include "manifest.h"

namespace tarn::em::daemon {

/// One mounted cgroup hierarchy and emd's own group in it.
struct CgroupHierarchy {
    bool unified{false};       ///< cgroup v2
    std::string ownDirectory;  ///< the directory of the group: the mount point plus its path below the mount's root
    std::vector<std::string> controllers;  ///< v1: memory, cpu, cpuacct, pids among its super options; v2: see Detect
};

/// The hierarchies that `mountinfo` (the text of /proc/self/mountinfo) shows, each with the
/// group that `membership` (the text of /proc/PID/cgroup) names in it: the cgroup2 mount, and
/// every v1 mount of memory, cpu, cpuacct or pids (the first mount of each hierarchy whose root
/// holds that group). A hierarchy whose mounts do not reach the group is left out, and so are
/// lines that do not parse.
std::vector<CgroupHierarchy> ParseCgroupHierarchies(const std::string& mountinfo, const std::string& membership);

/// The descriptors of the cgroup.procs files a launched child writes "0" to, one per hierarchy;
/// a plain array, so that the vfork child reads it without allocating.
struct CgroupJoin {
    static constexpr std::size_t MAX = 8U;
    int fds[MAX] = {-1, -1, -1, -1, -1, -1, -1, -1};
    std::size_t count{0U};
    void Close() noexcept;
};

/// Memory and CPU use of a process's groups; each absent where it cannot be measured.
struct ResourceUse {
    std::optional<std::uint64_t> memoryBytes;  ///< v2 memory.current, v1 memory.usage_in_bytes
    std::optional<std::uint64_t> cpuUsec;      ///< v2 cpu.stat usage_usec, v1 cpuacct.usage
    std::optional<std::uint64_t> memoryMax;    ///< the kernel's limit: v2 memory.max, v1 memory.limit_in_bytes
};

/// A limit of the manifest on a controller that the machine lacks.
struct CgroupLimitProblem {
    std::string place;     ///< its JSON pointer, "/processes/x/cgroup/memoryMax"
    std::string problem;   ///< "no memory controller on this machine (cgroup v2 or v1)"
    bool required{false};  ///< the process asks for its limits to be there: the manifest is refused
};

class Cgroups {
public:
    /// The hierarchies of this machine in which emd's own group is writable, from
    /// /proc/self/mountinfo (or the file EMD_CGROUP_MOUNTINFO names, which tests use to hide
    /// hierarchies) and /proc/self/cgroup; the controllers of v2 are those its cgroup.controllers
    /// lists in emd's own group. Nothing is created.
    static std::vector<CgroupHierarchy> Detect();

    /// Chooses for each controller the hierarchy that provides it; creates nothing.
    explicit Cgroups(std::vector<CgroupHierarchy> hierarchies);
    /// Kills whatever is left in emd's groups and removes them, waiting a bounded time.
    ~Cgroups();
    Cgroups(const Cgroups&) = delete;
    Cgroups& operator=(const Cgroups&) = delete;

    /// Makes emd's root in every hierarchy it uses and enables the v2 controllers it uses
    /// below emd's own group. When the kernel refuses because that group holds processes (as a
    /// service's group holds emd), emd first moves itself into the leaf group emd.self below
    /// it. A hierarchy where it fails is dropped, and a v2 controller the kernel still refuses
    /// to enable is treated as absent; each with one log line.
    void Setup();
    /// Every limit in `manifest` on a controller this machine lacks, in manifest order.
    std::vector<CgroupLimitProblem> Check(const Manifest& manifest) const;

    /// Makes the process's groups, writes its limits and opens their cgroup.procs into `join`;
    /// false with `error` set when any of it fails (and nothing is left open).
    bool Prepare(const ProcessConfig& process, CgroupJoin& join, std::string& error);
    /// The main process `pid` has been reaped: kills what is left of its tree, with cgroup.kill
    /// where there is one, else SIGKILL to its process group and to every pid in its group.
    void TreeEnded(const ProcessConfig& process, pid_t pid);
    /// The process will not run again until it is started anew: its groups go once empty.
    void Release(const ProcessConfig& process);
    /// A descendant of a process has been reaped: groups whose tree ended are swept again, and
    /// those that wait for their last process are removed once empty.
    void Reaped();
    /// The memory and CPU use of the process's groups; absent while it has none.
    ResourceUse Usage(const ProcessConfig& process) const;

private:
    enum Controller : std::size_t { kMemory = 0U, kCpu = 1U, kPids = 2U, kCpuacct = 3U, kControllers = 4U };
    struct Group {
        bool ended{false};     ///< its main process was reaped and it has not been launched since
        bool released{false};  ///< to be removed once empty
    };

    /// Moves emd into the leaf group emd.self below `own`; false (logged) when it cannot.
    bool MoveIntoLeaf(const std::string& own) const;
    std::string Directory(std::size_t hierarchy, const std::string& process) const;
    /// The directory whose cgroup.procs lists every process of the group.
    std::string TrackingDirectory(const std::string& process) const;
    bool OnlyV1Cpu(std::size_t hierarchy) const;
    bool WriteLimits(std::size_t hierarchy, const ProcessConfig& process, const std::string& dir, std::string& error);
    void Kill(const std::string& process, pid_t processGroup);
    bool Empty(const std::string& process) const;
    /// Removes the process's groups; false while one still holds processes.
    bool Remove(const std::string& process);

    std::vector<CgroupHierarchy> hierarchies_;
    std::vector<std::string> roots_;                   ///< per hierarchy: emd's root; empty: not used
    std::optional<std::size_t> chosen_[kControllers];  ///< per controller: the hierarchy that provides it
    std::optional<std::size_t> unified_;               ///< the v2 hierarchy
    bool cgroupKill_{false};                           ///< v2 has cgroup.kill
    std::map<std::string, Group> groups_;              ///< by process name: the groups that exist
    std::shared_ptr<ara::quill::common::log::Log> log_;
};

}  // namespace tarn::em::daemon

#endif
