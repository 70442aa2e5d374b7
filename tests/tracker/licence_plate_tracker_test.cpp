#include "tracker/licence_plate_tracker.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/tracker/tracker_fixture.h"
#include "tracker/track.h"

namespace {

using tracker_test::Call;
using tracker_test::NoLimit;
using tracker_test::Reading;
using tracker_test::RecordingSink;
using tracker_test::Release;
using tracker_test::Result;

using Calls = std::vector<Call>;
using Readings = std::vector<LicencePlatePtr>;

class LicencePlateTracker : public testing::Test {
  protected:
    boost::shared_ptr<CLicencePlateTracker> Make(std::uint64_t lostTimeout = 3000, std::uint64_t maximumAge = NoLimit,
                                                 std::uint64_t readingsToReport = NoLimit) {
        return boost::make_shared<CLicencePlateTracker>(&sink, lostTimeout, maximumAge, readingsToReport);
    }

    static void Frame(CLicencePlateTracker& tracker, std::uint64_t time, std::initializer_list<Reading> readings) {
        Readings plates;
        for (Reading reading : readings) {
            reading.time = time;
            plates.push_back(reading);
        }
        tracker.ProcessPlates(plates, time);
    }

    // Finishes all tracks and returns the readings of each one's best text, oldest track first.
    std::vector<std::vector<std::uint64_t>> Groups(CLicencePlateTracker& tracker) {
        sink.calls.clear();
        tracker.FinishAll();
        std::vector<std::vector<std::uint64_t>> groups;
        for (const Call& call : sink.Results()) {
            groups.push_back(call.readingIds);
        }
        return groups;
    }

    std::size_t TrackCount(CLicencePlateTracker& tracker) { return Groups(tracker).size(); }

    static Calls Sorted(Calls calls) {
        std::sort(calls.begin(), calls.end(), [](const Call& a, const Call& b) { return a.readingId < b.readingId; });
        return calls;
    }

