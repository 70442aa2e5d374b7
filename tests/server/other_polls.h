/// Lets other threads run.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <memory>

#include "server/poll_timeout_thread.h"
#include "tests/support/wait_until.h"

/// Returns after a new thread has polled that often, a millisecond apart, which gives other threads time to finish what
/// they were doing. Not interruptible.
inline void LetOthersPoll(int polls = 50) {
    const auto count = std::make_shared<std::atomic<int>>(0);
    ThreadRoutines::PollTimeoutThread other;
    other.SetPeriod(1);
    other.Start([count] { ++*count; });
    EXPECT_TRUE(WaitUntil([&] { return *count >= polls; }));
}
