// SPDX-License-Identifier: Apache-2.0
// vfork/exec of supervised processes. The child borrows emd's memory until it execs, so it
// runs only async-signal-safe system calls, changes nothing of emd's, and never returns:
// every string and array it needs is built beforehand. vfork copies no page tables (a fork
// of emd at a few hundred processes cost about 6 ms here, a vfork 2.5 ms with the exec), and
// emd resumes once the child has exec'd or failed, so the status pipe is read without waiting.
#include "launcher.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/capability.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <map>
#include <vector>

#include "tarn/em/util/file_system.h"
#include "tarn/em/util/string_process.h"

extern char** environ;

namespace tarn::em::daemon {

namespace {

constexpr const char* NOTIFY_SOCKET = "NOTIFY_SOCKET";
constexpr const char* WATCHDOG_USEC = "WATCHDOG_USEC";
constexpr const char* WATCHDOG_PID = "WATCHDOG_PID";

/// What emd itself may have inherited from a service manager and must not pass on.
bool ManagerVariable(const std::string& name) {
    return name == NOTIFY_SOCKET || name == WATCHDOG_USEC || name == WATCHDOG_PID;
}

/// emd's own environment but its manager's variables, then `ours`, then the process's own
/// entries, each replacing a same-named one before it.
std::vector<std::string> ChildEnvironment(const std::vector<std::string>& ours,
                                          const std::vector<std::string>& overrides) {
    std::map<std::string, std::string> byName;
    std::vector<std::string> order;
    const auto add = [&](const std::string& entry, bool inherited) {
        std::pair<std::string, std::string> env;
        if (!tarn::em::util::StringProcess::ParseEnvFromString(entry, env) ||
            (inherited && ManagerVariable(env.first))) {
            return;
        }
        if (byName.count(env.first) == 0U) {
            order.push_back(env.first);
        }
        byName[env.first] = env.second;
    };
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        add(*entry, true);
    }
    for (const std::string& entry : ours) {
        add(entry, false);
    }
    for (const std::string& entry : overrides) {
        add(entry, false);
    }
    std::vector<std::string> result;
    result.reserve(order.size());
    for (const std::string& name : order) {
        result.push_back(name + "=" + byName[name]);
    }
    return result;
}

/// True when `entry` is "`name`=...".
bool Assigns(const std::string& entry, const std::string& name) {
    return entry.size() > name.size() && entry.compare(0U, name.size(), name) == 0 && entry[name.size()] == '=';
}

bool Sets(const std::vector<std::string>& entries, const std::string& name) {
    for (const std::string& entry : entries) {
        if (Assigns(entry, name)) {
            return true;
        }
    }
    return false;
}

/// Room for the decimal digits of any pid.
constexpr std::size_t PID_DIGITS = 10U;

/// Writes `pid` in decimal at `slot`, NUL-terminated; async-signal-safe, no allocation.
void WritePid(char* slot, pid_t pid) {
    char digits[PID_DIGITS];
    std::size_t count = 0U;
    auto value = static_cast<unsigned long>(pid);
    do {
        digits[count++] = static_cast<char>('0' + value % 10U);
        value /= 10U;
    } while (value != 0U && count < PID_DIGITS);
    for (std::size_t i = 0U; i < count; ++i) {
        slot[i] = digits[count - 1U - i];
    }
    slot[count] = '\0';
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1U);
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

/// Closes every descriptor from 3 up, except `keep`.
void CloseDescriptorsExcept(int keep) {
    const auto closeRange = [](unsigned int first, unsigned int last) {
        if (first > last) {
            return;
        }
        if (syscall(SYS_close_range, first, last, 0U) != 0) {
            for (unsigned int fd = first; fd <= last && fd < 4096U; ++fd) {
                close(static_cast<int>(fd));
            }
        }
    };
    closeRange(3U, static_cast<unsigned int>(keep) - 1U);
    closeRange(static_cast<unsigned int>(keep) + 1U, ~0U);
}

/// What the child failed at, reported to the parent through the status pipe.
enum Stage : int {
    kStdin = 0,
    kWorkingDirectory = 1,
    kExec = 2,
    kLimits = 3,
    kIdentity = 4,
    kScheduling = 5,
    kCapabilities = 6,
    kOutput = 7,
    kCgroup = 8,
};

[[noreturn]] void ChildFail(int statusFd, Stage stage, int error) {
    const int report[2] = {stage, error};
    (void)!write(statusFd, report, sizeof(report));
    _exit(127);
}

/// What the child applies that must be built beforehand: libcap allocates, the child may not.
struct Prepared {
    /// Permitted, effective and inheritable sets after the identity change; null: none is set.
    cap_t capabilities{nullptr};
    cap_value_t capabilityCount{0};  ///< what the running kernel knows: 0..count-1
    std::uint64_t bounded{0U};       ///< bit N: capability N stays bounded (libcap knows at most 64)
    cpu_set_t affinity{};
    ~Prepared() {
        if (capabilities != nullptr) {
            cap_free(capabilities);
        }
    }
};

/// A process that runs as root keeps its bounding set (all it could get back by an exec); one
/// that runs as a user keeps its ambient set, which the kernel hands on across the exec.
bool Prepare(const ProcessConfig& process, Prepared& prepared) {
    CPU_ZERO(&prepared.affinity);
    for (const int cpu : process.cpuAffinity) {
        CPU_SET(static_cast<std::size_t>(cpu), &prepared.affinity);
    }
    const Identity& identity = process.identity;
    if (!identity.boundingCapabilities && identity.ambientCapabilities.empty()) {
        return true;
    }
    prepared.capabilityCount = static_cast<cap_value_t>(cap_max_bits());
    for (const int capability : identity.boundingCapabilities.value_or(std::vector<int>{})) {
        prepared.bounded |= std::uint64_t{1} << static_cast<unsigned int>(capability);
    }
    prepared.capabilities = cap_init();
    if (prepared.capabilities == nullptr) {
        return false;
    }
    const bool root = identity.user.value_or(geteuid()) == 0U;
    std::vector<cap_value_t> kept;
    if (root && identity.boundingCapabilities) {
        kept.assign(identity.boundingCapabilities->begin(), identity.boundingCapabilities->end());
    } else {
        kept.assign(identity.ambientCapabilities.begin(), identity.ambientCapabilities.end());
    }
    if (kept.empty()) {
        return true;
    }
    const int count = static_cast<int>(kept.size());
    return cap_set_flag(prepared.capabilities, CAP_PERMITTED, count, kept.data(), CAP_SET) == 0 &&
           cap_set_flag(prepared.capabilities, CAP_EFFECTIVE, count, kept.data(), CAP_SET) == 0 &&
           cap_set_flag(prepared.capabilities, CAP_INHERITABLE, count, kept.data(), CAP_SET) == 0;
}

/// Applies the limits, the scheduling and the identity, in the child. The credentials are
/// changed with raw system calls: glibc's setuid and friends signal every thread of the
/// process to follow, and the threads they would find are emd's, whose memory the vfork child
/// shares. libcap's setters are plain system calls on the calling thread, which is the child.
void ApplyBox(int statusFd, const ProcessConfig& process, const Prepared& prepared) {
    for (const Limit& limit : process.limits) {
        const rlimit value{limit.value, limit.value};
        if (setrlimit(limit.resource, &value) != 0) {  // before setuid: a hard limit may be raised as root
            ChildFail(statusFd, kLimits, errno);
        }
    }
    if (!process.cpuAffinity.empty() && sched_setaffinity(0, sizeof(prepared.affinity), &prepared.affinity) != 0) {
        ChildFail(statusFd, kScheduling, errno);
    }
    if (process.scheduling) {
        const sched_param param{process.scheduling->priority};
        if (sched_setscheduler(0, process.scheduling->policy, &param) != 0 ||
            (process.scheduling->nice != 0 && setpriority(PRIO_PROCESS, 0, process.scheduling->nice) != 0)) {
            ChildFail(statusFd, kScheduling, errno);
        }
    }
    const Identity& identity = process.identity;
    if (identity.boundingCapabilities) {  // while emd's CAP_SETPCAP is still there
        for (cap_value_t capability = 0; capability < prepared.capabilityCount; ++capability) {
            const bool kept = (prepared.bounded >> static_cast<unsigned int>(capability) & 1U) != 0U;
            if (!kept && cap_drop_bound(capability) != 0) {
                ChildFail(statusFd, kCapabilities, errno);
            }
        }
    }
    if (identity.user || !identity.supplementaryGroups.empty()) {
        if (syscall(SYS_setgroups, identity.supplementaryGroups.size(), identity.supplementaryGroups.data()) != 0) {
            ChildFail(statusFd, kIdentity, errno);
        }
    }
    if (identity.group && syscall(SYS_setresgid, *identity.group, *identity.group, *identity.group) != 0) {
        ChildFail(statusFd, kIdentity, errno);
    }
    // Keeps the permitted set across the change of user; what is kept is narrowed right after.
    if (prepared.capabilities != nullptr && prctl(PR_SET_KEEPCAPS, 1, 0, 0, 0) != 0) {
        ChildFail(statusFd, kCapabilities, errno);
    }
    if (identity.user && syscall(SYS_setresuid, *identity.user, *identity.user, *identity.user) != 0) {
        ChildFail(statusFd, kIdentity, errno);
    }
    if (prepared.capabilities != nullptr) {
        if (cap_set_proc(prepared.capabilities) != 0) {
            ChildFail(statusFd, kCapabilities, errno);
        }
        for (const int capability : identity.ambientCapabilities) {
            if (cap_set_ambient(capability, CAP_SET) != 0) {
                ChildFail(statusFd, kCapabilities, errno);
            }
        }
    }
    if (identity.umask) {
        umask(*identity.umask);
    }
    if (identity.noNewPrivileges && prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
        ChildFail(statusFd, kIdentity, errno);
    }
}

/// Runs in the child between vfork and exec.
/// `pidSlot`, when set, is where the child writes its own pid into its environment.
/// `outputFd`, when set, becomes its standard output and error; `nofile`, when set, its
/// descriptor limit before the manifest's limits apply.
[[noreturn]] void RunChild(pid_t parent,
                           int statusFd,
                           const char* path,
                           char* const* argv,
                           char* const* envp,
                           char* pidSlot,
                           const ProcessConfig& process,
                           const Prepared& prepared,
                           int outputFd,
                           const rlimit* nofile,
                           const CgroupJoin& cgroups) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) {
        _exit(127);  // emd died before the death signal was armed
    }
    for (std::size_t i = 0U; i < cgroups.count; ++i) {  // first: all that follows is accounted to its groups
        if (write(cgroups.fds[i], "0", 1U) != 1) {
            ChildFail(statusFd, kCgroup, errno);
        }
    }
    setsid();  // a session and process group of its own: no terminal of emd's, one group to signal
    // Dispositions first, then the mask: no handler of emd's may run in the child, and nothing
    // emd ignores stays ignored (an ignored disposition survives exec).
    struct sigaction byDefault {};
    byDefault.sa_handler = SIG_DFL;
    for (int signal = 1; signal < NSIG; ++signal) {
        if (signal != SIGKILL && signal != SIGSTOP) {
            sigaction(signal, &byDefault, nullptr);  // fails harmlessly for the ones libc reserves
        }
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    const int devNull = open("/dev/null", O_RDONLY);
    if (devNull < 0 || dup2(devNull, STDIN_FILENO) < 0) {
        ChildFail(statusFd, kStdin, errno);
    }
    if (outputFd >= 0 && (dup2(outputFd, STDOUT_FILENO) < 0 || dup2(outputFd, STDERR_FILENO) < 0)) {
        ChildFail(statusFd, kOutput, errno);
    }
    CloseDescriptorsExcept(statusFd);
    if (nofile != nullptr && setrlimit(RLIMIT_NOFILE, nofile) != 0) {
        ChildFail(statusFd, kLimits, errno);
    }
    ApplyBox(statusFd, process, prepared);
    if (chdir(process.workingDirectory.c_str()) != 0) {
        ChildFail(statusFd, kWorkingDirectory, errno);
    }
    if (pidSlot != nullptr) {
        WritePid(pidSlot, getpid());
    }
    execve(path, argv, envp);
    ChildFail(statusFd, kExec, errno);
}

