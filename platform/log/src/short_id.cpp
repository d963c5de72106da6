// SPDX-License-Identifier: Apache-2.0
// Derivation of four-character DLT ids.
#include "short_id.h"

#include <cctype>

namespace ara::quill::common::log::internal {
namespace {

bool IsVowel(char c) {
    switch (std::toupper(static_cast<unsigned char>(c))) {
        case 'A':
        case 'E':
        case 'I':
        case 'O':
        case 'U':
            return true;
        default:
            return false;
    }
}

std::string Squeeze(const std::string& name) {
    if (name.size() <= SHORT_ID_LENGTH) {
        return name;
    }
    std::string id(1U, name.front());
    for (std::size_t i = 1U; i < name.size() && id.size() < SHORT_ID_LENGTH; ++i) {
        const char c = name[i];
        const bool usable = std::isalnum(static_cast<unsigned char>(c)) != 0 && !IsVowel(c);
        if (usable && id.find(c) == std::string::npos) {
            id.push_back(c);
        }
    }
    if (id.size() < SHORT_ID_LENGTH) {
        id = name.substr(0U, SHORT_ID_LENGTH);
    }
    return id;
}

}  // namespace

std::string ShortId(const std::string& name, const std::set<std::string>& taken) {
    std::string base = Squeeze(name);
    if (taken.count(base) == 0U) {
        return base;
    }
    const std::string stem = base.size() < SHORT_ID_LENGTH ? base : base.substr(0U, SHORT_ID_LENGTH - 1U);
    for (char digit = '1'; digit <= '9'; ++digit) {
        std::string candidate = stem + digit;
        if (taken.count(candidate) == 0U) {
            return candidate;
        }
    }
    return base;
}

}  // namespace ara::quill::common::log::internal
