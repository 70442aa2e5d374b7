#include "server/poll_timeout_thread.h"

#include <algorithm>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <limits>
#include <utility>

namespace ThreadRoutines {

namespace {

constexpr std::int64_t microsecondsPerMillisecond = 1000;
constexpr std::int64_t maxWaitMilliseconds = INT64_C(365) * 24 * 3600 * 1000;  // no overflow in the clock's arithmetic

}  // namespace

PollTimeoutThread::~PollTimeoutThread() {
    Stop();
}

void PollTimeoutThread::Start(std::function<void()> action) {
    if (IsInForkedChild()) {
        return;
    }
    const platform::Lock pollLock(pollMutex_);
    const platform::Lock threadLock(threadMutex_);
    if (pollThread_.get_id() != boost::thread::id()) {
        return;
    }
    pollAction_ = std::move(action);
    // The thread keeps the library loaded on systems where it cannot be joined during unloading.
    const platform::LibraryReference library = platform::HoldLibrary();
    try {
        pollThread_ = boost::thread([this, library] {
            Run();
            platform::ReleaseLibrary(library);
        });
    } catch (...) {
        platform::DropLibrary(library);
        pollAction_ = nullptr;
        throw;
    }
}

// The system stopped the thread at an arbitrary point, so it may hold the mutex.
void PollTimeoutThread::DetachStopped() VEXLANE_UNCHECKED {
    pollThread_.detach();
}

void PollTimeoutThread::Stop() {
    if (IsInForkedChild()) {
        return;
    }
    if (platform::OtherThreadsAreGone()) {
        DetachStopped();
        return;
    }
    if (IsPollThread()) {
        return;
    }
    const boost::this_thread::disable_interruption disableInterruption;
    {
        const platform::Lock lock(threadMutex_);
        pollThread_.interrupt();
    }
    {
        const platform::Lock lock(pollMutex_);
        pollAction_ = nullptr;
    }
    boost::thread ending;
    {
        const platform::Lock lock(threadMutex_);
        ending.swap(pollThread_);
    }
    if (ending.joinable()) {
        ending.interrupt();  // it may be a different thread from the one above
        ending.join();
    }
}

bool PollTimeoutThread::IsRunning() const {
    if (IsInForkedChild()) {
        return false;
    }
    const platform::Lock lock(threadMutex_);
    return pollThread_.get_id() != boost::thread::id();
}

bool PollTimeoutThread::IsPollThread() const {
    const platform::Lock lock(threadMutex_);
    return pollThread_.get_id() == boost::this_thread::get_id();
}

void PollTimeoutThread::SetPeriod(std::int64_t milliseconds) {
    period_ = std::clamp(milliseconds, std::numeric_limits<std::int64_t>::min() / microsecondsPerMillisecond,
                         std::numeric_limits<std::int64_t>::max() / microsecondsPerMillisecond) *
              microsecondsPerMillisecond;
}

void PollTimeoutThread::SetWaitAction(std::function<void(std::int64_t)> action) {
    if (IsInForkedChild()) {
        return;
    }
    const platform::Lock lock(pollMutex_);
    waitAction_ = std::move(action);
}

void PollTimeoutThread::Run() {
    try {
        if (boost::this_thread::interruption_requested()) {
            return;
        }
        do {
            std::function<void(std::int64_t)> wait;
            Poll(wait);
            if (wait) {
                wait(period_);
            } else {
                const std::int64_t milliseconds =
                    std::clamp<std::int64_t>(period_ / microsecondsPerMillisecond, 0, maxWaitMilliseconds);
                boost::this_thread::sleep(boost::posix_time::milliseconds(milliseconds));
            }
        } while (!boost::this_thread::interruption_requested());
    } catch (const boost::thread_interrupted&) {
        // Stop interrupted the wait.
    } catch (...) {
        // The wait failed. Polling ends, because polls would otherwise follow each other without a pause.
    }
}

void PollTimeoutThread::Poll(std::function<void(std::int64_t)>& wait) {
    const platform::Lock lock(pollMutex_);
    wait = waitAction_;
    if (!pollAction_) {
        return;
    }
    try {
        pollAction_();
    } catch (const boost::thread_interrupted&) {
        throw;
    } catch (...) {
        // The next poll follows after the period; an exception must not end the host's process.
    }
}

}  // namespace ThreadRoutines
