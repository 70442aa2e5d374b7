#include "arithmetic/arithmetic.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace {

constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t highest = std::numeric_limits<std::int32_t>::max();

TEST(Arithmetic, SumsDifferencesAndProductsWrapAround) {
    EXPECT_EQ(arithmetic::WrappedSum(highest, 1), lowest);
    EXPECT_EQ(arithmetic::WrappedSum(lowest, -1), highest);
    EXPECT_EQ(arithmetic::WrappedSum(-3, 5), 2);
    EXPECT_EQ(arithmetic::WrappedDifference(lowest, 1), highest);
    EXPECT_EQ(arithmetic::WrappedDifference(5, -3), 8);
    EXPECT_EQ(arithmetic::WrappedProduct(50000, 50000), -1794967296);
    EXPECT_EQ(arithmetic::WrappedProduct(-3, 5), -15);
    EXPECT_EQ(arithmetic::WrappedProduct(65536, 65536), 0);
}

TEST(Arithmetic, TheMagnitudeOfTheSmallestNumberIsItself) {
    EXPECT_EQ(arithmetic::WrappedMagnitude(lowest), lowest);
    EXPECT_EQ(arithmetic::WrappedMagnitude(lowest + 1), highest);
    EXPECT_EQ(arithmetic::WrappedMagnitude(-7), 7);
    EXPECT_EQ(arithmetic::WrappedMagnitude(7), 7);
}

TEST(Arithmetic, DoublesAreTruncatedTowardZero) {
    EXPECT_EQ(arithmetic::Truncated(2.9), 2);
    EXPECT_EQ(arithmetic::Truncated(-2.9), -2);
    EXPECT_EQ(arithmetic::Truncated(-0.5), 0);
    EXPECT_EQ(arithmetic::Truncated(2147483647.9), highest);
    EXPECT_EQ(arithmetic::Truncated(-2147483648.9), lowest);
}

TEST(Arithmetic, PercentagesWrapAndAreTruncatedTowardZero) {
    EXPECT_EQ(arithmetic::SignedPercentOf(640, 33), 211);
    EXPECT_EQ(arithmetic::SignedPercentOf(640, -33), -211);
    EXPECT_EQ(arithmetic::UnsignedPercentOf(640, 33), 211);
    EXPECT_EQ(arithmetic::UnsignedPercentOf(640, -33), 42949461);
    EXPECT_EQ(arithmetic::SignedPercentOf(50000000, 50), -17949672);
    EXPECT_EQ(arithmetic::UnsignedPercentOf(50000000, 50), 25000000);
}

TEST(Arithmetic, ValuesOutOfRangeBecomeTheSmallestNumber) {
    EXPECT_EQ(arithmetic::Truncated(2147483648.0), lowest);
    EXPECT_EQ(arithmetic::Truncated(-2147483649.0), lowest);
    EXPECT_EQ(arithmetic::Truncated(1e300), lowest);
    EXPECT_EQ(arithmetic::Truncated(std::numeric_limits<double>::infinity()), lowest);
    EXPECT_EQ(arithmetic::Truncated(-std::numeric_limits<double>::infinity()), lowest);
    EXPECT_EQ(arithmetic::Truncated(std::numeric_limits<double>::quiet_NaN()), lowest);
}

}  // namespace
