// SPDX-License-Identifier: Apache-2.0
// Detecting the cgroup hierarchies from mountinfo and emd's membership, emd's roots in them,
// the groups of the processes with their limits, ending a process's tree and reading its use.
#include "cgroups.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <set>
#include <sstream>
#include <thread>

namespace tarn::em::daemon {

namespace {

constexpr const char* CONTROLLERS[] = {"memory", "cpu", "pids", "cpuacct"};  // in Controller order
/// Rounds of reading a group's cgroup.procs and killing what it lists, without cgroup.kill.
constexpr int SWEEP_ROUNDS = 8;
/// What v1 memory.limit_in_bytes holds without a limit (the largest page-aligned signed value).
constexpr std::uint64_t V1_NO_MEMORY_LIMIT = 0x7FFFFFFFFFFFF000ULL;
/// How long emd waits at its exit for the last processes of its groups to die.
constexpr std::chrono::seconds REMOVE_WAIT{5};
/// The leaf group emd moves into when its own v2 group, holding emd, cannot enable controllers.
constexpr const char* SELF_LEAF = "emd.self";

std::vector<std::string> Split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::string part;
    std::istringstream stream(text);
    while (std::getline(stream, part, separator)) {
        if (!part.empty()) {
            parts.push_back(part);
        }
    }
    return parts;
}

bool Contains(const std::vector<std::string>& texts, const std::string& text) {
    return std::find(texts.begin(), texts.end(), text) != texts.end();
}

/// mountinfo's escapes: a space, tab, line feed or backslash is written as \ and 3 octal digits.
std::string Unescape(const std::string& field) {
    std::string text;
    for (std::size_t i = 0U; i < field.size(); ++i) {
        const auto octal = [&field](std::size_t at) {
            return at < field.size() && field[at] >= '0' && field[at] <= '7';
        };
        if (field[i] == '\\' && octal(i + 1U) && octal(i + 2U) && octal(i + 3U)) {
            text += static_cast<char>(std::stoi(field.substr(i + 1U, 3U), nullptr, 8));
            i += 3U;
        } else {
            text += field[i];
        }
    }
    return text;
}

/// `path` (a group of the hierarchy) seen below a mount of the hierarchy's `root`; none when
/// the mount does not reach it.
std::optional<std::string> Below(const std::string& root, const std::string& path) {
    if (root == "/") {
        return path;
    }
    if (path == root) {
        return std::string("/");
    }
    if (path.size() > root.size() && path.compare(0U, root.size(), root) == 0 && path[root.size()] == '/') {
        return path.substr(root.size());
    }
    return std::nullopt;
}

bool ReadFile(const std::string& path, std::string& text) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    text.clear();
    char chunk[4096];
    ssize_t got = 0;
    while ((got = read(fd, chunk, sizeof(chunk))) > 0) {
        text.append(chunk, static_cast<std::size_t>(got));
    }
    close(fd);
    return got == 0;
}

/// 0, or the errno of opening or writing `path`.
int WriteFile(const std::string& path, const std::string& text) {
    const int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0) {
        return errno;
    }
    const int result = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? 0 : errno;
    close(fd);
    return result;
}

