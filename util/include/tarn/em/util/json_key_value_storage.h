// SPDX-License-Identifier: Apache-2.0
// Loading a KeyValueStorage from a JSON file read through the platform JSON parser.
#ifndef TARN_EM_UTIL_JSON_KEY_VALUE_STORAGE_H
#define TARN_EM_UTIL_JSON_KEY_VALUE_STORAGE_H

#include <string>
#include <vector>

#include "ara/core/internal/export.h"
#include "ara/quill/common/jsonParser/document.h"
#include "tarn/em/util/key_value_storage.h"

namespace tarn::em::util {

class ARA_EXPORT JsonKeyValueStorage final {
public:
    JsonKeyValueStorage() = delete;

    /// Parses the JSON file at `path` with the CRC verification named by `intensity`
    /// ("strong", "weak" or "not"; any other text is logged and means "weak").
    /// A root object is read as one entry {"key": ..., "value": ...} into `out`; a root
    /// array becomes a list stored in `out`; any other root leaves `out` as it was.
    /// False when the file cannot be read or parsed or fails its CRC check.
    static bool LoadFromJson(const std::string& path, KeyValueStorage& out, const std::string& intensity);
};

/// Stores the JSON value `document` in `kvs`: an object becomes a nested KeyValueStorage
/// (read as an entry by DocToKvsForObject), an array a list, and scalars the narrowest of
/// bool, nullptr_t, std::string, unsigned int, int, unsigned long, long and double.
ARA_EXPORT void SetValue(const ara::quill::common::jsonParser::Document& document, KeyValueStorage& kvs);
/// Reads an entry object {"key": <string>, "value": <any>} into `kvs`: the key becomes its
/// key and the value its value. Other members (such as "checksum") are ignored. An object
/// without both members, or whose "key" is not a string, leaves `kvs` unchanged.
ARA_EXPORT void DocToKvsForObject(const ara::quill::common::jsonParser::Document& document, KeyValueStorage& kvs);
/// Appends one element per array element: entry objects keep their own key, every other
/// element gets an empty key.
ARA_EXPORT void DocToKvsForArray(const ara::quill::common::jsonParser::Document& document,
                                 std::vector<KeyValueStorage>& kvs);

}  // namespace tarn::em::util

#endif
