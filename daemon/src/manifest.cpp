// SPDX-License-Identifier: Apache-2.0
// Loading and validating the machine manifest: the JSON file is parsed by the platform JSON
// parser, then every member is checked and copied into the plain structs of manifest.h, and
// the dependencies between processes are checked once all processes are read. The first
// fault refuses the whole manifest with its place: line and column for what the parser
// refuses, a JSON pointer for everything else.
#include "manifest.h"

#include <grp.h>
#include <pwd.h>
#include <sched.h>
#include <sys/capability.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <map>
#include <set>
#include <utility>

#include "ara/quill/common/jsonParser/document.h"
#include "tarn/em/util/file_system.h"

namespace tarn::em::daemon {

namespace {

using ara::quill::common::jsonParser::CrcVerification;
using ara::quill::common::jsonParser::Document;

constexpr std::uint64_t MAX_TIMEOUT_MS = 3600000U;
constexpr std::uint64_t MAX_WINDOW_MS = 86400000U;
constexpr std::uint64_t MAX_RESTARTS = 1000U;
constexpr const char* LINE_PLACE_PREFIX = "line ";
// The kernel's bounds: a page of memory at least, CPU periods from 1 ms to 1 s, quotas of
// 1 ms or more (up to a thousand CPUs' worth of a 1 s period), PID_MAX_LIMIT.
constexpr std::uint64_t MIN_MEMORY = 4096U;
constexpr std::uint64_t MAX_MEMORY = std::uint64_t{1} << 62U;
constexpr std::uint64_t MIN_CPU_US = 1000U;
constexpr std::uint64_t MAX_CPU_PERIOD_US = 1000000U;
constexpr std::uint64_t MAX_CPU_QUOTA_US = 1000000000U;
constexpr std::uint64_t MAX_PIDS = 4194304U;

// Thrown inside the validation only; Validate turns it into a ManifestError.
struct Refusal {
    std::string place;
    std::string problem;
};

[[noreturn]] void Refuse(const std::string& place, const std::string& problem) {
    throw Refusal{place, problem};
}

// The JSON pointer of member or element `name` of the value at `place`.
std::string Pointer(const std::string& place, const std::string& name) {
    std::string pointer = place + "/";
    for (const char c : name) {
        if (c == '~') {
            pointer += "~0";
        } else if (c == '/') {
            pointer += "~1";
        } else {
            pointer += c;
        }
    }
    return pointer;
}

std::string Pointer(const std::string& place, std::size_t index) {
    return place + "/" + std::to_string(index);
}

// The members of an object, each name once. With a non-empty `allowed` every name must be
// one of those; with `named` every name must be non-empty.
class Members {
public:
    Members(const Document& value, std::string place, std::initializer_list<const char*> allowed, bool named = false)
        : value_(value), place_(std::move(place)) {
        if (!value_.IsObject()) {
            Refuse(place_, "expected an object");
        }
        std::set<std::string> seen;
        for (std::size_t i = 0U; i < value_.Size(); ++i) {
            const std::string name = value_.MemberName(i);
            const bool known =
                allowed.size() == 0U || std::any_of(allowed.begin(), allowed.end(), [&name](const char* candidate) {
                    return name == candidate;
                });
            if (!known) {
                Refuse(Child(name), "unknown member");
            }
            if (!seen.insert(name).second) {
                Refuse(Child(name), "duplicate member");
            }
            if (named && name.empty()) {
                Refuse(Child(name), "empty name");
            }
        }
    }

    std::size_t Size() const { return value_.Size(); }
    std::string Name(std::size_t index) const { return value_.MemberName(index); }
    Document Value(std::size_t index) const { return value_.MemberValue(index); }
    std::string Child(const std::string& name) const { return Pointer(place_, name); }
    bool Has(const std::string& name) const { return value_.HasMember(name); }
    Document Get(const std::string& name) const { return value_.Member(name); }

