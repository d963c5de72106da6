// SPDX-License-Identifier: Apache-2.0
// Bounds-checked copy, and error codes: compared by domain id, thrown with their message.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <tuple>

#include "ara/core/error_code.h"
#include "ara/core/exception.h"
#include "ara/core/memcpy_s.h"

namespace {

TEST(MemcpySTest, CopiesExactlyTheCountOrRefusesWithoutWriting) {
    constexpr std::size_t NUL = SIZE_MAX;  // a null pointer
    // Offsets of destination and source in one buffer, room, count, and the result. The
    // destination lies in the first 16 bytes, so offset 16 is a separate source.
    const std::tuple<std::size_t, std::size_t, std::size_t, std::size_t, int> rows[] = {
        {0, 16, 8, 8, MEMCPY_S_OK},         // exact room
        {0, 16, 7, 8, MEMCPY_S_ERR_RANGE},  // one over room
        {NUL, NUL, 0, 0, MEMCPY_S_OK},      // nothing to copy: null pointers are fine
        {NUL, 16, 8, 1, MEMCPY_S_ERR_NULL},
        {0, NUL, 8, 1, MEMCPY_S_ERR_NULL},
        {4, 0, 8, 8, MEMCPY_S_ERR_OVERLAP},  // source overlaps the start of the destination
        {0, 4, 8, 8, MEMCPY_S_ERR_OVERLAP},  // source overlaps its end
        {2, 2, 4, 4, MEMCPY_S_ERR_OVERLAP},  // the same range
        {0, 8, 8, 8, MEMCPY_S_OK},           // adjacent ranges
    };
    for (const auto& [dest, src, room, count, result] : rows) {
        std::array<std::uint8_t, 32> buffer{};
        std::iota(buffer.begin(), buffer.end(), std::uint8_t{0});
        auto expected = buffer;
        const auto at = [](auto& in, std::size_t offset) { return offset == NUL ? nullptr : in.data() + offset; };
        if (result == MEMCPY_S_OK && count > 0U) {
            std::memcpy(at(expected, dest), at(expected, src), count);
        }
        EXPECT_EQ(memcpy_s(at(buffer, dest), room, at(buffer, src), count), result) << dest << " " << src;
        EXPECT_EQ(buffer, expected) << dest << " " << src;
    }
}

class TestDomain final : public ara::core::ErrorDomain {
public:
    explicit constexpr TestDomain(IdType id) : ErrorDomain(id) {}
    const char* Name() const noexcept override { return "Test"; }
    const char* Message(CodeType code) const noexcept override { return code == 1 ? "one" : "other"; }
    [[noreturn]] void ThrowAsException(const ara::core::ErrorCode& code) const noexcept(false) override {
        throw ara::core::Exception(code);
    }
};

TEST(ErrorCodeTest, EqualByDomainIdAndValueAndThrownWithTheirMessage) {
    const TestDomain domain{0x42};
    EXPECT_EQ(ara::core::ErrorCode(1, domain, 0), ara::core::ErrorCode(1, TestDomain{0x42}, 7));
    EXPECT_NE(ara::core::ErrorCode(1, domain), ara::core::ErrorCode(2, domain));
    EXPECT_NE(ara::core::ErrorCode(1, domain), ara::core::ErrorCode(1, TestDomain{0x43}));
    try {
        ara::core::ErrorCode(1, domain, 5).ThrowAsException();
    } catch (const ara::core::Exception& e) {
        EXPECT_EQ(e.Error().Value(), 1);
        EXPECT_EQ(e.Error().SupportData(), 5);
        EXPECT_STREQ(e.what(), "one");
    }
}

}  // namespace
