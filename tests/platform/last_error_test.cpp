#include "platform/last_error.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

TEST(LastError, IsWhatWasSet) {
    platform::SetLastError(2);
    EXPECT_EQ(platform::LastError(), 2u);
    platform::SetLastError(0);
    EXPECT_EQ(platform::LastError(), 0u);
}

// Only the two calls happen between the steps, because creating and joining threads may set the last error.
TEST(LastError, IsPerThread) {
    std::atomic<int> step = 0;
    std::uint32_t others = 0;
    std::thread other([&] {
        while (step != 1) {
        }
        platform::SetLastError(7);
        step = 2;
        while (step != 3) {
        }
        others = platform::LastError();
    });
    platform::SetLastError(5);
    step = 1;
    while (step != 2) {
    }
    const std::uint32_t own = platform::LastError();
    platform::SetLastError(6);
    step = 3;
    other.join();
    EXPECT_EQ(own, 5u);
    EXPECT_EQ(others, 7u);
}

TEST(LastError, NoErrorHasNoText) {
    EXPECT_EQ(platform::SystemErrorText(0), "");
}

TEST(LastError, AnErrorHasItsText) {
    EXPECT_NE(platform::SystemErrorText(2), "");
    EXPECT_NE(platform::SystemErrorText(2), platform::SystemErrorText(5));
}

TEST(LastError, AnErrorWithoutAMessageHasNoText) {
    EXPECT_EQ(platform::SystemErrorText(0x2FFFFFFF), "");
    EXPECT_EQ(platform::SystemErrorText(0xEFFFFFFF), "");
}

}  // namespace
