// SPDX-License-Identifier: Apache-2.0
// StringProcess and the clock readings: name=value splitting, strict decimal parsing,
// environment lookup, C string arrays (also when allocation fails).
#include "tarn/em/util/string_process.h"

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <regex>

#include "ara/quill/common/log/log.h"
#include "c_allocation.h"

namespace {

using tarn::em::util::StringProcess;
namespace detail = tarn::em::util::detail;

TEST(StringProcessTest, ParseEnvFromStringSplitsAtTheFirstEquals) {
    const std::tuple<const char*, bool, const char*, const char*> cases[] = {
        {"a=b=c", true, "a", "b=c"},
        {" a =", true, " a ", ""},
        {"=b", false, "o", "o"},
        {"ab", false, "o", "o"},
    };
    for (const auto& [text, ok, name, value] : cases) {
        std::pair<std::string, std::string> env{"o", "o"};
        EXPECT_EQ(StringProcess::ParseEnvFromString(text, env), ok) << text;
        EXPECT_EQ(env, std::make_pair(std::string(name), std::string(value))) << text;
    }
}

TEST(StringProcessTest, StringToUint64AcceptsOnlyPlainDecimalsInRange) {
    const std::tuple<std::string, bool, unsigned long> cases[] = {
        {"18446744073709551615", true, 18446744073709551615UL},
        {"00000000000000000001", true, 1UL},  // 20 characters
        {"18446744073709551616", false, 7UL},
        {"000000000000000000001", false, 7UL},  // 21 characters, small value
        {"-1", false, 7UL},
        {"", false, 7UL},
        {std::string("1\0", 2), false, 7UL},
    };
    for (const auto& [text, ok, expected] : cases) {
        unsigned long value = 7UL;
        EXPECT_EQ(StringProcess::StringToUint64(text, value), ok) << text;
        EXPECT_EQ(value, expected) << text;
    }
}

TEST(StringProcessTest, GetEnvTellsUnsetFromEmpty) {
    ASSERT_EQ(::setenv("ARA_UTIL_TEST_EMPTY", "", 1), 0);
    std::string value = "old";
    EXPECT_FALSE(StringProcess::GetEnv("ARA_UTIL_TEST_UNSET", value));
    EXPECT_EQ(value, "old");
    EXPECT_TRUE(StringProcess::GetEnv("ARA_UTIL_TEST_EMPTY", value));
    EXPECT_EQ(value, "");
}

TEST(StringProcessTest, TransferVectorStringToCCopiesEveryString) {
    const std::vector<std::string> strings{"/bin/app", "", "--flag=1"};
    char** data = nullptr;
    unsigned int count = 0U;
    ASSERT_TRUE(StringProcess::TransferVectorStringToC(strings, data, count));
    ASSERT_EQ(count, 3U);
    for (unsigned int i = 0U; i < count; ++i) {
        EXPECT_STREQ(data[i], strings[i].c_str());
    }
    StringProcess::FreeDataInCString(data, count);
    EXPECT_EQ(data, nullptr);
    StringProcess::FreeDataInCString(data, count);  // a null array is left alone
    char* sentinel[1] = {nullptr};
    data = sentinel;
    EXPECT_TRUE(StringProcess::TransferVectorStringToC({}, data, count));
    EXPECT_TRUE(data == nullptr && count == 0U);
}

// Entries duplicated before a failure must be freed: the ASan build reports leaks.
TEST(StringProcessTest, AllocationFailuresAreLoggedAndLeaveTheOutputsAlone) {
    static int calls = 0;
    static int failAt = 0;
    const detail::AllocateFunction allocate = detail::CAllocate().load();
    const detail::DuplicateFunction duplicate = detail::CDuplicate().load();
    ara::quill::common::log::CaptureSink capture;
    char* sentinel[1] = {nullptr};
    char** data = sentinel;
    unsigned int count = 9U;
    detail::CAllocate().store([](std::size_t) -> void* { return nullptr; });
    EXPECT_FALSE(StringProcess::TransferVectorStringToC({"a", "b"}, data, count));
    detail::CAllocate().store(allocate);
    detail::CDuplicate().store([](const char* text) { return calls++ == failAt ? nullptr : ::strdup(text); });
    for (const int failing : {0, 4}) {
        failAt = failing;
        calls = 0;
        EXPECT_FALSE(StringProcess::TransferVectorStringToC({"a", "b", "c", "d", "e"}, data, count));
        EXPECT_EQ(calls, failAt + 1) << "no duplication after the failing entry";
    }
    detail::CDuplicate().store(duplicate);
    EXPECT_TRUE(data == sentinel && count == 9U);
    const std::string inner = "[StringProcess][Malloc inner data failed when transfer vector string to C][i=";
    EXPECT_EQ(capture.Texts("EM"),
              (std::vector<std::string>{
                  "[StringProcess][Malloc data failed when transfer vector string to C]", inner + "0]", inner + "4]"}));
}

TEST(CurrentTimeTest, ReadingsFollowTheClock) {
    timespec before{};
    ASSERT_EQ(::clock_gettime(CLOCK_MONOTONIC, &before), 0);
    const std::uint64_t micros = tarn::em::GetCurrentTimeUs(CLOCK_MONOTONIC);
    const auto beforeMicros = static_cast<std::uint64_t>(before.tv_sec * 1000000L + before.tv_nsec / 1000L);
    EXPECT_TRUE(micros >= beforeMicros && micros < beforeMicros + 1000000U) << micros;
    const std::string seconds = tarn::em::GetCurrentTimeS(CLOCK_REALTIME);
    EXPECT_TRUE(std::regex_match(seconds, std::regex("[0-9]+\\.[0-9]{6}"))) << seconds;
    EXPECT_NEAR(std::stod(seconds), static_cast<double>(std::time(nullptr)), 2.0);
    EXPECT_EQ(tarn::em::GetCurrentTimeUs(12345), 0U);
    EXPECT_EQ(tarn::em::GetCurrentTimeS(12345), "0.000000");
}

}  // namespace