bool Exists(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

std::vector<pid_t> ReadPids(const std::string& procsFile) {
    std::string text;
    std::vector<pid_t> pids;
    if (ReadFile(procsFile, text)) {
        for (const std::string& line : Split(text, '\n')) {
            pids.push_back(static_cast<pid_t>(std::strtol(line.c_str(), nullptr, 10)));
        }
    }
    return pids;
}

std::optional<std::uint64_t> ReadNumber(const std::string& path, const std::string& key = {}) {
    std::string text;
    if (!ReadFile(path, text)) {
        return std::nullopt;
    }
    std::istringstream lines(text);
    std::string name;
    std::uint64_t value = 0U;
    while (key.empty() ? static_cast<bool>(lines >> value) : static_cast<bool>(lines >> name >> value)) {
        if (key.empty() || name == key) {
            return value;
        }
    }
    return std::nullopt;
}

/// A process's name as a directory name: letters, digits, '_', '-' and '.' kept, every other
/// byte (and a name of dots only) as %XX, and ".process" after it, so that no name meets a
/// control file of the hierarchy (v1's "tasks", "cgroup.procs").
std::string GroupName(const std::string& process) {
    const bool dots = process.find_first_not_of('.') == std::string::npos;
    std::string name;
    for (const char c : process) {
        const auto byte = static_cast<unsigned char>(c);
        if (!dots && (std::isalnum(byte) != 0 || c == '_' || c == '-' || c == '.')) {
            name += c;
        } else {
            static const char HEX[] = "0123456789ABCDEF";
            name += {'%', HEX[byte >> 4U], HEX[byte & 15U]};
        }
    }
    return name + ".process";
}

/// The groups right below `dir`.
std::vector<std::string> Subgroups(const std::string& dir) {
    std::vector<std::string> children;
    if (DIR* listing = opendir(dir.c_str()); listing != nullptr) {
        while (const dirent* entry = readdir(listing)) {
            const std::string name = entry->d_name;
            if (entry->d_type == DT_DIR && name != "." && name != "..") {
                children.push_back(dir + "/" + name);
            }
        }
        closedir(listing);
    }
    return children;
}

/// Removes `dir` and every group below it; false when one still holds processes.
bool RemoveTree(const std::string& dir) {
    for (const std::string& child : Subgroups(dir)) {
        RemoveTree(child);
    }
    return rmdir(dir.c_str()) == 0 || errno == ENOENT;
}

/// Every pid in `dir` and the groups below it.
void CollectPids(const std::string& dir, std::vector<pid_t>& pids) {
    const std::vector<pid_t> here = ReadPids(dir + "/cgroup.procs");
    pids.insert(pids.end(), here.begin(), here.end());
    for (const std::string& child : Subgroups(dir)) {
        CollectPids(child, pids);
    }
}

/// Removes the roots `ara-emd.<pid>` in `own` whose emd no longer exists (it was killed),
/// killing what is left in them first; a root whose last processes are still dying is left
/// for the next start. The names of those removed.
std::vector<std::string> RemoveStaleRoots(const std::string& own, bool unified) {
    std::vector<std::string> stale;
    if (DIR* listing = opendir(own.c_str()); listing != nullptr) {
        constexpr std::size_t PREFIX = sizeof("ara-emd.") - 1U;
        while (const dirent* entry = readdir(listing)) {
            const std::string name = entry->d_name;
            const long pid = name.compare(0U, PREFIX, "ara-emd.") == 0 && name.size() > PREFIX &&
                                     name.find_first_not_of("0123456789", PREFIX) == std::string::npos
                                 ? std::strtol(name.c_str() + PREFIX, nullptr, 10)
                                 : 0L;
            if (pid > 0 && pid != getpid() && kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH) {
                stale.push_back(name);
            }
        }
        closedir(listing);
    }
    for (auto name = stale.begin(); name != stale.end();) {
        const std::string dir = own + "/" + *name;
        std::vector<pid_t> pids;
        if (unified && Exists(dir + "/cgroup.kill")) {
            (void)WriteFile(dir + "/cgroup.kill", "1");
        } else {
            CollectPids(dir, pids);
        }
        for (const pid_t pid : pids) {
            (void)kill(pid, SIGKILL);
        }
        name = RemoveTree(dir) ? name + 1 : stale.erase(name);
    }
    return stale;
}

/// The JSON pointer of a process's cgroup member.
std::string LimitPlace(const std::string& process, const char* member) {
    std::string place = "/processes/";
    for (const char c : process) {
        place += c == '~' ? std::string("~0") : c == '/' ? std::string("~1") : std::string(1U, c);
    }
    return place + "/cgroup/" + member;
}

}  // namespace

