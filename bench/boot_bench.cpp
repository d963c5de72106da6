// SPDX-License-Identifier: Apache-2.0
// boot_bench: how the whole system boots and stops at scale. For each N it boots N processes
// under emd and stops them again, and in the same run does the same with the floor, bare
// Cyclone DDS processes (boot_floor) with the same start-up. The soak mode kills supervised
// processes and emd itself at random and checks that the machine comes back every time.
// It only starts programs and reads /proc; it links none of our libraries.
//
//   boot_bench [--n 20,100,300,500,1000] [--reply bucket:16] [--discovery hub|multicast]
//              [--idle-seconds 10] [--max-boot-seconds 300] [--skip-floor] [--skip-stack]
//   boot_bench --soak [--minutes 10] [--n 100] [--kill-emd-every 10] [--seed S]
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#ifndef EMD
#define EMD ""
#endif
#ifndef DEMO_APP
#define DEMO_APP ""
#endif
#ifndef EMCTL
#define EMCTL ""
#endif
#ifndef BOOT_FLOOR
#define BOOT_FLOOR ""
#endif

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;
using Environment = std::vector<std::string>;

constexpr std::size_t TAIL_LINES = 50U;
constexpr std::size_t TAIL_LINE_CHARS = 400U;
constexpr std::size_t STEP_TAIL_LINES = 10U;
constexpr auto POLL_INTERVAL = std::chrono::milliseconds(10);
constexpr auto STOP_LIMIT = std::chrono::seconds(30);
constexpr auto RECOVERY_LIMIT = std::chrono::seconds(60);
constexpr auto TOOL_LIMIT = std::chrono::seconds(60);
constexpr auto STRAY_LIMIT = std::chrono::seconds(5);
constexpr auto ZOMBIE_GRACE = std::chrono::seconds(1);
constexpr int PS_RUNS = 3;
constexpr int CHILD_FD_PARKING = 100;  // a child moves its descriptors up here before placing them
constexpr int APP_INTERVAL_MS = 3600000;
constexpr int MAX_RESTARTS = 1000;  // the most a manifest accepts
constexpr int RESTART_BACKOFF_MS = 100;
constexpr char REPORTED_RUNNING[] = "[Supervisor][Reported kRunning][process=";
constexpr char FAILED_TO_START[] = "[Supervisor][Process failed to start][process=";
constexpr char LAUNCHED[] = "[Supervisor][Launched][process=";
constexpr char LAUNCH_US[] = "launch_us=";
constexpr char LAUNCH_CPU_US[] = "launch_cpu_us=";
constexpr char USAGE[] =
    "usage: boot_bench [--n 20,100,300,500,1000] [--reply bucket:16] [--discovery hub|multicast]\n"
    "                  [--idle-seconds 10] [--max-boot-seconds 300] [--skip-floor] [--skip-stack]\n"
    "                  [--floor-heartbeat MS]   (the floor's heartbeat interval, default the stack's 1000)\n"
    "       boot_bench --soak [--minutes 10] [--n 100] [--kill-emd-every 10] [--seed S]\n"
    "  common: [--port-base 21000] [--emd PATH] [--demo-app PATH] [--emctl PATH] [--boot-floor PATH]\n"
    "\n"
    "Boot mode: for each N, the floor (boot_floor server and N clients) and then emd with N\n"
    "demo_app processes; prints boot and stop times, memory, threads and CPU, and a markdown table.\n"
    "Soak mode: emd with N restartable demo_app processes; SIGKILLs one at random per step and\n"
    "emd itself every --kill-emd-every steps (0: never), and checks that all come back.\n"
    "Exit status: 0 when every run and check passed, 1 otherwise, 2 bad usage.\n";

double Seconds(Clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}
double Millis(Clock::duration duration) {
    return std::chrono::duration<double, std::milli>(duration).count();
}
double Mib(long kib) {
    return static_cast<double>(kib) / 1024.0;
}

std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string Format(const char* format, ...) {
    char buffer[1024];
    va_list args;
    va_start(args, format);
    const int length = std::vsnprintf(buffer, sizeof(buffer), format, args);
    va_end(args);
    return length < 0 ? std::string()
                      : std::string(buffer, std::min(static_cast<std::size_t>(length), sizeof(buffer) - 1U));
}

