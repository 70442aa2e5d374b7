// Conversion between milliseconds since 1970 and date-times, in both directions.

#include "detector/event_time.h"

#include <gtest/gtest.h>

#include <boost/date_time/gregorian/gregorian.hpp>
#include <boost/date_time/posix_time/posix_time.hpp>
#include <chrono>
#include <cstring>
#include <limits>

#include "tests/support/environment.h"

namespace {

using boost::gregorian::date;
using boost::posix_time::hours;
using boost::posix_time::microseconds;
using boost::posix_time::milliseconds;
using boost::posix_time::ptime;
using plate_recognition::CurrentLocalMilliseconds;
using plate_recognition::CurrentUtcMilliseconds;
using plate_recognition::DateTimeOfMicroseconds;
using plate_recognition::DateTimeOfMilliseconds;
using plate_recognition::MillisecondsOf;

const ptime epoch(date(1970, 1, 1));

TEST(EventTime, OfThePresentIsUtc) {
    const auto read = [] {
        return std::chrono::duration_cast<std::chrono::milliseconds>(
                   std::chrono::system_clock::now().time_since_epoch())
            .count();
    };
    const std::int64_t before = read();
    const std::int64_t now = CurrentUtcMilliseconds();
    EXPECT_GE(now, before);
    EXPECT_LE(now, read());
}

TEST(EventTime, OfThePresentAsLocalTimeIsAheadByTheZone) {
    test_support::SetEnvironment("TZ", "VEX-05:30");  // 5 h 30 min east
    test_support::ReadTimeZone();
    const std::int64_t zone = (5 * 60 + 30) * 60 * 1000;
    const std::int64_t before = CurrentUtcMilliseconds();
    const std::int64_t local = CurrentLocalMilliseconds();
    const std::int64_t after = CurrentUtcMilliseconds();
    EXPECT_GE(local, before + zone);
    EXPECT_LE(local, after + zone);
    test_support::UnsetEnvironment("TZ");
    test_support::ReadTimeZone();
}

TEST(EventTime, IsRoundedTowardZero) {
    EXPECT_EQ(MillisecondsOf(epoch), 0);
    EXPECT_EQ(MillisecondsOf(epoch + microseconds(1999)), 1);
    EXPECT_EQ(MillisecondsOf(epoch - microseconds(999)), 0);
    EXPECT_EQ(MillisecondsOf(epoch - microseconds(1999)), -1);
    EXPECT_EQ(MillisecondsOf(ptime(date(2024, 2, 29), hours(1))), 1709168400000);
}

TEST(EventTime, ConvertsBackToTheSameDateTime) {
    for (const std::int64_t time :
         {std::int64_t{0}, std::int64_t{1}, std::int64_t{-1}, std::int64_t{1709168400123}, std::int64_t{-86400000}}) {
        EXPECT_EQ(DateTimeOfMilliseconds(time), epoch + milliseconds(time));
        EXPECT_EQ(MillisecondsOf(DateTimeOfMilliseconds(time)), time);
    }
    EXPECT_EQ(DateTimeOfMicroseconds(1709168400123456), epoch + microseconds(1709168400123456));
}

TEST(EventTime, SpecialValuesStaySpecialBothWays) {
    const ptime plus(boost::posix_time::pos_infin);
    const ptime minus(boost::posix_time::neg_infin);
    const ptime none(boost::posix_time::not_a_date_time);
    EXPECT_TRUE(DateTimeOfMilliseconds(MillisecondsOf(plus)).is_pos_infinity());
    EXPECT_TRUE(DateTimeOfMilliseconds(MillisecondsOf(minus)).is_neg_infinity());
    EXPECT_TRUE(DateTimeOfMilliseconds(MillisecondsOf(none)).is_not_a_date_time());
    EXPECT_TRUE(DateTimeOfMilliseconds(std::numeric_limits<std::int64_t>::max()).is_pos_infinity());
    EXPECT_TRUE(DateTimeOfMilliseconds(std::numeric_limits<std::int64_t>::min()).is_neg_infinity());
    EXPECT_TRUE(DateTimeOfMilliseconds(std::numeric_limits<std::int64_t>::max() - 1).is_not_a_date_time());
    EXPECT_TRUE(DateTimeOfMicroseconds(std::numeric_limits<std::int64_t>::max()).is_pos_infinity());
    EXPECT_TRUE(DateTimeOfMicroseconds(std::numeric_limits<std::int64_t>::min()).is_neg_infinity());
    EXPECT_TRUE(DateTimeOfMicroseconds(std::numeric_limits<std::int64_t>::max() - 1).is_not_a_date_time());
}

// Returns the ticks of a date-time that may be outside the calendar.
std::int64_t TicksOf(const ptime& time) {
    std::int64_t ticks = 0;
    static_assert(sizeof time == sizeof ticks);
    std::memcpy(&ticks, &time, sizeof ticks);
    return ticks;
}

TEST(EventTime, WrapsBeyond64BitsOfMicrosecondsAndNeverThrows) {
    const auto epochTicks = static_cast<std::uint64_t>(TicksOf(epoch));
    EXPECT_EQ(epochTicks, 2440588ull * 86400 * 1000000);
    for (const std::int64_t time :
         {std::numeric_limits<std::int64_t>::max() - 2, std::numeric_limits<std::int64_t>::min() + 1,
          std::numeric_limits<std::int64_t>::max() / 1000 + 1, std::numeric_limits<std::int64_t>::min() / 1000 - 1,
          std::int64_t{1} << 59, std::numeric_limits<std::int64_t>::max() / 1000}) {
        const auto microsecondCount = static_cast<std::uint64_t>(time) * 1000u;
        EXPECT_EQ(TicksOf(DateTimeOfMilliseconds(time)), static_cast<std::int64_t>(epochTicks + microsecondCount));
        EXPECT_EQ(TicksOf(DateTimeOfMicroseconds(time)),
                  static_cast<std::int64_t>(epochTicks + static_cast<std::uint64_t>(time)));
    }
}

// Near the ends the sum with the epoch wraps, and so does the difference in the other direction.
TEST(EventTime, OfMicrosecondsNearTheEndsOf64BitsConvertsBackToMilliseconds) {
    constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
    constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();
    const std::int64_t epochTicks = TicksOf(epoch);
    for (const std::int64_t time :
         {largest - 2, largest - 3, largest - 1000, largest - epochTicks - 2, largest - epochTicks + 2, smallest + 1,
          smallest + 2, smallest + 999, smallest + 1000, smallest + epochTicks, smallest / 2, largest / 2}) {
        EXPECT_EQ(MillisecondsOf(DateTimeOfMicroseconds(time)), time / 1000) << time;
    }
}

TEST(EventTime, OfMicrosecondsThatEqualASpecialValueIsSpecial) {
    constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
    const std::int64_t epochTicks = TicksOf(epoch);
    EXPECT_EQ(MillisecondsOf(DateTimeOfMicroseconds(largest - epochTicks)), largest);
    EXPECT_EQ(MillisecondsOf(DateTimeOfMicroseconds(largest - epochTicks - 1)), largest - 1);
    EXPECT_EQ(MillisecondsOf(DateTimeOfMicroseconds(largest - epochTicks + 1)),
              std::numeric_limits<std::int64_t>::min());
}

}  // namespace
