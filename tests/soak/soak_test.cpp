// Short soaks, to keep the program working, and soaks with leaking hosts, which it must detect.

#include "tests/soak/soak.h"

#include <gmock/gmock.h>

#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/plugin/plugin.h"

namespace {

using soak::Growth;
using soak::GrowthOf;
using soak::Options;
using soak::Outcome;
using soak::Sample;
using testing::Contains;
using testing::IsEmpty;

std::vector<std::string> Grown(const std::vector<Growth>& growths) {
    std::vector<std::string> grown;
    for (const Growth& growth : growths) {
        if (!growth.IsWithinBound()) {
            grown.push_back(growth.what);
        }
    }
    return grown;
}

TEST(Soak, FindsNoGrowthInTheLibrary) {
    Options options;
    options.rounds = soak::minSamples;
    options.effort = {.cameras = 2, .frames = 400, .visits = 1};
    options.roundsPerSession = 3;
    std::ostringstream lines;
    const Outcome outcome = soak::Play(options, lines);
    EXPECT_THAT(Grown(outcome.growth), IsEmpty()) << lines.str();
    EXPECT_TRUE(outcome.HasPassed());
}

TEST(Soak, FindsNoGrowthWithEachLoadOfTheLibrary) {
    Options options;
    options.rounds = 2 * soak::minSamples;
    options.effort = {.cameras = 1, .frames = 100, .visits = 0};
    options.roundsPerSession = 1;
    std::ostringstream lines;
    EXPECT_THAT(Grown(soak::Play(options, lines).growth), IsEmpty()) << lines.str();
}

// A host that leaks after each round of a few frames.
class LeakingHost : public testing::Test {
  protected:
    std::vector<std::string> GrowthWhile(std::function<void()> afterRound) {
        Options options;
        options.rounds = soak::minSamples;
        options.effort = {.cameras = 1, .frames = 100, .visits = 0};
        options.afterRound = std::move(afterRound);
        std::ostringstream lines;
        const Outcome outcome = soak::Play(options, lines);
        EXPECT_FALSE(outcome.HasPassed()) << lines.str();
        return Grown(outcome.growth);
    }
};

// A sanitizer's allocator does not count allocated bytes.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(LeakingHost, IsDetectedByItsMemory) {
    std::vector<std::unique_ptr<std::uint8_t[]>> leaked;
    const auto leak = [&] {
        for (int block = 0; block < 1000; ++block) {
            leaked.push_back(std::make_unique<std::uint8_t[]>(1000));
        }
    };
    EXPECT_THAT(GrowthWhile(leak), Contains("allocated memory, MiB"));
}
#endif

TEST_F(LeakingHost, IsDetectedByItsFiles) {
    struct Close {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    std::vector<std::unique_ptr<std::FILE, Close>> leaked;
    const auto leak = [&] {
        leaked.emplace_back(std::fopen(plugin_test::LibraryFile().string().c_str(), "rb"));
        ASSERT_NE(leaked.back(), nullptr);
    };
    EXPECT_THAT(GrowthWhile(leak), Contains("open files"));
}

TEST_F(LeakingHost, IsDetectedByItsThreads) {
    std::mutex mutex;
    std::condition_variable ending;
    bool hasEnded = false;  // guarded by mutex
    std::vector<std::thread> leaked;
    const auto leak = [&] {
        leaked.emplace_back([&] {
            std::unique_lock lock(mutex);
            ending.wait(lock, [&] { return hasEnded; });
        });
    };
    EXPECT_THAT(GrowthWhile(leak), Contains("threads"));
    {
        const std::lock_guard lock(mutex);
        hasEnded = true;
    }
    ending.notify_all();
    for (std::thread& thread : leaked) {
        thread.join();
    }
}

// Samples of 40 rounds, each of which adds that many handles, including those that the library keeps by design.
std::vector<Sample> HandlesOf(std::uint64_t handlesPerRound, std::uint64_t keptHandlesPerRound) {
    std::vector<Sample> samples(40);
    for (std::size_t round = 0; round < samples.size(); ++round) {
        samples[round].handles = 100 + handlesPerRound * round;
        samples[round].keptHandles = keptHandlesPerRound * round;
    }
    return samples;
}

TEST(Growth, IgnoresHandlesThatTheLibraryKeepsByDesign) {
    EXPECT_THAT(Grown(GrowthOf(HandlesOf(3, 3))), IsEmpty());
}

TEST(Growth, DetectsOneMoreHandlePerRound) {
    EXPECT_THAT(Grown(GrowthOf(HandlesOf(4, 3))), Contains("handles not kept by design"));
}

TEST(Growth, IgnoresTheWarmUp) {
    std::vector<Sample> samples = HandlesOf(0, 0);
    for (std::size_t round = 10; round < samples.size(); ++round) {
        samples[round] = {1 << 30, 1 << 30, 1000, 0, 10, 10};
    }
    EXPECT_THAT(Grown(GrowthOf(samples)), IsEmpty());
}

}  // namespace