void Say(const std::string& line) {
    std::fputs(line.c_str(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

double Median(std::vector<double> values) {
    if (values.empty()) {
        return -1.0;
    }
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2U;
    return values.size() % 2U == 1U ? values[middle] : (values[middle - 1U] + values[middle]) / 2.0;
}

/// "median M s, max X s" of durations in seconds, or "none".
std::string Spread(const std::vector<double>& values) {
    if (values.empty()) {
        return "none";
    }
    return Format("median %.2f s, max %.2f s", Median(values), *std::max_element(values.begin(), values.end()));
}

// ---------------------------------------------------------------------------------------------
// The processes boot_bench started

/// Every process boot_bench started and has not reaped; each leads a process group of its own.
/// The signal thread kills them all when boot_bench is interrupted.
class Started {
public:
    void Add(pid_t pid) {
        const std::lock_guard<std::mutex> lock(mutex_);
        pids_.insert(pid);
    }
    void Forget(pid_t pid) {
        const std::lock_guard<std::mutex> lock(mutex_);
        pids_.erase(pid);
    }
    bool Has(pid_t pid) {
        const std::lock_guard<std::mutex> lock(mutex_);
        return pids_.count(pid) != 0U;
    }
    void KillAll() {
        const std::lock_guard<std::mutex> lock(mutex_);
        for (const pid_t pid : pids_) {
            kill(-pid, SIGKILL);
            kill(pid, SIGKILL);
        }
    }

private:
    std::mutex mutex_;
    std::set<pid_t> pids_;
};

Started& Processes() {
    static auto* const started = new Started;  // outlives static destruction, for the signal thread
    return *started;
}

std::string g_workDir;  // set before the signal thread starts, read-only afterwards

void RemoveWorkDir() {
    if (g_workDir.empty()) {
        return;
    }
    if (DIR* dir = opendir(g_workDir.c_str())) {
        while (const dirent* entry = readdir(dir)) {
            if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) {
                unlink((g_workDir + "/" + entry->d_name).c_str());
            }
        }
        closedir(dir);
    }
    rmdir(g_workDir.c_str());
}

struct Pipe {
    int read = -1;
    int write = -1;
};

Pipe MakePipe() {
    int fds[2] = {-1, -1};
    if (pipe2(fds, O_CLOEXEC) != 0) {
        throw std::runtime_error(std::string("pipe: ") + std::strerror(errno));
    }
    return Pipe{fds[0], fds[1]};
}

void Close(int& fd) {
    if (fd >= 0) {
        close(fd);
        fd = -1;
    }
}

int DevNull() {
    static const int fd = open("/dev/null", O_RDWR | O_CLOEXEC);
    return fd;
}

/// A descriptor of boot_bench that a child gets as descriptor `to`.
struct Placement {
    int from;
    int to;
};

/// Runs in the child between fork and exec: async-signal-safe calls only.
[[noreturn]] void RunChild(
    pid_t parent, const Placement* placements, std::size_t count, char* const* argv, char* const* envp) {
    prctl(PR_SET_PDEATHSIG, static_cast<unsigned long>(SIGKILL));
    if (getppid() != parent) {
        _exit(127);  // boot_bench is gone already
    }
    setpgid(0, 0);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    int parked[8];
    for (std::size_t i = 0U; i < count && i < 8U; ++i) {
        parked[i] = fcntl(placements[i].from, F_DUPFD_CLOEXEC, CHILD_FD_PARKING);
        if (parked[i] < 0) {
            _exit(127);
        }
    }
    for (std::size_t i = 0U; i < count && i < 8U; ++i) {
        if (dup2(parked[i], placements[i].to) < 0) {
            _exit(127);
        }
    }
    execve(argv[0], argv, envp);
    _exit(127);
}

/// Starts `args` in a process group of its own that dies with boot_bench; -1 when fork fails.
pid_t Start(const std::vector<std::string>& args, const Environment& environment, const std::vector<Placement>& fds) {
    std::vector<std::string> argStore = args;
    std::vector<std::string> envStore = environment;
    std::vector<char*> argv;
    std::vector<char*> envp;
    for (std::string& arg : argStore) {
        argv.push_back(arg.data());
    }
    argv.push_back(nullptr);
    for (std::string& entry : envStore) {
        envp.push_back(entry.data());
    }
    envp.push_back(nullptr);
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid == 0) {
        RunChild(parent, fds.data(), fds.size(), argv.data(), envp.data());
    }
    if (pid < 0) {
        return -1;
    }
    setpgid(pid, pid);
    Processes().Add(pid);
    return pid;
}

bool HasExited(pid_t pid) {
    siginfo_t info{};
    return waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == pid;
}

/// Waits for the process to end and returns its wait status.
int Reap(pid_t pid) {
    Processes().Forget(pid);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

void KillGroup(pid_t pid) {
    kill(-pid, SIGKILL);
    kill(pid, SIGKILL);
}

std::string ExitText(int status) {
    if (WIFEXITED(status)) {
        return Format("exit %d", WEXITSTATUS(status));
    }
    if (WIFSIGNALED(status)) {
        const char* name = sigabbrev_np(WTERMSIG(status));
        return Format("signal SIG%s", name != nullptr ? name : "?");
    }
    return Format("status %d", status);
}

// ---------------------------------------------------------------------------------------------
// /proc

std::string ReadFile(const std::string& path) {
    std::string text;
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return text;
    }
    char buffer[4096];
    ssize_t got = 0;
    while ((got = read(fd, buffer, sizeof(buffer))) > 0) {
        text.append(buffer, static_cast<std::size_t>(got));
    }
    close(fd);
    return text;
}

std::string ProcPath(pid_t pid, const char* file) {
    return "/proc/" + std::to_string(pid) + "/" + file;
}

struct ProcStat {
    char state = '?';
    pid_t ppid = 0;
    unsigned long long utime = 0U;
    unsigned long long stime = 0U;
    long long cutime = 0;
    long long cstime = 0;
    long threads = 0;
    unsigned long long startTime = 0U;
};

std::optional<ProcStat> ReadStat(pid_t pid) {
    const std::string text = ReadFile(ProcPath(pid, "stat"));
    const std::size_t close = text.rfind(')');
    if (close == std::string::npos || close + 2U >= text.size()) {
        return std::nullopt;
    }
    ProcStat stat;
    const int fields = std::sscanf(text.c_str() + close + 2U,
                                   "%c %d %*d %*d %*d %*d %*u %*u %*u %*u %*u %llu %llu %lld %lld %*d %*d %ld %*d %llu",
                                   &stat.state,
                                   &stat.ppid,
                                   &stat.utime,
                                   &stat.stime,
                                   &stat.cutime,
                                   &stat.cstime,
                                   &stat.threads,
                                   &stat.startTime);
    return fields == 8 ? std::optional<ProcStat>(stat) : std::nullopt;
}

long Ticks() {
    static const long ticks = sysconf(_SC_CLK_TCK);
    return ticks;
}

double CpuSeconds(unsigned long long ticks) {
    return static_cast<double>(ticks) / static_cast<double>(Ticks());
}

unsigned long long OwnTicks(pid_t pid) {
    const auto stat = ReadStat(pid);
    return stat ? stat->utime + stat->stime : 0U;
}

struct Memory {
    long rssKib = -1;
    long threads = -1;
};

Memory ReadMemory(pid_t pid) {
    Memory memory;
    const std::string text = ReadFile(ProcPath(pid, "status"));
    for (std::size_t at = 0U; at < text.size();) {
        std::size_t end = text.find('\n', at);
        end = end == std::string::npos ? text.size() : end;
        const std::string line = text.substr(at, end - at);
        if (line.rfind("VmRSS:", 0) == 0) {
            memory.rssKib = std::strtol(line.c_str() + 6, nullptr, 10);
        } else if (line.rfind("Threads:", 0) == 0) {
            memory.threads = std::strtol(line.c_str() + 8, nullptr, 10);
        }
        at = end + 1U;
    }
    return memory;
}

std::vector<pid_t> AllPids() {
    std::vector<pid_t> pids;
    if (DIR* dir = opendir("/proc")) {
        while (const dirent* entry = readdir(dir)) {
            char* end = nullptr;
            const long pid = std::strtol(entry->d_name, &end, 10);
            if (*end == '\0' && pid > 0) {
                pids.push_back(static_cast<pid_t>(pid));
            }
        }
        closedir(dir);
    }
    return pids;
}

/// The children of `parent` (zombies included) by field 4 of every /proc/*/stat.
std::vector<std::pair<pid_t, ProcStat>> ChildrenOf(pid_t parent) {
    std::vector<std::pair<pid_t, ProcStat>> children;
    for (const pid_t pid : AllPids()) {
        const auto stat = ReadStat(pid);
        if (stat && stat->ppid == parent) {
            children.emplace_back(pid, *stat);
        }
    }
    std::sort(children.begin(), children.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    return children;
}

std::vector<std::string> CommandLine(pid_t pid) {
    std::vector<std::string> words;
    const std::string text = ReadFile(ProcPath(pid, "cmdline"));
    for (std::size_t at = 0U; at < text.size();) {
        std::size_t end = text.find('\0', at);
        end = end == std::string::npos ? text.size() : end;
        words.push_back(text.substr(at, end - at));
        at = end + 1U;
    }
    return words;
}

std::string LoadAverage() {
    const std::string text = ReadFile("/proc/loadavg");
    std::size_t end = 0U;
    for (int field = 0; field < 3 && end != std::string::npos; ++field) {
        end = text.find(' ', end + (field == 0 ? 0U : 1U));
    }
    return text.substr(0U, end);
}

/// A process as it was seen, so that a new process with a reused pid is not taken for it.
struct Seen {
    pid_t pid;
    unsigned long long startTime;
};

/// Reaps the children boot_bench did not start: the processes of a killed emd, which come to
/// boot_bench as their subreaper. Returns how many of them are still alive.
std::size_t ReapStrays() {
    std::size_t alive = 0U;
    for (const auto& [pid, stat] : ChildrenOf(getpid())) {
        if (Processes().Has(pid)) {
            continue;
        }
        if (stat.state == 'Z') {
            waitpid(pid, nullptr, WNOHANG);
        } else {
            ++alive;
        }
    }
    return alive;
}

/// Waits until no stray is alive; kills and counts those still there at the end.
std::size_t SettleStrays() {
    const auto deadline = Clock::now() + STRAY_LIMIT;
    while (ReapStrays() > 0U && Clock::now() < deadline) {
        std::this_thread::sleep_for(POLL_INTERVAL);
    }
    std::size_t killed = 0U;
    for (const auto& [pid, stat] : ChildrenOf(getpid())) {
        if (!Processes().Has(pid) && stat.state != 'Z') {
            KillGroup(pid);
            ++killed;
        }
    }
    if (killed != 0U) {
        std::this_thread::sleep_for(POLL_INTERVAL);
        ReapStrays();
    }
    return killed;
}

// ---------------------------------------------------------------------------------------------
// Standard error of emd (and of the floor), read on a thread of its own

/// Reads a pipe of log lines: counts emd's kRunning reports, remembers from which pid and when
/// each process reported last, and keeps the last lines for a failure report.
class LogWatch {
public:
    struct Report {
        pid_t pid;
        Clock::time_point at;
    };
    struct State {
        std::size_t reports = 0U;
        std::map<std::string, Report> running;
        std::set<std::string> failed;
        std::vector<double> launchUs;     // what each launch cost emd, from its log: waited
        std::vector<double> launchCpuUs;  // and CPU
        Clock::time_point lastReportAt;
        bool closed = false;
    };

    explicit LogWatch(int fd) : fd_(fd), thread_([this] { Run(); }) {}
    LogWatch(const LogWatch&) = delete;
    LogWatch& operator=(const LogWatch&) = delete;
    ~LogWatch() {
        stop_ = true;
        thread_.join();
        close(fd_);
    }

    /// Waits until `done` holds, evaluating it at least every 100 ms; false at the deadline.
    bool WaitUntil(const std::function<bool(const State&)>& done, Clock::time_point deadline) {
        std::unique_lock<std::mutex> lock(mutex_);
        for (;;) {
            if (done(state_)) {
                return true;
            }
            const auto now = Clock::now();
            if (now >= deadline) {
                return false;
            }
            changed_.wait_until(lock, std::min(deadline, now + std::chrono::milliseconds(100)));
        }
    }

    State Snapshot() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return state_;
    }

    std::vector<std::string> Tail() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return {tail_.begin(), tail_.end()};
    }

private:
    static std::string Field(const std::string& line, std::size_t from, char end) {
        const std::size_t stop = line.find_first_of(std::string(1, end) + "]", from);
        return line.substr(from, stop == std::string::npos ? std::string::npos : stop - from);
    }

    void Consume(const std::string& line, Clock::time_point now) {
        tail_.push_back(line.substr(0U, TAIL_LINE_CHARS));
        if (tail_.size() > TAIL_LINES) {
            tail_.pop_front();
        }
        std::size_t at = line.find(REPORTED_RUNNING);
        if (at != std::string::npos) {
            at += sizeof(REPORTED_RUNNING) - 1U;
            const std::string name = Field(line, at, ',');
            const std::size_t pidAt = line.find("pid=", at);
            const pid_t pid = pidAt == std::string::npos
                                  ? -1
                                  : static_cast<pid_t>(std::strtol(line.c_str() + pidAt + 4U, nullptr, 10));
            ++state_.reports;
            state_.running[name] = Report{pid, now};
            state_.lastReportAt = now;
            return;
        }
        if (line.find(LAUNCHED) != std::string::npos && (at = line.find(LAUNCH_US)) != std::string::npos) {
            state_.launchUs.push_back(std::strtod(line.c_str() + at + sizeof(LAUNCH_US) - 1U, nullptr));
            if ((at = line.find(LAUNCH_CPU_US)) != std::string::npos) {
                state_.launchCpuUs.push_back(std::strtod(line.c_str() + at + sizeof(LAUNCH_CPU_US) - 1U, nullptr));
            }
            return;
        }
        at = line.find(FAILED_TO_START);
        if (at != std::string::npos) {
            state_.failed.insert(Field(line, at + sizeof(FAILED_TO_START) - 1U, ','));
        }
    }

    void Run() {
        std::string partial;
        std::vector<char> buffer(65536U);
        while (!stop_) {
            pollfd readable{fd_, POLLIN, 0};
            if (poll(&readable, 1, 200) <= 0) {
                continue;
            }
            const ssize_t got = read(fd_, buffer.data(), buffer.size());
            if (got < 0 && errno == EINTR) {
                continue;
            }
            if (got <= 0) {
                break;
            }
            partial.append(buffer.data(), static_cast<std::size_t>(got));
            const auto now = Clock::now();
            {
                const std::lock_guard<std::mutex> lock(mutex_);
                std::size_t start = 0U;
                for (std::size_t end = partial.find('\n'); end != std::string::npos; end = partial.find('\n', start)) {
                    Consume(partial.substr(start, end - start), now);
                    start = end + 1U;
                }
                partial.erase(0U, start);
            }
            changed_.notify_all();
        }
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            state_.closed = true;
        }
        changed_.notify_all();
    }

    int fd_;
    std::atomic<bool> stop_{false};
    std::mutex mutex_;
    std::condition_variable changed_;
    State state_;
    std::deque<std::string> tail_;
    std::thread thread_;
};