std::vector<CgroupHierarchy> ParseCgroupHierarchies(const std::string& mountinfo, const std::string& membership) {
    struct Member {
        bool unified{false};
        std::vector<std::string> controllers;
        std::string path;
        bool taken{false};
    };
    std::vector<Member> members;
    for (const std::string& line : Split(membership, '\n')) {
        const std::size_t first = line.find(':');
        const std::size_t second = first == std::string::npos ? first : line.find(':', first + 1U);
        if (second == std::string::npos || second + 1U >= line.size() || line[second + 1U] != '/') {
            continue;
        }
        const std::string list = line.substr(first + 1U, second - first - 1U);
        members.push_back(
            {line.compare(0U, first, "0") == 0 && list.empty(), Split(list, ','), line.substr(second + 1U)});
    }
    std::vector<CgroupHierarchy> hierarchies;
    for (const std::string& line : Split(mountinfo, '\n')) {
        const std::vector<std::string> fields = Split(line, ' ');
        const auto dash =
            std::find(fields.begin() + std::min<long>(6, static_cast<long>(fields.size())), fields.end(), "-");
        if (dash == fields.end() || fields.end() - dash < 4) {
            continue;
        }
        CgroupHierarchy hierarchy;
        hierarchy.unified = dash[1] == "cgroup2";
        if (!hierarchy.unified && dash[1] != "cgroup") {
            continue;
        }
        if (!hierarchy.unified) {
            for (const std::string& option : Split(dash[3], ',')) {
                if (Contains({std::begin(CONTROLLERS), std::end(CONTROLLERS)}, option)) {
                    hierarchy.controllers.push_back(option);
                }
            }
            if (hierarchy.controllers.empty()) {
                continue;
            }
        }
        const auto member = std::find_if(members.begin(), members.end(), [&hierarchy](const Member& m) {
            return hierarchy.unified ? m.unified : Contains(m.controllers, hierarchy.controllers.front());
        });
        const std::string mountPoint = Unescape(fields[4]);
        const auto below = member == members.end() ? std::nullopt : Below(Unescape(fields[3]), member->path);
        if (!below || member->taken) {
            continue;  // the group is out of this mount's reach, or the hierarchy was found already
        }
        member->taken = true;
        hierarchy.ownDirectory = *below == "/" ? mountPoint : mountPoint == "/" ? *below : mountPoint + *below;
        hierarchies.push_back(std::move(hierarchy));
    }
    return hierarchies;
}

void CgroupJoin::Close() noexcept {
    for (std::size_t i = 0U; i < count; ++i) {
        close(fds[i]);
        fds[i] = -1;
    }
    count = 0U;
}

std::vector<CgroupHierarchy> Cgroups::Detect() {
    const char* fake = std::getenv("EMD_CGROUP_MOUNTINFO");
    std::string mountinfo;
    std::string membership;
    if (!ReadFile(fake != nullptr ? fake : "/proc/self/mountinfo", mountinfo) ||
        !ReadFile("/proc/self/cgroup", membership)) {
        return {};
    }
    std::vector<CgroupHierarchy> usable;
    for (CgroupHierarchy& hierarchy : ParseCgroupHierarchies(mountinfo, membership)) {
        if (access(hierarchy.ownDirectory.c_str(), W_OK) != 0) {
            continue;
        }
        std::string controllers;
        if (hierarchy.unified && ReadFile(hierarchy.ownDirectory + "/cgroup.controllers", controllers)) {
            std::istringstream words(controllers);
            for (std::string word; words >> word;) {
                hierarchy.controllers.push_back(word);
            }
        }
        usable.push_back(std::move(hierarchy));
    }
    return usable;
}

