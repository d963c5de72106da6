// SPDX-License-Identifier: Apache-2.0
// Reading a whole configuration file into memory with a size cap.
#ifndef ARA_QUILL_COMMON_JSONPARSER_FILE_READER_H
#define ARA_QUILL_COMMON_JSONPARSER_FILE_READER_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace ara::quill::common::jsonParser::detail {

enum class FileRead : std::uint8_t { kOk, kOpenFailed, kReadFailed, kTooLarge };

/// Reads the regular file at `path` into `contents`. Missing, unreadable and non-regular
/// files (directories, FIFOs, devices) give kOpenFailed; a FIFO is opened non-blocking so
/// it never waits for a writer. Files over `maxSize` bytes give kTooLarge, including files
/// whose reported size is 0 but which produce more bytes (as in /proc).
FileRead ReadWholeFile(const std::string& path, std::size_t maxSize, std::string& contents);

}  // namespace ara::quill::common::jsonParser::detail

#endif
