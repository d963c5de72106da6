// SPDX-License-Identifier: Apache-2.0
// CRC-32 sidecar files: `<path>.crc32` holds the CRC-32 (IEEE 802.3) of the file's exact
// bytes as 8 lowercase hex digits, optionally followed by one line feed.
#ifndef ARA_QUILL_COMMON_JSONPARSER_CRC_SIDECAR_H
#define ARA_QUILL_COMMON_JSONPARSER_CRC_SIDECAR_H

#include <cstdint>
#include <string>

#include "ara/core/internal/export.h"

namespace ara::quill::common::jsonParser {

/// Outcome of checking a file against its sidecar.
enum class CrcCheck : std::uint8_t {
    kMatch = 0,
    kMismatch,          ///< the sidecar is well formed but holds another CRC
    kSidecarMissing,    ///< no sidecar file
    kSidecarMalformed,  ///< not 8 lowercase hex digits (and an optional line feed), or unreadable
    kFileUnreadable,    ///< the file itself cannot be read
};

/// Outcome of writing a sidecar.
enum class CrcWrite : std::uint8_t {
    kWritten = 0,
    kFileUnreadable,  ///< the file itself cannot be read
    kWriteFailed,     ///< the sidecar cannot be written
};

/// Suffix appended to a file's path to name its sidecar.
ARA_EXPORT extern const char* const CRC_SIDECAR_SUFFIX;

/// CRC-32 of `data`, as zlib computes it.
ARA_EXPORT std::uint32_t Crc32(const std::string& data) noexcept;
/// The 8 lowercase hex digits of `crc`.
ARA_EXPORT std::string FormatCrc32(std::uint32_t crc);
/// Reads the sidecar text `text`; false when it is not 8 lowercase hex digits optionally
/// followed by one line feed.
ARA_EXPORT bool ParseCrc32Text(const std::string& text, std::uint32_t& crc) noexcept;

/// Computes the CRC of the file at `path` and writes its sidecar (replacing an old one
/// through a temporary file and a rename).
ARA_EXPORT CrcWrite WriteCrcSidecar(const std::string& path);
/// Checks the file at `path` against its sidecar.
ARA_EXPORT CrcCheck CheckCrcSidecar(const std::string& path);
/// Checks bytes already read from `path` against the sidecar of `path`.
ARA_EXPORT CrcCheck CheckCrcSidecar(const std::string& path, const std::string& contents);

}  // namespace ara::quill::common::jsonParser

#endif