/// Reads `fd` until a line `line` arrives (true), it closes, `pid` exits or the deadline passes.
bool WaitLine(int fd, const std::string& line, pid_t pid, Clock::time_point deadline) {
    std::string text;
    char buffer[256];
    while (Clock::now() < deadline) {
        pollfd readable{fd, POLLIN, 0};
        if (poll(&readable, 1, 50) > 0) {
            const ssize_t got = read(fd, buffer, sizeof(buffer));
            if (got <= 0) {
                return false;
            }
            text.append(buffer, static_cast<std::size_t>(got));
            if (text.find(line + "\n") != std::string::npos) {
                return true;
            }
        } else if (HasExited(pid)) {
            return false;
        }
    }
    return false;
}

// ---------------------------------------------------------------------------------------------
// The run's settings

struct Options {
    std::vector<std::size_t> counts{20U, 100U, 300U, 500U, 1000U};
    bool countsGiven = false;
    std::string reply = "bucket:16";
    std::string discovery = "hub";
    long floorHeartbeatMs = 1000;
    long idleSeconds = 10;
    long maxBootSeconds = 300;
    bool skipFloor = false;
    bool skipStack = false;
    long portBase = 21000;
    std::string emd = EMD;
    std::string demoApp = DEMO_APP;
    std::string emctl = EMCTL;
    std::string bootFloor = BOOT_FLOOR;
    bool soak = false;
    double minutes = 10.0;
    long killEmdEvery = 10;
    unsigned long long seed = 0U;
    bool seedGiven = false;
};

bool Number(const std::string& text, long low, long high, long& value) {
    char* end = nullptr;
    errno = 0;
    const long parsed = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno != 0 || parsed < low || parsed > high) {
        return false;
    }
    value = parsed;
    return true;
}

bool Counts(const std::string& text, std::vector<std::size_t>& counts) {
    counts.clear();
    std::size_t at = 0U;
    while (at <= text.size()) {
        std::size_t end = text.find(',', at);
        end = end == std::string::npos ? text.size() : end;
        long value = 0;
        if (!Number(text.substr(at, end - at), 1, 100000, value)) {
            return false;
        }
        counts.push_back(static_cast<std::size_t>(value));
        at = end + 1U;
    }
    return !counts.empty();
}

/// Fills `options`; false with `error` on a bad command line.
bool Parse(int argc, char** argv, Options& options, std::string& error) {
    for (int i = 1; i < argc; ++i) {
        const std::string name = argv[i];
        if (name == "--help" || name == "-h") {
            std::fputs(USAGE, stdout);
            std::exit(0);
        }
        if (name == "--skip-floor" || name == "--skip-stack" || name == "--soak") {
            (name == "--soak" ? options.soak : name == "--skip-floor" ? options.skipFloor : options.skipStack) = true;
            continue;
        }
        static const std::set<std::string> WITH_VALUE = {"--n",
                                                         "--reply",
                                                         "--discovery",
                                                         "--floor-heartbeat",
                                                         "--idle-seconds",
                                                         "--max-boot-seconds",
                                                         "--port-base",
                                                         "--emd",
                                                         "--demo-app",
                                                         "--emctl",
                                                         "--boot-floor",
                                                         "--minutes",
                                                         "--kill-emd-every",
                                                         "--seed"};
        if (WITH_VALUE.count(name) == 0U) {
            error = "unknown option " + name;
            return false;
        }
        if (i + 1 >= argc) {
            error = name + " needs a value";
            return false;
        }
        const std::string value = argv[++i];
        bool good = true;
        if (name == "--n") {
            good = Counts(value, options.counts);
            options.countsGiven = true;
        } else if (name == "--reply") {
            options.reply = value;
        } else if (name == "--discovery") {
            options.discovery = value;
            good = value == "hub" || value == "multicast";
        } else if (name == "--floor-heartbeat") {
            good = Number(value, 1, 60000, options.floorHeartbeatMs);
        } else if (name == "--idle-seconds") {
            good = Number(value, 0, 86400, options.idleSeconds);
        } else if (name == "--max-boot-seconds") {
            good = Number(value, 1, 86400, options.maxBootSeconds);
        } else if (name == "--port-base") {
            good = Number(value, 1024, 64000, options.portBase);
        } else if (name == "--emd") {
            options.emd = value;
        } else if (name == "--demo-app") {
            options.demoApp = value;
        } else if (name == "--emctl") {
            options.emctl = value;
        } else if (name == "--boot-floor") {
            options.bootFloor = value;
        } else if (name == "--minutes") {
            char* end = nullptr;
            options.minutes = std::strtod(value.c_str(), &end);
            good = !value.empty() && *end == '\0' && options.minutes > 0.0 && options.minutes <= 100000.0;
        } else if (name == "--kill-emd-every") {
            good = Number(value, 0, 1000000, options.killEmdEvery);
        } else if (name == "--seed") {
            long seed = 0;
            good = Number(value, 0, LONG_MAX, seed);
            options.seed = static_cast<unsigned long long>(seed);
            options.seedGiven = true;
        }
        if (!good) {
            error = "bad value for " + name + ": " + value;
            return false;
        }
    }
    if (options.soak) {
        if (!options.countsGiven) {
            options.counts = {100U};
        }
        if (options.counts.size() != 1U) {
            error = "--soak takes one --n";
            return false;
        }
    }
    for (std::string* path : {&options.emd, &options.demoApp, &options.emctl, &options.bootFloor}) {
        char resolved[PATH_MAX];
        if (path->empty() || realpath(path->c_str(), resolved) == nullptr || access(resolved, X_OK) != 0) {
            error = "not an executable: '" + *path + "' (see --emd, --demo-app, --emctl, --boot-floor)";
            return false;
        }
        *path = resolved;
    }
    return true;
}

std::string Quoted(const std::string& word) {
    if (!word.empty() &&
        word.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-+=.,:/@%") ==
            std::string::npos) {
        return word;
    }
    std::string quoted = "'";
    for (const char c : word) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
}

std::string Tag() {
    return "boot-" + std::to_string(getpid());
}

