// SPDX-License-Identifier: Apache-2.0
// Where a valid UTF-8 sequence ends: for the escaping of emd's JSON answers and of the lines
// its processes write.
#ifndef TARN_EM_DAEMON_UTF8_H
#define TARN_EM_DAEMON_UTF8_H

#include <cstddef>
#include <string_view>

namespace tarn::em::daemon {

/// The length of the valid UTF-8 sequence that starts at `text[at]` (a byte of 0x80 or above),
/// or 0 when there is none: no overlong form, no surrogate, nothing beyond U+10FFFF.
inline std::size_t Utf8Length(std::string_view text, std::size_t at) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(at);
    std::size_t length = 0U;
    unsigned char low = 0x80U, high = 0xBFU;  // the range of the second byte
    if (lead >= 0xC2U && lead <= 0xDFU) {
        length = 2U;
    } else if (lead >= 0xE0U && lead <= 0xEFU) {
        length = 3U;
        low = lead == 0xE0U ? 0xA0U : 0x80U;   // no overlong forms
        high = lead == 0xEDU ? 0x9FU : 0xBFU;  // no surrogates
    } else if (lead >= 0xF0U && lead <= 0xF4U) {
        length = 4U;
        low = lead == 0xF0U ? 0x90U : 0x80U;
        high = lead == 0xF4U ? 0x8FU : 0xBFU;  // nothing beyond U+10FFFF
    } else {
        return 0U;
    }
    if (text.size() - at < length || byte(at + 1U) < low || byte(at + 1U) > high) {
        return 0U;
    }
    for (std::size_t i = 2U; i < length; ++i) {
        if ((byte(at + i) & 0xC0U) != 0x80U) {
            return 0U;
        }
    }
    return length;
}

}  // namespace tarn::em::daemon

#endif