Cgroups::Cgroups(std::vector<CgroupHierarchy> hierarchies)
    : hierarchies_(std::move(hierarchies)),
      roots_(hierarchies_.size()),
      log_(ara::quill::common::log::Log::GetLog("EMD")) {
    for (std::size_t h = 0U; h < hierarchies_.size(); ++h) {
        if (hierarchies_[h].unified && !unified_) {
            unified_ = h;
        }
    }
    // v2 where it has the controller, else v1; CPU time is read from v2's cpu.stat when there
    // is a v2 hierarchy, so v1's cpuacct is used only without one.
    for (std::size_t c = 0U; c < kControllers; ++c) {
        const bool unifiedHasIt = unified_ && Contains(hierarchies_[*unified_].controllers, CONTROLLERS[c]);
        if (unifiedHasIt && c != kCpuacct) {
            chosen_[c] = unified_;
            continue;
        }
        for (std::size_t h = 0U; h < hierarchies_.size() && !(c == kCpuacct && unified_); ++h) {
            if (!hierarchies_[h].unified && Contains(hierarchies_[h].controllers, CONTROLLERS[c])) {
                chosen_[c] = h;
                break;
            }
        }
    }
}

bool Cgroups::MoveIntoLeaf(const std::string& own) const {
    const std::string leaf = own + "/" + SELF_LEAF;
    int error = mkdir(leaf.c_str(), 0755) == 0 || errno == EEXIST ? 0 : errno;
    error = error != 0 ? error : WriteFile(leaf + "/cgroup.procs", "0");
    if (error != 0) {
        log_->warn() << "[Cgroups][emd cannot move into a leaf group of its own][dir=" << leaf
                     << ", reason=" << std::strerror(error) << "]";
        return false;
    }
    log_->info() << "[Cgroups][emd moved into a leaf group, so that its processes' groups can have controllers][dir="
                 << leaf << "]";
    return true;
}

void Cgroups::Setup() {
    const std::string rootName = "ara-emd." + std::to_string(getpid());
    std::string enable;
    if (unified_) {
        bool inLeaf = false;
        for (const std::size_t c : {kMemory, kCpu, kPids}) {
            if (chosen_[c] != unified_) {
                continue;
            }
            const std::string own = hierarchies_[*unified_].ownDirectory;
            const std::string file = own + "/cgroup.subtree_control";
            int error = WriteFile(file, std::string("+") + CONTROLLERS[c]);
            // A v2 group with processes of its own cannot give controllers to its children, and
            // under a service manager emd's group is its service's, with emd in it. emd then
            // moves itself into a leaf group below it, once, and asks again.
            if (error == EBUSY && !inLeaf) {
                inLeaf = MoveIntoLeaf(own);
                error = inLeaf ? WriteFile(file, std::string("+") + CONTROLLERS[c]) : error;
            }
            if (error != 0) {
                log_->warn() << "[Cgroups][cgroup v2 controller not usable, treated as absent][controller="
                             << CONTROLLERS[c] << ", file=" << file << ", reason=" << std::strerror(error) << "]";
                chosen_[c] = std::nullopt;
            } else {
                enable += std::string(enable.empty() ? "+" : " +") + CONTROLLERS[c];
            }
        }
    }
    for (std::size_t h = 0U; h < hierarchies_.size(); ++h) {
        const bool used =
            h == unified_ || std::any_of(std::begin(chosen_), std::end(chosen_), [h](const auto& c) { return c == h; });
        const std::string root = hierarchies_[h].ownDirectory + "/" + rootName;
        if (!used) {
            continue;
        }
        for (const std::string& stale : RemoveStaleRoots(hierarchies_[h].ownDirectory, hierarchies_[h].unified)) {
            log_->info() << "[Cgroups][Removed the root of an emd that is gone][dir=" << hierarchies_[h].ownDirectory
                         << "/" << stale << "]";
        }
        if (mkdir(root.c_str(), 0755) != 0 && errno != EEXIST) {
            log_->error() << "[Cgroups][Hierarchy not used: emd's root cannot be made][dir=" << root
                          << ", reason=" << std::strerror(errno) << "]";
            for (auto& chosen : chosen_) {
                chosen = chosen == h ? std::nullopt : chosen;
            }
            unified_ = unified_ == h ? std::nullopt : unified_;
            continue;
        }
        roots_[h] = root;
    }
    if (unified_ && !enable.empty()) {
        if (const int error = WriteFile(roots_[*unified_] + "/cgroup.subtree_control", enable); error != 0) {
            log_->error() << "[Cgroups][cgroup v2 controllers not enabled in emd's root][controllers=" << enable
                          << ", reason=" << std::strerror(error) << "]";
            for (auto& chosen : chosen_) {
                chosen = chosen == unified_ ? std::nullopt : chosen;
            }
        }
    }
    cgroupKill_ = unified_ && Exists(roots_[*unified_] + "/cgroup.kill");
    const auto where = [this](std::size_t c) {
        return !chosen_[c] ? "none" : hierarchies_[*chosen_[c]].unified ? "v2" : "v1";
    };
    log_->info() << "[Cgroups][Ready][v2=" << (unified_ ? roots_[*unified_] : std::string("none"))
                 << ", memory=" << where(kMemory) << ", cpu=" << where(kCpu) << ", pids=" << where(kPids)
                 << ", tree_end=" << (cgroupKill_ ? "cgroup.kill" : "signals") << "]";
}

