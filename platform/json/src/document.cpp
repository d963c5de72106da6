// SPDX-License-Identifier: Apache-2.0
// The JSON document over RapidJSON: file reading, CRC verification, parsing with limits,
// and the total accessors.
#include "ara/quill/common/jsonParser/document.h"

#include <atomic>
#include <cstddef>
#include <utility>

#include "ara/quill/common/jsonParser/crc_sidecar.h"
#include "ara/quill/common/log/log.h"
#include "file_reader.h"
#include "rapidjson_config.h"

namespace ara::quill::common::jsonParser {

namespace detail {

namespace {
std::atomic<std::uint64_t> assertionCount{0U};
}  // namespace

void NoteRapidJsonAssertion() noexcept {
    assertionCount.fetch_add(1U, std::memory_order_relaxed);
}
std::uint64_t RapidJsonAssertionCount() noexcept {
    return assertionCount.load(std::memory_order_relaxed);
}

}  // namespace detail

// Strict JSON: no comments, no trailing commas, no NaN; strings must be valid UTF-8. The
// iterative parser keeps the call stack flat whatever the nesting.
constexpr unsigned PARSE_FLAGS =
    rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag | rapidjson::kParseFullPrecisionFlag;

struct Document::Tree {
    rapidjson::Document root;
};

namespace {

using JsonValue = rapidjson::Value;

const JsonValue* AsValue(const void* value) noexcept {
    return static_cast<const JsonValue*>(value);
}

// Offset of the first bracket of `text` (well-formed JSON) nested deeper than `limit`, or
// npos; brackets inside strings do not count.
std::size_t TooDeepOffset(const std::string& text, std::size_t limit) noexcept {
    std::size_t depth = 0U;
    bool inString = false;
    for (std::size_t i = 0U; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '\\') {
                ++i;
            } else if (c == '"') {
                inString = false;
            }
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > limit) {
                return i;
            }
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return std::string::npos;
}

// Line and column (both from 1) of byte `offset` of `text`.
std::string Position(const std::string& text, std::size_t offset) {
    std::size_t line = 1U;
    std::size_t column = 1U;
    for (std::size_t i = 0U; i < offset && i < text.size(); ++i) {
        if (text[i] == '\n') {
            ++line;
            column = 1U;
        } else {
            ++column;
        }
    }
    return "line " + std::to_string(line) + ", column " + std::to_string(column);
}

const char* CrcCheckText(CrcCheck check) noexcept {
    switch (check) {
        case CrcCheck::kMatch:
            return "match";
        case CrcCheck::kMismatch:
            return "crc differs from the sidecar";
        case CrcCheck::kSidecarMissing:
            return "sidecar missing";
        case CrcCheck::kSidecarMalformed:
            return "sidecar unreadable or malformed";
        case CrcCheck::kFileUnreadable:
            return "file unreadable";
    }
    return "unknown";
}

}  // namespace

Document::Document() noexcept : value_(nullptr), result_(0) {}
Document::Document(std::shared_ptr<const Tree> tree, const void* value) noexcept
    : tree_(std::move(tree)), value_(value), result_(0) {}
Document::~Document() = default;
Document::Document(const Document&) noexcept = default;
Document& Document::operator=(const Document&) noexcept = default;
// A moved-from document is null: its node pointer must not outlive the tree it gave away.
Document::Document(Document&& other) noexcept
    : tree_(std::move(other.tree_)),
      value_(std::exchange(other.value_, nullptr)),
      result_(std::exchange(other.result_, 0)),
      error_(std::move(other.error_)) {}
Document& Document::operator=(Document&& other) noexcept {
    if (this != &other) {
        tree_ = std::move(other.tree_);
        value_ = std::exchange(other.value_, nullptr);
        result_ = std::exchange(other.result_, 0);
        error_ = std::move(other.error_);
        other.error_.clear();
    }
    return *this;
}

std::int32_t Document::Fail(std::int32_t result, const std::string& path, std::string error) {
    tree_.reset();
    value_ = nullptr;
    result_ = result;
    error_ = std::move(error);
    log::Log::GetLog("JSON")->warn() << "[Document][Parse failed][path=" << path << "][result=" << result
                                     << "][error=" << error_ << "]";
    return result;
}

std::int32_t Document::Parse(const std::string& path, CrcVerification verification) {
    if (verification != CrcVerification::kNot && verification != CrcVerification::kWeak &&
        verification != CrcVerification::kStrong) {
        return Fail(PARSE_INVALID_VERIFICATION,
                    path,
                    "unknown verification " + std::to_string(static_cast<std::int32_t>(verification)));
    }
    std::string text;
    switch (detail::ReadWholeFile(path, MAX_FILE_SIZE, text)) {
        case detail::FileRead::kOk:
            break;
        case detail::FileRead::kOpenFailed:
            return Fail(PARSE_FILE_OPEN_FAILED, path, "cannot open a regular file");
        case detail::FileRead::kReadFailed:
            return Fail(PARSE_FILE_READ_FAILED, path, "read error");
        case detail::FileRead::kTooLarge:
            return Fail(PARSE_FILE_TOO_LARGE, path, "larger than " + std::to_string(MAX_FILE_SIZE) + " bytes");
    }
    if (verification != CrcVerification::kNot) {
        const CrcCheck check = CheckCrcSidecar(path, text);
        const bool skipped = check == CrcCheck::kSidecarMissing && verification == CrcVerification::kWeak;
        if (check != CrcCheck::kMatch && !skipped) {
            return Fail(PARSE_CRC_CHECK_FAILED, path, CrcCheckText(check));
        }
    }
    return ParseBuffer(path, text);
}

