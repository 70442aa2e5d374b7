#include "platform/clock.h"

namespace platform {

boost::posix_time::ptime LocalTime() {
    return boost::posix_time::microsec_clock::local_time();
}

}  // namespace platform
