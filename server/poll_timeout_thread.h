/// A thread that does something at once and then again after every period.
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

/// Every operation may be called from any thread, the poll action's own included.
/// Lock order: poll mutex, then thread mutex.
///
/// In a child that the host forks the poll thread does not exist, and a mutex that it held stays locked for ever. Every
/// operation returns at once there and does nothing.
class PollTimeoutThread {
  public:
    PollTimeoutThread() = default;
    /// Stops polling. REQUIRES: not on the poll thread, not in a forked child.
    virtual ~PollTimeoutThread();

    PollTimeoutThread(const PollTimeoutThread&) = delete;
    PollTimeoutThread& operator=(const PollTimeoutThread&) = delete;

    /// Starts polling; a thread that runs goes on with the action that it has. The action is called with the poll mutex
    /// held; what it throws is dropped. Throws std::exception when no thread can be had.
    /// REQUIRES: not on the poll thread.
    void Start(std::function<void()> action);

    /// Ends polling: waits for a poll in progress and cuts a wait short. On the poll thread itself it does nothing.
    void Stop();

    bool IsRunning() const;

    /// True in a process other than the one that made this object.
    bool IsInForkedChild() const { return platform::CurrentProcessId() != owner_; }

    /// Taken into account from the next wait on. 5000 at first. One that does not fit 64 bits of microseconds counts as
    /// the nearest that does.
    void SetPeriod(std::int64_t milliseconds);

    /// Called with the period, in microseconds, in place of every wait from the next poll on; empty for the wait. It
    /// should be an interruption point. REQUIRES: not on the poll thread.
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
    mutable platform::Mutex threadMutex_;  // a leaf, held for a look or a swap
    const std::uint32_t owner_ = platform::CurrentProcessId();
};

}  // namespace ThreadRoutines
