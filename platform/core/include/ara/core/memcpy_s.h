// SPDX-License-Identifier: Apache-2.0
// Bounds-checked copy used for every copy into or out of a message buffer.
#ifndef ARA_CORE_MEMCPY_S_H
#define ARA_CORE_MEMCPY_S_H

#include <cstddef>

#include "ara/core/internal/export.h"

/// Copies `count` bytes from `src` to `dest`, which has room for `destMax` bytes.
/// @return 0 on success. Non-zero when the copy is refused: a null pointer, `count` larger
/// than `destMax`, or overlapping ranges; then nothing is copied. A zero `count` succeeds
/// without touching either pointer.
extern "C" ARA_EXPORT int memcpy_s(void* dest, std::size_t destMax, const void* src, std::size_t count) noexcept;

/// Refusal reasons returned by memcpy_s.
enum : int {
    MEMCPY_S_OK = 0,
    MEMCPY_S_ERR_NULL = 1,
    MEMCPY_S_ERR_RANGE = 2,
    MEMCPY_S_ERR_OVERLAP = 3,
};

#endif
