// Bounds-checked copy, error codes compared by domain id, and the abort path.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>

#include "ara/core/abort.h"
#include "ara/core/error_code.h"
#include "ara/core/exception.h"
#include "ara/core/memcpy_s.h"

namespace {

struct MemcpyCase {
    const char* name;
    std::size_t destOffset;  // where the copy lands in the 16-byte buffer
    std::size_t room;
    std::size_t srcOffset;  // SIZE_MAX: from a separate buffer
    std::size_t count;
    bool nullDest;
    bool nullSrc;
    int expected;
};

class MemcpySTest : public ::testing::TestWithParam<MemcpyCase> {};

TEST_P(MemcpySTest, CopiesOrRefusesWithoutTouchingTheDestination) {
    const MemcpyCase& c = GetParam();
    std::array<std::uint8_t, 16> buffer{};
    for (std::size_t i = 0; i < buffer.size(); ++i) {
        buffer[i] = static_cast<std::uint8_t>(i);
    }
    std::array<std::uint8_t, 16> other{};
    other.fill(0xAB);
    const auto before = buffer;

    void* dest = c.nullDest ? nullptr : buffer.data() + c.destOffset;
    const void* src = c.nullSrc ? nullptr : (c.srcOffset == SIZE_MAX ? other.data() : buffer.data() + c.srcOffset);
    EXPECT_EQ(memcpy_s(dest, c.room, src, c.count), c.expected);
    if (c.expected != MEMCPY_S_OK) {
        EXPECT_EQ(buffer, before) << "a refused copy must not write";
    } else if (c.count > 0U && c.srcOffset == SIZE_MAX) {
        EXPECT_EQ(std::memcmp(buffer.data() + c.destOffset, other.data(), c.count), 0);
        const std::size_t end = c.destOffset + c.count;
        if (end < buffer.size()) {
            EXPECT_EQ(buffer[end], before[end]) << "wrote past the count";
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Table,
    MemcpySTest,
    ::testing::Values(MemcpyCase{"exact_room", 0, 8, SIZE_MAX, 8, false, false, MEMCPY_S_OK},
                      MemcpyCase{"less_than_room", 4, 12, SIZE_MAX, 3, false, false, MEMCPY_S_OK},
                      MemcpyCase{"one_over_room", 0, 7, SIZE_MAX, 8, false, false, MEMCPY_S_ERR_RANGE},
                      MemcpyCase{"zero_count_null_pointers", 0, 0, SIZE_MAX, 0, true, true, MEMCPY_S_OK},
                      MemcpyCase{"null_dest", 0, 8, SIZE_MAX, 1, true, false, MEMCPY_S_ERR_NULL},
                      MemcpyCase{"null_src", 0, 8, SIZE_MAX, 1, false, true, MEMCPY_S_ERR_NULL},
                      MemcpyCase{"overlap_forward", 4, 8, 0, 8, false, false, MEMCPY_S_ERR_OVERLAP},
                      MemcpyCase{"overlap_backward", 0, 8, 4, 8, false, false, MEMCPY_S_ERR_OVERLAP},
                      MemcpyCase{"same_range", 2, 4, 2, 4, false, false, MEMCPY_S_ERR_OVERLAP},
                      MemcpyCase{"adjacent_is_fine", 0, 8, 8, 8, false, false, MEMCPY_S_OK}),
    [](const ::testing::TestParamInfo<MemcpyCase>& param) { return std::string(param.param.name); });

// Two domain objects with the same id are the same domain, whatever their address.
class TestDomain final : public ara::core::ErrorDomain {
public:
    explicit constexpr TestDomain(IdType id) : ErrorDomain(id) {}
    const char* Name() const noexcept override { return "Test"; }
    const char* Message(CodeType code) const noexcept override { return code == 1 ? "one" : "other"; }
    [[noreturn]] void ThrowAsException(const ara::core::ErrorCode& code) const noexcept(false) override {
        throw ara::core::Exception(code);
    }
};

TEST(ErrorCodeTest, EqualityIsByDomainIdAndValueNotSupportData) {
    const TestDomain a{0x42};
    const TestDomain sameId{0x42};
    const TestDomain otherId{0x43};
    EXPECT_EQ(ara::core::ErrorCode(1, a, 0), ara::core::ErrorCode(1, sameId, 7));
    EXPECT_NE(ara::core::ErrorCode(1, a), ara::core::ErrorCode(2, a));
    EXPECT_NE(ara::core::ErrorCode(1, a), ara::core::ErrorCode(1, otherId));
}

TEST(ErrorCodeTest, ThrowAsExceptionCarriesTheCodeAndItsMessage) {
    const TestDomain domain{0x42};
    try {
        ara::core::ErrorCode(1, domain, 5).ThrowAsException();
        FAIL() << "no exception";
    } catch (const ara::core::Exception& e) {
        EXPECT_EQ(e.Error().Value(), 1);
        EXPECT_EQ(e.Error().SupportData(), 5);
        EXPECT_STREQ(e.what(), "one");
    }
}

TEST(AbortDeathTest, WritesTheTextAndEndsTheProcess) {
    EXPECT_DEATH(ara::core::Abort("stop here"), "\\[ara::core::Abort\\] stop here");
}

}  // namespace
