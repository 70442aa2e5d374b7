/// The clock.
#pragma once

#include <boost/date_time/posix_time/posix_time_types.hpp>

namespace platform {

/// Returns the local time, in microseconds. It jumps when the clock is set or the time zone changes. Throws
/// std::exception when there is no local time. Any thread.
boost::posix_time::ptime LocalTime();

}  // namespace platform
