/// A thread that calls an action at once and then again after each period.
#pragma once

#include <atomic>
#include <boost/thread/mutex.hpp>
#include <boost/thread/thread.hpp>
#include <cstdint>
#include <functional>

#include "platform/library.h"
#include "platform/mutex.h"
#include "platform/process.h"

namespace ThreadRoutines {

/// Every operation may be called from any thread and, unless it says otherwise, from the poll action.
/// Lock order: poll mutex, then thread mutex.
///
/// In a child process that the host forks there is no poll thread, and a mutex that it held stays locked. Every
/// operation returns at once there and does nothing.
class PollTimeoutThread {
  public:
    PollTimeoutThread() = default;
    /// Stops polling. REQUIRES: not on the poll thread, not in a forked child.
    virtual ~PollTimeoutThread();

    PollTimeoutThread(const PollTimeoutThread&) = delete;
    PollTimeoutThread& operator=(const PollTimeoutThread&) = delete;

    /// Starts polling; does nothing when the thread is already running. The action is called with the poll mutex held;
    /// an exception from it is dropped. Throws std::exception when the thread cannot be created. REQUIRES: not on the
    /// poll thread.
    void Start(std::function<void()> action);

    /// Ends polling: waits for a poll in progress, interrupts a wait and joins the thread. Does nothing on the poll
    /// thread.
    void Stop();

    /// Returns true between Start and Stop.
    bool IsRunning() const;

    /// Returns true in a process other than the one that created this object.
    bool IsInForkedChild() const { return platform::CurrentProcessId() != owner_; }

    /// Sets the time from one poll to the next, used from the next wait on; 5000 by default. A value that does not fit
    /// 64 bits of microseconds is clamped; a wait takes at most 365 days.
    void SetPeriod(std::int64_t milliseconds);

    /// Sets an action that replaces the wait from the next poll on; empty restores the wait. It is called with the
    /// period in microseconds, and should contain an interruption point. REQUIRES: not on the poll thread.
    void SetWaitAction(std::function<void(std::int64_t)> action);

  private:
    void Run();
    void Poll(std::function<void(std::int64_t)>& wait);
    bool IsPollThread() const;
    void DetachStopped();

    platform::Mutex pollMutex_;
    std::function<void()> pollAction_ VEXLANE_GUARDED_BY(pollMutex_);
    std::function<void(std::int64_t)> waitAction_ VEXLANE_GUARDED_BY(pollMutex_);
    std::atomic<std::int64_t> period_{5'000'000};  // microseconds
    boost::thread pollThread_ VEXLANE_GUARDED_BY(threadMutex_);
    mutable platform::Mutex threadMutex_;  // a leaf, held only to read or swap pollThread_
    const std::uint32_t owner_ = platform::CurrentProcessId();
};

}  // namespace ThreadRoutines
