// SPDX-License-Identifier: Apache-2.0
// The machine manifest: function groups with their states, and the processes that run in
// them, with what each needs before it starts, how it tells it is ready and how it is
// restarted. Read from plain JSON (objects keyed by name) through the platform JSON parser
// and validated into plain structs; nothing here touches a process.
#ifndef TARN_EM_DAEMON_MANIFEST_H
#define TARN_EM_DAEMON_MANIFEST_H

#include <sys/resource.h>
#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarn::em::daemon {

/// The group every machine has; emd moves it to its initial state at start-up.
constexpr const char* MACHINE_FG = "MachineFG";

struct FunctionGroupConfig {
    std::string name;
    std::vector<std::string> states;  ///< unique, in manifest order
    std::string initialState;         ///< one of `states`
    /// The state emd moves the group to by itself once a process of it used up its
    /// restarts; empty: the group is failed instead.
    std::string onFailure;
};

/// How a process tells emd that it is ready.
enum class Readiness : std::uint8_t {
    kReport,  ///< reports kRunning through ExecutionClient
    kNotify,  ///< sends READY=1 on NOTIFY_SOCKET, the notify protocol of systemd
    kSpawn,   ///< ready once its executable runs
};
/// "report", "notify", "spawn".
const char* ReadinessName(Readiness readiness) noexcept;

/// What a dependency must have reached before the process that needs it starts.
enum class Condition : std::uint8_t {
    kRunning,     ///< ready (its readiness kind says when)
    kTerminated,  ///< exited with status 0: a one-shot, such as a migration
};
/// "running", "terminated".
const char* ConditionName(Condition condition) noexcept;

struct Dependency {
    std::string process;  ///< a process of the same function group that runs in every state of the dependent
    Condition condition{Condition::kRunning};
};

struct RestartPolicy {
    /// Restarts after unexpected exits allowed within `window`; 0: never restart.
    unsigned int maxRestarts{0U};
    std::chrono::milliseconds backoff{1000};  ///< wait before the first restart
    std::chrono::milliseconds backoffMax{0};  ///< the wait doubles per restart up to this; 0: `backoff`, no doubling
    std::chrono::milliseconds window{0};      ///< restarts older than this are forgotten; 0: never forgotten
};

/// Who a process runs as and what it may use; every member set here takes effect in the
/// child before its exec, or the launch fails.
struct Identity {
    std::optional<uid_t> user;               ///< setuid; none: emd's own
    std::optional<gid_t> group;              ///< setgid; none: the user's primary group, or emd's own
    std::vector<gid_t> supplementaryGroups;  ///< setgroups; set whenever `user` or this is given
    std::optional<mode_t> umask;
    bool noNewPrivileges{false};  ///< PR_SET_NO_NEW_PRIVS
    /// The capability bounding set (CAP_* numbers); none: emd's own, left as it is.
    std::optional<std::vector<int>> boundingCapabilities;
    /// Raised into the ambient set (and so kept across the exec by a process that is not
    /// root); each is in the bounding set.
    std::vector<int> ambientCapabilities;
};

/// How the kernel schedules a process: a policy with a nice value or a real-time priority.
struct Scheduling {
    int policy{0};    ///< SCHED_OTHER, SCHED_BATCH, SCHED_IDLE, SCHED_FIFO or SCHED_RR
    int nice{0};      ///< -20..19, for the policies that are not real-time
    int priority{0};  ///< 1..99 for SCHED_FIFO and SCHED_RR, else 0
};

/// One resource limit: RLIMIT_* and its soft and hard value.
struct Limit {
    int resource{0};
    rlim_t value{0};
};

/// Where the standard output and error of a process go.
enum class OutputKind : std::uint8_t {
    kLog,      ///< one pipe that emd reads and logs line by line, tagged with the process's name
    kInherit,  ///< emd's own standard output and error
    kNull,     ///< /dev/null
    kFile,     ///< appended to `path`, which emd opens (and creates) before the launch
};

struct OutputTarget {
    OutputKind kind{OutputKind::kLog};
    std::string path;  ///< absolute, for kFile; its directory existed when the manifest was read
};

/// The cgroup limits of a process (cgroups.h applies them). Each takes effect where the
/// machine has its controller; `required` makes a missing controller refuse the manifest.
struct CgroupLimits {
    struct CpuMax {
        std::uint64_t quotaUs{0U};  ///< CPU time per period
        std::uint64_t periodUs{100000U};
    };
    std::optional<std::uint64_t> memoryMax;  ///< bytes
    std::optional<CpuMax> cpuMax;
    std::optional<std::uint64_t> pidsMax;  ///< processes and threads
    bool required{false};
};

struct ProcessConfig {
    std::string name;                                    ///< unique short name; what GetProcessName answers
    std::string executable;                              ///< absolute path of an executable file
    std::vector<std::string> arguments;                  ///< argv[1..]; argv[0] is the executable
    std::vector<std::string> environment;                ///< "NAME=VALUE" entries added to emd's own environment
    std::string workingDirectory{"/"};                   ///< absolute path of an existing directory
    std::string functionGroup;                           ///< the group whose states start and stop it
    std::vector<std::string> states;                     ///< the states of `functionGroup` in which it runs
    std::chrono::milliseconds startupTimeout{3000};      ///< spawn to kRunning report
    std::chrono::milliseconds terminationTimeout{2000};  ///< SIGTERM to SIGKILL
    RestartPolicy restart;
    std::vector<Dependency> dependsOn;  ///< in manifest order
    Readiness readiness{Readiness::kReport};
    std::chrono::milliseconds watchdog{0};  ///< WATCHDOG=1 period once ready; 0: none
    Identity identity;
    std::vector<Limit> limits;             ///< in manifest order
    std::vector<int> cpuAffinity;          ///< the CPUs it may run on, ascending; empty: emd's own
    std::optional<Scheduling> scheduling;  ///< none: emd's own
    OutputTarget output;
    CgroupLimits cgroup;
};

struct Manifest {
    std::vector<FunctionGroupConfig> functionGroups;  ///< holds MACHINE_FG
    std::vector<ProcessConfig> processes;
};

/// Why a manifest was refused: the file, where in it (line and column of what the parser
/// refuses, or a JSON pointer such as "/processes/logger/states/1") and what is wrong.
struct ManifestError {
    std::string file;
    std::string place;
    std::string problem;
    /// "<file>: <place>: <problem>" (the place is left out when empty).
    std::string Text() const;
};

struct ManifestResult {
    bool ok{false};
    Manifest manifest;    ///< valid when ok
    ManifestError error;  ///< set when !ok
};

/// Reads `path` with the platform JSON parser (`crcIntensity` "strong", "weak" or "not"
/// checks it against its CRC sidecar) and validates it.
ManifestResult LoadManifest(const std::string& path, const std::string& crcIntensity);

/// Parses and validates manifest text already in memory; `file` only names it in errors.
ManifestResult ValidateManifestText(const std::string& text, const std::string& file);

}  // namespace tarn::em::daemon

#endif
