// SPDX-License-Identifier: Apache-2.0
// Conversion of a parsed JSON document into KeyValueStorage, and the file loader.
#include "tarn/em/util/json_key_value_storage.h"

#include "util_log.h"

namespace tarn::em::util {

using ara::quill::common::jsonParser::CrcVerification;
using ara::quill::common::jsonParser::Document;
using ara::quill::common::jsonParser::PARSE_CRC_CHECK_FAILED;
using ara::quill::common::jsonParser::PARSE_SUCCESS;

namespace {

constexpr const char* ENTRY_KEY = "key";
constexpr const char* ENTRY_VALUE = "value";

CrcVerification VerificationOf(const std::string& intensity) {
    if (intensity == "strong") {
        return CrcVerification::kStrong;
    }
    if (intensity == "weak") {
        return CrcVerification::kWeak;
    }
    if (intensity == "not") {
        return CrcVerification::kNot;
    }
    detail::EmLog()->debug() << "[JsonKeyValueStorage][Check intensity is not in strong, weak or not]";
    return CrcVerification::kWeak;
}

}  // namespace

// The recursion of the three functions below is bounded: the parser refuses documents
// nested deeper than Document::MAX_DEPTH.
void SetValue(const Document& document, KeyValueStorage& kvs) {  // NOLINT(misc-no-recursion)
    if (document.IsObject()) {
        KeyValueStorage entry;
        DocToKvsForObject(document, entry);
        kvs.SetValue(entry);
    } else if (document.IsArray()) {
        std::vector<KeyValueStorage> list;
        DocToKvsForArray(document, list);
        kvs.SetValue(list);
    } else if (document.IsBool()) {
        kvs.SetValue(document.GetBool());
    } else if (document.IsNull()) {
        kvs.SetValue(nullptr);
    } else if (document.IsString()) {
        kvs.SetValue(document.GetString());
    } else if (document.IsUint()) {
        kvs.SetValue(static_cast<unsigned int>(document.GetUint()));
    } else if (document.IsInt()) {
        kvs.SetValue(static_cast<int>(document.GetInt()));
    } else if (document.IsUint64()) {
        kvs.SetValue(static_cast<unsigned long>(document.GetUint64()));
    } else if (document.IsInt64()) {
        kvs.SetValue(static_cast<long>(document.GetInt64()));
    } else if (document.IsDouble()) {
        kvs.SetValue(document.GetDouble());
    }
}

void DocToKvsForObject(const Document& document, KeyValueStorage& kvs) {  // NOLINT(misc-no-recursion)
    if (!document.HasMember(ENTRY_KEY) || !document.HasMember(ENTRY_VALUE)) {
        return;
    }
    const Document key = document.Member(ENTRY_KEY);
    if (!key.IsString()) {
        return;
    }
    kvs.SetKey(key.GetString());
    SetValue(document.Member(ENTRY_VALUE), kvs);
}

void DocToKvsForArray(const Document& document, std::vector<KeyValueStorage>& kvs) {  // NOLINT(misc-no-recursion)
    if (!document.IsArray()) {
        return;
    }
    const std::size_t size = document.Size();
    kvs.reserve(kvs.size() + size);
    for (std::size_t i = 0U; i < size; ++i) {
        const Document element = document.Element(i);
        KeyValueStorage item;
        if (element.IsObject()) {
            DocToKvsForObject(element, item);
        } else {
            SetValue(element, item);
        }
        kvs.push_back(std::move(item));
    }
}

bool JsonKeyValueStorage::LoadFromJson(const std::string& path, KeyValueStorage& out, const std::string& intensity) {
    Document document;
    const std::int32_t result = document.Parse(path, VerificationOf(intensity));
    if (result == PARSE_CRC_CHECK_FAILED) {
        detail::EmLog()->error() << "[JsonKeyValueStorage][Find error in crc check, load json failed]";
        return false;
    }
    if (result != PARSE_SUCCESS || document.HasParseError()) {
        return false;
    }
    if (document.IsArray()) {
        std::vector<KeyValueStorage> list;
        DocToKvsForArray(document, list);
        out.SetValue(list);
    } else if (document.IsObject()) {
        DocToKvsForObject(document, out);
    }
    return true;
}

}  // namespace tarn::em::util
