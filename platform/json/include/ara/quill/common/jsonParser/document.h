// SPDX-License-Identifier: Apache-2.0
// The platform JSON parser: a parsed document read from a file with optional CRC
// verification, and read-only handles on its values.
#ifndef ARA_QUILL_COMMON_JSONPARSER_DOCUMENT_H
#define ARA_QUILL_COMMON_JSONPARSER_DOCUMENT_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "ara/core/internal/export.h"

namespace ara::quill::common::jsonParser {

/// How Parse verifies the file against its CRC sidecar `<path>.crc32`.
enum class CrcVerification : std::int32_t {
    kNot = 0,     ///< the sidecar is never read
    kWeak = 1,    ///< the sidecar is checked when it exists
    kStrong = 2,  ///< the sidecar must exist and match
};

/// Results of Document::Parse. Only PARSE_SUCCESS means the document holds a value.
enum ParseResult : std::int32_t {
    PARSE_SUCCESS = 1,
    PARSE_FILE_OPEN_FAILED = 2,      ///< missing, unreadable, or not a regular file
    PARSE_FILE_READ_FAILED = 3,      ///< an I/O error while reading
    PARSE_FILE_TOO_LARGE = 4,        ///< larger than Document::MAX_FILE_SIZE
    PARSE_SYNTAX_ERROR = 5,          ///< not a single well-formed UTF-8 JSON value
    PARSE_TOO_DEEP = 6,              ///< nested deeper than Document::MAX_DEPTH
    PARSE_INVALID_VERIFICATION = 7,  ///< a verification value outside CrcVerification
    PARSE_CRC_CHECK_FAILED = 11,     ///< sidecar missing (strong), unreadable, malformed or different
};

/// A JSON value. The object returned by Parse is the root; Member and Element return
/// handles on values inside the same tree, which share ownership of it, so a handle stays
/// valid after the root is destroyed or parsed again. Handles are cheap to copy.
///
/// Every accessor is total: asking a value of the wrong type gives false, 0, an empty text
/// or a null handle, never an assertion. The RapidJSON tree stays inside the library.
/// @thread-safety const operations may run concurrently; Parse must not run concurrently
/// with any other operation on the same object.
class ARA_EXPORT Document {
public:
    /// Files above this size are refused without being parsed.
    static constexpr std::size_t MAX_FILE_SIZE = 4U * 1024U * 1024U;
    /// Deepest nesting of arrays and objects accepted (the root is depth 1).
    static constexpr std::size_t MAX_DEPTH = 128U;

    /// A null value that has not been parsed; HasParseError() is false.
    Document() noexcept;
    ~Document();
    Document(const Document&) noexcept;
    Document& operator=(const Document&) noexcept;
    Document(Document&&) noexcept;
    Document& operator=(Document&&) noexcept;

    /// Reads the whole file at `path`, verifies it as `verification` asks and parses it.
    /// On failure the document is null and HasParseError() is true; a line is logged on
    /// the "JSON" context.
    /// @return one of ParseResult.
    std::int32_t Parse(const std::string& path, CrcVerification verification);
    /// Parses JSON text already in memory; same checks as for a file, without the CRC.
    std::int32_t ParseText(const std::string& text);

    /// True after a Parse that did not succeed.
    bool HasParseError() const noexcept;
    /// What went wrong in the last Parse, led by "line L, column C: " for syntax errors and
    /// for the first bracket nested too deep; empty after success.
    const std::string& GetParseError() const noexcept;

    bool IsNull() const noexcept;
    bool IsBool() const noexcept;
    bool IsObject() const noexcept;
    bool IsArray() const noexcept;
    bool IsString() const noexcept;
    bool IsNumber() const noexcept;
    /// An integer that fits 32 bits unsigned.
    bool IsUint() const noexcept;
    /// An integer that fits 32 bits signed.
    bool IsInt() const noexcept;
    /// An integer that fits 64 bits unsigned.
    bool IsUint64() const noexcept;
    /// An integer that fits 64 bits signed.
    bool IsInt64() const noexcept;
    /// A number written with a fraction or exponent, or an integer too large for 64 bits.
    bool IsDouble() const noexcept;

    bool GetBool() const noexcept;
    /// The text of a string value (it may hold NUL characters); empty for other values.
    std::string GetString() const;
    std::uint32_t GetUint() const noexcept;
    std::int32_t GetInt() const noexcept;
    std::uint64_t GetUint64() const noexcept;
    std::int64_t GetInt64() const noexcept;
    /// Any number converted to double; 0.0 for other values.
    double GetDouble() const noexcept;

    /// True when this is an object with a member of that name.
    bool HasMember(const std::string& name) const noexcept;
    /// The first member of that name, or a null handle when there is none (check with
    /// HasMember when a JSON null must be told apart from a missing member).
    Document Member(const std::string& name) const noexcept;
    /// Number of elements of an array or members of an object; 0 for other values.
    std::size_t Size() const noexcept;
    /// Element `index` of an array, or a null handle when out of range or not an array.
    Document Element(std::size_t index) const noexcept;
    /// The name of member `index` of an object, in document order (duplicates included);
    /// empty when out of range or not an object.
    std::string MemberName(std::size_t index) const;
    /// The value of member `index` of an object, or a null handle when out of range or not
    /// an object.
    Document MemberValue(std::size_t index) const noexcept;

private:
    struct Tree;
    Document(std::shared_ptr<const Tree> tree, const void* value) noexcept;
    std::int32_t Fail(std::int32_t result, const std::string& path, std::string error);
    std::int32_t ParseBuffer(const std::string& path, const std::string& text);

    std::shared_ptr<const Tree> tree_;
    const void* value_;  // a node of tree_, null for the null document
    std::int32_t result_;
    std::string error_;
};

}  // namespace ara::quill::common::jsonParser

#endif