std::vector<CgroupLimitProblem> Cgroups::Check(const Manifest& manifest) const {
    std::vector<CgroupLimitProblem> problems;
    for (const ProcessConfig& process : manifest.processes) {
        const CgroupLimits& limits = process.cgroup;
        const std::pair<bool, std::size_t> asked[] = {{limits.memoryMax.has_value(), kMemory},
                                                      {limits.cpuMax.has_value(), kCpu},
                                                      {limits.pidsMax.has_value(), kPids}};
        for (const auto& [set, c] : asked) {
            if (set && !chosen_[c]) {
                static const char* const MEMBERS[] = {"memoryMax", "cpuMax", "pidsMax"};
                problems.push_back(
                    {LimitPlace(process.name, MEMBERS[c]),
                     std::string("no ") + CONTROLLERS[c] + " controller on this machine (cgroup v2 or v1)",
                     limits.required});
            }
        }
    }
    return problems;
}

// A v1 cpu group of its own gives a process no real-time budget (cpu.rt_runtime_us 0 where the
// kernel schedules real-time tasks by group), so that a real-time policy is refused in it: a
// process joins the v1 cpu hierarchy only for a cpuMax of its own.
bool Cgroups::OnlyV1Cpu(std::size_t hierarchy) const {
    if (hierarchies_[hierarchy].unified || chosen_[kCpu] != hierarchy) {
        return false;
    }
    return std::none_of(std::begin(chosen_), std::end(chosen_), [this, hierarchy](const auto& chosen) {
        return chosen == hierarchy && &chosen != &chosen_[kCpu];
    });
}

std::string Cgroups::Directory(std::size_t hierarchy, const std::string& process) const {
    return roots_[hierarchy] + "/" + GroupName(process);
}

std::string Cgroups::TrackingDirectory(const std::string& process) const {
    for (std::size_t h = 0U; h < roots_.size(); ++h) {
        if (!roots_[h].empty() && (h == unified_ || (!unified_ && !OnlyV1Cpu(h)))) {  // one every process joins
            return Directory(h, process);
        }
    }
    return {};
}

