// SPDX-License-Identifier: Apache-2.0
// Four-character ids for DLT applications and contexts derived from longer names.
#ifndef ARA_QUILL_COMMON_LOG_SRC_SHORT_ID_H
#define ARA_QUILL_COMMON_LOG_SRC_SHORT_ID_H

#include <cstddef>
#include <set>
#include <string>

namespace ara::quill::common::log::internal {

constexpr std::size_t SHORT_ID_LENGTH = 4U;

/// An id of at most four characters for `name`. Names that fit are kept. Longer names keep
/// their first character followed by their further consonants and digits, each letter once
/// ("CHECKER" -> "CHKR", "EM_CLIENT" -> "EMCL"); when that leaves fewer than four, the first
/// four characters are used. An id already in `taken` gets its last character replaced by a
/// digit 1-9 to stay distinct; if all of those are taken too the clash is accepted.
std::string ShortId(const std::string& name, const std::set<std::string>& taken);

}  // namespace ara::quill::common::log::internal

#endif