    RecordingSink sink;
};

// --- assigning readings to tracks ---

TEST_F(LicencePlateTracker, AnUnmatchedReadingStartsATrack) {
    const auto tracker = Make();
    Frame(*tracker, 1000, {{1, L"AAAA", 640, 100}, {2, L"BBBB", 640, 600}});
    EXPECT_TRUE(sink.calls.empty());
    EXPECT_EQ(Groups(*tracker), (std::vector<std::vector<std::uint64_t>>{{1}, {2}}));
}

TEST_F(LicencePlateTracker, ReadingsOfOneFrameNeverJoinATrackOfThatFrame) {
    const auto tracker = Make();
    Frame(*tracker, 1000, {{1, L"AAAA", 640, 100}, {2, L"AAAA", 640, 100}});
    EXPECT_EQ(TrackCount(*tracker), 2u);
}

TEST_F(LicencePlateTracker, AnEqualTextJoinsFarFromThePrediction) {
    const auto tracker = Make();
    Frame(*tracker, 1000, {{1, L"AAAA", 640, 100}});
    Frame(*tracker, 1040, {{2, L"AAAA", 1200, 700}});
    EXPECT_EQ(Groups(*tracker), (std::vector<std::vector<std::uint64_t>>{{1, 2}}));
}

TEST_F(LicencePlateTracker, AnEqualTextJoinsEvenBehindTheTrack) {
    const auto tracker = Make();
    Frame(*tracker, 1000, {{1, L"AAAA", 640, 340}});
    Frame(*tracker, 1040, {{2, L"AAAA", 640, 10}});
    EXPECT_EQ(Groups(*tracker), (std::vector<std::vector<std::uint64_t>>{{1, 2}}));
}

// In a text of more than 500 units, one may be missing.
TEST_F(LicencePlateTracker, AnAlmostEqualLongTextJoinsEvenBehindTheTrack) {
    const auto isOneTrack = [this](std::size_t known, std::size_t read) {
        const auto tracker = Make();
        Frame(*tracker, 1000, {{1, std::wstring(known, L'A'), 640, 100}});
        Frame(*tracker, 1100, {{2, std::wstring(read, L'A'), 640, -700}});
        return TrackCount(*tracker) == 1;
    };
    EXPECT_TRUE(isOneTrack(501, 500));
    EXPECT_TRUE(isOneTrack(500, 501));
    EXPECT_TRUE(isOneTrack(2000, 2001));
    EXPECT_TRUE(isOneTrack(2004, 2000));
    EXPECT_FALSE(isOneTrack(2005, 2000));
    EXPECT_FALSE(isOneTrack(500, 499));
}

// By position alone, the first reading is as good as the second one.
TEST_F(LicencePlateTracker, AnAlmostEqualLongTextIsPreferredToTheExpectedPlace) {
    const auto tracker = Make();
    const std::wstring text(600, L'A');
    Frame(*tracker, 1000, {{1, text, 640, 100}});
    Frame(*tracker, 1040, {{2, text, 640, 104}});
    Frame(*tracker, 1080,
          {{3, text.substr(3), 640, 108}, {4, text.substr(2), 640, 108}, {5, text.substr(1), 640, -700}});
    Frame(*tracker, 1120, {{6, text, 640, 112}});
    EXPECT_EQ(Groups(*tracker).front(), (std::vector<std::uint64_t>{5}));
}

TEST_F(LicencePlateTracker, AnEarlierTextOfTheTrackJoinsToo) {
    const auto tracker = Make();
    Frame(*tracker, 1000, {{1, L"AAAA", 640, 100}});
    Frame(*tracker, 1040, {{2, L"AAAB", 640, 110}});
    Frame(*tracker, 1080, {{3, L"AAAA", 100, 700}});
    EXPECT_EQ(Groups(*tracker), (std::vector<std::vector<std::uint64_t>>{{1, 3}}));
}

TEST_F(LicencePlateTracker, AReadingBehindTheTrackIsSkippedByPosition) {
    const auto tracker = Make();
    Frame(*tracker, 1000, {{1, L"AAAA", 640, 300}});  // assumed to move down, margin 100
    Frame(*tracker, 1040, {{2, L"AAAB", 640, 200}});
    EXPECT_EQ(TrackCount(*tracker), 2u);

    Frame(*tracker, 1000, {{1, L"AAAA", 640, 300}});
    Frame(*tracker, 1040, {{2, L"AAAB", 640, 201}});
    EXPECT_EQ(TrackCount(*tracker), 1u);
}

TEST_F(LicencePlateTracker, ATrackOfOneReadingAcceptsNoOtherTextByPosition) {
    const auto tracker = Make();
    Frame(*tracker, 1000, {{1, L"AAAA", 640, 100}});
    Frame(*tracker, 1040, {{2, L"BBBB", 640, 100}});
    EXPECT_EQ(TrackCount(*tracker), 2u);
}

TEST_F(LicencePlateTracker, ATrackOfTwoAcceptsAnyTextAtTheExpectedPlace) {
    const auto tracker = Make();
    Frame(*tracker, 1000, {{1, L"AAAA", 640, 100}});
    Frame(*tracker, 1100, {{2, L"AAAA", 640, 110}});
    // Expected at 640, 120; the plate is 100 wide and 30 high.
    Frame(*tracker, 1200, {{3, L"ZZZZ", 740, 180}});
    EXPECT_EQ(TrackCount(*tracker), 1u);
}

TEST_F(LicencePlateTracker, TheExpectedPlaceIsAPlateWideAndTwoPlatesHigh) {
    const struct {
        std::int32_t x;
        std::int32_t y;
        bool joins;
    } cases[] = {{740, 120, true}, {741, 120, false}, {540, 120, true}, {539, 120, false},
                 {640, 180, true}, {640, 181, false}, {640, 60, true},  {640, 59, false}};
    for (const auto& place : cases) {
        const auto tracker = Make();
        Frame(*tracker, 1000, {{1, L"AAAA", 640, 100}});
        Frame(*tracker, 1100, {{2, L"AAAA", 640, 110}});
        Frame(*tracker, 1200, {{3, L"ZZZZ", place.x, place.y}});
        EXPECT_EQ(TrackCount(*tracker), place.joins ? 1u : 2u) << place.x << ", " << place.y;
    }
}

// Texts of a thousand units, so that distances of 0.65 and 0.35 are whole numbers of replaced units and the next larger
// distance is close.
const std::wstring thousandAs(1000, L'A');
std::wstring Replaced(std::size_t count) {
    return std::wstring(count, L'B') + std::wstring(1000 - count, L'A');
}
// One unit shorter: the distance is larger by half a unit.
std::wstring ReplacedAndShort(std::size_t count) {
    return std::wstring(count, L'B') + std::wstring(999 - count, L'A');
}

TEST_F(LicencePlateTracker, NearbyTextDistanceUpTo65PercentIsAccepted) {
    const struct {
        std::wstring text;
        bool joins;
    } cases[] = {{Replaced(650), true}, {ReplacedAndShort(650), false}, {Replaced(651), false}};
    for (const auto& candidate : cases) {
        const auto tracker = Make();
        Frame(*tracker, 1000, {{1, thousandAs, 640, 100}});
        Frame(*tracker, 1040, {{2, candidate.text, 640, 110}});
        EXPECT_EQ(TrackCount(*tracker), candidate.joins ? 1u : 2u);
    }
}

TEST_F(LicencePlateTracker, FarTextDistanceUpTo35PercentIsAccepted) {
    const struct {
        std::wstring text;
        bool joins;
    } cases[] = {{Replaced(350), true}, {ReplacedAndShort(350), false}, {Replaced(351), false}};
    for (const auto& candidate : cases) {
        const auto tracker = Make();
        Frame(*tracker, 1000, {{1, thousandAs, 640, 100}});
        Frame(*tracker, 1040, {{2, candidate.text, 640, 700}});
        EXPECT_EQ(TrackCount(*tracker), candidate.joins ? 1u : 2u);
    }
}

TEST_F(LicencePlateTracker, FarStartsAt15PercentOfTheFramesSides) {
    // 0.15 x (1280 + 720) = 300 pixels. A text of which half differs joins when near and not when far away.
    for (const bool far : {false, true}) {
        const auto tracker = Make();
        Frame(*tracker, 1000, {{1, thousandAs, 640, 100}});
        Frame(*tracker, 1040, {{2, Replaced(500), 640, far ? 401 : 400}});
        EXPECT_EQ(TrackCount(*tracker), far ? 2u : 1u);
    }
    for (const bool far : {false, true}) {
        const auto tracker = Make();
        Frame(*tracker, 1000, {{1, thousandAs, 640, 100}});
        Frame(*tracker, 1040, {{2, Replaced(500), 640 + 180, far ? 341 : 340}});  // 180, 240: 300 along the diagonal
        EXPECT_EQ(TrackCount(*tracker), far ? 2u : 1u);
    }
}

TEST_F(LicencePlateTracker, OnlyTheClosestListIsUsed) {
    // A near candidate is preferred to a far one with a better text. If the near one is refused, none is accepted.
    const auto tracker = Make();
    Frame(*tracker, 1000, {{1, thousandAs, 640, 100}});
    Frame(*tracker, 1040, {{2, Replaced(50), 640, 700}, {3, Replaced(250), 640, 110}});
    const auto groups = Groups(*tracker);
    ASSERT_EQ(groups.size(), 2u);
    EXPECT_EQ(groups[0], std::vector<std::uint64_t>{1});
    EXPECT_EQ(groups[1], std::vector<std::uint64_t>{2}) << "the far one started its own track";

    Frame(*tracker, 2000, {{1, thousandAs, 640, 100}});
    Frame(*tracker, 2040, {{2, Replaced(50), 640, 700}, {3, Replaced(1000), 640, 110}});
    EXPECT_EQ(TrackCount(*tracker), 3u);
}

TEST_F(LicencePlateTracker, TheClosestTextOfTheListIsChosen) {
    const auto tracker = Make();
    Frame(*tracker, 1000, {{1, thousandAs, 640, 100}});
    Frame(*tracker, 1040, {{2, Replaced(300), 640, 110}, {3, Replaced(200), 640, 120}, {4, Replaced(250), 640, 105}});
    Frame(*tracker, 1041, {{5, Replaced(200), 640, 120}});  // an equal text joins the oldest track that has it
    const auto groups = Groups(*tracker);
    ASSERT_EQ(groups.size(), 3u);
    EXPECT_EQ(groups[1], std::vector<std::uint64_t>{2});
    EXPECT_EQ(groups[2], std::vector<std::uint64_t>{4});
}

TEST_F(LicencePlateTracker, OfEquallyDistantReadingsTheEarlierOneIsChosen) {
    for (const bool swapped : {false, true}) {
        const auto tracker = Make();
        Frame(*tracker, 1000, {{1, L"AAAA", 640, 100}});
        if (swapped) {
            Frame(*tracker, 1040, {{3, L"AAAC", 640, 110}, {2, L"AAAB", 640, 120}});
        } else {
            Frame(*tracker, 1040, {{2, L"AAAB", 640, 120}, {3, L"AAAC", 640, 110}});
        }
        const auto groups = Groups(*tracker);
        ASSERT_EQ(groups.size(), 2u);
        EXPECT_EQ(groups[1], std::vector<std::uint64_t>{swapped ? 2u : 3u}) << "what was left over";
    }
}

TEST_F(LicencePlateTracker, TheOlderTrackChoosesFirst) {
    const auto tracker = Make();
    Frame(*tracker, 1000, {{1, L"AAAA", 640, 100}, {2, L"AAAA", 640, 100}});
    Frame(*tracker, 1040, {{3, L"AAAA", 640, 110}});
    EXPECT_EQ(Groups(*tracker), (std::vector<std::vector<std::uint64_t>>{{1, 3}, {2}}));
}

TEST_F(LicencePlateTracker, TheOlderTrackChoosesEvenWhatFitsTheYoungerBetter) {
    const auto tracker = Make();
    Frame(*tracker, 1000, {{1, L"AAAA", 640, 100}, {2, L"AABB", 640, 100}});
    Frame(*tracker, 1040, {{3, L"AABB", 640, 110}});
    const auto groups = Groups(*tracker);
    ASSERT_EQ(groups.size(), 2u);
    EXPECT_EQ(groups[1], std::vector<std::uint64_t>{2}) << "the younger track got nothing";
}

TEST_F(LicencePlateTracker, ATrackAcceptsOneReadingPerFrame) {
    const auto tracker = Make();
    Frame(*tracker, 1000, {{1, L"AAAA", 640, 100}});
    Frame(*tracker, 1040, {{2, L"AAAA", 640, 110}, {3, L"AAAA", 640, 110}});
    EXPECT_EQ(Groups(*tracker), (std::vector<std::vector<std::uint64_t>>{{1, 2}, {3}}));
}

TEST_F(LicencePlateTracker, AReadingPassedTwiceIsUsedOnce) {
    const auto tracker = Make();
    Frame(*tracker, 1000, {{1, L"AAAA", 640, 100}});
    const LicencePlatePtr twice = Reading{2, L"AAAA", 640, 110, 1040};
    tracker->ProcessPlates({twice, Reading{3, L"ZZZZ", 100, 700, 1040}, twice}, 1040);
    EXPECT_EQ(sink.Take(), Calls{Release(2)}) << "its second occurrence";
    EXPECT_EQ(Groups(*tracker), (std::vector<std::vector<std::uint64_t>>{{1, 2}, {3}}));
}

TEST_F(LicencePlateTracker, TwoEmptyTextsAreNotEqual) {
    const auto tracker = Make();
    Frame(*tracker, 1000, {{1, L"", 640, 100}});
    Frame(*tracker, 1040, {{2, L"", 640, 100}});
    EXPECT_EQ(TrackCount(*tracker), 2u);
}

TEST_F(LicencePlateTracker, AnOverflowedNegativeDistanceIsNotFar) {
    // 50000 squared is negative in 32 bits and has no root; 40000 squared is positive. A text of which half differs
    // shows which of the two distances counts as far.
    for (const std::int32_t away : {40000, 50000}) {
        const auto tracker = Make();
        Frame(*tracker, 1000, {{1, thousandAs, 640, 100}});
        Frame(*tracker, 1040, {{2, Replaced(500), 640, 100 + away}});
        EXPECT_EQ(TrackCount(*tracker), away == 50000 ? 1u : 2u) << away;
    }
}

TEST_F(LicencePlateTracker, NullReadingsAndEmptyFramesAreAccepted) {
    const auto tracker = Make();
    tracker->ProcessPlates({}, 0);
    tracker->ProcessPlates({nullptr}, 1000);
    tracker->ProcessPlates({nullptr, Reading{1, L"AAAA", 640, 100, 1040}, nullptr}, 1040);
    tracker->ProcessPlates({nullptr, Reading{2, L"AAAA", 640, 110, 1080}}, 1080);
    EXPECT_TRUE(sink.calls.empty());
    EXPECT_EQ(Groups(*tracker), (std::vector<std::vector<std::uint64_t>>{{1, 2}}));
}

// --- reporting tracks ---

TEST_F(LicencePlateTracker, EnoughReadingsCompleteATrackAndItStays) {
    const auto tracker = Make(3000, NoLimit, 3);
    Frame(*tracker, 1000, {{1, L"AAAA", 640, 100}});
    Frame(*tracker, 1100, {{2, L"AAAA", 640, 110}});
    EXPECT_TRUE(sink.calls.empty());
    Frame(*tracker, 1200, {{3, L"AAAA", 640, 120}});
    EXPECT_EQ(sink.Take(), Calls{Result(1, 3, {1, 2, 3})});
    EXPECT_EQ(sink.lastTracker, tracker.get());
    Frame(*tracker, 1300, {{4, L"AAAA", 640, 130}});
    EXPECT_EQ(sink.Take(), Calls{Release(2)}) << "it joined the remaining track, which is not reported again";
    tracker->FinishAll();
    EXPECT_TRUE(sink.Results().empty());
}

TEST_F(LicencePlateTracker, OneReadingCanBeEnough) {
    const auto tracker = Make(3000, NoLimit, 1);
    Frame(*tracker, 1000, {{1, L"AAAA", 640, 100}});
    EXPECT_EQ(sink.Take(), Calls{Result(1, 3, {1})});
}

TEST_F(LicencePlateTracker, AgeCompletesATrackAtTheLimit) {
    const auto tracker = Make(3000, 500, NoLimit);
    Frame(*tracker, 1000, {{1, L"AAAA", 640, 100}});
    Frame(*tracker, 1499, {});
    EXPECT_TRUE(sink.calls.empty());
    Frame(*tracker, 1500, {});
    EXPECT_EQ(sink.Take(), Calls{Result(1, 3, {1})});
}

TEST_F(LicencePlateTracker, ATrackIsLostAfterTheTimeoutWithoutAnyReading) {
    const auto tracker = Make();
    Frame(*tracker, 1000, {{1, L"AAAA", 640, 100}});
    Frame(*tracker, 4000, {});
    EXPECT_TRUE(sink.calls.empty()) << "exactly the time-out is not longer";
    Frame(*tracker, 4001, {});
    EXPECT_EQ(sink.Take(), Calls{Result(1, 2, {1})});
    EXPECT_EQ(TrackCount(*tracker), 0u);
}

TEST_F(LicencePlateTracker, AReportedTrackIsRemovedWithoutAReportWhenLost) {
    const auto tracker = Make(3000, NoLimit, 2);
    Frame(*tracker, 1000, {{1, L"AAAA", 640, 100}});
    Frame(*tracker, 1100, {{2, L"AAAA", 640, 110}});
    EXPECT_EQ(sink.Take(), Calls{Result(1, 3, {1, 2})});
    Frame(*tracker, 4101, {});
    EXPECT_EQ(sink.Take(), Calls{Release(2)});
    Frame(*tracker, 4200, {{3, L"AAAA", 640, 110}});
    Frame(*tracker, 4300, {{4, L"AAAA", 640, 110}});
    EXPECT_EQ(sink.Take(), Calls{Result(3, 3, {3, 4})}) << "a separate track";
}

TEST_F(LicencePlateTracker, CompletenessIsReportedBeforeLoss) {
    const auto tracker = Make(3000, 3001, NoLimit);
    Frame(*tracker, 1000, {{1, L"AAAA", 640, 100}});
    Frame(*tracker, 4001, {});
    EXPECT_EQ(sink.Take(), Calls{Result(1, 3, {1})});
    EXPECT_EQ(TrackCount(*tracker), 0u);
}

TEST_F(LicencePlateTracker, SetLostTimeoutAppliesToExistingTracks) {
    const auto tracker = Make();
    Frame(*tracker, 1000, {{1, L"AAAA", 640, 100}});
    tracker->SetLostTimeout(100);
    EXPECT_TRUE(sink.calls.empty()) << "nothing happens before the next frame";
    Frame(*tracker, 1100, {});
    EXPECT_TRUE(sink.calls.empty());
    Frame(*tracker, 1101, {});
    EXPECT_EQ(sink.Take(), Calls{Result(1, 2, {1})});
    tracker->SetLostTimeout(10000);
    Frame(*tracker, 2000, {{2, L"AAAA", 640, 100}});
    Frame(*tracker, 12000, {});
    EXPECT_TRUE(sink.calls.empty());
}

TEST_F(LicencePlateTracker, ATrackPredictedAboveTheEnlargedFrameIsReportedAndRemoved) {
    const auto tracker = Make();
    Frame(*tracker, 1000, {{1, L"AAAA", 640, 200}});
    Frame(*tracker, 1100, {{2, L"AAAA", 640, 100}});
    Frame(*tracker, 1272, {});  // predicted at -72, a tenth of the height
    EXPECT_TRUE(sink.calls.empty());
    Frame(*tracker, 1273, {});
    EXPECT_EQ(sink.Take(), (Calls{Result(1, 1, {1, 2}), Release(2)}));
    EXPECT_EQ(TrackCount(*tracker), 0u);
}

// With 1280 columns and 480 rows, the limits are exact in floating point.
TEST_F(LicencePlateTracker, EverySideOfTheEnlargedFrameIsALimit) {
    const struct {
        std::int32_t stepX;
        std::int32_t stepY;
        std::uint64_t last;  // the last millisecond at which it is still inside
    } cases[] = {
        {-100, 0, 768},  // 640 - 768 = -128
        {100, 0, 768},   // 640 + 768 = 1408
        {0, -100, 288},  // 240 - 288 = -48
        {0, 100, 288},   // 240 + 288 = 528
    };
    for (const auto& way : cases) {
        const auto tracker = Make();
        Frame(*tracker, 1000, {{1, L"AAAA", 640 - way.stepX, 240 - way.stepY, 0, 100, 1280, 480}});
        Frame(*tracker, 1100, {{2, L"AAAA", 640, 240, 0, 100, 1280, 480}});
        Frame(*tracker, 1100 + way.last, {});
        EXPECT_TRUE(sink.calls.empty()) << way.stepX << ", " << way.stepY;
        Frame(*tracker, 1100 + way.last + 1, {});
        ASSERT_EQ(sink.Results(), Calls{Result(1, 1, {1, 2})}) << way.stepX << ", " << way.stepY;
        sink.calls.clear();
    }
}

TEST_F(LicencePlateTracker, TheBestReadingsFrameLimitsTheView) {
    for (const std::uint32_t height : {720u, 7200u}) {
        const auto tracker = Make();
        Frame(*tracker, 1000, {{1, L"AAAA", 640, 200, 0, 100, 1280, height}});
        Frame(*tracker, 1100, {{2, L"AAAA", 640, 100}});
        Frame(*tracker, 1273, {});
        EXPECT_EQ(sink.Results().size(), height == 720 ? 1u : 0u);
        sink.calls.clear();
    }
}

TEST_F(LicencePlateTracker, OneReadingCannotLeaveTheView) {
    const auto tracker = Make();
    Frame(*tracker, 1000, {{1, L"AAAA", 640, -500}});
    Frame(*tracker, 1100, {});
    EXPECT_TRUE(sink.calls.empty());
}

TEST_F(LicencePlateTracker, APlateOutsideLeavesOnlyAtALaterTime) {
    const auto tracker = Make();
    Frame(*tracker, 1000, {{1, L"AAAA", 640, 0}});
    Frame(*tracker, 1100, {{2, L"AAAA", 640, -300}});
    EXPECT_TRUE(sink.calls.empty()) << "the frame's time is the last reading's";
    Frame(*tracker, 1101, {});
    EXPECT_EQ(sink.Results(), Calls{Result(1, 1, {1, 2})});
}

TEST_F(LicencePlateTracker, AStandingPlateIsReportedAtItsNinthReadingAndStays) {
    const auto tracker = Make();
    for (std::uint64_t id = 1; id <= 8; ++id) {
        Frame(*tracker, 1000 + id * 100, {{id, L"AAAA", 640, 100}});
        EXPECT_TRUE(sink.Results().empty()) << id;
    }
    sink.calls.clear();
    Frame(*tracker, 1900, {{9, L"AAAA", 640, 100}});
    EXPECT_EQ(sink.Take(), (Calls{Release(7), Result(1, 0, {1, 2, 3, 4, 5, 6, 7, 8, 9})}));
    Frame(*tracker, 2000, {{10, L"AAAA", 640, 100}});
    EXPECT_EQ(sink.Take(), Calls{Release(8)});
    tracker->FinishAll();
    EXPECT_EQ(Sorted(sink.Take()), (Calls{Release(9), Release(10)})) << "reported once, by reason 0";
}

// Seven steps without movement leave 26.84 pixels per second, which the eighth step reduces to exactly 24.
TEST_F(LicencePlateTracker, Exactly24PixelsPerSecondIsNotSlow) {
    const auto tracker = Make();
    CTrack track(0);
    for (std::uint64_t id = 1; id <= 8; ++id) {
        const Reading reading{id, L"AAAA", 640, 100, 1000 + id * 100};
        tracker->ProcessPlates({reading}, reading.time);
        track.Add(boost::make_shared<LicencePlateHolder>(reading, nullptr));
    }
    const Reading step{9, L"AAAA", 640 + 19636924, 100, 1800 + 1555299199};
    track.Add(boost::make_shared<LicencePlateHolder>(step, nullptr));
    ASSERT_EQ(track.Speed(), 24.0);
    tracker->ProcessPlates({step}, step.time);
    EXPECT_TRUE(sink.Results().empty());
    Frame(*tracker, step.time + 100, {{10, L"AAAA", step.x, 100}});
    EXPECT_EQ(sink.Results(), Calls{Result(1, 0, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10})});
}

