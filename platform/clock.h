/// The clock.
#pragma once

#include <boost/date_time/posix_time/posix_time_types.hpp>

namespace platform {

/// Returns the local time with microsecond resolution. It jumps when the clock or the time zone is changed. Throws
/// std::exception when the system has no local time. Any thread.
boost::posix_time::ptime LocalTime();

}  // namespace platform
