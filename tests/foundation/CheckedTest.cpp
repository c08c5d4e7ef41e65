#include <foundation/core/checked.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>

namespace {

using foundation::core::checkedAdd;
using foundation::core::checkedCast;
using foundation::core::checkedMul;
using foundation::core::checkedSub;

constexpr std::uint64_t most = std::numeric_limits<std::uint64_t>::max();

template <typename Action>
std::string overflowText(Action action) {
    try {
        action();
    } catch (const std::overflow_error& failure) {
        return failure.what();
    }
    return "no overflow";
}

static_assert(checkedAdd(2, 3) == 5 && checkedSub(5, 3) == 2 && checkedMul(2, 3) == 6 &&
              checkedCast<int>(7L) == 7);

TEST(CheckedArithmetic, GivesResultsUpToTheLargestNumber) {
    EXPECT_EQ(most, checkedAdd(most - 1, 1));
    EXPECT_EQ(most, checkedAdd(0, most));
    EXPECT_EQ(0U, checkedSub(most, most));
    EXPECT_EQ(most, checkedMul(most / 5, 5));
    EXPECT_EQ(0U, checkedMul(0, most));
    EXPECT_EQ(0U, checkedMul(most, 0));
}

TEST(CheckedArithmetic, ReportsASumBeyond64Bits) {
    EXPECT_EQ("cannot add 18446744073709551615 and 1: the sum does not fit in 64 bits",
              overflowText([] { checkedAdd(most, 1); }));
    EXPECT_THROW(checkedAdd(1, most), std::overflow_error);
    EXPECT_THROW(checkedAdd(most, most), std::overflow_error);
}

TEST(CheckedArithmetic, ReportsADifferenceBelowZero) {
    EXPECT_EQ("cannot take 4 from 3: the difference would be negative",
              overflowText([] { checkedSub(3, 4); }));
}

TEST(CheckedArithmetic, ReportsAProductBeyond64Bits) {
    EXPECT_EQ("cannot multiply 4294967296 by 4294967296: the product does not fit in 64 bits",
              overflowText([] { checkedMul(std::uint64_t{1} << 32, std::uint64_t{1} << 32); }));
    EXPECT_THROW(checkedMul(most, 2), std::overflow_error);
}

TEST(CheckedCast, KeepsNumbersThatTheTypeHolds) {
    EXPECT_EQ(std::numeric_limits<std::int64_t>::max(), checkedCast<std::int64_t>(most / 2));
    EXPECT_EQ(0xFFFFFFFFU, checkedCast<std::uint32_t>(std::int64_t{0xFFFFFFFF}));
    EXPECT_EQ(-128, checkedCast<std::int8_t>(-128));
}

TEST(CheckedCast, ReportsNumbersThatTheTypeDoesNotHold) {
    EXPECT_EQ("cannot convert 4294967296: the type holds 0 to 4294967295",
              overflowText([] { checkedCast<std::uint32_t>(std::uint64_t{1} << 32); }));
    EXPECT_EQ("cannot convert -1: the type holds 0 to 18446744073709551615",
              overflowText([] { checkedCast<std::uint64_t>(-1); }));
    EXPECT_THROW(checkedCast<std::int64_t>(most), std::overflow_error);
    EXPECT_THROW(checkedCast<std::int8_t>(128), std::overflow_error);
}

} // namespace
