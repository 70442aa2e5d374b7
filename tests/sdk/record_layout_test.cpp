/// The layout of the records that cross the boundary.

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "sdk/detector.h"
#include "sdk/plate_events.h"

namespace {

using OKM8::FrameArea;
using OKM8::Analytics::TrackPoint;
using OKM8::Analytics::TrackPointList;

TEST(RecordLayout, AFrameAreaIsFourNumbers) {
    const std::array<std::int32_t, 4> numbers = {1, -2, 3, -4};
    FrameArea area{};
    static_assert(sizeof(area) == sizeof(numbers));
    std::memcpy(&area, numbers.data(), sizeof(area));
    EXPECT_EQ(area.x, 1);
    EXPECT_EQ(area.y, -2);
    EXPECT_EQ(area.width, 3);
    EXPECT_EQ(area.height, -4);
    EXPECT_TRUE(std::is_trivially_copyable_v<FrameArea>);
}

TEST(RecordLayout, ATrackPointIsThirtyTwoBytes) {
    std::array<std::uint8_t, 32> bytes{};
    const std::array<std::int32_t, 4> rectangle = {10, -20, 30, 40};
    const std::int64_t time = 0x0102030405060708;
    std::memcpy(bytes.data(), rectangle.data(), 16);
    std::memcpy(bytes.data() + 16, &time, 8);
    bytes[24] = 9;
    TrackPoint point{};
    static_assert(sizeof(point) == 32);
    std::memcpy(&point, bytes.data(), sizeof(point));
    EXPECT_EQ(point.x, 10);
    EXPECT_EQ(point.y, -20);
    EXPECT_EQ(point.width, 30);
    EXPECT_EQ(point.height, 40);
    EXPECT_EQ(point.time, time);
    EXPECT_EQ(point.flag, 9);
    EXPECT_TRUE(std::is_trivially_copyable_v<TrackPoint>);
}

TEST(RecordLayout, AListOfTrackPointsIsThreePointers) {
    EXPECT_EQ(sizeof(TrackPointList), 24u);
    EXPECT_EQ(offsetof(TrackPointList, first), 0u);
    EXPECT_EQ(offsetof(TrackPointList, last), 8u);
    EXPECT_EQ(offsetof(TrackPointList, storage), 16u);
}

TEST(RecordLayout, TrackTimeCountsFromTheFirstJulianDay) {
    // 1970-01-01 is Julian day number 2440588.
    EXPECT_EQ(OKM8::Analytics::TrackTimeEpoch, std::int64_t{210866803200} * 1000000);
}

TEST(RecordLayout, ErrorCodesAreTheContracts) {
    EXPECT_EQ(OKM8::ErrorCode::None, 0);
    EXPECT_EQ(OKM8::ErrorCode::Failed, 1);
    EXPECT_EQ(OKM8::ErrorCode::RefusedSetting, 2816);
}

}  // namespace
