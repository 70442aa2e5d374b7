// Unloading the library while threads that have called it go on.

#include "tests/reference/engine/windows_unload.h"

#include <future>

#include "tests/reference/engine/engine_fixture.h"
#include "tests/support/descriptors.h"

namespace {

using namespace reading_engine_test;

class UnloadedLibrary : public ReadingEngine {
  protected:
    RunningService service;
};

TEST_F(UnloadedLibrary, LeaksNothingOfRunningThreads) {
    const auto callFromTwoThreads = [] {
        const OtherEngine engine;
        ASSERT_TRUE(engine.SetRange(1, 2));
        std::promise<void> called;
        std::promise<void> goOn;
        std::thread other([&] {
            EXPECT_TRUE(engine.SetRange(3, 4));
            called.set_value();
            goOn.get_future().wait();
        });
        called.get_future().wait();
        engine.Unload();
        goOn.set_value();
        other.join();
    };
    callFromTwoThreads();
    ConnectOnce();
    const std::size_t descriptors = test_support::OpenDescriptors().size();
    constexpr std::size_t rounds = 40;
    for (std::size_t round = 0; round < rounds; ++round) {
        callFromTwoThreads();
    }
    static_assert(rounds > 2 * test_support::keptByLocks);
    EXPECT_TRUE(WaitUntil([&] {
        ConnectOnce();
        return test_support::OpenDescriptors().size() <= descriptors + test_support::keptByLocks;
    })) << test_support::OpenDescriptors().size()
        << " handles, not " << descriptors;
}

}  // namespace