TEST_F(LicencePlateTracker, WithoutLimitsAMovingPlateIsNotReported) {
    const auto tracker = Make();
    for (std::uint64_t id = 1; id <= 60; ++id) {
        Frame(*tracker, 1000 + id * 40, {{id, L"AAAA", 640, static_cast<std::int32_t>(id) * 10}});
    }
    EXPECT_TRUE(sink.Results().empty());
    sink.calls.clear();
    tracker->FinishAll();
    ASSERT_EQ(sink.Results().size(), 1u);
    EXPECT_EQ(sink.Results()[0].reason, 3);
    EXPECT_EQ(sink.Results()[0].readingIds.size(), 60u);
}

TEST_F(LicencePlateTracker, NanSpeedIsNeverSlow) {
    const auto tracker = Make();
    Frame(*tracker, 1000, {{1, L"AAAA", 640, 100}});
    Frame(*tracker, 1000, {{2, L"AAAA", 640, 100}});
    for (std::uint64_t id = 3; id <= 40; ++id) {
        Frame(*tracker, 1000 + id * 100, {{id, L"AAAA", 640, 100}});
    }
    EXPECT_TRUE(sink.Results().empty());
}

TEST_F(LicencePlateTracker, InfiniteSpeedIsNeverSlow) {
    const auto tracker = Make();
    Frame(*tracker, 1000, {{1, L"AAAA", 640, 100}});
    Frame(*tracker, 1000, {{2, L"AAAA", 640, 120}});
    for (std::uint64_t id = 3; id <= 40; ++id) {
        Frame(*tracker, 1000 + id * 100, {{id, L"AAAA", 640, 120}});
    }
    EXPECT_TRUE(sink.Results().empty());
}

