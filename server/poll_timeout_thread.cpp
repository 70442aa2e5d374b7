#include "server/poll_timeout_thread.h"

#include <algorithm>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <limits>
#include <utility>

namespace ThreadRoutines {

namespace {

constexpr std::int64_t microsecondsPerMillisecond = 1000;
constexpr std::int64_t longestWaitMilliseconds = INT64_C(365) * 24 * 3600 * 1000;  // what the clock's arithmetic bears

}  // namespace

PollTimeoutThread::~PollTimeoutThread() {
    Stop();
}

void PollTimeoutThread::Start(std::function<void()> action) {
    if (IsInForkedChild()) {
        return;
    }
    const platform::Lock pollLock(pollMutex);
    const platform::Lock threadLock(threadMutex);
    if (pollThread.get_id() != boost::thread::id()) {
        return;
    }
    pollAction = std::move(action);
    // The thread keeps the library loaded where it could not be joined during unloading.
    const platform::LibraryReference library = platform::HoldLibrary();
    try {
        pollThread = boost::thread([this, library] {
            Run();
            platform::ReleaseLibrary(library);
        });
    } catch (...) {
        platform::DropLibrary(library);
        pollAction = nullptr;
        throw;
    }
}

// The thread was stopped wherever it was, perhaps with the mutex held.
void PollTimeoutThread::DetachStopped() VEXLANE_UNCHECKED {
    pollThread.detach();
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
    const boost::this_thread::disable_interruption callersInterruptionIsNotOurs;
    {
        const platform::Lock lock(threadMutex);
        pollThread.interrupt();
    }
    {
        const platform::Lock lock(pollMutex);
        pollAction = nullptr;
    }
    boost::thread ending;
    {
        const platform::Lock lock(threadMutex);
        ending.swap(pollThread);
    }
    if (ending.joinable()) {
        ending.interrupt();  // it may be another one than above
        ending.join();
    }
}

bool PollTimeoutThread::IsRunning() const {
    if (IsInForkedChild()) {
        return false;
    }
    const platform::Lock lock(threadMutex);
    return pollThread.get_id() != boost::thread::id();
}

bool PollTimeoutThread::IsPollThread() const {
    const platform::Lock lock(threadMutex);
    return pollThread.get_id() == boost::this_thread::get_id();
}

void PollTimeoutThread::SetPeriod(std::int64_t milliseconds) {
    period = std::clamp(milliseconds, std::numeric_limits<std::int64_t>::min() / microsecondsPerMillisecond,
                        std::numeric_limits<std::int64_t>::max() / microsecondsPerMillisecond) *
             microsecondsPerMillisecond;
}

void PollTimeoutThread::SetWaitAction(std::function<void(std::int64_t)> action) {
    if (IsInForkedChild()) {
        return;
    }
    const platform::Lock lock(pollMutex);
    waitAction = std::move(action);
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
                wait(period);
            } else {
                const std::int64_t milliseconds =
                    std::clamp<std::int64_t>(period / microsecondsPerMillisecond, 0, longestWaitMilliseconds);
                boost::this_thread::sleep(boost::posix_time::milliseconds(milliseconds));
            }
        } while (!boost::this_thread::interruption_requested());
    } catch (const boost::thread_interrupted&) {
        // The wait was cut short.
    } catch (...) {
        // Without a wait between them, polls would follow one another at once: polling ends.
    }
}

void PollTimeoutThread::Poll(std::function<void(std::int64_t)>& wait) {
    const platform::Lock lock(pollMutex);
    wait = waitAction;
    if (!pollAction) {
        return;
    }
    try {
        pollAction();
    } catch (const boost::thread_interrupted&) {
        throw;
    } catch (...) {
        // A poll that failed is made again after the period; the host's process goes on.
    }
}

}  // namespace ThreadRoutines