    Document Require(const std::string& name) const {
        if (!value_.HasMember(name)) {
            Refuse(Child(name), "missing member");
        }
        return value_.Member(name);
    }

private:
    Document value_;
    std::string place_;
};

std::string ReadText(const Document& value, const std::string& place) {
    if (!value.IsString()) {
        Refuse(place, "expected a text");
    }
    return value.GetString();
}

std::vector<std::string> ReadTexts(const Document& value, const std::string& place) {
    if (!value.IsArray()) {
        Refuse(place, "expected an array of texts");
    }
    std::vector<std::string> texts;
    texts.reserve(value.Size());
    for (std::size_t i = 0U; i < value.Size(); ++i) {
        texts.push_back(ReadText(value.Element(i), Pointer(place, i)));
    }
    return texts;
}

// A non-empty array of non-empty state names, each once.
std::vector<std::string> ReadStates(const Document& value, const std::string& place) {
    std::vector<std::string> names = ReadTexts(value, place);
    if (names.empty()) {
        Refuse(place, "expected at least one state");
    }
    std::set<std::string> seen;
    for (std::size_t i = 0U; i < names.size(); ++i) {
        if (names[i].empty()) {
            Refuse(Pointer(place, i), "empty name");
        }
        if (!seen.insert(names[i]).second) {
            Refuse(Pointer(place, i), "duplicate state");
        }
    }
    return names;
}

// A whole JSON number (no fraction, no exponent, not negative) from `low` to `high`.
std::uint64_t ReadNumber(const Document& value, const std::string& place, std::uint64_t low, std::uint64_t high) {
    if (!value.IsUint64() || value.GetUint64() < low || value.GetUint64() > high) {
        Refuse(place, "expected a whole number from " + std::to_string(low) + " to " + std::to_string(high));
    }
    return value.GetUint64();
}

std::chrono::milliseconds ReadMs(const Document& value,
                                 const std::string& place,
                                 std::uint64_t low,
                                 std::uint64_t high) {
    return std::chrono::milliseconds(static_cast<std::chrono::milliseconds::rep>(ReadNumber(value, place, low, high)));
}

// An absolute path that exists; `info` is what it names.
std::string ReadExistingPath(const Document& value, const std::string& place, struct stat& info) {
    std::string path = ReadText(value, place);
    if (path.empty() || path.front() != '/') {
        Refuse(place, "expected an absolute path");
    }
    if (path.find('\0') != std::string::npos || ::stat(path.c_str(), &info) != 0) {
        Refuse(place, "no such file or directory");
    }
    return path;
}

// The states of each function group (or process) by its name; sets, so that a manifest of
// many states is checked in time that grows with its size, not with its square.
using StateSets = std::map<std::string, std::set<std::string>>;

bool Contains(const std::vector<std::string>& texts, const std::string& text) {
    return std::find(texts.begin(), texts.end(), text) != texts.end();
}

std::string ReadState(const Members& members, const std::string& name, const std::vector<std::string>& states) {
    const std::string state = ReadText(members.Get(name), members.Child(name));
    if (!Contains(states, state)) {
        Refuse(members.Child(name), "unknown state");
    }
    return state;
}

FunctionGroupConfig ReadFunctionGroup(const std::string& name, const Document& value, const std::string& place) {
    const Members members(value, place, {"states", "initialState", "onFailure"});
    FunctionGroupConfig group;
    group.name = name;
    group.states = ReadStates(members.Require("states"), members.Child("states"));
    members.Require("initialState");
    group.initialState = ReadState(members, "initialState", group.states);
    if (members.Has("onFailure")) {
        group.onFailure = ReadState(members, "onFailure", group.states);
    }
    return group;
}

RestartPolicy ReadRestart(const Document& value, const std::string& place) {
    const Members members(value, place, {"maxRestarts", "backoffMs", "backoffMaxMs", "windowMs"});
    RestartPolicy policy;
    if (members.Has("maxRestarts")) {
        policy.maxRestarts = static_cast<unsigned int>(
            ReadNumber(members.Get("maxRestarts"), members.Child("maxRestarts"), 0U, MAX_RESTARTS));
    }
    if (members.Has("backoffMs")) {
        policy.backoff = ReadMs(members.Get("backoffMs"), members.Child("backoffMs"), 0U, MAX_TIMEOUT_MS);
    }
    if (members.Has("backoffMaxMs")) {
        policy.backoffMax = ReadMs(members.Get("backoffMaxMs"), members.Child("backoffMaxMs"), 0U, MAX_TIMEOUT_MS);
        if (policy.backoffMax.count() != 0 && policy.backoffMax < policy.backoff) {
            Refuse(members.Child("backoffMaxMs"),
                   "below the back-off of " + std::to_string(policy.backoff.count()) + " ms");
        }
    }
    if (members.Has("windowMs")) {
        policy.window = ReadMs(members.Get("windowMs"), members.Child("windowMs"), 0U, MAX_WINDOW_MS);
    }
    return policy;
}

std::vector<std::string> ReadEnvironment(const Document& value, const std::string& place) {
    const Members members(value, place, {}, true);
    std::vector<std::string> environment;
    environment.reserve(members.Size());
    for (std::size_t i = 0U; i < members.Size(); ++i) {
        const std::string name = members.Name(i);
        if (name.find('=') != std::string::npos) {
            Refuse(members.Child(name), "expected a name without '='");
        }
        environment.push_back(name + "=" + ReadText(members.Value(i), members.Child(name)));
    }
    return environment;
}

std::vector<Dependency> ReadDependencies(const Document& value, const std::string& place) {
    const Members members(value, place, {});
    std::vector<Dependency> dependencies;
    for (std::size_t i = 0U; i < members.Size(); ++i) {
        const std::string condition = ReadText(members.Value(i), members.Child(members.Name(i)));
        Dependency dependency{members.Name(i), Condition::kRunning};
        if (condition == ConditionName(Condition::kTerminated)) {
            dependency.condition = Condition::kTerminated;
        } else if (condition != ConditionName(Condition::kRunning)) {
            Refuse(members.Child(members.Name(i)), "expected running or terminated");
        }
        dependencies.push_back(std::move(dependency));
    }
    return dependencies;
}

Readiness ReadReadiness(const Document& value, const std::string& place) {
    const std::string text = ReadText(value, place);
    for (const Readiness readiness : {Readiness::kReport, Readiness::kNotify, Readiness::kSpawn}) {
        if (text == ReadinessName(readiness)) {
            return readiness;
        }
    }
    Refuse(place, "expected report, notify or spawn");
}

// A user or group by name or by number; the names resolve through the system's databases.
template <typename Id, typename Lookup>
Id ReadAccount(const Document& value, const std::string& place, const char* what, Lookup lookup) {
    if (value.IsUint()) {
        return static_cast<Id>(value.GetUint());
    }
    const std::string name = ReadText(value, place);
    const std::optional<Id> id = lookup(name);
    if (!id) {
        Refuse(place, std::string("unknown ") + what + " " + name);
    }
    return *id;
}

std::optional<uid_t> UserId(const std::string& name) {
    const passwd* entry = ::getpwnam(name.c_str());
    return entry != nullptr ? std::optional<uid_t>(entry->pw_uid) : std::nullopt;
}

std::optional<gid_t> GroupId(const std::string& name) {
    const group* entry = ::getgrnam(name.c_str());
    return entry != nullptr ? std::optional<gid_t>(entry->gr_gid) : std::nullopt;
}

// "user", "group", "supplementaryGroups", "umask" (an octal text such as "0027"),
// "noNewPrivileges". A user without "group" runs with the user's primary group.
Identity ReadIdentity(const Members& members) {
    Identity identity;
    if (members.Has("user")) {
        identity.user = ReadAccount<uid_t>(members.Get("user"), members.Child("user"), "user", UserId);
        if (const passwd* entry = ::getpwuid(*identity.user); entry != nullptr && !members.Has("group")) {
            identity.group = entry->pw_gid;
        }
    }
    if (members.Has("group")) {
        identity.group = ReadAccount<gid_t>(members.Get("group"), members.Child("group"), "group", GroupId);
    }
    if (members.Has("supplementaryGroups")) {
        const Document list = members.Get("supplementaryGroups");
        const std::string place = members.Child("supplementaryGroups");
        if (!list.IsArray()) {
            Refuse(place, "expected an array of group names or ids");
        }
        for (std::size_t i = 0U; i < list.Size(); ++i) {
            identity.supplementaryGroups.push_back(
                ReadAccount<gid_t>(list.Element(i), Pointer(place, i), "group", GroupId));
        }
    }
    if (members.Has("umask")) {
        const std::string place = members.Child("umask");
        const std::string text = ReadText(members.Get("umask"), place);
        if (text.empty() || text.size() > 4U || text.find_first_not_of("01234567") != std::string::npos) {
            Refuse(place, "expected an octal mask such as \"0027\"");
        }
        identity.umask = static_cast<mode_t>(std::stoul(text, nullptr, 8));
    }
    if (members.Has("noNewPrivileges")) {
        const Document flag = members.Get("noNewPrivileges");
        if (!flag.IsBool()) {
            Refuse(members.Child("noNewPrivileges"), "expected true or false");
        }
        identity.noNewPrivileges = flag.GetBool();
    }
    return identity;
}

// "limits": {"nofile": 64, ...}; each value is both the soft and the hard limit, a whole
// number or "infinity".
std::vector<Limit> ReadLimits(const Document& value, const std::string& place) {
    static const std::pair<const char*, int> NAMES[] = {{"nofile", RLIMIT_NOFILE},
                                                        {"core", RLIMIT_CORE},
                                                        {"as", RLIMIT_AS},
                                                        {"nproc", RLIMIT_NPROC},
                                                        {"memlock", RLIMIT_MEMLOCK},
                                                        {"rtprio", RLIMIT_RTPRIO},
                                                        {"stack", RLIMIT_STACK}};
    const Members members(value, place, {"nofile", "core", "as", "nproc", "memlock", "rtprio", "stack"});
    std::vector<Limit> limits;
    for (const auto& [name, resource] : NAMES) {
        if (!members.Has(name)) {
            continue;
        }
        const Document limit = members.Get(name);
        const bool infinite = limit.IsString() && limit.GetString() == "infinity";
        const rlim_t number = infinite
                                  ? RLIM_INFINITY
                                  : static_cast<rlim_t>(ReadNumber(limit, members.Child(name), 0U, RLIM_INFINITY - 1U));
        limits.push_back({resource, number});
    }
    return limits;
}

// A capability by its name, "CAP_NET_BIND_SERVICE", through libcap; one this kernel does
// not have is refused, as a set that silently lacked it would be.
int ReadCapability(const Document& value, const std::string& place) {
    const std::string name = ReadText(value, place);
    cap_value_t capability = 0;
    if (name.compare(0U, 4U, "CAP_") != 0 || name.find('\0') != std::string::npos ||
        cap_from_name(name.c_str(), &capability) != 0) {
        Refuse(place, "unknown capability " + name);
    }
    if (capability >= static_cast<cap_value_t>(cap_max_bits())) {
        Refuse(place, "capability " + name + " is not known to this kernel");
    }
    return capability;
}

std::vector<int> ReadCapabilityList(const Document& value, const std::string& place) {
    if (!value.IsArray()) {
        Refuse(place, "expected an array of capability names");
    }
    std::set<int> seen;
    std::vector<int> capabilities;
    for (std::size_t i = 0U; i < value.Size(); ++i) {
        const int capability = ReadCapability(value.Element(i), Pointer(place, i));
        if (!seen.insert(capability).second) {
            Refuse(Pointer(place, i), "duplicate capability");
        }
        capabilities.push_back(capability);
    }
    return capabilities;
}

// "capabilities": {"bounding": [...], "ambient": [...]}; the ambient ones must be bounded.
void ReadCapabilities(const Document& value, const std::string& place, Identity& identity) {
    const Members members(value, place, {"bounding", "ambient"});
    if (members.Has("bounding")) {
        identity.boundingCapabilities = ReadCapabilityList(members.Get("bounding"), members.Child("bounding"));
    }
    if (members.Has("ambient")) {
        identity.ambientCapabilities = ReadCapabilityList(members.Get("ambient"), members.Child("ambient"));
    }
    if (identity.boundingCapabilities) {
        const std::vector<int>& bounding = *identity.boundingCapabilities;
        for (std::size_t i = 0U; i < identity.ambientCapabilities.size(); ++i) {
            if (std::find(bounding.begin(), bounding.end(), identity.ambientCapabilities[i]) == bounding.end()) {
                Refuse(Pointer(members.Child("ambient"), i), "not in the bounding set");
            }
        }
    }
}

// "cpuAffinity": [0, 2]; each CPU once.
std::vector<int> ReadAffinity(const Document& value, const std::string& place) {
    if (!value.IsArray() || value.Size() == 0U) {
        Refuse(place, "expected a non-empty array of CPU numbers");
    }
    std::set<int> cpus;
    for (std::size_t i = 0U; i < value.Size(); ++i) {
        if (!cpus.insert(static_cast<int>(ReadNumber(value.Element(i), Pointer(place, i), 0U, CPU_SETSIZE - 1U)))
                 .second) {
            Refuse(Pointer(place, i), "duplicate CPU");
        }
    }
    return {cpus.begin(), cpus.end()};
}

// "scheduling": {"policy": "other", "nice": 5} or {"policy": "fifo", "priority": 10}.
Scheduling ReadScheduling(const Document& value, const std::string& place) {
    static const std::pair<const char*, int> POLICIES[] = {
        {"other", SCHED_OTHER}, {"batch", SCHED_BATCH}, {"idle", SCHED_IDLE}, {"fifo", SCHED_FIFO}, {"rr", SCHED_RR}};
    const Members members(value, place, {"policy", "nice", "priority"});
    const std::string policyPlace = members.Child("policy");
    const std::string name = ReadText(members.Require("policy"), policyPlace);
    Scheduling scheduling;
    const auto* policy = std::find_if(
        std::begin(POLICIES), std::end(POLICIES), [&name](const auto& entry) { return name == entry.first; });
    if (policy == std::end(POLICIES)) {
        Refuse(policyPlace, "expected other, batch, idle, fifo or rr");
    }
    scheduling.policy = policy->second;
    const bool realTime = scheduling.policy == SCHED_FIFO || scheduling.policy == SCHED_RR;
    if (realTime) {
        if (members.Has("nice")) {
            Refuse(members.Child("nice"), "a real-time policy has a priority, not a nice value");
        }
        scheduling.priority =
            static_cast<int>(ReadNumber(members.Require("priority"), members.Child("priority"), 1U, 99U));
        return scheduling;
    }
    if (members.Has("priority")) {
        Refuse(members.Child("priority"), "only fifo and rr have a priority");
    }
    if (members.Has("nice")) {
        const Document nice = members.Get("nice");
        if (!nice.IsInt() || nice.GetInt() < -20 || nice.GetInt() > 19) {
            Refuse(members.Child("nice"), "expected a whole number from -20 to 19");
        }
        scheduling.nice = nice.GetInt();
    }
    return scheduling;
}

// Refused when `path`, or a directory above it, is owned by someone else than root and
// `user`, or writable by others or by a group other than root's and `group` (with a group
// per user, a user's own files are group-writable). A directory with the sticky bit (/tmp)
// keeps others from replacing what they do not own, so it is held to the rule only as
// `path` itself. Symbolic links on the way are skipped; the path they lead to is checked too.
void RefuseWritableByOthers(const std::string& path, uid_t user, gid_t group, const std::string& place) {
    const auto walk = [&](std::string at) {
        for (bool self = true;; self = false) {
            struct stat info {};
            if (::lstat(at.c_str(), &info) == 0 && !S_ISLNK(info.st_mode)) {
                if (info.st_uid != 0U && info.st_uid != user) {
                    Refuse(place,
                           at + " belongs to uid " + std::to_string(info.st_uid) +
                               ", neither root nor the user of the process");
                }
                const bool sticky = !self && (info.st_mode & S_ISVTX) != 0U;
                const bool groupWrites = (info.st_mode & S_IWGRP) != 0U && info.st_gid != 0U && info.st_gid != group;
                if (!sticky && ((info.st_mode & S_IWOTH) != 0U || groupWrites)) {
                    Refuse(place, at + " is writable by others than root and the user of the process");
                }
            }
            if (at == "/") {
                return;
            }
            const std::size_t slash = at.find_last_of('/');
            at = slash == 0U ? "/" : at.substr(0U, slash);
        }
    };
    walk(path);
    std::pair<std::string, bool> real = tarn::em::util::FileSystem::GetCanonicalPath(path);
    if (real.second && real.first != path) {
        walk(real.first);
    }
}

// "log", "inherit", "null" or "file:/absolute/path" in an existing directory.
OutputTarget ReadOutput(const Document& value, const std::string& place) {
    static const std::pair<const char*, OutputKind> KINDS[] = {
        {"log", OutputKind::kLog}, {"inherit", OutputKind::kInherit}, {"null", OutputKind::kNull}};
    constexpr const char* FILE_PREFIX = "file:";
    const std::string text = ReadText(value, place);
    for (const auto& [name, kind] : KINDS) {
        if (text == name) {
            return {kind, {}};
        }
    }
    if (text.rfind(FILE_PREFIX, 0U) != 0U) {
        Refuse(place, "expected log, inherit, null or file:/absolute/path");
    }
    OutputTarget target{OutputKind::kFile, text.substr(std::strlen(FILE_PREFIX))};
    const std::string& path = target.path;
    if (path.empty() || path.front() != '/' || path.back() == '/' || path.find('\0') != std::string::npos) {
        Refuse(place, "expected an absolute path of a file after file:");
    }
    const std::string directory = path.substr(0U, std::max<std::size_t>(path.rfind('/'), 1U));
    struct stat info {};
    if (::stat(directory.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
        Refuse(place, "no such directory: " + directory);
    }
    if (::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) {
        Refuse(place, "is a directory");
    }
    return target;
}

// "cgroup": {"memoryMax": bytes, "cpuMax": {"quotaUs", "periodUs"}, "pidsMax", "required"}.
CgroupLimits ReadCgroup(const Document& value, const std::string& place) {
    const Members members(value, place, {"memoryMax", "cpuMax", "pidsMax", "required"});
    CgroupLimits limits;
    if (members.Has("memoryMax")) {
        limits.memoryMax = ReadNumber(members.Get("memoryMax"), members.Child("memoryMax"), MIN_MEMORY, MAX_MEMORY);
    }
    if (members.Has("cpuMax")) {
        const Members cpu(members.Get("cpuMax"), members.Child("cpuMax"), {"quotaUs", "periodUs"});
        CgroupLimits::CpuMax cpuMax;
        cpuMax.quotaUs = ReadNumber(cpu.Require("quotaUs"), cpu.Child("quotaUs"), MIN_CPU_US, MAX_CPU_QUOTA_US);
        if (cpu.Has("periodUs")) {
            cpuMax.periodUs = ReadNumber(cpu.Get("periodUs"), cpu.Child("periodUs"), MIN_CPU_US, MAX_CPU_PERIOD_US);
        }
        limits.cpuMax = cpuMax;
    }
    if (members.Has("pidsMax")) {
        limits.pidsMax = ReadNumber(members.Get("pidsMax"), members.Child("pidsMax"), 1U, MAX_PIDS);
    }
    if (members.Has("required")) {
        const Document flag = members.Get("required");
        if (!flag.IsBool()) {
            Refuse(members.Child("required"), "expected true or false");
        }
        limits.required = flag.GetBool();
    }
    return limits;
}

ProcessConfig ReadProcess(const std::string& name,
                          const Document& value,
                          const std::string& place,
                          const StateSets& groups) {
    const Members members(value,
                          place,
                          {"executable",
                           "arguments",
                           "environment",
                           "workingDirectory",
                           "functionGroup",
                           "states",
                           "startupTimeoutMs",
                           "terminationTimeoutMs",
                           "restart",
                           "dependsOn",
                           "readiness",
                           "watchdogMs",
                           "user",
                           "group",
                           "supplementaryGroups",
                           "umask",
                           "noNewPrivileges",
                           "limits",
                           "capabilities",
                           "cpuAffinity",
                           "scheduling",
                           "output",
                           "cgroup"});
    ProcessConfig process;
    process.name = name;

    const std::string executablePlace = members.Child("executable");
    struct stat info {};
    process.executable = ReadExistingPath(members.Require("executable"), executablePlace, info);
    if (S_ISDIR(info.st_mode)) {
        Refuse(executablePlace, "is a directory");
    }
    if (!S_ISREG(info.st_mode)) {
        Refuse(executablePlace, "not a regular file");
    }
    if (::access(process.executable.c_str(), X_OK) != 0) {
        Refuse(executablePlace, "not executable");
    }

    const std::string groupPlace = members.Child("functionGroup");
    process.functionGroup = ReadText(members.Require("functionGroup"), groupPlace);
    const auto group = groups.find(process.functionGroup);
    if (group == groups.end()) {
        Refuse(groupPlace, "unknown function group");
    }
    const std::string statesPlace = members.Child("states");
    process.states = ReadStates(members.Require("states"), statesPlace);
    for (std::size_t i = 0U; i < process.states.size(); ++i) {
        if (group->second.count(process.states[i]) == 0U) {
            Refuse(Pointer(statesPlace, i), "unknown state");
        }
    }

    if (members.Has("arguments")) {
        process.arguments = ReadTexts(members.Get("arguments"), members.Child("arguments"));
    }
    if (members.Has("environment")) {
        process.environment = ReadEnvironment(members.Get("environment"), members.Child("environment"));
    }
    if (members.Has("workingDirectory")) {
        const std::string directoryPlace = members.Child("workingDirectory");
        process.workingDirectory = ReadExistingPath(members.Get("workingDirectory"), directoryPlace, info);
        if (!S_ISDIR(info.st_mode)) {
            Refuse(directoryPlace, "not a directory");
        }
    }
    if (members.Has("startupTimeoutMs")) {
        process.startupTimeout =
            ReadMs(members.Get("startupTimeoutMs"), members.Child("startupTimeoutMs"), 1U, MAX_TIMEOUT_MS);
    }
    if (members.Has("terminationTimeoutMs")) {
        process.terminationTimeout =
            ReadMs(members.Get("terminationTimeoutMs"), members.Child("terminationTimeoutMs"), 1U, MAX_TIMEOUT_MS);
    }
    if (members.Has("restart")) {
        process.restart = ReadRestart(members.Get("restart"), members.Child("restart"));
    }
    if (members.Has("dependsOn")) {
        process.dependsOn = ReadDependencies(members.Get("dependsOn"), members.Child("dependsOn"));
    }
    if (members.Has("readiness")) {
        process.readiness = ReadReadiness(members.Get("readiness"), members.Child("readiness"));
    }
    if (members.Has("watchdogMs")) {
        process.watchdog = ReadMs(members.Get("watchdogMs"), members.Child("watchdogMs"), 0U, MAX_TIMEOUT_MS);
    }
    process.identity = ReadIdentity(members);
    if (members.Has("capabilities")) {
        ReadCapabilities(members.Get("capabilities"), members.Child("capabilities"), process.identity);
    }
    if (members.Has("limits")) {
        process.limits = ReadLimits(members.Get("limits"), members.Child("limits"));
    }
    if (members.Has("cpuAffinity")) {
        process.cpuAffinity = ReadAffinity(members.Get("cpuAffinity"), members.Child("cpuAffinity"));
    }
    if (members.Has("scheduling")) {
        process.scheduling = ReadScheduling(members.Get("scheduling"), members.Child("scheduling"));
    }
    // What runs, and where, must not be open to change by anyone but root and its user.
    const uid_t ownUser = process.identity.user.value_or(::geteuid());
    const gid_t ownGroup = process.identity.group.value_or(::getegid());
    RefuseWritableByOthers(process.executable, ownUser, ownGroup, executablePlace);
    RefuseWritableByOthers(
        process.workingDirectory,
        ownUser,
        ownGroup,
        members.Has("workingDirectory") ? members.Child("workingDirectory") : Pointer(place, "workingDirectory"));
    if (members.Has("output")) {
        process.output = ReadOutput(members.Get("output"), members.Child("output"));
    }
    if (members.Has("cgroup")) {
        process.cgroup = ReadCgroup(members.Get("cgroup"), members.Child("cgroup"));
    }
    return process;
}

std::string EdgePlace(const ProcessConfig& process, const Dependency& dependency) {
    return Pointer(Pointer(Pointer(Pointer("", "processes"), process.name), "dependsOn"), dependency.process);
}

// Every dependency names another process of the same group that runs in every state of the
// dependent; no process is needed both running and terminated; there is no cycle.
void CheckDependencies(const Manifest& manifest) {
    std::map<std::string, std::size_t> indexOf;
    StateSets statesOf;
    for (std::size_t i = 0U; i < manifest.processes.size(); ++i) {
        indexOf.emplace(manifest.processes[i].name, i);
        statesOf[manifest.processes[i].name].insert(manifest.processes[i].states.begin(),
                                                    manifest.processes[i].states.end());
    }
    std::map<std::string, std::pair<Condition, std::string>> neededAs;  // process: condition, by whom
    for (const ProcessConfig& process : manifest.processes) {
        for (const Dependency& dependency : process.dependsOn) {
            const std::string place = EdgePlace(process, dependency);
            const auto found = indexOf.find(dependency.process);
            if (found == indexOf.end()) {
                Refuse(place, "unknown process");
            }
            if (dependency.process == process.name) {
                Refuse(place, "a process cannot depend on itself");
            }
            const ProcessConfig& needed = manifest.processes[found->second];
            if (needed.functionGroup != process.functionGroup) {
                Refuse(
                    place,
                    needed.name + " is in function group " + needed.functionGroup + ", not " + process.functionGroup);
            }
            for (const std::string& state : process.states) {
                if (statesOf[needed.name].count(state) == 0U) {
                    Refuse(place, needed.name + " does not run in state " + state + " of " + process.functionGroup);
                }
            }
            const auto earlier =
                neededAs.emplace(dependency.process, std::make_pair(dependency.condition, process.name));
            if (earlier.first->second.first != dependency.condition) {
                Refuse(place,
                       needed.name + " is needed " + ConditionName(dependency.condition) + " here but " +
                           ConditionName(earlier.first->second.first) + " by " + earlier.first->second.second);
            }
        }
    }

    // Depth-first, in manifest order, without recursion: the first back edge closes a cycle.
    enum class Mark : std::uint8_t { kNew, kOnPath, kDone };
    std::vector<Mark> marks(manifest.processes.size(), Mark::kNew);
    struct Frame {
        std::size_t process;
        std::size_t nextEdge;
    };
    for (std::size_t start = 0U; start < manifest.processes.size(); ++start) {
        if (marks[start] != Mark::kNew) {
            continue;
        }
        std::vector<Frame> path{{start, 0U}};
        marks[start] = Mark::kOnPath;
        while (!path.empty()) {
            Frame& frame = path.back();
            const ProcessConfig& process = manifest.processes[frame.process];
            if (frame.nextEdge == process.dependsOn.size()) {
                marks[frame.process] = Mark::kDone;
                path.pop_back();
                continue;
            }
            const std::size_t next = indexOf.at(process.dependsOn[frame.nextEdge++].process);
            if (marks[next] == Mark::kNew) {
                marks[next] = Mark::kOnPath;
                path.push_back({next, 0U});
            } else if (marks[next] == Mark::kOnPath) {
                auto first = std::find_if(
                    path.begin(), path.end(), [next](const Frame& candidate) { return candidate.process == next; });
                std::string cycle;
                for (auto it = first; it != path.end(); ++it) {
                    cycle += manifest.processes[it->process].name + " -> ";
                }
                const ProcessConfig& from = manifest.processes[first->process];
                Refuse(EdgePlace(from, from.dependsOn[first->nextEdge - 1U]),
                       "dependency cycle: " + cycle + manifest.processes[next].name);
            }
        }
    }
}

Manifest ReadManifest(const Document& root) {
    const Members members(root, "", {"$schema", "functionGroups", "processes"});
    if (members.Has("$schema")) {
        ReadText(members.Get("$schema"), members.Child("$schema"));
    }
    Manifest manifest;
    StateSets groupStates;
    const Members groups(members.Require("functionGroups"), members.Child("functionGroups"), {}, true);
    for (std::size_t i = 0U; i < groups.Size(); ++i) {
        manifest.functionGroups.push_back(
            ReadFunctionGroup(groups.Name(i), groups.Value(i), groups.Child(groups.Name(i))));
        groupStates[groups.Name(i)].insert(manifest.functionGroups.back().states.begin(),
                                           manifest.functionGroups.back().states.end());
    }
    if (!groups.Has(MACHINE_FG)) {
        Refuse(groups.Child(MACHINE_FG), "missing member");
    }
    if (members.Has("processes")) {
        const Members processes(members.Get("processes"), members.Child("processes"), {}, true);
        for (std::size_t i = 0U; i < processes.Size(); ++i) {
            manifest.processes.push_back(
                ReadProcess(processes.Name(i), processes.Value(i), processes.Child(processes.Name(i)), groupStates));
        }
    }
    CheckDependencies(manifest);
    return manifest;
}

ManifestResult Failure(const std::string& file, std::string place, std::string problem) {
    ManifestResult result;
    result.error = ManifestError{file, std::move(place), std::move(problem)};
    return result;
}

// Why the parser refused `file`: the line and column it names become the place.
ManifestResult ParseFailure(const std::string& file, std::int32_t result, const std::string& error) {
    namespace json = ara::quill::common::jsonParser;
    if (result == json::PARSE_CRC_CHECK_FAILED) {
        return Failure(file, "", "CRC check failed: " + error);
    }
    const std::size_t colon = error.find(": ");
    if ((result == json::PARSE_SYNTAX_ERROR || result == json::PARSE_TOO_DEEP) &&
        error.rfind(LINE_PLACE_PREFIX, 0U) == 0U && colon != std::string::npos) {
        return Failure(file, error.substr(0U, colon), error.substr(colon + 2U));
    }
    return Failure(file, "", error.empty() ? "cannot be loaded" : error);
}

ManifestResult Validate(const Document& root, const std::string& file) {
    try {
        ManifestResult result;
        result.manifest = ReadManifest(root);
        result.ok = true;
        return result;
    } catch (const Refusal& refusal) {
        return Failure(file, refusal.place, refusal.problem);
    }
}

}  // namespace

const char* ReadinessName(Readiness readiness) noexcept {
    switch (readiness) {
        case Readiness::kReport:
            return "report";
        case Readiness::kNotify:
            return "notify";
        case Readiness::kSpawn:
            return "spawn";
    }
    return "unknown";
}

const char* ConditionName(Condition condition) noexcept {
    return condition == Condition::kTerminated ? "terminated" : "running";
}

std::string ManifestError::Text() const {
    return place.empty() ? file + ": " + problem : file + ": " + place + ": " + problem;
}

ManifestResult LoadManifest(const std::string& path, const std::string& crcIntensity) {
    CrcVerification verification = CrcVerification::kNot;
    if (crcIntensity == "strong") {
        verification = CrcVerification::kStrong;
    } else if (crcIntensity == "weak") {
        verification = CrcVerification::kWeak;
    } else if (crcIntensity != "not") {
        return Failure(path, "", "CRC intensity \"" + crcIntensity + "\" is not one of strong, weak, not");
    }
    Document document;
    const std::int32_t result = document.Parse(path, verification);
    if (result != ara::quill::common::jsonParser::PARSE_SUCCESS) {
        return ParseFailure(path, result, document.GetParseError());
    }
    return Validate(document, path);
}

ManifestResult ValidateManifestText(const std::string& text, const std::string& file) {
    if (text.size() > Document::MAX_FILE_SIZE) {
        return Failure(file, "", "larger than " + std::to_string(Document::MAX_FILE_SIZE) + " bytes");
    }
    Document document;
    const std::int32_t result = document.ParseText(text);
    if (result != ara::quill::common::jsonParser::PARSE_SUCCESS) {
        return ParseFailure(file, result, document.GetParseError());
    }
    return Validate(document, file);
}

}  // namespace tarn::em::daemon
