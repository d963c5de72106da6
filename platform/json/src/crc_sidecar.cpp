// SPDX-License-Identifier: Apache-2.0
// CRC-32 sidecar files: computing, formatting, writing and checking them.
#include "ara/quill/common/jsonParser/crc_sidecar.h"

#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <cerrno>
#include <cstdio>
#include <limits>

#include "file_reader.h"

namespace ara::quill::common::jsonParser {

const char* const CRC_SIDECAR_SUFFIX = ".crc32";

namespace {

// A sidecar is 8 digits and an optional line feed; anything bigger is malformed.
constexpr std::size_t MAX_SIDECAR_SIZE = 64U;
// Above the parser's own cap, so that the tool can stamp any file the parser would read.
constexpr std::size_t MAX_CHECKED_FILE_SIZE = std::size_t{1} << 30U;

bool WriteAll(int fd, const std::string& data) noexcept {
    std::size_t done = 0U;
    while (done < data.size()) {
        const ssize_t wrote = ::write(fd, data.data() + done, data.size() - done);
        if (wrote < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        done += static_cast<std::size_t>(wrote);
    }
    return true;
}

}  // namespace

std::uint32_t Crc32(const std::string& data) noexcept {
    uLong crc = ::crc32(0UL, Z_NULL, 0U);
    const auto* bytes = reinterpret_cast<const Bytef*>(data.data());
    std::size_t left = data.size();
    // zlib takes the length as uInt; feed large inputs in slices.
    while (left > 0U) {
        const std::size_t slice = left < std::numeric_limits<uInt>::max() ? left : std::numeric_limits<uInt>::max();
        crc = ::crc32(crc, bytes, static_cast<uInt>(slice));
        bytes += slice;
        left -= slice;
    }
    return static_cast<std::uint32_t>(crc);
}

std::string FormatCrc32(std::uint32_t crc) {
    char text[9] = {};
    static_cast<void>(std::snprintf(text, sizeof(text), "%08x", static_cast<unsigned int>(crc)));
    return std::string(text, 8U);
}

bool ParseCrc32Text(const std::string& text, std::uint32_t& crc) noexcept {
    const bool lineFeed = text.size() == 9U && text[8] == '\n';
    if (text.size() != 8U && !lineFeed) {
        return false;
    }
    std::uint32_t value = 0U;
    for (std::size_t i = 0U; i < 8U; ++i) {
        const char c = text[i];
        std::uint32_t digit = 0U;
        if (c >= '0' && c <= '9') {
            digit = static_cast<std::uint32_t>(c - '0');
        } else if (c >= 'a' && c <= 'f') {
            digit = static_cast<std::uint32_t>(c - 'a') + 10U;
        } else {
            return false;
        }
        value = (value << 4U) | digit;
    }
    crc = value;
    return true;
}

CrcWrite WriteCrcSidecar(const std::string& path) {
    std::string contents;
    if (detail::ReadWholeFile(path, MAX_CHECKED_FILE_SIZE, contents) != detail::FileRead::kOk) {
        return CrcWrite::kFileUnreadable;
    }
    const std::string sidecar = path + CRC_SIDECAR_SUFFIX;
    const std::string temporary = sidecar + ".tmp";
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        return CrcWrite::kWriteFailed;
    }
    const bool written = WriteAll(fd, FormatCrc32(Crc32(contents)) + "\n");
    const bool closed = ::close(fd) == 0;
    if (!written || !closed || std::rename(temporary.c_str(), sidecar.c_str()) != 0) {
        static_cast<void>(::unlink(temporary.c_str()));
        return CrcWrite::kWriteFailed;
    }
    return CrcWrite::kWritten;
}

CrcCheck CheckCrcSidecar(const std::string& path, const std::string& contents) {
    std::string text;
    switch (detail::ReadWholeFile(path + CRC_SIDECAR_SUFFIX, MAX_SIDECAR_SIZE, text)) {
        case detail::FileRead::kOk:
            break;
        case detail::FileRead::kOpenFailed:
            if (::access((path + CRC_SIDECAR_SUFFIX).c_str(), F_OK) != 0 && errno == ENOENT) {
                return CrcCheck::kSidecarMissing;
            }
            return CrcCheck::kSidecarMalformed;
        default:
            return CrcCheck::kSidecarMalformed;
    }
    std::uint32_t expected = 0U;
    if (!ParseCrc32Text(text, expected)) {
        return CrcCheck::kSidecarMalformed;
    }
    return Crc32(contents) == expected ? CrcCheck::kMatch : CrcCheck::kMismatch;
}

CrcCheck CheckCrcSidecar(const std::string& path) {
    std::string contents;
    if (detail::ReadWholeFile(path, MAX_CHECKED_FILE_SIZE, contents) != detail::FileRead::kOk) {
        return CrcCheck::kFileUnreadable;
    }
    return CheckCrcSidecar(path, contents);
}

}  // namespace ara::quill::common::jsonParser