/// Where the digits of the WATCHDOG_PID entry of `env` start; the child fills them in. Kept
/// out of line: what it computes lives across the vfork in memory, not in a register.
[[gnu::noinline]] char* PidSlot(std::vector<std::string>& env) {
    char* slot = nullptr;
    for (std::string& entry : env) {
        if (Assigns(entry, WATCHDOG_PID)) {
            slot = entry.data() + std::strlen(WATCHDOG_PID) + 1U;
        }
    }
    return slot;
}

std::chrono::microseconds ThreadCpu() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return std::chrono::seconds(now.tv_sec) + std::chrono::microseconds(now.tv_nsec / 1000);
}

}  // namespace

SpawnResult PosixLauncher::Spawn(const ProcessConfig& process) {
    const auto start = std::chrono::steady_clock::now();
    const auto cpuStart = ThreadCpu();
    SpawnResult result = Launch(process);
    result.cpu = ThreadCpu() - cpuStart;
    result.cost = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start);
    return result;
}

SpawnResult PosixLauncher::Launch(const ProcessConfig& process) {
    using tarn::em::util::FileSystem;
    const std::string& path = process.executable;
    if (path.empty() || path.front() != '/' || !FileSystem::IsExecutable(path) || FileSystem::IsFolder(path)) {
        return {-1, "executable check failed for " + path + " (absolute, existing, executable file)"};
    }
    std::vector<std::string> args{path};
    args.insert(args.end(), process.arguments.begin(), process.arguments.end());
    // The notify protocol's variables, unless the process's own entries set them.
    std::vector<std::string> ours;
    const bool watchdog = process.watchdog.count() > 0;
    if ((process.readiness == Readiness::kNotify || watchdog) && !notifyAddress_.empty() &&
        !Sets(process.environment, NOTIFY_SOCKET)) {
        ours.push_back(std::string(NOTIFY_SOCKET) + "=" + notifyAddress_);
    }
    if (watchdog && !Sets(process.environment, WATCHDOG_USEC)) {
        ours.push_back(std::string(WATCHDOG_USEC) + "=" + std::to_string(process.watchdog.count() * 1000));
    }
    const bool ownPid = watchdog && !Sets(process.environment, WATCHDOG_PID);
    if (ownPid) {
        ours.push_back(std::string(WATCHDOG_PID) + "=" + std::string(PID_DIGITS, '0'));
    }
    std::vector<std::string> env = ChildEnvironment(ours, process.environment);
    // Kept in memory across the vfork (volatile), so that the child reads what the parent wrote.
    char* volatile const pidSlot = ownPid ? PidSlot(env) : nullptr;
    const std::vector<char*> argv = Pointers(args);
    const std::vector<char*> envp = Pointers(env);
    OutputDescriptors output;
    std::string outputError;
    if ((outputs_ != nullptr || process.output.kind != OutputKind::kLog) &&
        !output.Open(process.output, process.identity, outputError)) {
        return {-1, outputError};
    }
    const bool ownNofile = std::any_of(process.limits.begin(), process.limits.end(), [](const Limit& limit) {
        return limit.resource == RLIMIT_NOFILE;
    });
    const rlimit* volatile const nofile = nofile_ && !ownNofile ? &*nofile_ : nullptr;

    Prepared prepared;
    if (!Prepare(process, prepared)) {
        return {-1, std::string("cannot prepare the capabilities: ") + std::strerror(errno)};
    }

    CgroupJoin cgroups;
    std::string cgroupError;
    if (cgroups_ != nullptr && !cgroups_->Prepare(process, cgroups, cgroupError)) {
        cgroups_->Release(process);
        return {-1, cgroupError};
    }
    int status[2] = {-1, -1};
    if (pipe2(status, O_CLOEXEC) != 0) {
        cgroups.Close();
        return {-1, std::string("pipe failed: ") + std::strerror(errno)};
    }
    const pid_t parent = getpid();
    const pid_t pid = vfork();  // NOLINT(cert-env33-c): see the file comment
    if (pid == 0) {
        RunChild(parent,
                 status[1],
                 path.c_str(),
                 argv.data(),
                 envp.data(),
                 pidSlot,
                 process,
                 prepared,
                 output.Child(),
                 nofile,
                 cgroups);
    }
    const int forkError = errno;
    close(status[1]);
    output.CloseChild();
    cgroups.Close();
    if (pid < 0) {
        close(status[0]);
        if (cgroups_ != nullptr) {
            cgroups_->Release(process);
        }
        return {-1, std::string("vfork failed: ") + std::strerror(forkError)};
    }
    int report[2] = {kExec, EIO};
    ssize_t got = 0;
    do {
        got = read(status[0], report, sizeof(report));
    } while (got < 0 && errno == EINTR);
    close(status[0]);
    if (got == 0) {
        if (const int readEnd = output.TakeRead(); readEnd >= 0) {
            outputs_->Add(process.name, readEnd);
        }
        return {pid, {}};  // the descriptor closed on exec
    }
    int ignored = 0;
    waitpid(pid, &ignored, 0);
    if (cgroups_ != nullptr) {
        cgroups_->Release(process);
    }
    static const char* const STAGES[] = {"cannot open /dev/null",
                                         "cannot enter working directory",
                                         "cannot run",
                                         "cannot set its resource limits for",
                                         "cannot take its user, groups or privileges for",
                                         "cannot take its CPU affinity or scheduling for",
                                         "cannot take its capabilities for",
                                         "cannot attach its standard output and error for",
                                         "cannot join its cgroups for"};
    const int stage = report[0] >= kStdin && report[0] <= kCgroup ? report[0] : kExec;
    const std::string where = stage == kWorkingDirectory ? " " + process.workingDirectory : " " + path;
    return {-1, STAGES[stage] + where + ": " + std::strerror(report[1])};
}

