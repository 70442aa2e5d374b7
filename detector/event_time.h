/// Event times: milliseconds since 1970-01-01 00:00. Any thread.
#pragma once

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <cstdint>

namespace plate_recognition {

/// Return the current time in UTC and in local time; microseconds are truncated toward zero.
std::int64_t CurrentUtcMilliseconds();
std::int64_t CurrentLocalMilliseconds();

/// Returns the milliseconds of a date-time, truncated toward zero. A special value (not-a-date-time, plus and minus
/// infinity) gives the number that the date library uses for it.
std::int64_t MillisecondsOf(const boost::posix_time::ptime& time);

/// The inverse: the number of a special value gives that value. Wraps at 64 bits of microseconds; never throws.
boost::posix_time::ptime DateTimeOfMilliseconds(std::int64_t milliseconds);

/// The same from microseconds.
boost::posix_time::ptime DateTimeOfMicroseconds(std::int64_t microseconds);

}  // namespace plate_recognition