TEST_F(LicencePlateTracker, AFrameOlderThanTheLastReadingEndsTheTrack) {
    constexpr std::uint64_t never = std::numeric_limits<std::uint64_t>::max();
    {
        const auto tracker = Make(3000, never, NoLimit);
        Frame(*tracker, 5000, {{1, L"AAAA", 640, 100}});
        Frame(*tracker, 4990, {});
        EXPECT_EQ(sink.Take(), Calls{Result(1, 2, {1})});
        EXPECT_EQ(TrackCount(*tracker), 0u);
    }
    {
        // Its age wraps as well as its silence, and is checked first.
        const auto tracker = Make();
        Frame(*tracker, 5000, {{1, L"AAAA", 640, 100}});
        Frame(*tracker, 4990, {});
        EXPECT_EQ(sink.Take(), Calls{Result(1, 3, {1})});
        EXPECT_EQ(TrackCount(*tracker), 0u);
    }
}

TEST_F(LicencePlateTracker, AReadingNewerThanItsFrameEndsItsTrack) {
    const auto tracker = Make();
    tracker->ProcessPlates({Reading{1, L"AAAA", 640, 100, 5000}, Reading{2, L"AAAA", 640, 100, 1000}}, 4000);
    EXPECT_EQ(sink.Take(), Calls{Result(1, 3, {1})});
    EXPECT_EQ(Groups(*tracker), (std::vector<std::vector<std::uint64_t>>{{2}}));
}

