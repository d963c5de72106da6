// The machine manifest: function groups with their states, and the processes that run in
// them. Loaded from JSON through the key-value storage and validated into plain structs;
// nothing here touches a process.
#ifndef TARN_EM_DAEMON_MANIFEST_H
#define TARN_EM_DAEMON_MANIFEST_H

#include <chrono>
#include <string>
#include <vector>

#include "tarn/em/util/key_value_storage.h"

namespace tarn::em::daemon {

/// The group every machine has; emd moves it to its initial state at start-up.
constexpr const char* MACHINE_FG = "MachineFG";

struct FunctionGroupConfig {
    std::string name;
    std::vector<std::string> states;  ///< unique, in manifest order
    std::string initialState;         ///< one of `states`
};

struct RestartPolicy {
    unsigned int maxRestarts{0U};             ///< restarts after unexpected exits; 0: never restart
    std::chrono::milliseconds backoff{1000};  ///< wait between the exit and the restart
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
};

struct Manifest {
    std::vector<FunctionGroupConfig> functionGroups;  ///< holds MACHINE_FG
    std::vector<ProcessConfig> processes;
};

/// Why a manifest was refused: the file, where in it (line and column of a syntax error,
/// or the member path such as "manifest/processes/logger/states[1]") and what is wrong.
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

/// Reads `path` with JsonKeyValueStorage::LoadFromJson (`crcIntensity` "strong", "weak" or
/// "not") and validates it. A file that does not load is read once more with the JSON parser
/// to say where and why.
ManifestResult LoadManifest(const std::string& path, const std::string& crcIntensity);

/// Validates a loaded document; `file` only names it in errors.
ManifestResult ValidateManifest(const tarn::em::util::KeyValueStorage& root, const std::string& file);

}  // namespace tarn::em::daemon

#endif
