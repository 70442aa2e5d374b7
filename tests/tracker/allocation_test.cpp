// The tracker's allocations per frame, its memory for a plate that stands for an hour, and allocation failures.

#include <gtest/gtest.h>

#include <array>
#include <boost/make_shared.hpp>
#include <cstdint>
#include <cstdio>
#include <new>
#include <numeric>
#include <string>
#include <vector>

#include "tests/support/allocation_count.h"
#include "tests/tracker/tracker_fixture.h"
#include "tracker/licence_plate_tracker.h"
#include "tracker/track.h"

namespace {

using allocation_count::Count;
using tracker_test::NoLimit;
using tracker_test::Reading;

constexpr std::uint64_t lostTimeout = 3000;

class CountingSink final : public ILicencePlateTrackerResultSink {
  public:
    void OnResult(ILicencePlateTracker*, boost::shared_ptr<LicencePlate>, const std::vector<LicencePlatePtr>&,
                  std::int32_t) override {
        ++results;
    }
    void OnMayReleaseLicencePlate(ILicencePlateTracker*, boost::shared_ptr<LicencePlate>) override { ++releases; }

    std::uint64_t results = 0;
    std::uint64_t releases = 0;
};

class TrackerAllocations : public testing::Test {
  protected:
    Count Frame(const std::vector<LicencePlatePtr>& readings) {
        now += 40;
        for (const LicencePlatePtr& reading : readings) {
            reading->timeStamp = now;
        }
        return allocation_count::Of([&] { tracker.ProcessPlates(readings, now); });
    }

    static std::vector<LicencePlatePtr> FivePlates() {
        std::vector<LicencePlatePtr> readings;
        for (std::uint64_t id = 0; id < 5; ++id) {
            readings.push_back(Reading{id, std::wstring(15, static_cast<wchar_t>(L'A' + id)),
                                       200 + static_cast<std::int32_t>(id) * 200, 300});
        }
        return readings;
    }

    CountingSink sink;
    CLicencePlateTracker tracker{&sink, lostTimeout, NoLimit, NoLimit};
    std::uint64_t now = 1000;
};

TEST_F(TrackerAllocations, AFrameWithoutPlatesAllocatesNothing) {
    EXPECT_EQ(Frame({}).number, 0u);
    Frame(FivePlates());
    for (int frame = 0; frame < 50; ++frame) {
        EXPECT_EQ(Frame({}).number, 0u) << "with five tracks";
    }
    now += lostTimeout;
    EXPECT_EQ(Frame({}).number, 0u) << "that are lost";
    EXPECT_EQ(sink.results, 5u);
}

TEST_F(TrackerAllocations, AFrameAllocatesOneHolderPerPlate) {
    for (int frame = 0; frame < 70; ++frame) {
        Frame(FivePlates());
    }
    std::uint64_t all = 0;
    for (int frame = 0; frame < 30; ++frame) {
        const std::uint64_t number = Frame(FivePlates()).number;
        EXPECT_GE(number, 5u);
        all += number;
    }
    // The five lists of readings grow in at most one of these frames.
    EXPECT_LE(all, 30u * 5 + 5);
}

TEST_F(TrackerAllocations, ComparingTextsAllocatesNothing) {
    CTrack track(0);
    for (const LicencePlatePtr& reading : FivePlates()) {
        track.Add(boost::make_shared<LicencePlateHolder>(reading, nullptr));
    }
    const std::wstring text(64, L'C');
    EXPECT_EQ(allocation_count::Of([&] { EXPECT_LT(track.TextDistanceTo(text), 1.0); }).number, 0u);
}

// Allocation failures.

class IdSink final : public ILicencePlateTrackerResultSink {
  public:
    void OnResult(ILicencePlateTracker*, boost::shared_ptr<LicencePlate> best,
                  const std::vector<LicencePlatePtr>& readings, std::int32_t) override {
        ++results.at(best->id);
        for (const LicencePlatePtr& reading : readings) {
            EXPECT_EQ(releases.at(reading->id), 0) << "a reading that does not belong to the track";
        }
    }
    void OnMayReleaseLicencePlate(ILicencePlateTracker*, boost::shared_ptr<LicencePlate> reading) override {
        ++releases.at(reading->id);
    }

