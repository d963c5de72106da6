// SPDX-License-Identifier: Apache-2.0
// Bounds-checked memory copy.
#include "ara/core/memcpy_s.h"

#include <cstdint>
#include <cstring>

extern "C" int memcpy_s(void* dest, std::size_t destMax, const void* src, std::size_t count) noexcept {
    if (count == 0U) {
        return MEMCPY_S_OK;
    }
    if (dest == nullptr || src == nullptr) {
        return MEMCPY_S_ERR_NULL;
    }
    if (count > destMax) {
        return MEMCPY_S_ERR_RANGE;
    }
    const auto d = reinterpret_cast<std::uintptr_t>(dest);
    const auto s = reinterpret_cast<std::uintptr_t>(src);
    if ((d < s && s - d < count) || (s < d && d - s < count) || d == s) {
        return MEMCPY_S_ERR_OVERLAP;
    }
    std::memcpy(dest, src, count);
    return MEMCPY_S_OK;
}
