#include "platform/clock.h"

#include <boost/date_time/c_local_time_adjustor.hpp>
#include <chrono>

namespace platform {

std::int64_t MicrosecondsSinceEpoch() {
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(sinceEpoch).count();
}

boost::posix_time::ptime LocalTimeAt(std::int64_t microsecondsSinceEpoch) {
    using boost::posix_time::ptime;
    const ptime utc = ptime({1970, 1, 1}) + boost::posix_time::microseconds(microsecondsSinceEpoch);
    return boost::date_time::c_local_adjustor<ptime>::utc_to_local(utc);
}

}  // namespace platform
