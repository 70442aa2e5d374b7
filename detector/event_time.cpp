#include "detector/event_time.h"

#include <boost/date_time/posix_time/posix_time.hpp>
#include <cstring>
#include <limits>

#include "sdk/plate_events.h"

namespace plate_recognition {

namespace {

using boost::posix_time::microsec_clock;
using boost::posix_time::ptime;

constexpr std::int64_t microsecondsPerMillisecond = 1000;

// The numbers that the date library uses for its special values.
constexpr std::int64_t plusInfinity = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t noDateTime = plusInfinity - 1;
constexpr std::int64_t minusInfinity = std::numeric_limits<std::int64_t>::min();

bool IsSpecial(std::int64_t number) {
    return number == plusInfinity || number == noDateTime || number == minusInfinity;
}

ptime DateTimeOfTicks(std::int64_t ticks) {
    return ptime(ptime::time_rep_type(ticks));
}

std::int64_t TicksOf(const ptime& time) {
    static_assert(sizeof(ptime) == sizeof(std::int64_t));
    std::int64_t ticks = 0;
    std::memcpy(&ticks, &time, sizeof ticks);
    return ticks;
}

}  // namespace

std::int64_t CurrentUtcMilliseconds() {
    return MillisecondsOf(microsec_clock::universal_time());
}

std::int64_t CurrentLocalMilliseconds() {
    return MillisecondsOf(microsec_clock::local_time());
}

std::int64_t MillisecondsOf(const ptime& time) {
    if (time.is_pos_infinity()) {
        return plusInfinity;
    }
    if (time.is_neg_infinity()) {
        return minusInfinity;
    }
    if (time.is_not_a_date_time()) {
        return noDateTime;
    }
    // The library's own subtraction would overflow; this one wraps.
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(TicksOf(time)) -
                                     std::uint64_t{OKM8::Analytics::TrackTimeEpoch}) /
           microsecondsPerMillisecond;
}

ptime DateTimeOfMilliseconds(std::int64_t milliseconds) {
    if (IsSpecial(milliseconds)) {
        return DateTimeOfTicks(milliseconds);
    }
    return DateTimeOfMicroseconds(static_cast<std::int64_t>(static_cast<std::uint64_t>(milliseconds) *
                                                            std::uint64_t{microsecondsPerMillisecond}));
}

ptime DateTimeOfMicroseconds(std::int64_t microseconds) {
    if (IsSpecial(microseconds)) {
        return DateTimeOfTicks(microseconds);
    }
    // The library's own addition would overflow; this one wraps.
    return DateTimeOfTicks(static_cast<std::int64_t>(std::uint64_t{OKM8::Analytics::TrackTimeEpoch} +
                                                     static_cast<std::uint64_t>(microseconds)));
}

}  // namespace plate_recognition