/// boot_bench's environment without what would choose another DDS configuration or log sink;
/// for the stack with this run's tag, port base and discovery.
Environment BaseEnvironment(const Options& options, bool stack) {
    static const char* const DROPPED[] = {"CYCLONEDDS_URI=",
                                          "KELP_DDS_CONFIG=",
                                          "KELP_DDS_DISCOVERY=",
                                          "KELP_DDS_PEERS=",
                                          "ARA_LOG_SINK=",
                                          "ARA_LOG_LEVEL="};
    Environment environment;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        const std::string text = *entry;
        if (std::none_of(
                std::begin(DROPPED), std::end(DROPPED), [&](const char* name) { return text.rfind(name, 0) == 0; })) {
            environment.push_back(text);
        }
    }
    if (stack) {
        environment.push_back("KELP_DDS_CONFIG=<Discovery><Tag>" + Tag() + "</Tag><Ports><Base>" +
                              std::to_string(options.portBase) + "</Base></Ports></Discovery>");
        environment.push_back("KELP_DDS_DISCOVERY=" + options.discovery);
    }
    return environment;
}

std::string JsonText(const std::string& text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
        }
        out += c;
    }
    return out + "\"";
}

/// Writes the machine manifest: MachineFG with the one state Running, and app0..app{n-1}.
std::string WriteManifest(const Options& options, std::size_t n, bool restart) {
    const long startupMs = std::min(3600000L, std::max(600000L, (options.maxBootSeconds + 60L) * 1000L));
    std::string text =
        "{\"functionGroups\": {\"MachineFG\": {\"states\": [\"Running\"], \"initialState\": \"Running\"}},\n"
        " \"processes\": {";
    for (std::size_t i = 0U; i < n; ++i) {
        const std::string name = "app" + std::to_string(i);
        text += std::string(i == 0U ? "" : ",") + "\n  \"" + name +
                "\": {\"executable\": " + JsonText(options.demoApp) + ", \"arguments\": [\"" + name + "\", \"" +
                std::to_string(APP_INTERVAL_MS) +
                "\"], \"environment\": {\"ARA_LOG_LEVEL\": \"error\"}, \"functionGroup\": \"MachineFG\", "
                "\"states\": [\"Running\"], \"startupTimeoutMs\": " +
                std::to_string(startupMs);
        if (restart) {
            text += ", \"restart\": {\"maxRestarts\": " + std::to_string(MAX_RESTARTS) +
                    ", \"backoffMs\": " + std::to_string(RESTART_BACKOFF_MS) + "}";
        }
        text += "}";
    }
    text += "}}\n";
    const std::string path = g_workDir + "/manifest_" + std::to_string(n) + (restart ? "_restart" : "") + ".json";
    FILE* file = std::fopen(path.c_str(), "we");
    if (file == nullptr || std::fputs(text.c_str(), file) < 0 || std::fclose(file) != 0) {
        throw std::runtime_error("cannot write " + path);
    }
    return path;
}

// ---------------------------------------------------------------------------------------------
// emctl

struct Ran {
    int status = -1;  // wait status; -1 when it could not be started
    bool timedOut = false;
    std::string out;
    std::string err;
    Clock::duration took{};
};

Ran RunTool(const std::vector<std::string>& args, const Environment& environment, bool keepOut) {
    Ran ran;
    Pipe out = keepOut ? MakePipe() : Pipe{};
    Pipe err = MakePipe();
    const auto start = Clock::now();
    const pid_t pid = Start(args, environment, {{DevNull(), 0}, {keepOut ? out.write : DevNull(), 1}, {err.write, 2}});
    Close(out.write);
    Close(err.write);
    if (pid < 0) {
        Close(out.read);
        Close(err.read);
        ran.err = "cannot start " + args[0];
        return ran;
    }
    const auto deadline = start + TOOL_LIMIT;
    while (out.read >= 0 || err.read >= 0) {
        if (Clock::now() >= deadline) {
            ran.timedOut = true;
            KillGroup(pid);
            break;
        }
        pollfd fds[2] = {{out.read, POLLIN, 0}, {err.read, POLLIN, 0}};
        if (poll(fds, 2, 100) <= 0) {
            continue;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0) {
                continue;
            }
            char buffer[4096];
            const ssize_t got = read(fds[i].fd, buffer, sizeof(buffer));
            if (got > 0) {
                (i == 0 ? ran.out : ran.err).append(buffer, static_cast<std::size_t>(got));
            } else if (got == 0 || errno != EINTR) {
                Close(i == 0 ? out.read : err.read);
            }
        }
    }
    Close(out.read);
    Close(err.read);
    ran.status = Reap(pid);
    ran.took = Clock::now() - start;
    return ran;
}

std::string FirstLine(const std::string& text) {
    return text.substr(0U, text.find('\n'));
}

