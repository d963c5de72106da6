// vfork/exec of supervised processes. The child borrows emd's memory until it execs, so it
// runs only async-signal-safe system calls, changes nothing of emd's, and never returns:
// every string and array it needs is built beforehand. vfork copies no page tables (a fork
// of emd at a few hundred processes cost about 6 ms here, a vfork 2.5 ms with the exec), and
// emd resumes once the child has exec'd or failed, so the status pipe is read without waiting.
#include "launcher.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
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
enum Stage : int { kStdin = 0, kWorkingDirectory = 1, kExec = 2, kLimits = 3, kIdentity = 4, kCgroup = 5 };

[[noreturn]] void ChildFail(int statusFd, Stage stage, int error) {
    const int report[2] = {stage, error};
    (void)!write(statusFd, report, sizeof(report));
    _exit(127);
}

/// Applies the limits and the identity, in the child. The credentials are changed with raw
/// system calls: glibc's setuid and friends signal every thread of the process to follow, and
/// the threads they would find are emd's, whose memory the vfork child shares.
void ApplyBox(int statusFd, const ProcessConfig& process) {
    for (const Limit& limit : process.limits) {
        const rlimit value{limit.value, limit.value};
        if (setrlimit(limit.resource, &value) != 0) {  // before setuid: a hard limit may be raised as root
            ChildFail(statusFd, kLimits, errno);
        }
    }
    const Identity& identity = process.identity;
    if (identity.user || !identity.supplementaryGroups.empty()) {
        if (syscall(SYS_setgroups, identity.supplementaryGroups.size(), identity.supplementaryGroups.data()) != 0) {
            ChildFail(statusFd, kIdentity, errno);
        }
    }
    if (identity.group && syscall(SYS_setresgid, *identity.group, *identity.group, *identity.group) != 0) {
        ChildFail(statusFd, kIdentity, errno);
    }
    if (identity.user && syscall(SYS_setresuid, *identity.user, *identity.user, *identity.user) != 0) {
        ChildFail(statusFd, kIdentity, errno);
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
[[noreturn]] void RunChild(pid_t parent,
                           int statusFd,
                           const char* path,
                           char* const* argv,
                           char* const* envp,
                           char* pidSlot,
                           const ProcessConfig& process,
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
    setpgid(0, 0);
    // Dispositions first, then the mask: no handler of emd's may run in the child.
    struct sigaction byDefault {};
    byDefault.sa_handler = SIG_DFL;
    for (const int signal : {SIGPIPE, SIGTERM, SIGINT, SIGCHLD}) {
        sigaction(signal, &byDefault, nullptr);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    const int devNull = open("/dev/null", O_RDONLY);
    if (devNull < 0 || dup2(devNull, STDIN_FILENO) < 0) {
        ChildFail(statusFd, kStdin, errno);
    }
    CloseDescriptorsExcept(statusFd);
    ApplyBox(statusFd, process);
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

}  // namespace

SpawnResult PosixLauncher::Spawn(const ProcessConfig& process) {
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
        RunChild(parent, status[1], path.c_str(), argv.data(), envp.data(), pidSlot, process, cgroups);
    }
    const int forkError = errno;
    close(status[1]);
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
