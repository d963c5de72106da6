// SPDX-License-Identifier: Apache-2.0
// Fuzzes the machine manifest of emd: bytes are parsed and validated as manifest text. Every
// input must end in a manifest that holds MachineFG and whose dependencies all name declared
// processes, or in a refusal with a problem text.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "manifest.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tarn::em::daemon;  // NOLINT(google-build-using-namespace)
    const ManifestResult result =
        ValidateManifestText(std::string(reinterpret_cast<const char*>(data), size), "<fuzz>");
    const Manifest& manifest = result.manifest;
    const bool hasMachineFg = std::any_of(manifest.functionGroups.begin(),
                                          manifest.functionGroups.end(),
                                          [](const FunctionGroupConfig& group) { return group.name == MACHINE_FG; });
    const bool dependenciesDeclared =
        std::all_of(manifest.processes.begin(), manifest.processes.end(), [&manifest](const ProcessConfig& process) {
            return std::all_of(process.dependsOn.begin(), process.dependsOn.end(), [&](const Dependency& dependency) {
                return dependency.process != process.name && std::any_of(manifest.processes.begin(),
                                                                         manifest.processes.end(),
                                                                         [&dependency](const ProcessConfig& other) {
                                                                             return other.name == dependency.process;
                                                                         });
            });
        });
    const bool consistent = result.ok ? result.error.problem.empty() && hasMachineFg && dependenciesDeclared
                                      : !result.error.problem.empty();
    if (!consistent) {
        __builtin_trap();
    }
    return 0;
}