TEST_F(LicencePlateTracker, RemovingATrackDoesNotSkipTheNext) {
    const auto tracker = Make();
    Frame(*tracker, 1000, {{1, L"AAAA", 640, 100}, {2, L"BBBB", 640, 600}, {3, L"CCCC", 100, 600}});
    Frame(*tracker, 4001, {{4, L"CCCC", 100, 590}});
    EXPECT_EQ(sink.Take(), (Calls{Result(1, 2, {1}), Result(2, 2, {2})}));
    EXPECT_EQ(Groups(*tracker), (std::vector<std::vector<std::uint64_t>>{{3, 4}}));
}

// --- reported and released readings ---

TEST_F(LicencePlateTracker, TheBestReadingIsReportedWithOnlyItsTextsReadings) {
    const auto tracker = Make();
    Frame(*tracker, 1000, {{1, L"ABCD", 640, 100}});
    Frame(*tracker, 1100, {{2, L"ABCC", 640, 110}});
    Frame(*tracker, 1200, {{3, L"ABCD", 640, 120}});
    Frame(*tracker, 1300, {{4, L"ABCC", 640, 130}});
    sink.calls.clear();
    tracker->FinishAll();
    EXPECT_EQ(sink.Results(), Calls{Result(2, 3, {2, 4})});
}

