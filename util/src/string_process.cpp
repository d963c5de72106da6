// SPDX-License-Identifier: Apache-2.0
// StringProcess and the clock readings.
#include "tarn/em/util/string_process.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "c_allocation.h"
#include "util_log.h"

namespace tarn::em::util {

namespace detail {

std::atomic<AllocateFunction>& CAllocate() noexcept {
    static std::atomic<AllocateFunction> allocate{&std::malloc};
    return allocate;
}

std::atomic<DuplicateFunction>& CDuplicate() noexcept {
    static std::atomic<DuplicateFunction> duplicate{&::strdup};
    return duplicate;
}

}  // namespace detail

bool StringProcess::TransferVectorStringToC(const std::vector<std::string>& strings,
                                            char**& data,
                                            unsigned int& count) {
    if (strings.empty()) {
        data = nullptr;
        count = 0U;
        return true;
    }
    if (strings.size() > UINT_MAX) {
        detail::EmLog()->error() << "[StringProcess][Malloc data failed when transfer vector string to C]";
        return false;
    }
    auto** array = static_cast<char**>(detail::CAllocate().load()(strings.size() * sizeof(char*)));
    if (array == nullptr) {
        detail::EmLog()->error() << "[StringProcess][Malloc data failed when transfer vector string to C]";
        return false;
    }
    bool failed = false;
    for (std::size_t i = 0U; i < strings.size(); ++i) {
        if (failed) {
            array[i] = nullptr;
            continue;
        }
        array[i] = detail::CDuplicate().load()(strings[i].c_str());
        if (array[i] == nullptr) {
            detail::EmLog()->error() << "[StringProcess][Malloc inner data failed when transfer vector string to C][i="
                                     << i << "]";
            failed = true;
        }
    }
    if (failed) {
        auto size = static_cast<unsigned int>(strings.size());
        FreeDataInCString(array, size);
        return false;
    }
    data = array;
    count = static_cast<unsigned int>(strings.size());
    return true;
}

void StringProcess::FreeDataInCString(char**& data, const unsigned int& count) {
    if (data == nullptr) {
        return;
    }
    for (unsigned int i = 0U; i < count; ++i) {
        // NOLINTNEXTLINE(cppcoreguidelines-no-malloc,cppcoreguidelines-owning-memory): from strdup
        std::free(data[i]);
        data[i] = nullptr;
    }
    // NOLINTNEXTLINE(cppcoreguidelines-no-malloc,cppcoreguidelines-owning-memory): from malloc
    std::free(static_cast<void*>(data));
    data = nullptr;
}

bool StringProcess::GetEnv(const std::string& name, std::string& value) {
    // The environment is only read here; callers that change it concurrently must synchronise.
    const char* text = std::getenv(name.c_str());  // NOLINT(concurrency-mt-unsafe)
    if (text == nullptr) {
        return false;
    }
    value = text;
    return true;
}

bool StringProcess::ParseEnvFromString(const std::string& text, std::pair<std::string, std::string>& env) {
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0U) {
        return false;
    }
    env.first = text.substr(0U, equals);
    env.second = text.substr(equals + 1U);
    return true;
}

bool StringProcess::StringToUint64(const std::string& text, unsigned long& value) {
    if (text.empty()) {
        return false;
    }
    for (const char c : text) {
        if (c < '0' || c > '9') {
            return false;
        }
    }
    char largest[32] = {};
    static_cast<void>(std::snprintf(largest, sizeof(largest), "%lu", ULONG_MAX));
    const std::string limit(largest);
    if (text.size() > limit.size() || (text.size() == limit.size() && text > limit)) {
        return false;
    }
    value = std::strtoul(text.c_str(), nullptr, 10);
    return true;
}

}  // namespace tarn::em::util

namespace tarn::em {

namespace {

timespec ReadClock(int clockId) noexcept {
    timespec reading{};
    if (::clock_gettime(static_cast<clockid_t>(clockId), &reading) != 0) {
        reading = timespec{};
    }
    return reading;
}

}  // namespace

std::uint64_t GetCurrentTimeUs(int clockId) {
    const timespec reading = ReadClock(clockId);
    const auto nanoseconds =
        static_cast<std::uint64_t>(reading.tv_sec) * 1000000000ULL + static_cast<std::uint64_t>(reading.tv_nsec);
    return nanoseconds / 1000U;
}

std::string GetCurrentTimeS(int clockId) {
    const timespec reading = ReadClock(clockId);
    return std::to_string(static_cast<double>(reading.tv_sec) + static_cast<double>(reading.tv_nsec) / 1e9);
}

}  // namespace tarn::em
