// SPDX-License-Identifier: Apache-2.0
// tarn::em::util::StringProcess: C string arrays for operating-system calls, environment
// lookup and name=value splitting, strict unsigned decimal parsing.
#ifndef TARN_EM_UTIL_STRING_PROCESS_H
#define TARN_EM_UTIL_STRING_PROCESS_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "ara/core/internal/export.h"

namespace tarn::em::util {

class ARA_EXPORT StringProcess final {
public:
    StringProcess() = delete;

    /// Copies `strings` into a malloc'ed array of exactly `strings.size()` strdup'ed
    /// strings (no terminating null entry). An empty list gives a null `data` and `count`
    /// 0. On an allocation failure an error is logged on the "EM" context, everything
    /// allocated so far is freed and `data` and `count` are left as they were.
    /// Release the array with FreeDataInCString.
    static bool TransferVectorStringToC(const std::vector<std::string>& strings, char**& data, unsigned int& count);
    /// Frees the first `count` non-null entries and the array, and sets `data` to null.
    /// Nothing happens for a null `data`.
    static void FreeDataInCString(char**& data, const unsigned int& count);
    /// The value of environment variable `name`; false and `value` untouched when unset.
    /// A variable set to the empty text is present.
    static bool GetEnv(const std::string& name, std::string& value);
    /// Splits "name=value" at the first "="; false for a text without "=" or with an
    /// empty name. The value may be empty or hold further "=".
    static bool ParseEnvFromString(const std::string& text, std::pair<std::string, std::string>& env);
    /// Decimal digits only (no sign, blank or prefix), at most 20 characters, not above
    /// 18446744073709551615; leading zeros count towards the 20. `value` is written only
    /// on success.
    static bool StringToUint64(const std::string& text, unsigned long& value);
};

}  // namespace tarn::em::util

namespace tarn::em {

/// The clock `clockId` (CLOCK_REALTIME, CLOCK_MONOTONIC, ...) in whole microseconds; 0
/// when the clock cannot be read.
ARA_EXPORT std::uint64_t GetCurrentTimeUs(int clockId);
/// The clock `clockId` in seconds with six decimals ("%f"); "0.000000" when it cannot be read.
ARA_EXPORT std::string GetCurrentTimeS(int clockId);

}  // namespace tarn::em

#endif