bool PosixLauncher::Signal(pid_t pid, int signal) {
    return pid > 0 && kill(pid, signal) == 0;
}

void PosixLauncher::TreeEnded(const ProcessConfig& process, pid_t pid) {
    if (cgroups_ != nullptr) {
        cgroups_->TreeEnded(process, pid);
    } else if (pid > 0) {
        (void)kill(-pid, SIGKILL);  // it led its process group
    }
}

void PosixLauncher::Release(const ProcessConfig& process) {
    if (cgroups_ != nullptr) {
        cgroups_->Release(process);
    }
}

void PosixLauncher::Reaped(pid_t /*pid*/) {
    if (cgroups_ != nullptr) {
        cgroups_->Reaped();
    }
}

ResourceUse PosixLauncher::Usage(const ProcessConfig& process) const {
    return cgroups_ != nullptr ? cgroups_->Usage(process) : ResourceUse{};
}

std::string DescribeExit(int status) {
    if (WIFEXITED(status)) {
        return "exit code " + std::to_string(WEXITSTATUS(status));
    }
    if (WIFSIGNALED(status)) {
        const char* name = sigabbrev_np(WTERMSIG(status));
        return "signal " + std::to_string(WTERMSIG(status)) + " (SIG" + (name != nullptr ? name : "?") + ")";
    }
    return "status " + std::to_string(status);
}

}  // namespace tarn::em::daemon
