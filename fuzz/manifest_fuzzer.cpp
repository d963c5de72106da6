// Fuzzes the machine manifest of emd: bytes are parsed as JSON, stored into the key-value
// storage the way the file loader stores them, and validated. Every input must end in a
// manifest or a refusal with a problem text.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "ara/quill/common/jsonParser/document.h"
#include "manifest.h"
#include "tarn/em/util/json_key_value_storage.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    namespace json = ara::quill::common::jsonParser;
    json::Document document;
    if (document.ParseText(std::string(reinterpret_cast<const char*>(data), size)) != json::PARSE_SUCCESS) {
        return 0;
    }
    tarn::em::util::KeyValueStorage root;
    if (document.IsObject()) {
        tarn::em::util::DocToKvsForObject(document, root);
    } else if (document.IsArray()) {
        tarn::em::util::SetValue(document, root);
    }
    const tarn::em::daemon::ManifestResult result = tarn::em::daemon::ValidateManifest(root, "<fuzz>");
    const auto& groups = result.manifest.functionGroups;
    const bool hasMachineFg = std::any_of(
        groups.begin(), groups.end(), [](const auto& group) { return group.name == tarn::em::daemon::MACHINE_FG; });
    const bool consistent = result.ok ? result.error.problem.empty() && hasMachineFg : !result.error.problem.empty();
    if (!consistent) {
        __builtin_trap();
    }
    return 0;
}