/// Polls `emctl ps --json` until it lists the n processes all Running; false with `why` at the deadline.
bool AllRunning(const Options& options,
                const Environment& environment,
                std::size_t n,
                Clock::time_point deadline,
                std::string& why) {
    for (;;) {
        const Ran ran = RunTool({options.emctl, "ps", "--json"}, environment, true);
        if (ran.status != 0) {
            why = "emctl ps --json: " + (ran.timedOut ? std::string("timed out") : ExitText(ran.status)) + " " +
                  FirstLine(ran.err);
        } else {
            std::size_t listed = 0U;
            std::size_t running = 0U;
            std::string others;
            for (std::size_t at = ran.out.find("\"name\": \""); at != std::string::npos;
                 at = ran.out.find("\"name\": \"", at + 1U)) {
                const std::size_t nameAt = at + 9U;
                const std::string name = ran.out.substr(nameAt, ran.out.find('"', nameAt) - nameAt);
                const std::size_t stateAt = ran.out.find("\"state\": \"", nameAt);
                const std::string state =
                    stateAt == std::string::npos
                        ? "?"
                        : ran.out.substr(stateAt + 10U, ran.out.find('"', stateAt + 10U) - stateAt - 10U);
                ++listed;
                if (state == "Running") {
                    ++running;
                } else if (others.size() < 200U) {
                    others += " " + name + "=" + state;
                }
            }
            if (listed == n && running == n) {
                return true;
            }
            why = Format("emctl ps --json: %zu listed, %zu Running;", listed, running) + others;
        }
        if (Clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
}

// ---------------------------------------------------------------------------------------------
// Boot mode

struct Figures {
    std::string system;  // "floor" or "stack"
    std::size_t n = 0U;
    bool ok = false;
    std::string failure;
    std::vector<std::string> tail;
    double readyMs = -1.0;
    double bootMs = -1.0;
    std::size_t up = 0U;
    double serverCpuToUp = -1.0;
    double appsCpuToUp = -1.0;
    Memory server;
    Memory app;
    unsigned long long idleAppTicks = 0U;
    unsigned long long idleServerTicks = 0U;
    double psMedianMs = -1.0;
    std::vector<double> launchUs;     // sorted
    std::vector<double> launchCpuUs;  // sorted
    std::vector<int> psStatus;
    double stopMs = -1.0;
    std::string exitText;
    double serverCpuRun = -1.0;
    double appsCpuRun = -1.0;
};

void PrintHeader(const Options& options, const char* what, std::size_t n) {
    Say("");
    Say(Format("== %s, N=%zu (reply %s, discovery %s, tag %s, port base %ld); load average %s",
               what,
               n,
               options.reply.c_str(),
               options.discovery.c_str(),
               Tag().c_str(),
               options.portBase,
               LoadAverage().c_str()));
}

void PrintFigures(const Options& options, const Figures& f) {
    const bool stack = f.system == "stack";
    const char* server = stack ? "emd" : "server";
    const char* app = stack ? "app0" : "client 0";
    const char* apps = stack ? "apps" : "clients";
    const auto row = [](const char* label, const std::string& text) { Say(Format("  %-24s %s", label, text.c_str())); };
    if (f.readyMs >= 0.0) {
        row("ready", Format("%.1f ms (%s's ready line)", f.readyMs, server));
    }
    row("boot",
        Format("%s: %zu of %zu %s",
               f.bootMs >= 0.0 ? Format("%.1f ms", f.bootMs).c_str() : "incomplete",
               f.up,
               f.n,
               stack ? "reported kRunning" : "clients had their reply"));
    if (f.serverCpuToUp >= 0.0) {
        row("CPU until all up",
            Format("%s %.3f s, %zu %s %.3f s (%.4f s each)",
                   server,
                   f.serverCpuToUp,
                   f.n,
                   apps,
                   f.appsCpuToUp,
                   f.appsCpuToUp / static_cast<double>(f.n)));
    }
    const auto spread = [](const std::vector<double>& sorted) {
        const auto at = [&sorted](double share) {
            return sorted[static_cast<std::size_t>(share * static_cast<double>(sorted.size() - 1U))];
        };
        return Format("median %.0f us, p95 %.0f us, max %.0f us", at(0.5), at(0.95), sorted.back());
    };
    if (!f.launchUs.empty()) {
        row("launch: emd waits", Format("%s over %zu launches", spread(f.launchUs).c_str(), f.launchUs.size()));
    }
    if (!f.launchCpuUs.empty()) {
        row("launch: emd's CPU", spread(f.launchCpuUs));
    }
    if (f.server.rssKib >= 0) {
        row("memory (all up + 1 s)",
            Format("%s %.1f MiB, %ld threads; %s %.1f MiB, %ld threads",
                   server,
                   Mib(f.server.rssKib),
                   f.server.threads,
                   app,
                   Mib(f.app.rssKib),
                   f.app.threads));
        row(Format("idle CPU over %ld s", options.idleSeconds).c_str(),
            Format("%s %llu ticks (%.3f s); %s %llu ticks (%.3f s)",
                   app,
                   f.idleAppTicks,
                   CpuSeconds(f.idleAppTicks),
                   server,
                   f.idleServerTicks,
                   CpuSeconds(f.idleServerTicks)));
    }
    if (!f.psStatus.empty()) {
        std::string exits;
        for (const int status : f.psStatus) {
            exits += (exits.empty() ? "" : ", ") + ExitText(status);
        }
        row("emctl ps", Format("median %.1f ms (%s)", f.psMedianMs, exits.c_str()));
    }
    if (f.stopMs >= 0.0) {
        row("stop", Format("%.1f ms, %s %s", f.stopMs, server, f.exitText.c_str()));
    }
    if (f.serverCpuRun >= 0.0) {
        row("CPU over the whole run", Format("%s %.3f s, %s %.3f s", server, f.serverCpuRun, apps, f.appsCpuRun));
    }
    if (!f.ok) {
        row("FAILED", f.failure);
        if (!f.tail.empty()) {
            Say(Format("  last %zu lines of %s's standard error:", f.tail.size(), stack ? "emd" : "the floor"));
            for (const std::string& line : f.tail) {
                Say("    " + line);
            }
        }
    }
}

/// Runs the floor: boot_floor server, then n clients that each make one round trip.
Figures BootFloor(const Options& options, std::size_t n, const Environment& environment) {
    Figures f;
    f.system = "floor";
    f.n = n;
    PrintHeader(options, "floor", n);
    const std::vector<std::string> common = {"--reply",
                                             options.reply,
                                             "--tag",
                                             Tag(),
                                             "--base",
                                             std::to_string(options.portBase),
                                             "--discovery",
                                             options.discovery,
                                             "--heartbeat",
                                             std::to_string(options.floorHeartbeatMs)};
    std::vector<std::string> serverArgs = {options.bootFloor, "server"};
    serverArgs.insert(serverArgs.end(), common.begin(), common.end());
    std::vector<std::string> clientArgs = {options.bootFloor, "client"};
    clientArgs.insert(clientArgs.end(), common.begin(), common.end());
    clientArgs.insert(clientArgs.end(), {"--done-fd", "3"});

    Pipe ready = MakePipe();
    Pipe errors = MakePipe();
    Pipe done = MakePipe();
    const auto start = Clock::now();
    const auto deadline = start + std::chrono::seconds(options.maxBootSeconds);
    const pid_t server = Start(serverArgs, environment, {{DevNull(), 0}, {ready.write, 1}, {errors.write, 2}});
    Close(ready.write);
    LogWatch log(errors.read);
    std::vector<pid_t> clients;
    const auto fail = [&](const std::string& why) {
        f.failure = why;
        for (const pid_t pid : clients) {
            KillGroup(pid);
        }
        if (server > 0) {
            KillGroup(server);
            Reap(server);
        }
        for (const pid_t pid : clients) {
            Reap(pid);
        }
        Close(ready.read);
        Close(errors.write);
        Close(done.read);
        Close(done.write);
        f.tail = log.Tail();
        return f;
    };
    if (server < 0) {
        return fail("cannot start boot_floor server");
    }
    if (!WaitLine(ready.read, "ready", server, deadline)) {
        return fail(HasExited(server) ? "the server exited before it was ready" : "the server was not ready in time");
    }
    f.readyMs = Millis(Clock::now() - start);
    Close(ready.read);
    for (std::size_t i = 0U; i < n; ++i) {
        const pid_t pid =
            Start(clientArgs, environment, {{DevNull(), 0}, {DevNull(), 1}, {errors.write, 2}, {done.write, 3}});
        if (pid < 0) {
            return fail(Format("cannot start client %zu: %s", i, std::strerror(errno)));
        }
        clients.push_back(pid);
    }
    Close(done.write);
    Close(errors.write);

    Clock::time_point upAt;
    while (f.up < n && Clock::now() < deadline && !HasExited(server)) {
        pollfd readable{done.read, POLLIN, 0};
        if (poll(&readable, 1, 100) > 0) {
            char buffer[1024];
            const ssize_t got = read(done.read, buffer, sizeof(buffer));
            if (got <= 0) {
                break;
            }
            f.up += static_cast<std::size_t>(got);
            upAt = Clock::now();
        }
    }
    if (f.up < n) {
        return fail(Format("%zu of %zu clients had their reply after %.1f s%s",
                           f.up,
                           n,
                           Seconds(Clock::now() - start),
                           HasExited(server) ? " (the server exited)" : ""));
    }
    f.bootMs = Millis(upAt - start);
    f.serverCpuToUp = CpuSeconds(OwnTicks(server));
    unsigned long long clientTicks = 0U;
    for (const pid_t pid : clients) {
        clientTicks += OwnTicks(pid);
    }
    f.appsCpuToUp = CpuSeconds(clientTicks);
    std::this_thread::sleep_for(std::chrono::seconds(1));
    f.server = ReadMemory(server);
    f.app = ReadMemory(clients.front());
    const unsigned long long appBefore = OwnTicks(clients.front());
    const unsigned long long serverBefore = OwnTicks(server);
    std::this_thread::sleep_for(std::chrono::seconds(options.idleSeconds));
    f.idleAppTicks = OwnTicks(clients.front()) - appBefore;
    f.idleServerTicks = OwnTicks(server) - serverBefore;
    Close(done.read);

    // Stop: SIGTERM to all; each is reaped with its own CPU figures.
    const auto stopAt = Clock::now();
    kill(server, SIGTERM);
    for (const pid_t pid : clients) {
        kill(pid, SIGTERM);
    }
    std::set<pid_t> remaining(clients.begin(), clients.end());
    remaining.insert(server);
    double serverCpu = 0.0;
    double clientCpu = 0.0;
    std::size_t badExits = 0U;
    int serverStatus = 0;
    while (!remaining.empty()) {
        for (auto it = remaining.begin(); it != remaining.end();) {
            int status = 0;
            rusage usage{};
            if (wait4(*it, &status, WNOHANG, &usage) != *it) {
                ++it;
                continue;
            }
            Processes().Forget(*it);
            const double cpu = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                               static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
            if (*it == server) {
                serverCpu = cpu;
                serverStatus = status;
            } else {
                clientCpu += cpu;
                badExits += status == 0 ? 0U : 1U;
            }
            it = remaining.erase(it);
        }
        if (remaining.empty()) {
            break;
        }
        if (Clock::now() - stopAt > STOP_LIMIT) {
            f.failure =
                Format("%zu processes still alive %.0f s after SIGTERM, killed", remaining.size(), Seconds(STOP_LIMIT));
            for (const pid_t pid : remaining) {
                KillGroup(pid);
                Reap(pid);
            }
            break;
        }
        std::this_thread::sleep_for(POLL_INTERVAL);
    }
    f.stopMs = Millis(Clock::now() - stopAt);
    f.exitText = ExitText(serverStatus);
    f.serverCpuRun = serverCpu;
    f.appsCpuRun = clientCpu;
    if (f.failure.empty() && serverStatus != 0) {
        f.failure = "the server ended with " + f.exitText;
    }
    if (f.failure.empty() && badExits != 0U) {
        f.failure = Format("%zu clients did not exit 0", badExits);
    }
    f.ok = f.failure.empty();
    if (!f.ok) {
        f.tail = log.Tail();
    }
    return f;
}

struct Emd {
    pid_t pid = -1;
    std::unique_ptr<LogWatch> log;
    double readyMs = -1.0;
};

/// Starts emd with its standard error on a LogWatch and waits for its ready line.
bool StartEmd(const Options& options,
              const Environment& environment,
              const std::string& manifest,
              Clock::time_point deadline,
              Emd& emd,
              std::string& failure) {
    Pipe ready = MakePipe();
    Pipe errors = MakePipe();
    const auto start = Clock::now();
    emd.pid = Start({options.emd, "--manifest", manifest, "--log", "console", "--log-level", "info", "--ready-fd", "3"},
                    environment,
                    {{DevNull(), 0}, {DevNull(), 1}, {errors.write, 2}, {ready.write, 3}});
    Close(ready.write);
    Close(errors.write);
    emd.log = std::make_unique<LogWatch>(errors.read);
    if (emd.pid < 0) {
        Close(ready.read);
        failure = "cannot start emd";
        return false;
    }
    const bool isReady = WaitLine(ready.read, "ready", emd.pid, deadline);
    Close(ready.read);
    if (!isReady) {
        failure = HasExited(emd.pid) ? "emd exited before it was ready" : "emd was not ready in time";
        return false;
    }
    emd.readyMs = Millis(Clock::now() - start);
    return true;
}

/// SIGKILLs emd; its processes die by their death signal and are reaped as strays. `outlived`
/// counts those still alive after STRAY_LIMIT, which had to be killed here.
int KillEmd(Emd& emd, std::size_t* outlived = nullptr) {
    KillGroup(emd.pid);
    const int status = Reap(emd.pid);
    const std::size_t survivors = SettleStrays();
    if (outlived != nullptr) {
        *outlived = survivors;
    }
    return status;
}

struct Stopped {
    std::string failure;
    double ms = -1.0;
    int status = -1;
    double emdCpu = -1.0;
    double appsCpu = -1.0;
};

/// SIGTERM to emd, then waits until it has exited and none of `apps` exists; emd's own CPU and
/// that of its reaped processes are read from its stat while it is a zombie.
Stopped StopEmd(Emd& emd, std::vector<Seen> apps) {
    Stopped stopped;
    const auto start = Clock::now();
    kill(emd.pid, SIGTERM);
    bool exited = false;
    for (;;) {
        if (!exited && HasExited(emd.pid)) {
            exited = true;
            if (const auto stat = ReadStat(emd.pid)) {
                stopped.emdCpu = CpuSeconds(stat->utime + stat->stime);
                stopped.appsCpu =
                    CpuSeconds(static_cast<unsigned long long>(std::max(0LL, stat->cutime + stat->cstime)));
            }
        }
        if (exited) {
            apps.erase(std::remove_if(apps.begin(),
                                      apps.end(),
                                      [&](const Seen& app) {
                                          const auto stat = ReadStat(app.pid);
                                          return !stat || stat->startTime != app.startTime || stat->state == 'Z';
                                      }),
                       apps.end());
            if (apps.empty()) {
                break;
            }
        }
        if (Clock::now() - start > STOP_LIMIT) {
            stopped.failure = Format("%s%zu processes still alive %.0f s after SIGTERM, killed",
                                     exited ? "" : "emd and ",
                                     apps.size(),
                                     Seconds(STOP_LIMIT));
            KillGroup(emd.pid);
            for (const Seen& app : apps) {
                KillGroup(app.pid);
            }
            break;
        }
        std::this_thread::sleep_for(POLL_INTERVAL);
    }
    stopped.ms = Millis(Clock::now() - start);
    stopped.status = Reap(emd.pid);
    SettleStrays();
    if (stopped.failure.empty() && stopped.status != 0) {
        stopped.failure = "emd ended with " + ExitText(stopped.status);
    }
    return stopped;
}

std::vector<Seen> LiveChildren(pid_t parent) {
    std::vector<Seen> children;
    for (const auto& [pid, stat] : ChildrenOf(parent)) {
        if (stat.state != 'Z') {
            children.push_back(Seen{pid, stat.startTime});
        }
    }
    return children;
}

/// Runs the stack: emd with n demo_app processes.
Figures BootStack(const Options& options, std::size_t n, const Environment& environment) {
    Figures f;
    f.system = "stack";
    f.n = n;
    const std::string manifest = WriteManifest(options, n, false);
    PrintHeader(options, "stack", n);
    const auto start = Clock::now();
    const auto deadline = start + std::chrono::seconds(options.maxBootSeconds);
    Emd emd;
    const auto fail = [&](const std::string& why) {
        f.failure = why;
        if (emd.pid > 0) {
            KillEmd(emd);
        }
        if (emd.log) {
            f.tail = emd.log->Tail();
        }
        return f;
    };
    std::string failure;
    if (!StartEmd(options, environment, manifest, deadline, emd, failure)) {
        return fail(failure);
    }
    f.readyMs = emd.readyMs;
    bool emdExited = false;
    const bool up = emd.log->WaitUntil(
        [&](const LogWatch::State& state) {
            std::size_t accounted = state.running.size();
            for (const std::string& name : state.failed) {
                accounted += state.running.count(name) == 0U ? 1U : 0U;
            }
            emdExited = HasExited(emd.pid);
            return state.reports >= n || accounted >= n || emdExited;
        },
        deadline);
    const LogWatch::State state = emd.log->Snapshot();
    f.up = std::min(state.reports, n);
    if (state.reports < n) {
        const std::string why = emdExited ? "emd exited"
                                : up      ? Format("%zu failed to start", state.failed.size())
                                          : "time is up";
        return fail(Format("%zu of %zu reported kRunning after %.1f s (%s)",
                           state.reports,
                           n,
                           Seconds(Clock::now() - start),
                           why.c_str()));
    }
    f.bootMs = Millis(state.lastReportAt - start);
    f.launchUs = state.launchUs;
    std::sort(f.launchUs.begin(), f.launchUs.end());
    f.launchCpuUs = state.launchCpuUs;
    std::sort(f.launchCpuUs.begin(), f.launchCpuUs.end());
    const std::vector<Seen> apps = LiveChildren(emd.pid);
    f.serverCpuToUp = CpuSeconds(OwnTicks(emd.pid));
    unsigned long long appTicks = 0U;
    for (const Seen& app : apps) {
        appTicks += OwnTicks(app.pid);
    }
    f.appsCpuToUp = CpuSeconds(appTicks);
    const auto first = state.running.find("app0");
    const pid_t app = first != state.running.end() ? first->second.pid : apps.empty() ? -1 : apps.front().pid;
    if (apps.size() != n) {
        return fail(Format("emd has %zu live children, not %zu", apps.size(), n));
    }
    std::this_thread::sleep_for(std::chrono::seconds(1));
    f.server = ReadMemory(emd.pid);
    f.app = ReadMemory(app);
    const unsigned long long appBefore = OwnTicks(app);
    const unsigned long long emdBefore = OwnTicks(emd.pid);
    std::this_thread::sleep_for(std::chrono::seconds(options.idleSeconds));
    f.idleAppTicks = OwnTicks(app) - appBefore;
    f.idleServerTicks = OwnTicks(emd.pid) - emdBefore;

    std::vector<double> psTimes;
    for (int i = 0; i < PS_RUNS; ++i) {
        const Ran ran = RunTool({options.emctl, "ps"}, environment, false);
        psTimes.push_back(Millis(ran.took));
        f.psStatus.push_back(ran.status);
        if (ran.status != 0 && f.failure.empty()) {
            f.failure = "emctl ps: " + (ran.timedOut ? std::string("timed out") : ExitText(ran.status)) + " " +
                        FirstLine(ran.err);
        }
    }
    f.psMedianMs = Median(psTimes);

    const Stopped stopped = StopEmd(emd, apps);
    f.stopMs = stopped.ms;
    f.exitText = ExitText(stopped.status);
    f.serverCpuRun = stopped.emdCpu;
    f.appsCpuRun = stopped.appsCpu;
    if (f.failure.empty()) {
        f.failure = stopped.failure;
    }
    f.ok = f.failure.empty();
    if (!f.ok) {
        f.tail = emd.log->Tail();
    }
    return f;
}

struct Row {
    std::size_t n;
    std::optional<Figures> floor;
    std::optional<Figures> stack;
};

std::string Pair(const std::optional<Figures>& floor,
                 const std::optional<Figures>& stack,
                 const std::function<std::string(const Figures&)>& cell) {
    const auto one = [&](const std::optional<Figures>& f) { return f && f->ok ? cell(*f) : std::string("-"); };
    return one(floor) + " / " + one(stack);
}

void PrintTable(const Options& options, const std::vector<Row>& rows) {
    Say("");
    Say(Format("Summary (reply %s, discovery %s, idle window %ld s); each cell is floor / stack:",
               options.reply.c_str(),
               options.discovery.c_str(),
               options.idleSeconds));
    Say("");
    Say("| N | boot (s) | stack / floor | CPU until up: server+clients / emd+apps (s) | RSS server / emd (MiB) "
        "| RSS client / app (MiB) | threads server / emd | threads client / app | idle CPU client / app (ticks) "
        "| emctl ps (ms) | stop (s) | CPU whole run: server+clients / emd+apps (s) |");
    Say("|---|---|---|---|---|---|---|---|---|---|---|---|");
    for (const Row& row : rows) {
        const auto boot = [](const std::optional<Figures>& f) {
            if (!f) {
                return std::string("-");
            }
            if (f->bootMs < 0.0) {
                return Format("failed (%zu/%zu)", f->up, f->n);
            }
            return Format("%.2f", f->bootMs / 1000.0) + (f->ok ? "" : " (failed later)");
        };
        const bool both = row.floor && row.stack && row.floor->bootMs > 0.0 && row.stack->bootMs >= 0.0;
        const std::string ratio = both ? Format("%.2f", row.stack->bootMs / row.floor->bootMs) : "-";
        const std::string ps = row.stack && row.stack->psMedianMs >= 0.0 ? Format("%.0f", row.stack->psMedianMs) : "-";
        Say(Format(
            "| %zu | %s / %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s |",
            row.n,
            boot(row.floor).c_str(),
            boot(row.stack).c_str(),
            ratio.c_str(),
            Pair(row.floor,
                 row.stack,
                 [](const Figures& f) { return Format("%.2f+%.2f", f.serverCpuToUp, f.appsCpuToUp); })
                .c_str(),
            Pair(row.floor, row.stack, [](const Figures& f) { return Format("%.1f", Mib(f.server.rssKib)); }).c_str(),
            Pair(row.floor, row.stack, [](const Figures& f) { return Format("%.1f", Mib(f.app.rssKib)); }).c_str(),
            Pair(row.floor, row.stack, [](const Figures& f) { return std::to_string(f.server.threads); }).c_str(),
            Pair(row.floor, row.stack, [](const Figures& f) { return std::to_string(f.app.threads); }).c_str(),
            Pair(row.floor, row.stack, [](const Figures& f) { return std::to_string(f.idleAppTicks); }).c_str(),
            ps.c_str(),
            Pair(row.floor, row.stack, [](const Figures& f) { return Format("%.2f", f.stopMs / 1000.0); }).c_str(),
            Pair(row.floor, row.stack, [](const Figures& f) {
                return Format("%.2f+%.2f", f.serverCpuRun, f.appsCpuRun);
            }).c_str()));
    }
}

int Boot(const Options& options) {
    const Environment floorEnvironment = BaseEnvironment(options, false);
    const Environment stackEnvironment = BaseEnvironment(options, true);
    std::vector<Row> rows;
    bool floorBroken = false;
    bool stackBroken = false;
    bool failed = false;
    for (const std::size_t n : options.counts) {
        Row row{n, std::nullopt, std::nullopt};
        if (!options.skipFloor && !floorBroken) {
            row.floor = BootFloor(options, n, floorEnvironment);
            PrintFigures(options, *row.floor);
            floorBroken = !row.floor->ok;
        }
        if (!options.skipStack && !stackBroken) {
            row.stack = BootStack(options, n, stackEnvironment);
            PrintFigures(options, *row.stack);
            stackBroken = !row.stack->ok;
        }
        failed = failed || floorBroken || stackBroken;
        if (!row.floor && !row.stack) {
            break;
        }
        rows.push_back(std::move(row));
    }
    if (floorBroken || stackBroken) {
        Say("");
        Say(Format("a failed run skips the larger N of its system (%s%s)",
                   floorBroken ? "floor" : "",
                   floorBroken && stackBroken ? " and stack"
                   : stackBroken              ? "stack"
                                              : ""));
    }
    PrintTable(options, rows);
    return failed ? 1 : 0;
}

// ---------------------------------------------------------------------------------------------
// Soak mode

/// Zombie children of emd that are still there a second later: emd did not reap them.
std::vector<pid_t> LingeringZombies(pid_t emd) {
    std::vector<Seen> zombies;
    for (const auto& [pid, stat] : ChildrenOf(emd)) {
        if (stat.state == 'Z') {
            zombies.push_back(Seen{pid, stat.startTime});
        }
    }
    if (zombies.empty()) {
        return {};
    }
    std::this_thread::sleep_for(ZOMBIE_GRACE);
    std::vector<pid_t> lingering;
    for (const Seen& zombie : zombies) {
        const auto stat = ReadStat(zombie.pid);
        if (stat && stat->startTime == zombie.startTime && stat->state == 'Z' && stat->ppid == emd) {
            lingering.push_back(zombie.pid);
        }
    }
    return lingering;
}

/// Live demo_app processes of this run (its executable, an "app" argument and this run's tag in
/// the environment) whose parent is not `emd`.
std::vector<pid_t> Orphans(const Options& options, pid_t emd) {
    const std::string tag = "<Tag>" + Tag() + "</Tag>";
    std::vector<pid_t> orphans;
    for (const pid_t pid : AllPids()) {
        const auto stat = ReadStat(pid);
        if (!stat || stat->ppid == emd || stat->state == 'Z') {
            continue;
        }
        const std::vector<std::string> words = CommandLine(pid);
        if (words.size() >= 2U && words[0] == options.demoApp && words[1].rfind("app", 0) == 0 &&
            ReadFile(ProcPath(pid, "environ")).find(tag) != std::string::npos) {
            orphans.push_back(pid);
        }
    }
    return orphans;
}

std::string PidList(const std::vector<pid_t>& pids) {
    std::string text;
    for (const pid_t pid : pids) {
        text += (text.empty() ? "" : " ") + std::to_string(pid);
    }
    return text;
}

/// One emd over its own life: its resident memory after each step.
struct Instance {
    pid_t pid;
    std::size_t firstStep;
    std::vector<long> rssKib;
};

int Soak(const Options& options) {
    const Environment environment = BaseEnvironment(options, true);
    const std::size_t n = options.counts.front();
    const std::string manifest = WriteManifest(options, n, true);
    const unsigned long long seed =
        options.seedGiven ? options.seed : static_cast<unsigned long long>(Clock::now().time_since_epoch().count());
    std::mt19937_64 random(seed);
    Say("");
    Say(
        Format("== soak, N=%zu for %.1f min, emd killed %s, seed %llu (discovery %s, tag %s, port base "
               "%ld); load average %s",
               n,
               options.minutes,
               options.killEmdEvery > 0 ? Format("every %ld steps", options.killEmdEvery).c_str() : "never",
               seed,
               options.discovery.c_str(),
               Tag().c_str(),
               options.portBase,
               LoadAverage().c_str()));

    std::vector<std::string> failures;
    std::vector<Instance> instances;
    std::vector<std::unique_ptr<LogWatch>> retired;
    Emd emd;
    const auto boot = [&](Clock::time_point deadline, std::string& why) {
        if (!StartEmd(options, environment, manifest, deadline, emd, why)) {
            return false;
        }
        instances.push_back(Instance{emd.pid, 0U, {}});
        const bool up = emd.log->WaitUntil(
            [&](const LogWatch::State& state) { return state.reports >= n || HasExited(emd.pid); }, deadline);
        if (!up || HasExited(emd.pid)) {
            why = Format("%zu of %zu reported kRunning to emd %d", emd.log->Snapshot().reports, n, emd.pid);
            return false;
        }
        return true;
    };
    const auto giveUp = [&](const std::string& why) {
        Say("FAILED: " + why);
        if (emd.log) {
            for (const std::string& line : emd.log->Tail()) {
                Say("    " + line);
            }
        }
        if (emd.pid > 0 && Processes().Has(emd.pid)) {
            KillEmd(emd);
        }
        return 1;
    };

    std::string why;
    const auto bootStart = Clock::now();
    if (!boot(bootStart + std::chrono::seconds(options.maxBootSeconds), why) ||
        !AllRunning(options, environment, n, Clock::now() + RECOVERY_LIMIT, why)) {
        return giveUp("first boot: " + why);
    }
    Say(Format("all %zu Running after %.2f s (emd %d)", n, Seconds(Clock::now() - bootStart), emd.pid));
    instances.back().rssKib.push_back(ReadMemory(emd.pid).rssKib);

    std::vector<double> appBack;
    std::vector<double> appConfirmed;
    std::vector<double> emdBack;
    std::vector<double> emdConfirmed;
    const auto soakStart = Clock::now();
    const auto end =
        soakStart + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(options.minutes * 60.0));
    std::size_t step = 0U;
    bool broken = false;
    while (Clock::now() < end && !broken) {
        ++step;
        const bool killEmd = options.killEmdEvery > 0 && step % static_cast<std::size_t>(options.killEmdEvery) == 0U;
        std::vector<std::string> stepFailures;
        std::string line = Format("step %4zu  ", step);
        const auto killedAt = Clock::now();
        const auto deadline = killedAt + RECOVERY_LIMIT;
        double back = -1.0;
        if (killEmd) {
            const pid_t old = emd.pid;
            std::size_t outlived = 0U;
            const int status = KillEmd(emd, &outlived);
            retired.push_back(std::move(emd.log));
            line += Format("kill emd %d (%s)", old, ExitText(status).c_str());
            if (outlived != 0U) {
                stepFailures.push_back(
                    Format("%zu processes outlived the killed emd by %.0f s", outlived, Seconds(STRAY_LIMIT)));
            }
            if (boot(deadline, why)) {
                back = Seconds(emd.log->Snapshot().lastReportAt - killedAt);
                emdBack.push_back(back);
                line += Format(", new emd %d  back %.2f s", emd.pid, back);
            } else {
                stepFailures.push_back("emd restart: " + why);
                broken = true;
            }
        } else {
            std::vector<Seen> apps = LiveChildren(emd.pid);
            if (apps.empty()) {
                stepFailures.push_back("emd has no live process to kill");
                broken = true;
            } else {
                const Seen victim = apps[std::uniform_int_distribution<std::size_t>(0U, apps.size() - 1U)(random)];
                const std::vector<std::string> words = CommandLine(victim.pid);
                const std::string name = words.size() >= 2U ? words[1] : "?";
                kill(victim.pid, SIGKILL);
                line += Format("kill %-7s %d", name.c_str(), victim.pid);
                LogWatch::Report report{-1, {}};
                const bool returned = emd.log->WaitUntil(
                    [&](const LogWatch::State& state) {
                        const auto found = state.running.find(name);
                        if (found != state.running.end() && found->second.pid != victim.pid &&
                            found->second.at >= killedAt) {
                            report = found->second;
                            return true;
                        }
                        return HasExited(emd.pid);
                    },
                    deadline);
                if (returned && report.pid > 0) {
                    back = Seconds(report.at - killedAt);
                    appBack.push_back(back);
                    line += Format("  back %.2f s (pid %d)", back, report.pid);
                } else {
                    stepFailures.push_back(name + " did not report kRunning again" +
                                           (HasExited(emd.pid) ? std::string(" (emd exited)") : ""));
                    broken = HasExited(emd.pid);
                }
            }
        }
        if (!broken) {
            if (AllRunning(options, environment, n, deadline, why)) {
                const double confirmed = Seconds(Clock::now() - killedAt);
                (killEmd ? emdConfirmed : appConfirmed).push_back(confirmed);
                line += Format("  all Running %.2f s", confirmed);
            } else {
                stepFailures.push_back(why);
            }
            const std::vector<pid_t> zombies = LingeringZombies(emd.pid);
            if (!zombies.empty()) {
                stepFailures.push_back("zombie children of emd for over 1 s: " + PidList(zombies));
            }
            ReapStrays();
            std::vector<pid_t> orphans = Orphans(options, emd.pid);
            if (!orphans.empty()) {
                std::this_thread::sleep_for(ZOMBIE_GRACE);
                ReapStrays();
                orphans = Orphans(options, emd.pid);
            }
            if (!orphans.empty()) {
                stepFailures.push_back("orphans not under emd: " + PidList(orphans));
            }
            const long rss = ReadMemory(emd.pid).rssKib;
            if (instances.back().rssKib.empty()) {
                instances.back().firstStep = step;
            }
            instances.back().rssKib.push_back(rss);
            line += Format("  emd RSS %.1f MiB", Mib(rss));
        }
        line += stepFailures.empty() ? "  ok" : "";
        for (const std::string& failure : stepFailures) {
            line += "\n      FAILED: " + failure;
            failures.push_back(Format("step %zu: ", step) + failure);
        }
        if (!stepFailures.empty() && !broken && emd.log) {
            const std::vector<std::string> tail = emd.log->Tail();
            for (std::size_t i = tail.size() > STEP_TAIL_LINES ? tail.size() - STEP_TAIL_LINES : 0U; i < tail.size();
                 ++i) {
                line += "\n        " + tail[i];
            }
        }
        Say(line);
    }
    const double soakSeconds = Seconds(Clock::now() - soakStart);

    std::string stopText = "not stopped in order (a step broke the machine)";
    if (!broken) {
        const Stopped stopped = StopEmd(emd, LiveChildren(emd.pid));
        stopText = Format("%.2f s, emd %s", stopped.ms / 1000.0, ExitText(stopped.status).c_str());
        if (!stopped.failure.empty()) {
            failures.push_back("final stop: " + stopped.failure);
        }
    } else if (Processes().Has(emd.pid)) {
        for (const std::string& tailLine : emd.log->Tail()) {
            Say("    " + tailLine);
        }
        KillEmd(emd);
    }
    retired.clear();
    emd.log.reset();

    Say("");
    Say(Format("soak: %zu steps in %.1f s (%zu app kills, %zu emd kills), %zu failures",
               step,
               soakSeconds,
               appBack.size(),
               emdBack.size(),
               failures.size()));
    Say("recovery after an app kill: " + Spread(appBack) +
        " (its kRunning in emd's log); all Running by emctl ps: " + Spread(appConfirmed));
    Say("recovery after an emd kill: " + Spread(emdBack) +
        " (every kRunning in the new emd's log); all Running by emctl ps: " + Spread(emdConfirmed));
    long first = -1;
    long last = -1;
    long most = -1;
    for (const Instance& instance : instances) {
        if (instance.rssKib.empty()) {
            continue;
        }
        first = first < 0 ? instance.rssKib.front() : first;
        last = instance.rssKib.back();
        most = std::max(most, *std::max_element(instance.rssKib.begin(), instance.rssKib.end()));
    }
    Say(Format("emd RSS: first %.1f MiB, last %.1f MiB, max %.1f MiB; per emd over its own life:",
               Mib(first),
               Mib(last),
               Mib(most)));
    for (const Instance& instance : instances) {
        if (instance.rssKib.empty()) {
            continue;
        }
        Say(Format("  emd %-7d from step %-4zu first %.1f, last %.1f, max %.1f MiB (%zu samples)",
                   instance.pid,
                   instance.firstStep,
                   Mib(instance.rssKib.front()),
                   Mib(instance.rssKib.back()),
                   Mib(*std::max_element(instance.rssKib.begin(), instance.rssKib.end())),
                   instance.rssKib.size()));
    }
    Say("final stop: " + stopText);
    if (!failures.empty()) {
        Say("failures:");
        for (const std::string& failure : failures) {
            Say("  " + failure);
        }
    }
    Say(failures.empty() && !broken ? "soak passed" : "soak FAILED");
    return failures.empty() && !broken ? 0 : 1;
}

/// Waits for SIGINT, SIGTERM or SIGHUP, then kills and reaps everything boot_bench started.
void WatchSignals(sigset_t signals) {
    int signal = 0;
    while (sigwait(&signals, &signal) != 0) {
    }
    static const char message[] = "\nboot_bench: interrupted, killing every process it started\n";
    (void)!write(STDERR_FILENO, message, sizeof(message) - 1U);
    Processes().KillAll();
    const auto deadline = Clock::now() + STRAY_LIMIT;
    while (Clock::now() < deadline) {
        const pid_t reaped = waitpid(-1, nullptr, WNOHANG);
        if (reaped < 0 && errno == ECHILD) {
            break;
        }
        if (reaped <= 0) {
            std::this_thread::sleep_for(POLL_INTERVAL);
        }
    }
    RemoveWorkDir();
    _exit(128 + signal);
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    std::string error;
    if (!Parse(argc, argv, options, error)) {
        std::fprintf(stderr, "boot_bench: %s\n%s", error.c_str(), USAGE);
        return 2;
    }
    std::string command;
    for (int i = 0; i < argc; ++i) {
        command += (i == 0 ? "" : " ") + Quoted(argv[i]);
    }
    Say("command: " + command);
    Say("emd: " + options.emd);
    Say("demo_app: " + options.demoApp);
    Say("emctl: " + options.emctl);
    Say("boot_floor: " + options.bootFloor);

    // Signals go to the watching thread only; the processes of a killed emd come to boot_bench.
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) {
        sigaddset(&signals, signal);
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    sigdelset(&signals, SIGPIPE);
    prctl(PR_SET_CHILD_SUBREAPER, 1UL);
    char workDir[] = "/tmp/boot_bench.XXXXXX";
    if (mkdtemp(workDir) == nullptr) {
        std::fprintf(stderr, "boot_bench: mkdtemp: %s\n", std::strerror(errno));
        return 1;
    }
    g_workDir = workDir;
    std::thread(WatchSignals, signals).detach();

    int status = 1;
    try {
        status = options.soak ? Soak(options) : Boot(options);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "boot_bench: %s\n", failure.what());
    }
    Processes().KillAll();
    SettleStrays();
    RemoveWorkDir();
    return status;
}