bool Cgroups::WriteLimits(std::size_t h, const ProcessConfig& process, const std::string& dir, std::string& error) {
    const CgroupLimits& limits = process.cgroup;
    const bool v2 = hierarchies_[h].unified;
    std::vector<std::pair<std::string, std::string>> writes;  // file, value; the optional ones only where they exist
    if (limits.memoryMax && chosen_[kMemory] == h) {
        const std::string bytes = std::to_string(*limits.memoryMax);
        writes.emplace_back(v2 ? "memory.max" : "memory.limit_in_bytes", bytes);
        const char* swap = v2 ? "memory.swap.max" : "memory.memsw.limit_in_bytes";
        if (Exists(dir + "/" + swap)) {
            writes.emplace_back(swap, v2 ? "0" : bytes);
        }
    }
    if (limits.cpuMax && chosen_[kCpu] == h) {
        const std::string quota = std::to_string(limits.cpuMax->quotaUs);
        const std::string period = std::to_string(limits.cpuMax->periodUs);
        if (v2) {
            writes.emplace_back("cpu.max", quota + " " + period);
        } else {
            writes.emplace_back("cpu.cfs_period_us", period);
            writes.emplace_back("cpu.cfs_quota_us", quota);
        }
    }
    if (limits.pidsMax && chosen_[kPids] == h) {
        writes.emplace_back("pids.max", std::to_string(*limits.pidsMax));
    }
    for (const auto& [file, value] : writes) {
        if (const int failed = WriteFile(dir + "/" + file, value); failed != 0) {
            error = "cannot write " + value + " to " + dir + "/" + file + ": " + std::strerror(failed);
            return false;
        }
    }
    return true;
}

bool Cgroups::Prepare(const ProcessConfig& process, CgroupJoin& join, std::string& error) {
    join.Close();
    if (std::all_of(roots_.begin(), roots_.end(), [](const std::string& root) { return root.empty(); })) {
        return true;
    }
    if (const auto group = groups_.find(process.name);
        group != groups_.end() && group->second.ended && !Empty(process.name)) {
        Kill(process.name, 0);  // what is left of its last run must not share the group with the new one
    }
    groups_[process.name] = Group{};
    for (std::size_t h = 0U; h < roots_.size(); ++h) {
        if (roots_[h].empty() || (OnlyV1Cpu(h) && !process.cgroup.cpuMax)) {
            continue;
        }
        const std::string dir = Directory(h, process.name);
        struct stat info {};
        if (mkdir(dir.c_str(), 0755) != 0 &&
            (errno != EEXIST || stat(dir.c_str(), &info) != 0 || !S_ISDIR(info.st_mode))) {
            error = "cannot make its cgroup " + dir + ": " + std::strerror(errno == 0 ? EEXIST : errno);
            join.Close();
            return false;
        }
        if (!WriteLimits(h, process, dir, error)) {
            join.Close();
            return false;
        }
        const int fd = open((dir + "/cgroup.procs").c_str(), O_WRONLY | O_CLOEXEC);
        if (fd < 0 || join.count == CgroupJoin::MAX) {
            error = "cannot open " + dir + "/cgroup.procs: " + std::strerror(fd < 0 ? errno : EMFILE);
            if (fd >= 0) {
                close(fd);
            }
            join.Close();
            return false;
        }
        join.fds[join.count++] = fd;
    }
    return true;
}

void Cgroups::Kill(const std::string& process, pid_t processGroup) {
    if (cgroupKill_) {
        (void)WriteFile(Directory(*unified_, process) + "/cgroup.kill", "1");
        return;
    }
    if (processGroup > 0) {
        (void)kill(-processGroup, SIGKILL);  // the main process led it; what setsid left is swept below
    }
    const std::string dir = TrackingDirectory(process);
    std::set<pid_t> signalled;
    for (int round = 0; round < SWEEP_ROUNDS && !dir.empty(); ++round) {
        bool fresh = false;
        for (const pid_t pid : ReadPids(dir + "/cgroup.procs")) {
            if (pid > 0 && signalled.insert(pid).second) {
                fresh = true;
                (void)kill(pid, SIGKILL);
            }
        }
        if (!fresh) {
            break;
        }
    }
}