TEST_F(LicencePlateTracker, HigherWeightIsPreferredToSmallerText) {
    const auto tracker = Make();
    Frame(*tracker, 1000, {{1, L"ABCC", 640, 100, 0, 100}});
    Frame(*tracker, 1100, {{2, L"ABCD", 640, 110, 0, 101}});
    tracker->FinishAll();
    EXPECT_EQ(sink.Results(), Calls{Result(2, 3, {2})});
}

TEST_F(LicencePlateTracker, AnUnusedReadingIsReleasedAtOnce) {
    const auto tracker = Make();
    Frame(*tracker, 1000, {{1, L"AAAA", 640, 100}});
    Frame(*tracker, 1100, {{2, L"AAAA", 640, 110}});
    Frame(*tracker, 1200, {{3, L"AAAA", 640, 120}});
    EXPECT_TRUE(sink.calls.empty());
    Frame(*tracker, 1300, {{4, L"AAAA", 640, 130}});
    EXPECT_EQ(sink.Take(), Calls{Release(2)});
    tracker->FinishAll();
    const Calls calls = sink.Take();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0], Result(1, 3, {1, 2, 3, 4}));
    EXPECT_EQ(Sorted({calls.begin() + 1, calls.end()}), (Calls{Release(3), Release(4)}));
}