    std::array<int, 10> results = {};
    std::array<int, 10> releases = {};
};

class TrackerOutOfMemory : public testing::TestWithParam<allocation_count::Failing> {};

// A text that was in only one of a track's maps once made every later frame fail at that track.
TEST_P(TrackerOutOfMemory, ReleasesEveryReadingOnceAndGoesOn) {
    const std::vector<LicencePlatePtr> first = {Reading{0, L"ABCDEF", 300, 300, 1000},
                                                Reading{1, L"ZYXWVUTSRQPONML", 900, 300, 1000}};
    const std::vector<LicencePlatePtr> second = {
        Reading{2, L"ABCDEG", 310, 300, 1040}, Reading{3, L"AYXWVUTSRQPONML", 910, 300, 1040},
        Reading{4, L"NEW111", 300, 600, 1040}, Reading{5, L"NEW222222222222", 900, 600, 1040}};
    const std::vector<LicencePlatePtr> third = {Reading{8, L"AYXWVUTSRQPONML", 920, 300, 1080}};
    const std::vector<LicencePlatePtr> later = {Reading{6, L"LATER1", 300, 300, 100000},
                                                Reading{7, L"RETAL2", 900, 300, 100000}};
    std::uint64_t number = 1;
    for (bool hasFailed = true; hasFailed; ++number) {
        const testing::ScopedTrace trace(__FILE__, __LINE__, "allocation " + std::to_string(number));
        IdSink sink;
        {
            CLicencePlateTracker tracker(&sink, lostTimeout, NoLimit, NoLimit);
            tracker.ProcessPlates(first, 1000);
            bool hasThrown = false;
            allocation_count::Failure failure(number, GetParam());
            try {
                tracker.ProcessPlates(second, 1040);
            } catch (const std::bad_alloc&) {
                hasThrown = true;
            }
            hasFailed = failure.End();
            EXPECT_EQ(hasThrown, hasFailed);
            if (hasThrown && number <= 1 + second.size()) {
                // Not every reading has a holder yet, so none was added to a track.
                EXPECT_EQ(std::accumulate(sink.releases.begin(), sink.releases.end(), 0), 4) << "by the frame's end";
            }
            tracker.ProcessPlates(third, 1080);
            tracker.ProcessPlates({}, 50000);
            EXPECT_EQ(sink.results[0] + sink.results[2], 1) << "the earlier track is lost";
            EXPECT_EQ(sink.results[1] + sink.results[3] + sink.results[8], 1) << "and so is this one";
            tracker.ProcessPlates(later, 100000);
            tracker.FinishAll();
        }
        EXPECT_EQ(sink.results[6] + sink.results[7], 2);
        for (std::size_t id = 0; id < 9; ++id) {
            EXPECT_EQ(sink.results[id] + sink.releases[id], 1) << "reading " << id;
        }
    }
    EXPECT_GT(number, 10u);
}

INSTANTIATE_TEST_SUITE_P(Fails, TrackerOutOfMemory,
                         testing::Values(allocation_count::Failing::One, allocation_count::Failing::AllFromThenOn),
                         [](const auto& instance) {
                             return instance.param == allocation_count::Failing::One ? "Once" : "FromThereOn";
                         });

// An hour at 25 frames a second: the cost of a frame and the memory of a reading stay as in the first minute.
TEST_F(TrackerAllocations, CostOfAStandingPlateIsConstantForAnHour) {
    constexpr std::uint64_t frames = 90000;
    constexpr std::uint64_t misreadings = 100;
    constexpr std::uint64_t firstMinute = 1500;
    const auto read = [](std::uint64_t number) {
        Reading reading{number, L"AB1234C\0\0\0\0\0\0\0\0", 640, 360};
        reading.text.resize(15);
        const std::uint64_t misread = number * 7919 % misreadings;
        reading.text[0] = static_cast<wchar_t>(L'A' + misread % 10);
        reading.text[6] = static_cast<wchar_t>(L'A' + misread / 10);
        return LicencePlatePtr(reading);
    };
    const std::int64_t recordBytes = [&] {
        LicencePlatePtr record;
        return allocation_count::Of([&] { record = read(1); }).liveBytes;
    }();

    std::uint64_t number = 0;
    std::uint64_t allocations = 0;
    std::int64_t live = 0;
    std::vector<LicencePlatePtr> readings(1);
    const auto pass = [&](std::uint64_t count) {
        allocations = 0;
        live = 0;
        for (const std::uint64_t end = number + count; number < end; ++number) {
            now += 40;
            const Count record = allocation_count::Of([&] {
                readings.front() = read(number);
                readings.front()->timeStamp = now;
            });
            const Count frame = allocation_count::Of([&] { tracker.ProcessPlates(readings, now); });
            ASSERT_LE(frame.number, number < firstMinute ? 10u : 2u) << "frame " << number;
            allocations += frame.number;
            live += record.liveBytes + frame.liveBytes;
        }
    };
    pass(firstMinute);
    pass(frames - firstMinute);

    // A holder for each reading, and occasionally growth of a list of readings, one list per text.
    constexpr std::uint64_t passed = frames - firstMinute;
    EXPECT_GE(allocations, passed);
    EXPECT_LE(allocations, passed + misreadings * 16);
    // The record and its entry in the list of its text, of which up to half is unused.
    EXPECT_LE(live, static_cast<std::int64_t>(passed) *
                        (recordBytes + 2 * static_cast<std::int64_t>(sizeof(LicencePlatePtr))));
    // All are released except the best of each text, the first, the previous and the last one.
    EXPECT_EQ(sink.results, 1u);
    EXPECT_GE(sink.releases + misreadings + 3, frames);
    RecordProperty("BytesOfARecord", static_cast<int>(recordBytes));
    RecordProperty("BytesOfAReading", static_cast<int>(live / static_cast<std::int64_t>(passed)));
    std::printf("a record takes %d bytes, a reading %d\n", static_cast<int>(recordBytes),
                static_cast<int>(live / static_cast<std::int64_t>(passed)));
}

}  // namespace
