/// Lets time pass in steps that other threads make.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <memory>

#include "server/poll_timeout_thread.h"
#include "tests/support/wait_until.h"

/// Returns when a thread of its own has polled that often, a millisecond apart: what was about to happen on another
/// thread has had its chance by then. Not interruptible.
inline void LetOthersPoll(int polls = 50) {
    const auto count = std::make_shared<std::atomic<int>>(0);
    ThreadRoutines::PollTimeoutThread other;
    other.SetPeriod(1);
    other.Start([count] { ++*count; });
    EXPECT_TRUE(WaitUntil([&] { return *count >= polls; }));
}