std::int32_t Document::ParseText(const std::string& text) {
    return ParseBuffer("<text>", text);
}

std::int32_t Document::ParseBuffer(const std::string& path, const std::string& text) {
    auto tree = std::make_shared<Tree>();
    tree->root.Parse<PARSE_FLAGS>(text.data(), text.size());
    if (tree->root.HasParseError()) {
        return Fail(PARSE_SYNTAX_ERROR,
                    path,
                    Position(text, tree->root.GetErrorOffset()) + ": " +
                        rapidjson::GetParseError_En(tree->root.GetParseError()));
    }
    const std::size_t tooDeep = TooDeepOffset(text, MAX_DEPTH);
    if (tooDeep != std::string::npos) {
        return Fail(
            PARSE_TOO_DEEP, path, Position(text, tooDeep) + ": nested deeper than " + std::to_string(MAX_DEPTH));
    }
    value_ = static_cast<const JsonValue*>(&tree->root);
    tree_ = std::move(tree);
    result_ = PARSE_SUCCESS;
    error_.clear();
    return PARSE_SUCCESS;
}

bool Document::HasParseError() const noexcept {
    return result_ != 0 && result_ != PARSE_SUCCESS;
}
const std::string& Document::GetParseError() const noexcept {
    return error_;
}

bool Document::IsNull() const noexcept {
    return value_ == nullptr || AsValue(value_)->IsNull();
}
bool Document::IsBool() const noexcept {
    return value_ != nullptr && AsValue(value_)->IsBool();
}
bool Document::IsObject() const noexcept {
    return value_ != nullptr && AsValue(value_)->IsObject();
}
bool Document::IsArray() const noexcept {
    return value_ != nullptr && AsValue(value_)->IsArray();
}
bool Document::IsString() const noexcept {
    return value_ != nullptr && AsValue(value_)->IsString();
}
bool Document::IsNumber() const noexcept {
    return value_ != nullptr && AsValue(value_)->IsNumber();
}
bool Document::IsUint() const noexcept {
    return value_ != nullptr && AsValue(value_)->IsUint();
}
bool Document::IsInt() const noexcept {
    return value_ != nullptr && AsValue(value_)->IsInt();
}
bool Document::IsUint64() const noexcept {
    return value_ != nullptr && AsValue(value_)->IsUint64();
}
bool Document::IsInt64() const noexcept {
    return value_ != nullptr && AsValue(value_)->IsInt64();
}
bool Document::IsDouble() const noexcept {
    return value_ != nullptr && AsValue(value_)->IsDouble();
}

bool Document::GetBool() const noexcept {
    return IsBool() && AsValue(value_)->GetBool();
}
std::string Document::GetString() const {
    if (!IsString()) {
        return {};
    }
    return std::string(AsValue(value_)->GetString(), AsValue(value_)->GetStringLength());
}
std::uint32_t Document::GetUint() const noexcept {
    return IsUint() ? AsValue(value_)->GetUint() : 0U;
}
std::int32_t Document::GetInt() const noexcept {
    return IsInt() ? AsValue(value_)->GetInt() : 0;
}
std::uint64_t Document::GetUint64() const noexcept {
    return IsUint64() ? AsValue(value_)->GetUint64() : 0U;
}
std::int64_t Document::GetInt64() const noexcept {
    return IsInt64() ? AsValue(value_)->GetInt64() : 0;
}
double Document::GetDouble() const noexcept {
    return IsNumber() ? AsValue(value_)->GetDouble() : 0.0;
}

bool Document::HasMember(const std::string& name) const noexcept {
    if (!IsObject()) {
        return false;
    }
    const JsonValue& object = *AsValue(value_);
    return object.FindMember(name) != object.MemberEnd();
}

Document Document::Member(const std::string& name) const noexcept {
    if (!IsObject()) {
        return Document();
    }
    const JsonValue& object = *AsValue(value_);
    const auto found = object.FindMember(name);
    if (found == object.MemberEnd()) {
        return Document();
    }
    return Document(tree_, &found->value);
}

std::size_t Document::Size() const noexcept {
    if (IsArray()) {
        return AsValue(value_)->Size();
    }
    if (IsObject()) {
        return AsValue(value_)->MemberCount();
    }
    return 0U;
}

Document Document::Element(std::size_t index) const noexcept {
    if (!IsArray() || index >= AsValue(value_)->Size()) {
        return Document();
    }
    return Document(tree_, &(*AsValue(value_))[static_cast<rapidjson::SizeType>(index)]);
}

std::string Document::MemberName(std::size_t index) const {
    if (!IsObject() || index >= AsValue(value_)->MemberCount()) {
        return {};
    }
    const JsonValue& name = (AsValue(value_)->MemberBegin() + static_cast<std::ptrdiff_t>(index))->name;
    return std::string(name.GetString(), name.GetStringLength());
}

Document Document::MemberValue(std::size_t index) const noexcept {
    if (!IsObject() || index >= AsValue(value_)->MemberCount()) {
        return Document();
    }
    return Document(tree_, &(AsValue(value_)->MemberBegin() + static_cast<std::ptrdiff_t>(index))->value);
}

}  // namespace ara::quill::common::jsonParser
