#include "server/poll_timeout_thread.h"

#include <gmock/gmock.h>

#include <atomic>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/thread/thread.hpp>
#include <chrono>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tests/server/other_polls.h"
#include "tests/support/completes_within.h"
#include "tests/support/wait_until.h"

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
using ThreadRoutines::PollTimeoutThread;

constexpr std::int64_t oneHour = 3'600'000;

struct Counter {
    std::atomic<int> count = 0;
    std::function<void()> Action() {
        return [this] { ++count; };
    }
    bool Reaches(int target) {
        return WaitUntil([this, target] { return count >= target; });
    }
};

// A wait action that records the period and waits, interruptibly, while `held` is set.
class Waits {
  public:
    std::function<void(std::int64_t)> Action() {
        return [this](std::int64_t period) {
            {
                const std::lock_guard lock(mutex_);
                periods_.push_back(period);
            }
            while (held) {
                boost::this_thread::sleep(boost::posix_time::milliseconds(1));
            }
        };
    }
    std::vector<std::int64_t> Periods() const {
        const std::lock_guard lock(mutex_);
        return periods_;
    }

    std::atomic<bool> held = false;

  private:
    mutable std::mutex mutex_;
    std::vector<std::int64_t> periods_;
};

TEST(PollTimeoutThread, DoesNotRunUntilItIsStarted) {
    PollTimeoutThread poll;
    EXPECT_FALSE(poll.IsRunning());
    poll.Stop();
    EXPECT_FALSE(poll.IsRunning());
}

TEST(PollTimeoutThread, PollsAtOnce) {
    Counter polls;
    PollTimeoutThread poll;
    poll.SetPeriod(oneHour);
    poll.Start(polls.Action());
    EXPECT_TRUE(poll.IsRunning());
    EXPECT_TRUE(polls.Reaches(1));
}

TEST(PollTimeoutThread, PollsOnOneSeparateThread) {
    std::mutex mutex;
    std::vector<std::thread::id> threads;
    PollTimeoutThread poll;
    poll.SetPeriod(0);
    poll.Start([&] {
        const std::lock_guard lock(mutex);
        threads.push_back(std::this_thread::get_id());
    });
    ASSERT_TRUE(WaitUntil([&] {
        const std::lock_guard lock(mutex);
        return threads.size() >= 3;
    }));
    poll.Stop();
    EXPECT_NE(threads.front(), std::this_thread::get_id());
    EXPECT_THAT(threads, testing::Each(threads.front()));
}

TEST(PollTimeoutThread, PollsAgainAfterEachPeriod) {
    constexpr int periodCount = 4;
    Counter polls;
    PollTimeoutThread poll;
    poll.SetPeriod(50);
    const auto start = steady_clock::now();
    poll.Start(polls.Action());
    ASSERT_TRUE(polls.Reaches(periodCount + 1));
    EXPECT_GE(steady_clock::now() - start, std::chrono::milliseconds(50 * periodCount - 20));
}

TEST(PollTimeoutThread, WaitsFiveSecondsByDefault) {
    Waits waits;
    Counter polls;
    PollTimeoutThread poll;
    poll.SetWaitAction(waits.Action());
    poll.Start(polls.Action());
    ASSERT_TRUE(polls.Reaches(3));
    poll.Stop();
    EXPECT_THAT(waits.Periods(), testing::Each(5'000'000));
}