TEST_F(LicencePlateTracker, AReplacedBestReadingIsReleased) {
    const auto tracker = Make();
    Frame(*tracker, 1000, {{1, L"ABCD", 640, 100}});
    Frame(*tracker, 1100, {{2, L"ABCC", 640, 110, 0, 50}});
    Frame(*tracker, 1200, {{3, L"ABCD", 640, 120}});
    Frame(*tracker, 1300, {{4, L"ABCD", 640, 130}});
    EXPECT_TRUE(sink.calls.empty()) << "the second is the best of its text";
    Frame(*tracker, 1400, {{5, L"ABCC", 640, 140, 0, 60}});
    EXPECT_EQ(sink.Take(), (Calls{Release(3), Release(2)}));
}

TEST_F(LicencePlateTracker, FinishAllReportsAndReleasesTheOldestFirst) {
    const auto tracker = Make();
    Frame(*tracker, 1000, {{1, L"AAAA", 640, 100}, {2, L"BBBB", 640, 600}});
    Frame(*tracker, 1100, {{3, L"AAAA", 640, 110}, {4, L"BBBB", 640, 590}});
    tracker->FinishAll();
    EXPECT_EQ(sink.Take(), (Calls{Result(1, 3, {1, 3}), Release(3), Result(2, 3, {2, 4}), Release(4)}));
    tracker->FinishAll();
    EXPECT_TRUE(sink.calls.empty());
}

TEST_F(LicencePlateTracker, WorksAfterFinishAll) {
    const auto tracker = Make();
    Frame(*tracker, 1000, {{1, L"AAAA", 640, 100}});
    tracker->FinishAll();
    sink.calls.clear();
    Frame(*tracker, 1100, {{2, L"AAAA", 640, 110}});
    EXPECT_EQ(Groups(*tracker), (std::vector<std::vector<std::uint64_t>>{{2}}));
}

TEST_F(LicencePlateTracker, DestructorReleasesAllReadingsWithoutReports) {
    {
        const auto tracker = Make();
        Frame(*tracker, 1000, {{1, L"AAAA", 640, 100}, {2, L"BBBB", 640, 600}});
        Frame(*tracker, 1100, {{3, L"AAAA", 640, 110}});
        EXPECT_TRUE(sink.calls.empty());
    }
    EXPECT_EQ(Sorted(sink.Take()), (Calls{Release(1), Release(2), Release(3)}));
}

TEST_F(LicencePlateTracker, CanBeDestroyedThroughItsInterface) {
    boost::shared_ptr<ILicencePlateTracker> tracker = Make();
    tracker->ProcessPlates({Reading{1, L"AAAA", 640, 100, 1000}}, 1000);
    tracker.reset();
    EXPECT_EQ(sink.Take(), Calls{Release(1)});
}

