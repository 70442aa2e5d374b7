/// Event times: milliseconds since 1970-01-01 00:00. Any thread.
#pragma once

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <cstdint>

namespace plate_recognition {

/// The present as UTC, and as local time; microseconds are cut toward zero.
std::int64_t CurrentUtcMilliseconds();
std::int64_t CurrentLocalMilliseconds();

/// The milliseconds of a date-time; a special value (no date-time, plus and minus infinity) gives its own number.
std::int64_t MillisecondsOf(const boost::posix_time::ptime& time);

/// The way back: the number of a special value gives that value. Beyond 64 bits of microseconds it wraps; never throws.
boost::posix_time::ptime DateTimeOfMilliseconds(std::int64_t milliseconds);

/// The same from microseconds.
boost::posix_time::ptime DateTimeOfMicroseconds(std::int64_t microseconds);

}  // namespace plate_recognition
