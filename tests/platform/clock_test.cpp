#include "platform/clock.h"

#include <gtest/gtest.h>

#include "tests/support/environment.h"

namespace {

using boost::posix_time::ptime;

TEST(Clock, IsTheLocalTimeInMicroseconds) {
    test_support::SetEnvironment("TZ", "VEX-05:30");  // 5 h 30 min east
    test_support::ReadTimeZone();
    const boost::posix_time::time_duration zone(5, 30, 0);
    const ptime before = boost::posix_time::microsec_clock::universal_time();
    const ptime local = platform::LocalTimeAt(platform::MicrosecondsSinceEpoch());
    const ptime after = boost::posix_time::microsec_clock::universal_time();
    EXPECT_GE(local, before + zone);
    EXPECT_LE(local, after + zone);
    test_support::UnsetEnvironment("TZ");
    test_support::ReadTimeZone();
}

}  // namespace
