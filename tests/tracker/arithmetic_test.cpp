#include "tracker/arithmetic.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace {

constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t highest = std::numeric_limits<std::int32_t>::max();

TEST(Arithmetic, SumsDifferencesAndProductsWrapAround) {
    EXPECT_EQ(tracking::WrappedSum(highest, 1), lowest);
    EXPECT_EQ(tracking::WrappedSum(lowest, -1), highest);
    EXPECT_EQ(tracking::WrappedSum(-3, 5), 2);
    EXPECT_EQ(tracking::WrappedDifference(lowest, 1), highest);
    EXPECT_EQ(tracking::WrappedDifference(5, -3), 8);
    EXPECT_EQ(tracking::WrappedProduct(50000, 50000), -1794967296);
    EXPECT_EQ(tracking::WrappedProduct(-3, 5), -15);
    EXPECT_EQ(tracking::WrappedProduct(65536, 65536), 0);
}

TEST(Arithmetic, TheMagnitudeOfTheSmallestNumberIsItself) {
    EXPECT_EQ(tracking::WrappedMagnitude(lowest), lowest);
    EXPECT_EQ(tracking::WrappedMagnitude(lowest + 1), highest);
    EXPECT_EQ(tracking::WrappedMagnitude(-7), 7);
    EXPECT_EQ(tracking::WrappedMagnitude(7), 7);
}

TEST(Arithmetic, DoublesAreCutTowardZero) {
    EXPECT_EQ(tracking::Truncated(2.9), 2);
    EXPECT_EQ(tracking::Truncated(-2.9), -2);
    EXPECT_EQ(tracking::Truncated(-0.5), 0);
    EXPECT_EQ(tracking::Truncated(2147483647.9), highest);
    EXPECT_EQ(tracking::Truncated(-2147483648.9), lowest);
}

TEST(Arithmetic, WhatDoesNotFitBecomesTheSmallestNumber) {
    EXPECT_EQ(tracking::Truncated(2147483648.0), lowest);
    EXPECT_EQ(tracking::Truncated(-2147483649.0), lowest);
    EXPECT_EQ(tracking::Truncated(1e300), lowest);
    EXPECT_EQ(tracking::Truncated(std::numeric_limits<double>::infinity()), lowest);
    EXPECT_EQ(tracking::Truncated(-std::numeric_limits<double>::infinity()), lowest);
    EXPECT_EQ(tracking::Truncated(std::numeric_limits<double>::quiet_NaN()), lowest);
}

}  // namespace
