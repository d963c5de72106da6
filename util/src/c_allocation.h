// SPDX-License-Identifier: Apache-2.0
// The C allocation functions behind StringProcess::TransferVectorStringToC. They are a seam:
// tests replace them to make an allocation fail; production code never changes them.
#ifndef TARN_EM_UTIL_C_ALLOCATION_H
#define TARN_EM_UTIL_C_ALLOCATION_H

#include <atomic>
#include <cstddef>

namespace tarn::em::util::detail {

using AllocateFunction = void* (*)(std::size_t);
using DuplicateFunction = char* (*)(const char*);

/// malloc unless replaced.
std::atomic<AllocateFunction>& CAllocate() noexcept;
/// strdup unless replaced.
std::atomic<DuplicateFunction>& CDuplicate() noexcept;

}  // namespace tarn::em::util::detail

#endif
