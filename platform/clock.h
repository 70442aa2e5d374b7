/// The clock.
#pragma once

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <cstdint>

namespace platform {

/// Returns the microseconds since 1970-01-01 00:00 UTC. It jumps when the clock is changed. Takes no lock, not even one
/// of the C library. Any thread.
std::int64_t MicrosecondsSinceEpoch();

/// Returns the local time at that moment. It jumps when the time zone is changed. Throws std::exception when the system
/// has no local time for the moment. Any thread.
boost::posix_time::ptime LocalTimeAt(std::int64_t microsecondsSinceEpoch);

}  // namespace platform
