// SPDX-License-Identifier: Apache-2.0
// The JSON answers of emd's own service (tarn/em/emd_status_service.h states their shapes):
// a small writer that escapes every text it is given, and the four documents built with it.
#ifndef TARN_EM_DAEMON_STATUS_JSON_H
#define TARN_EM_DAEMON_STATUS_JSON_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "manifest.h"
#include "supervisor.h"

namespace tarn::em::daemon {

/// `text` as a JSON string, quotes included: `"` and `\` escaped, control characters as
/// \b \f \n \r \t or \u00XX, and every byte that does not belong to a valid UTF-8 sequence
/// (stray continuation bytes, overlong forms, surrogates, cut-off sequences, beyond U+10FFFF)
/// replaced by \ufffd, so that any input gives a document a strict parser accepts.
std::string JsonString(std::string_view text);

/// Writes one JSON document value by value on one line; it places the separators, the
/// caller keeps the nesting right (a Key before each value inside an object).
class JsonWriter {
public:
    JsonWriter& BeginObject();
    JsonWriter& EndObject();
    JsonWriter& BeginArray();
    JsonWriter& EndArray();
    JsonWriter& Key(std::string_view name);
    JsonWriter& String(std::string_view text);
    /// `text`, or null when it is empty.
    JsonWriter& StringOrNull(std::string_view text);
    JsonWriter& Number(std::int64_t value);
    JsonWriter& Bool(bool value);
    JsonWriter& Null();
    const std::string& Text() const noexcept { return text_; }

private:
    void BeforeValue();
    void Open(char bracket);

    std::string text_;
    std::vector<bool> empty_;  // per open container: nothing written in it yet
    bool afterKey_{false};
};

std::string ProcessStatusJson(const ProcessStatus& status);
std::string GroupStatusJson(const GroupStatus& status);
/// `group` empty: the blame of every group.
std::string BlameJson(const std::string& group, const std::vector<BlameEntry>& entries);
std::string DependenciesJson(const Manifest& manifest);

}  // namespace tarn::em::daemon

#endif