TEST_F(LicencePlateTracker, EveryReadingIsReportedOrReleasedOnce) {
    std::set<std::uint64_t> passedIn;
    {
        const auto tracker = Make(300, 900, 5);
        std::uint64_t id = 1;
        for (std::uint64_t frame = 0; frame < 200; ++frame) {
            Readings readings;
            for (const std::int32_t lane : {100, 640, 1200}) {
                if ((frame + static_cast<std::uint64_t>(lane)) % 7 != 0) {
                    const auto y = static_cast<std::int32_t>(frame % 24) * 30;
                    const std::wstring text = L"LANE" + std::to_wstring(lane + static_cast<std::int32_t>(frame % 3));
                    readings.push_back(Reading{id, text, lane, y, 1000 + frame * 40});
                    passedIn.insert(id++);
                }
            }
            tracker->ProcessPlates(readings, 1000 + frame * 40);
        }
    }
    std::multiset<std::uint64_t> seen;
    for (const Call& call : sink.calls) {
        seen.insert(call.readingId);
    }
    EXPECT_GT(sink.Results().size(), 3u);
    EXPECT_EQ(std::vector<std::uint64_t>(seen.begin(), seen.end()),
              std::vector<std::uint64_t>(passedIn.begin(), passedIn.end()));
}

TEST_F(LicencePlateTracker, WorksWithoutASink) {
    CLicencePlateTracker tracker(nullptr, 100, NoLimit, 2);
    Frame(tracker, 1000, {{1, L"AAAA", 640, 100}});
    Frame(tracker, 1050, {{2, L"AAAA", 640, 110}});
    Frame(tracker, 2000, {});
    Frame(tracker, 2050, {{3, L"AAAA", 640, 110}});
    tracker.FinishAll();
    EXPECT_TRUE(sink.calls.empty());
}

TEST_F(LicencePlateTracker, ReportedReadingsAreAlive) {
    struct CheckingSink final : ILicencePlateTrackerResultSink {
        void OnResult(ILicencePlateTracker*, boost::shared_ptr<LicencePlate> best, const Readings& readings,
                      std::int32_t) override {
            EXPECT_EQ(best, readings.front());
            for (const LicencePlatePtr& reading : readings) {
                total += reading->text.size();
            }
        }
        void OnMayReleaseLicencePlate(ILicencePlateTracker*, boost::shared_ptr<LicencePlate>) override {}
        std::size_t total = 0;
    } checkingSink;
    CLicencePlateTracker tracker(&checkingSink, 3000, NoLimit, NoLimit);
    for (std::uint64_t id = 1; id <= 10; ++id) {
        Frame(tracker, 1000 + id * 40, {{id, L"AAAA", 640, static_cast<std::int32_t>(id) * 10}});
    }
    tracker.FinishAll();
    EXPECT_EQ(checkingSink.total, 40u) << "released readings are reported too";
}

// --- a sink that throws ---

class ThrowingSink final : public ILicencePlateTrackerResultSink {
  public:
    void OnResult(ILicencePlateTracker* tracker, boost::shared_ptr<LicencePlate> bestReading,
                  const std::vector<LicencePlatePtr>& readings, std::int32_t reason) override {
        recorded.OnResult(tracker, bestReading, readings, reason);
        if (bestReading->text == L"AAAA") {
            throw std::runtime_error("no room");
        }
        if (bestReading->text == L"BBBB") {
            throw 42;
        }
    }
    void OnMayReleaseLicencePlate(ILicencePlateTracker* tracker, boost::shared_ptr<LicencePlate> reading) override {
        recorded.OnMayReleaseLicencePlate(tracker, reading);
    }

    RecordingSink recorded;
};

TEST(ThrowingReport, CountsAsReportedAndDoesNotAffectOtherTracks) {
    ThrowingSink sink;
    CLicencePlateTracker tracker(&sink, 3000, NoLimit, NoLimit);
    Readings plates;
    for (const auto& [id, text] : {std::pair{1u, L"AAAA"}, {2u, L"BBBB"}, {3u, L"CCCC"}}) {
        plates.push_back(Reading{id, text, 100 + 300 * static_cast<std::int32_t>(id), 300, 1000});
    }
    tracker.ProcessPlates(plates, 1000);
    EXPECT_NO_THROW(tracker.ProcessPlates({}, 4001));
    EXPECT_EQ(sink.recorded.Take(), (Calls{Result(1, 2, {1}), Result(2, 2, {2}), Result(3, 2, {3})}));
    tracker.ProcessPlates({}, 5000);
    tracker.FinishAll();
    EXPECT_TRUE(sink.recorded.Take().empty()) << "each is reported once and not released";
}

TEST(ThrowingReport, IsNotRepeatedForARemainingTrack) {
    ThrowingSink sink;
    CLicencePlateTracker tracker(&sink, 3000, NoLimit, 1);
    for (std::uint64_t id = 1; id <= 5; ++id) {
        const std::uint64_t time = 1000 + 40 * id;
        EXPECT_NO_THROW(tracker.ProcessPlates({Reading{id, L"AAAA", 640, 300, time}}, time));
    }
    EXPECT_EQ(sink.recorded.Results(), (Calls{Result(1, 3, {1})}));
}

TEST(ThrowingReport, DoesNotEndFinishAll) {
    ThrowingSink sink;
    CLicencePlateTracker tracker(&sink, 3000, NoLimit, NoLimit);
    tracker.ProcessPlates({Reading{1, L"AAAA", 100, 300, 1000}, Reading{2, L"CCCC", 900, 300, 1000}}, 1000);
    EXPECT_NO_THROW(tracker.FinishAll());
    EXPECT_EQ(sink.recorded.Take(), (Calls{Result(1, 3, {1}), Result(2, 3, {2})}));
}

}  // namespace
