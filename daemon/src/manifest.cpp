// Loading and validating the machine manifest: the JSON file is read into the key-value
// storage, then every member is checked and copied into the plain structs of manifest.h.
// The first fault found refuses the whole manifest with its member path.
#include "manifest.h"

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <set>
#include <utility>

#include "ara/quill/common/jsonParser/document.h"
#include "tarn/em/util/file_system.h"
#include "tarn/em/util/json_key_value_storage.h"
#include "tarn/em/util/string_process.h"

namespace tarn::em::daemon {

namespace {

using ara::quill::common::jsonParser::CrcVerification;
using ara::quill::common::jsonParser::Document;
using tarn::em::util::FileSystem;
using tarn::em::util::KeyValueStorage;
using tarn::em::util::StringProcess;

constexpr unsigned int MAX_TIMEOUT_MS = 3600000U;
constexpr unsigned int MAX_RESTARTS = 1000U;
constexpr const char* SYNTAX_PLACE_PREFIX = "line ";

// Thrown inside the validation only; ValidateManifest turns it into a ManifestError.
struct Refusal {
    std::string place;
    std::string problem;
};

[[noreturn]] void Refuse(const std::string& place, const std::string& problem) {
    throw Refusal{place, problem};
}

std::string Indexed(const std::string& place, std::size_t index) {
    return place + "[" + std::to_string(index) + "]";
}

// The entries of a list value, each with a non-empty key that appears once. With a
// non-empty `allowed` every key must be one of those names.
class Entries {
public:
    Entries(const KeyValueStorage& value,
            std::string place,
            std::initializer_list<const char*> allowed,
            const std::string& what)
        : place_(std::move(place)) {
        if (!value.GetList(entries_)) {
            Refuse(place_, "expected a list of entries");
        }
        std::set<std::string> seen;
        for (std::size_t i = 0U; i < entries_.size(); ++i) {
            const std::string& key = entries_[i].GetKey();
            if (key.empty()) {
                Refuse(Indexed(place_, i), "expected an entry {\"key\": <non-empty text>, \"value\": ...}");
            }
            const bool known =
                allowed.size() == 0U ||
                std::any_of(allowed.begin(), allowed.end(), [&key](const char* name) { return key == name; });
            if (!known) {
                Refuse(Child(key), "unknown " + what);
            }
            if (!seen.insert(key).second) {
                Refuse(Child(key), "duplicate " + what);
            }
        }
    }

    const KeyValueStorage::List& All() const { return entries_; }
    std::string Child(const std::string& key) const { return place_ + "/" + key; }

    const KeyValueStorage* Find(const std::string& key) const {
        const auto found = std::find_if(
            entries_.begin(), entries_.end(), [&key](const KeyValueStorage& entry) { return entry.GetKey() == key; });
        return found == entries_.end() ? nullptr : &*found;
    }

