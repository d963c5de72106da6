// StringProcess and the clock readings: C string arrays (with allocation failures),
// environment lookup, name=value splitting, strict decimal parsing.
#include "tarn/em/util/string_process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <time.h>

#include <cstring>
#include <regex>

#include "ara/quill/common/log/log.h"
#include "c_allocation.h"

namespace {

using tarn::em::util::StringProcess;
namespace detail = tarn::em::util::detail;

TEST(StringProcessTest, ParseEnvFromStringSplitsAtTheFirstEquals) {
    const std::tuple<const char*, bool, const char*, const char*> cases[] = {
        {"a=b", true, "a", "b"},
        {"a=", true, "a", ""},
        {"a=b=c", true, "a", "b=c"},
        {" a =", true, " a ", ""},
        {"=b", false, "o", "o"},
        {"ab", false, "o", "o"},
        {"", false, "o", "o"},
    };
    for (const auto& [text, ok, name, value] : cases) {
        std::pair<std::string, std::string> env{"o", "o"};
        EXPECT_EQ(StringProcess::ParseEnvFromString(text, env), ok) << text;
        EXPECT_EQ(env, std::make_pair(std::string(name), std::string(value))) << text;
    }
}

TEST(StringProcessTest, StringToUint64AcceptsOnlyPlainDecimalsInRange) {
    const std::tuple<std::string, bool, unsigned long> cases[] = {
        {"0", true, 0UL},
        {"18446744073709551615", true, 18446744073709551615UL},
        {"00000000000000000001", true, 1UL},  // 20 characters
        {"18446744073709551616", false, 7UL},
        {"99999999999999999999", false, 7UL},
        {"000000000000000000001", false, 7UL},  // 21 characters, small value
        {"-1", false, 7UL},
        {"+1", false, 7UL},
        {" 1", false, 7UL},
        {"0x1", false, 7UL},
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
    ASSERT_EQ(::unsetenv("ARA_UTIL_TEST_UNSET"), 0);
    std::string value = "old";
    EXPECT_TRUE(StringProcess::GetEnv("ARA_UTIL_TEST_EMPTY", value));
    EXPECT_EQ(value, "");
    value = "old";
    EXPECT_FALSE(StringProcess::GetEnv("ARA_UTIL_TEST_UNSET", value));
    EXPECT_EQ(value, "old");
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
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(count, 0U);
}

// Replaces the C allocation functions for one test and puts them back.
class StringProcessAllocationTest : public ::testing::Test {
protected:
    void TearDown() override {
        detail::CAllocate().store(allocate_);
        detail::CDuplicate().store(duplicate_);
    }
    static char* DuplicateUntilFailure(const char* text) { return calls++ == failAt ? nullptr : ::strdup(text); }

    static inline int calls = 0;
    static inline int failAt = 0;
    detail::AllocateFunction allocate_{detail::CAllocate().load()};
    detail::DuplicateFunction duplicate_{detail::CDuplicate().load()};
    ara::quill::common::log::CaptureSink capture_;
};

TEST_F(StringProcessAllocationTest, ArrayAllocationFailureLeavesOutputsAlone) {
    detail::CAllocate().store([](std::size_t) -> void* { return nullptr; });
    char* sentinel[1] = {nullptr};
    char** data = sentinel;
    unsigned int count = 9U;
    EXPECT_FALSE(StringProcess::TransferVectorStringToC({"a", "b"}, data, count));
    EXPECT_EQ(data, sentinel);
    EXPECT_EQ(count, 9U);
    EXPECT_THAT(capture_.Texts("EM"),
                ::testing::ElementsAre("[StringProcess][Malloc data failed when transfer vector string to C]"));
}

// Entries duplicated before the failure must be freed: the ASan build reports leaks.
TEST_F(StringProcessAllocationTest, EntryDuplicationFailureStopsAndFreesEverything) {
    detail::CDuplicate().store(&DuplicateUntilFailure);
    for (const int failing : {0, 1, 4}) {
        capture_.Clear();
        calls = 0;
        failAt = failing;
        char** data = nullptr;
        unsigned int count = 0U;
        EXPECT_FALSE(StringProcess::TransferVectorStringToC({"a", "b", "c", "d", "e"}, data, count));
        EXPECT_EQ(data, nullptr);
        EXPECT_EQ(calls, failing + 1) << "no duplication after the failing entry";
        EXPECT_THAT(capture_.Texts("EM"),
                    ::testing::ElementsAre("[StringProcess][Malloc inner data failed when transfer vector string to "
                                           "C][i=" +
                                           std::to_string(failing) + "]"));
    }
}

TEST(CurrentTimeTest, ReadingsFollowTheClock) {
    const auto us = [](const timespec& t) {
        return (static_cast<std::uint64_t>(t.tv_sec) * 1000000000ULL + static_cast<std::uint64_t>(t.tv_nsec)) / 1000U;
    };
    for (const int clockId : {CLOCK_REALTIME, CLOCK_MONOTONIC}) {
        timespec before{};
        timespec after{};
        ASSERT_EQ(::clock_gettime(clockId, &before), 0);
        const std::uint64_t now = tarn::em::GetCurrentTimeUs(clockId);
        const std::string seconds = tarn::em::GetCurrentTimeS(clockId);
        ASSERT_EQ(::clock_gettime(clockId, &after), 0);
        EXPECT_LE(us(before), now);
        EXPECT_GE(us(after), now);
        EXPECT_TRUE(std::regex_match(seconds, std::regex("[0-9]+\\.[0-9]{6}"))) << seconds;
        EXPECT_GE(std::stod(seconds) + 1e-6, static_cast<double>(before.tv_sec));
        EXPECT_LE(std::stod(seconds), static_cast<double>(after.tv_sec + 1));
    }
    EXPECT_EQ(tarn::em::GetCurrentTimeUs(12345), 0U);
    EXPECT_EQ(tarn::em::GetCurrentTimeS(12345), "0.000000");
}

}  // namespace