bool Cgroups::Empty(const std::string& process) const {
    const std::string dir = TrackingDirectory(process);
    return dir.empty() || ReadPids(dir + "/cgroup.procs").empty();
}

bool Cgroups::Remove(const std::string& process) {
    bool removed = true;
    for (std::size_t h = 0U; h < roots_.size(); ++h) {
        if (!roots_[h].empty() && !RemoveTree(Directory(h, process))) {
            removed = false;
        }
    }
    return removed;
}

void Cgroups::TreeEnded(const ProcessConfig& process, pid_t pid) {
    const auto group = groups_.find(process.name);
    if (group == groups_.end()) {
        (void)kill(-pid, SIGKILL);  // launched without groups
        return;
    }
    group->second.ended = true;
    Kill(process.name, pid);
}

void Cgroups::Release(const ProcessConfig& process) {
    const auto group = groups_.find(process.name);
    if (group == groups_.end()) {
        return;
    }
    group->second.released = true;
    if (Remove(process.name)) {
        groups_.erase(group);
    }
}

void Cgroups::Reaped() {
    for (auto group = groups_.begin(); group != groups_.end();) {
        Group& state = group->second;
        if (state.ended && !Empty(group->first)) {
            Kill(group->first, 0);  // something forked while its tree was killed
        } else if (state.ended || state.released) {
            state.ended = false;
            if (state.released && Remove(group->first)) {
                group = groups_.erase(group);
                continue;
            }
        }
        ++group;
    }
}

ResourceUse Cgroups::Usage(const ProcessConfig& process) const {
    ResourceUse use;
    if (groups_.count(process.name) == 0U) {
        return use;
    }
    if (const auto h = chosen_[kMemory]) {
        const bool v2 = hierarchies_[*h].unified;
        use.memoryBytes = ReadNumber(Directory(*h, process.name) + (v2 ? "/memory.current" : "/memory.usage_in_bytes"));
        use.memoryMax = ReadNumber(Directory(*h, process.name) + (v2 ? "/memory.max" : "/memory.limit_in_bytes"));
        if (use.memoryMax && *use.memoryMax >= V1_NO_MEMORY_LIMIT) {  // v2 says "max", which reads as none
            use.memoryMax.reset();
        }
    }
    if (unified_) {
        use.cpuUsec = ReadNumber(Directory(*unified_, process.name) + "/cpu.stat", "usage_usec");
    } else if (const auto h = chosen_[kCpuacct]) {
        if (const auto nanoseconds = ReadNumber(Directory(*h, process.name) + "/cpuacct.usage")) {
            use.cpuUsec = *nanoseconds / 1000U;
        }
    }
    return use;
}

Cgroups::~Cgroups() {
    std::vector<std::string> left;
    for (const std::string& root : roots_) {
        if (!root.empty()) {
            left.push_back(root);
        }
    }
    if (left.empty()) {
        return;
    }
    const auto deadline = std::chrono::steady_clock::now() + REMOVE_WAIT;
    while (true) {
        // Whatever is still there: killed, and reaped, since emd is their subreaper.
        for (const std::string& root : left) {
            if (unified_ && cgroupKill_ && root == roots_[*unified_]) {
                (void)WriteFile(root + "/cgroup.kill", "1");
                continue;
            }
            std::vector<pid_t> pids;
            CollectPids(root, pids);
            for (const pid_t pid : pids) {
                (void)kill(pid, SIGKILL);
            }
        }
        int status = 0;
        while (waitpid(-1, &status, WNOHANG) > 0) {
        }
        left.erase(std::remove_if(left.begin(), left.end(), RemoveTree), left.end());
        if (left.empty() || std::chrono::steady_clock::now() >= deadline) {
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    for (const std::string& root : left) {
        log_->error() << "[Cgroups][Not removed: processes are still in it][dir=" << root << "]";
    }
}

}  // namespace tarn::em::daemon