    const KeyValueStorage& Require(const std::string& key) const {
        const KeyValueStorage* entry = Find(key);
        if (entry == nullptr) {
            Refuse(Child(key), "missing member");
        }
        return *entry;
    }

private:
    std::string place_;
    KeyValueStorage::List entries_;
};

std::string ReadText(const KeyValueStorage& value, const std::string& place) {
    std::string text;
    if (!value.GetString(text)) {
        Refuse(place, "expected a text");
    }
    return text;
}

std::vector<std::string> ReadTexts(const KeyValueStorage& value, const std::string& place) {
    KeyValueStorage::List list;
    if (!value.GetList(list)) {
        Refuse(place, "expected a list of texts");
    }
    std::vector<std::string> texts;
    texts.reserve(list.size());
    for (std::size_t i = 0U; i < list.size(); ++i) {
        texts.push_back(ReadText(list[i], Indexed(place, i)));
    }
    return texts;
}

// A non-empty list of non-empty texts, each once.
std::vector<std::string> ReadNames(const KeyValueStorage& value, const std::string& place) {
    std::vector<std::string> names = ReadTexts(value, place);
    if (names.empty()) {
        Refuse(place, "expected at least one state");
    }
    for (std::size_t i = 0U; i < names.size(); ++i) {
        if (names[i].empty()) {
            Refuse(Indexed(place, i), "empty name");
        }
        if (std::find(names.begin(), names.begin() + static_cast<std::ptrdiff_t>(i), names[i]) !=
            names.begin() + static_cast<std::ptrdiff_t>(i)) {
            Refuse(Indexed(place, i), "duplicate state");
        }
    }
    return names;
}

unsigned int ReadNumber(const KeyValueStorage& value, const std::string& place, unsigned int low, unsigned int high) {
    unsigned int number = 0U;
    if (!value.GetUint32(number) || number < low || number > high) {
        Refuse(place, "expected a whole number from " + std::to_string(low) + " to " + std::to_string(high));
    }
    return number;
}

std::string ReadAbsolutePath(const KeyValueStorage& value, const std::string& place) {
    std::string path = ReadText(value, place);
    if (path.empty() || path.front() != '/') {
        Refuse(place, "expected an absolute path");
    }
    if (!FileSystem::GetCanonicalPath(path).second) {
        Refuse(place, "no such file or directory");
    }
    return path;
}

bool Contains(const std::vector<std::string>& texts, const std::string& text) {
    return std::find(texts.begin(), texts.end(), text) != texts.end();
}

FunctionGroupConfig ReadFunctionGroup(const KeyValueStorage& entry, const std::string& place) {
    const Entries members(entry, place, {"states", "initialState"}, "member");
    FunctionGroupConfig group;
    group.name = entry.GetKey();
    group.states = ReadNames(members.Require("states"), members.Child("states"));
    group.initialState = ReadText(members.Require("initialState"), members.Child("initialState"));
    if (!Contains(group.states, group.initialState)) {
        Refuse(members.Child("initialState"), "unknown state");
    }
    return group;
}

RestartPolicy ReadRestart(const KeyValueStorage& value, const std::string& place) {
    const Entries members(value, place, {"maxRestarts", "backoffMs"}, "member");
    RestartPolicy policy;
    if (const KeyValueStorage* found = members.Find("maxRestarts")) {
        policy.maxRestarts = ReadNumber(*found, members.Child("maxRestarts"), 0U, MAX_RESTARTS);
    }
    if (const KeyValueStorage* found = members.Find("backoffMs")) {
        policy.backoff = std::chrono::milliseconds(ReadNumber(*found, members.Child("backoffMs"), 0U, MAX_TIMEOUT_MS));
    }
    return policy;
}

ProcessConfig ReadProcess(const KeyValueStorage& entry,
                          const std::string& place,
                          const std::vector<FunctionGroupConfig>& groups) {
    const Entries members(entry,
                          place,
                          {"executable",
                           "arguments",
                           "environment",
                           "workingDirectory",
                           "functionGroup",
                           "states",
                           "startupTimeoutMs",
                           "terminationTimeoutMs",
                           "restart"},
                          "member");
    ProcessConfig process;
    process.name = entry.GetKey();

    const std::string executablePlace = members.Child("executable");
    process.executable = ReadAbsolutePath(members.Require("executable"), executablePlace);
    if (FileSystem::IsFolder(process.executable)) {
        Refuse(executablePlace, "is a directory");
    }
    if (!FileSystem::IsExecutable(process.executable)) {
        Refuse(executablePlace, "not executable");
    }

    const std::string groupPlace = members.Child("functionGroup");
    process.functionGroup = ReadText(members.Require("functionGroup"), groupPlace);
    const auto group = std::find_if(groups.begin(), groups.end(), [&process](const FunctionGroupConfig& candidate) {
        return candidate.name == process.functionGroup;
    });
    if (group == groups.end()) {
        Refuse(groupPlace, "unknown function group");
    }
    const std::string statesPlace = members.Child("states");
    process.states = ReadNames(members.Require("states"), statesPlace);
    for (std::size_t i = 0U; i < process.states.size(); ++i) {
        if (!Contains(group->states, process.states[i])) {
            Refuse(Indexed(statesPlace, i), "unknown state");
        }
    }

    if (const KeyValueStorage* found = members.Find("arguments")) {
        process.arguments = ReadTexts(*found, members.Child("arguments"));
    }
    if (const KeyValueStorage* found = members.Find("environment")) {
        const std::string environmentPlace = members.Child("environment");
        process.environment = ReadTexts(*found, environmentPlace);
        for (std::size_t i = 0U; i < process.environment.size(); ++i) {
            std::pair<std::string, std::string> variable;
            if (!StringProcess::ParseEnvFromString(process.environment[i], variable)) {
                Refuse(Indexed(environmentPlace, i), "expected NAME=VALUE");
            }
        }
    }
    if (const KeyValueStorage* found = members.Find("workingDirectory")) {
        const std::string directoryPlace = members.Child("workingDirectory");
        process.workingDirectory = ReadAbsolutePath(*found, directoryPlace);
        if (!FileSystem::IsFolder(process.workingDirectory)) {
            Refuse(directoryPlace, "not a directory");
        }
    }
    if (const KeyValueStorage* found = members.Find("startupTimeoutMs")) {
        process.startupTimeout =
            std::chrono::milliseconds(ReadNumber(*found, members.Child("startupTimeoutMs"), 1U, MAX_TIMEOUT_MS));
    }
    if (const KeyValueStorage* found = members.Find("terminationTimeoutMs")) {
        process.terminationTimeout =
            std::chrono::milliseconds(ReadNumber(*found, members.Child("terminationTimeoutMs"), 1U, MAX_TIMEOUT_MS));
    }
    if (const KeyValueStorage* found = members.Find("restart")) {
        process.restart = ReadRestart(*found, members.Child("restart"));
    }
    return process;
}

Manifest ReadManifest(const KeyValueStorage& root) {
    const std::string rootKey = "manifest";
    if (root.GetKey() != rootKey) {
        Refuse("", "expected the root entry {\"key\": \"manifest\", \"value\": [...]}");
    }
    const Entries members(root, rootKey, {"functionGroups", "processes"}, "member");
    Manifest manifest;

    const Entries groups(members.Require("functionGroups"), members.Child("functionGroups"), {}, "function group");
    for (const KeyValueStorage& entry : groups.All()) {
        manifest.functionGroups.push_back(ReadFunctionGroup(entry, groups.Child(entry.GetKey())));
    }
    if (groups.Find(MACHINE_FG) == nullptr) {
        Refuse(members.Child("functionGroups"), std::string("missing function group ") + MACHINE_FG);
    }

    if (const KeyValueStorage* found = members.Find("processes")) {
        const Entries processes(*found, members.Child("processes"), {}, "process");
        for (const KeyValueStorage& entry : processes.All()) {
            manifest.processes.push_back(ReadProcess(entry, processes.Child(entry.GetKey()), manifest.functionGroups));
        }
    }
    return manifest;
}

ManifestResult ValidateManifest(const KeyValueStorage& root, const std::string& file);

ManifestResult Failure(const std::string& file, std::string place, std::string problem) {
    ManifestResult result;
    result.error = ManifestError{file, std::move(place), std::move(problem)};
    return result;
}

// Why `path` does not load, from a second parse with the same verification.
ManifestResult LoadFailure(const std::string& path, CrcVerification verification) {
    Document document;
    const std::int32_t result = document.Parse(path, verification);
    const std::string& error = document.GetParseError();
    switch (result) {
        case ara::quill::common::jsonParser::PARSE_SYNTAX_ERROR: {
            const std::size_t colon = error.find(": ");
            if (error.rfind(SYNTAX_PLACE_PREFIX, 0U) == 0U && colon != std::string::npos) {
                return Failure(path, error.substr(0U, colon), error.substr(colon + 2U));
            }
            return Failure(path, "", error);
        }
        case ara::quill::common::jsonParser::PARSE_CRC_CHECK_FAILED:
            return Failure(path, "", "CRC check failed: " + error);
        case ara::quill::common::jsonParser::PARSE_SUCCESS:
            return Failure(path, "", "changed while being read");
        default:
            return Failure(path, "", error.empty() ? "cannot be loaded" : error);
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
    KeyValueStorage root;
    if (!tarn::em::util::JsonKeyValueStorage::LoadFromJson(path, root, crcIntensity)) {
        return LoadFailure(path, verification);
    }
    return ValidateManifest(root, path);
}

namespace {
ManifestResult ValidateManifest(const KeyValueStorage& root, const std::string& file) {
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

ManifestResult ValidateManifestText(const std::string& text, const std::string& file) {
    KeyValueStorage root;
    (void)text;
    return Failure(file, "", "not yet");
}

}  // namespace tarn::em::daemon
