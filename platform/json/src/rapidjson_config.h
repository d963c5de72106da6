// SPDX-License-Identifier: Apache-2.0
// RapidJSON configuration of the parser: include RapidJSON only through this header.
//
// RapidJSON's assertions guard misuse of its API (a missing member looked up with
// operator[], a getter of the wrong type). The parser checks types and uses FindMember
// before every access, so an assertion should never fire; should one, it is counted
// instead of aborting the process, and the tests require the count to stay 0.
#ifndef ARA_QUILL_COMMON_JSONPARSER_RAPIDJSON_CONFIG_H
#define ARA_QUILL_COMMON_JSONPARSER_RAPIDJSON_CONFIG_H

#include <cstdint>

namespace ara::quill::common::jsonParser::detail {

void NoteRapidJsonAssertion() noexcept;
/// How many RapidJSON assertions failed in this process.
std::uint64_t RapidJsonAssertionCount() noexcept;

}  // namespace ara::quill::common::jsonParser::detail

#ifdef RAPIDJSON_ASSERT
#error "rapidjson_config.h must be included before any RapidJSON header"
#endif
#define RAPIDJSON_ASSERT(x) \
    ((x) ? static_cast<void>(0) : ::ara::quill::common::jsonParser::detail::NoteRapidJsonAssertion())
#define RAPIDJSON_HAS_STDSTRING 1

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>

#endif