TEST(PollTimeoutThread, PassesThePeriodToTheWaitActionInMicroseconds) {
    for (const auto& [milliseconds, microseconds] :
         std::vector<std::pair<std::int64_t, std::int64_t>>{{1, 1000}, {0, 0}, {oneHour, 3'600'000'000}, {-7, -7000}}) {
        Waits waits;
        Counter polls;
        PollTimeoutThread poll;
        poll.SetWaitAction(waits.Action());
        poll.SetPeriod(milliseconds);
        poll.Start(polls.Action());
        ASSERT_TRUE(polls.Reaches(2));
        poll.Stop();
        EXPECT_THAT(waits.Periods(), testing::Each(microseconds));
    }
}

TEST(PollTimeoutThread, AcceptsAPeriodBeyondItsRange) {
    Waits waits;
    Counter polls;
    PollTimeoutThread poll;
    poll.SetWaitAction(waits.Action());
    poll.SetPeriod(INT64_MAX);
    poll.SetPeriod(INT64_MIN);
    poll.Start(polls.Action());
    EXPECT_TRUE(polls.Reaches(2));
}

TEST(PollTimeoutThread, WaitsTheMaximumForAPeriodBeyondItsRange) {
    for (const std::int64_t milliseconds : {INT64_MAX / 1000, INT64_MAX / 1000 + 1, INT64_MAX / 2 + 1, INT64_MAX}) {
        Counter polls;
        PollTimeoutThread poll;
        poll.SetPeriod(milliseconds);
        poll.Start(polls.Action());
        ASSERT_TRUE(polls.Reaches(1));
        LetOthersPoll();
        EXPECT_EQ(polls.count, 1) << milliseconds;
        EXPECT_TRUE(CompletesWithin(1min, [&poll] { poll.Stop(); })) << milliseconds;
        EXPECT_FALSE(poll.IsRunning());
        EXPECT_EQ(polls.count, 1) << milliseconds;
    }
}

TEST(PollTimeoutThread, PassesTheMaximumToTheWaitActionForAPeriodBeyondItsRange) {
    for (const auto& [milliseconds, microseconds] :
         std::vector<std::pair<std::int64_t, std::int64_t>>{{INT64_MAX / 1000, INT64_MAX / 1000 * 1000},
                                                            {INT64_MAX, INT64_MAX / 1000 * 1000},
                                                            {INT64_MIN, INT64_MIN / 1000 * 1000}}) {
        Waits waits;
        Counter polls;
        PollTimeoutThread poll;
        poll.SetWaitAction(waits.Action());
        poll.SetPeriod(milliseconds);
        poll.Start(polls.Action());
        ASSERT_TRUE(polls.Reaches(2));
        poll.Stop();
        EXPECT_THAT(waits.Periods(), testing::Each(microseconds));
    }
}

TEST(PollTimeoutThread, UsesANewPeriodFromTheNextWaitOn) {
    Waits waits;
    waits.held = true;
    Counter polls;
    PollTimeoutThread poll;
    poll.SetWaitAction(waits.Action());
    poll.SetPeriod(1);
    poll.Start(polls.Action());
    ASSERT_TRUE(WaitUntil([&] { return waits.Periods().size() == 1; }));
    poll.SetPeriod(2);
    waits.held = false;
    ASSERT_TRUE(WaitUntil([&] { return waits.Periods().size() >= 2; }));
    poll.Stop();
    EXPECT_EQ(waits.Periods()[0], 1000);
    EXPECT_EQ(waits.Periods()[1], 2000);
}

TEST(PollTimeoutThread, DoesNotWaitAtAllForANegativePeriod) {
    Counter polls;
    PollTimeoutThread poll;
    poll.SetPeriod(-oneHour);
    poll.Start(polls.Action());
    EXPECT_TRUE(polls.Reaches(3));
}

TEST(PollTimeoutThread, WaitsByItselfAfterTheWaitActionIsRemoved) {
    Waits waits;
    Counter polls;
    PollTimeoutThread poll;
    poll.SetPeriod(1);
    poll.SetWaitAction(waits.Action());
    poll.Start(polls.Action());
    ASSERT_TRUE(polls.Reaches(2));
    poll.SetWaitAction({});
    const int before = polls.count;
    ASSERT_TRUE(polls.Reaches(before + 3));
    poll.Stop();
    EXPECT_LT(waits.Periods().size(), static_cast<std::size_t>(polls.count));
}

TEST(PollTimeoutThread, KeepsItsActionWhenItIsStartedAgain) {
    Counter first;
    Counter second;
    PollTimeoutThread poll;
    poll.SetPeriod(0);
    poll.Start(first.Action());
    poll.Start(second.Action());
    const int before = first.count;
    EXPECT_TRUE(first.Reaches(before + 3));
    EXPECT_EQ(second.count, 0);
}

TEST(PollTimeoutThread, RunsWithoutAnAction) {
    Waits waits;
    PollTimeoutThread poll;
    poll.SetWaitAction(waits.Action());
    poll.Start({});
    EXPECT_TRUE(WaitUntil([&] { return waits.Periods().size() >= 2; }));
    EXPECT_TRUE(poll.IsRunning());
}

TEST(PollTimeoutThread, StopInterruptsALongWait) {
    Counter polls;
    PollTimeoutThread poll;
    poll.SetPeriod(oneHour);
    poll.Start(polls.Action());
    ASSERT_TRUE(polls.Reaches(1));
    const auto start = steady_clock::now();
    poll.Stop();
    EXPECT_LT(steady_clock::now() - start, std::chrono::minutes(1));
    EXPECT_FALSE(poll.IsRunning());
    EXPECT_EQ(polls.count, 1);
}

TEST(PollTimeoutThread, StopInterruptsTheWaitAction) {
    Waits waits;
    waits.held = true;
    Counter polls;
    PollTimeoutThread poll;
    poll.SetWaitAction(waits.Action());
    poll.Start(polls.Action());
    ASSERT_TRUE(WaitUntil([&] { return waits.Periods().size() == 1; }));
    poll.Stop();
    EXPECT_FALSE(poll.IsRunning());
    EXPECT_EQ(polls.count, 1);
}

TEST(PollTimeoutThread, StopWaitsForAPollInProgress) {
    std::atomic<bool> inPoll = false;
    std::atomic<bool> stopping = false;
    std::atomic<bool> pollEnded = false;
    PollTimeoutThread poll;
    poll.SetPeriod(oneHour);
    poll.Start([&] {
        inPoll = true;
        EXPECT_TRUE(WaitUntil([&] { return stopping.load(); }));
        LetOthersPoll();  // a Stop that does not wait would return first
        pollEnded = true;
    });
    ASSERT_TRUE(WaitUntil([&] { return inPoll.load(); }));
    stopping = true;
    poll.Stop();
    EXPECT_TRUE(pollEnded);
}

TEST(PollTimeoutThread, CanBeStoppedTwice) {
    Counter polls;
    PollTimeoutThread poll;
    poll.Start(polls.Action());
    poll.Stop();
    poll.Stop();
    EXPECT_FALSE(poll.IsRunning());
}

TEST(PollTimeoutThread, ManyThreadsCanStopIt) {
    for (int round = 0; round < 20; ++round) {
        Counter polls;
        PollTimeoutThread poll;
        poll.SetPeriod(round % 2 == 0 ? oneHour : 0);
        poll.Start(polls.Action());
        std::vector<std::thread> stoppers;
        for (int stopper = 0; stopper < 4; ++stopper) {
            stoppers.emplace_back([&poll] { poll.Stop(); });
        }
        for (std::thread& stopper : stoppers) {
            stopper.join();
        }
        EXPECT_FALSE(poll.IsRunning());
    }
}

TEST(PollTimeoutThread, CanBeStoppedRightAfterStart) {
    for (int round = 0; round < 200; ++round) {
        Counter polls;
        PollTimeoutThread poll;
        poll.SetPeriod(oneHour);
        poll.Start(polls.Action());
        poll.Stop();
        EXPECT_FALSE(poll.IsRunning());
        EXPECT_LE(polls.count, 1);
    }
}

TEST(PollTimeoutThread, ManyThreadsCanStopAndStartIt) {
    constexpr int rounds = 100;
    PollTimeoutThread poll;
    poll.SetPeriod(oneHour);
    std::atomic<int> polls = 0;
    const auto stopStartStop = [&] {
        for (int round = 0; round < rounds; ++round) {
            poll.Stop();
            poll.Start([&polls] { ++polls; });
            poll.Stop();
        }
    };
    EXPECT_TRUE(CompletesWithin(1min, [&] {
        std::vector<std::thread> threads;
        for (int thread = 0; thread < 4; ++thread) {
            threads.emplace_back(stopStartStop);
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }));
    EXPECT_FALSE(poll.IsRunning()) << "the last call of every thread stopped it";
    EXPECT_LE(polls, 4 * rounds) << "an hour between two polls of one start";
    const int before = polls;
    poll.Start([&polls] { ++polls; });
    EXPECT_TRUE(WaitUntil([&] { return polls > before; })) << "and it can still be started";
}

TEST(PollTimeoutThread, ExceptionInTheWaitActionEndsPolling) {
    const std::vector<std::function<void()>> failures = {[] { throw std::runtime_error("no clock"); },
                                                         [] { throw 42; }};
    for (const std::function<void()>& fail : failures) {
        Counter polls;
        std::atomic<int> waits = 0;
        PollTimeoutThread poll;
        poll.SetPeriod(0);
        poll.SetWaitAction([&](std::int64_t) {
            ++waits;
            fail();
        });
        poll.Start(polls.Action());
        ASSERT_TRUE(WaitUntil([&] { return waits == 1; }));
        LetOthersPoll();
        EXPECT_EQ(polls.count, 1);
        EXPECT_EQ(waits, 1);
        EXPECT_TRUE(CompletesWithin(1min, [&poll] { poll.Stop(); }));
        EXPECT_FALSE(poll.IsRunning());
        poll.SetWaitAction({});
        poll.Start(polls.Action());
        EXPECT_TRUE(polls.Reaches(3)) << "it polls after another start";
    }
}

TEST(PollTimeoutThread, UsesANewActionAfterStopAndStart) {
    Counter first;
    Counter second;
    PollTimeoutThread poll;
    poll.SetPeriod(0);
    poll.Start(first.Action());
    ASSERT_TRUE(first.Reaches(1));
    poll.Stop();
    const int before = first.count;
    poll.Start(second.Action());
    EXPECT_TRUE(poll.IsRunning());
    EXPECT_TRUE(second.Reaches(3));
    EXPECT_EQ(first.count, before);
}

TEST(PollTimeoutThread, StartedByManyThreadsItPollsOnOne) {
    constexpr int starterCount = 4;
    std::vector<Counter> polls(starterCount);
    PollTimeoutThread poll;
    poll.SetPeriod(0);
    std::vector<std::thread> starters;
    for (Counter& counter : polls) {
        starters.emplace_back([&poll, &counter] { poll.Start(counter.Action()); });
    }
    for (std::thread& starter : starters) {
        starter.join();
    }
    const auto started = [&polls] {
        int count = 0;
        for (const Counter& counter : polls) {
            count += counter.count > 0 ? 1 : 0;
        }
        return count;
    };
    ASSERT_TRUE(WaitUntil([&] { return started() > 0; }));
    poll.Stop();
    EXPECT_EQ(started(), 1);
}

TEST(PollTimeoutThread, GoesOnAfterTheActionThrows) {
    std::atomic<int> count = 0;
    PollTimeoutThread poll;
    poll.SetPeriod(0);
    poll.Start([&count] {
        if (++count % 2 == 0) {
            throw std::runtime_error("a poll that fails");
        }
        throw 1;
    });
    EXPECT_TRUE(WaitUntil([&] { return count >= 4; }));
    EXPECT_TRUE(poll.IsRunning());
}

TEST(PollTimeoutThread, StopInterruptsTheAction) {
    std::atomic<bool> inPoll = false;
    PollTimeoutThread poll;
    poll.Start([&inPoll] {
        inPoll = true;
        boost::this_thread::sleep(boost::posix_time::hours(1));
    });
    ASSERT_TRUE(WaitUntil([&] { return inPoll.load(); }));
    poll.Stop();
    EXPECT_FALSE(poll.IsRunning());
}

TEST(PollTimeoutThread, DestructorStopsIt) {
    const auto inUse = std::make_shared<int>(0);
    std::atomic<int> count = 0;
    {
        PollTimeoutThread poll;
        poll.SetPeriod(0);
        poll.Start([inUse, &count] { ++count; });
        ASSERT_TRUE(WaitUntil([&] { return count >= 1; }));
    }
    EXPECT_EQ(inUse.use_count(), 1);
    const int before = count;
    std::this_thread::yield();
    EXPECT_EQ(count, before);
}

TEST(PollTimeoutThread, StopFromItsActionHasNoEffect) {
    std::atomic<int> count = 0;
    PollTimeoutThread poll;
    poll.SetPeriod(0);
    poll.Start([&] {
        poll.Stop();
        EXPECT_TRUE(poll.IsRunning());
        ++count;
    });
    EXPECT_TRUE(WaitUntil([&] { return count >= 3; }));
    EXPECT_TRUE(poll.IsRunning());
    poll.Stop();
    EXPECT_FALSE(poll.IsRunning());
}

TEST(PollTimeoutThread, ActionMaySetThePeriod) {
    std::atomic<int> count = 0;
    PollTimeoutThread poll;
    poll.SetPeriod(oneHour);
    poll.Start([&] {
        ++count;
        poll.SetPeriod(0);
    });
    EXPECT_TRUE(WaitUntil([&] { return count >= 3; }));
}

// Stop completes even if its caller is interrupted, and leaves the interruption pending.
TEST(PollTimeoutThread, StopCompletesForAnInterruptedCaller) {
    Counter polls;
    PollTimeoutThread poll;
    poll.SetPeriod(oneHour);
    poll.Start(polls.Action());
    ASSERT_TRUE(polls.Reaches(1));
    std::atomic<bool> interrupted = false;
    std::atomic<bool> stopped = false;
    std::atomic<bool> wasStillInterrupted = false;
    boost::thread caller([&] {
        if (!WaitUntil([&] { return interrupted.load(); })) {
            return;
        }
        poll.Stop();
        stopped = true;
        wasStillInterrupted = boost::this_thread::interruption_requested();
    });
    caller.interrupt();
    interrupted = true;
    caller.join();
    EXPECT_TRUE(stopped);
    EXPECT_TRUE(wasStillInterrupted);
    EXPECT_FALSE(poll.IsRunning());
}

TEST(PollTimeoutThread, DestructorIsVirtual) {
    class Derived final : public PollTimeoutThread {
      public:
        explicit Derived(bool& flag) : ended_(flag) {}
        ~Derived() override { ended_ = true; }

      private:
        bool& ended_;
    };
    bool ended = false;
    std::unique_ptr<PollTimeoutThread>(std::make_unique<Derived>(ended)).reset();
    EXPECT_TRUE(ended);
}

}  // namespace
