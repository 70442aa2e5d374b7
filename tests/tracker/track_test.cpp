#include "tracker/track.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "tests/tracker/rolling_rows.h"
#include "tests/tracker/tracker_fixture.h"

namespace {

using tracker_test::Reading;

LicencePlateHolderPtr HolderOf(const Reading& reading) {
    return boost::make_shared<LicencePlateHolder>(reading, nullptr);
}

CTrack TrackOf(std::initializer_list<Reading> readings) {
    CTrack track(0);
    for (const Reading& reading : readings) {
        track.Add(HolderOf(reading));
    }
    return track;
}

bool IsAhead(const CTrack& track, std::int32_t x, std::int32_t y) {
    return track.IsAhead(*HolderOf({9, L"X", x, y, 0}));
}

TEST(Track, StartsEmptyWithTheInitialSpeed) {
    const CTrack track(4);
    EXPECT_EQ(track.Count(), 0u);
    EXPECT_EQ(track.Speed(), 128.0);
    EXPECT_FALSE(track.First());
    EXPECT_FALSE(track.Last());
    EXPECT_FALSE(track.Best());
    EXPECT_FALSE(track.IsReported());
    EXPECT_EQ(track.TextDistanceTo(L"A1"), 1.0);
}

TEST(Track, KeepsItsFirstAndLastReading) {
    const CTrack track = TrackOf({{1, L"A", 10, 10, 0}, {2, L"B", 20, 10, 40}, {3, L"A", 30, 10, 80}});
    EXPECT_EQ(track.Count(), 3u);
    EXPECT_EQ(track.First()->reading->id, 1u);
    EXPECT_EQ(track.Last()->reading->id, 3u);
}

TEST(Track, KeepsTheReadingsOfEachTextInOrder) {
    const CTrack track =
        TrackOf({{5, L"A", 10, 10, 0}, {2, L"B", 20, 10, 40}, {3, L"A", 30, 10, 80}, {1, L"A", 40, 10, 120}});
    const auto& readings = track.ReadingsOf(L"A");
    ASSERT_EQ(readings.size(), 3u);
    EXPECT_EQ(readings[0]->id, 5u);
    EXPECT_EQ(readings[1]->id, 3u);
    EXPECT_EQ(readings[2]->id, 1u);
    EXPECT_EQ(track.ReadingsOf(L"B").size(), 1u);
}

TEST(Track, AmongEqualWeightsTheSmallestTextIsBest) {
    const CTrack track = TrackOf({{1, L"B1", 10, 10, 0}, {2, L"AB", 20, 10, 40}, {3, L"A9", 30, 10, 80}});
    EXPECT_EQ(track.Best()->reading->id, 3u);
}

TEST(Track, TheEmptyTextIsTheSmallestOfAll) {
    const CTrack track = TrackOf({{1, L"A", 10, 10, 0}, {2, L"", 20, 10, 40}});
    EXPECT_EQ(track.Best()->reading->id, 2u);
}

TEST(Track, TextsAreOrderedByCodeUnits) {
    const CTrack track = TrackOf({{1, L"a", 10, 10, 0}, {2, L"\u4eac", 10, 10, 0}, {3, L"B", 20, 10, 40}});
    EXPECT_EQ(track.Best()->reading->id, 3u);
}

TEST(Track, TheHighestWeightIsBestRegardlessOfItsText) {
    const CTrack track = TrackOf({{1, L"A", 10, 10, 0, 100}, {2, L"Z", 20, 10, 40, 101}, {3, L"B", 30, 10, 80, -5}});
    EXPECT_EQ(track.Best()->reading->id, 2u);
}

TEST(Track, AmongEqualWeightsOfOneTextTheEarliestStaysBest) {
    const CTrack track = TrackOf(
        {{1, L"A", 10, 10, 0, 50}, {2, L"A", 20, 10, 40, 60}, {3, L"A", 30, 10, 80, 60}, {4, L"A", 40, 10, 120}});
    EXPECT_EQ(track.Best()->reading->id, 4u);
    EXPECT_EQ(TrackOf({{1, L"A", 10, 10, 0, 60}, {2, L"A", 20, 10, 40, 60}}).Best()->reading->id, 1u);
    EXPECT_EQ(
        TrackOf({{1, L"A", 10, 10, 0, 50}, {2, L"A", 20, 10, 40, 60}, {3, L"A", 30, 10, 80, 60}}).Best()->reading->id,
        2u);
}

TEST(Track, TextDistanceIsTheSmallestShareOfTheLongerLength) {
    const CTrack track = TrackOf({{1, L"ABCD", 10, 10, 0}, {2, L"XYZW", 20, 10, 40}});
    EXPECT_EQ(track.TextDistanceTo(L"ABCD"), 0.0);
    EXPECT_EQ(track.TextDistanceTo(L"XYZW"), 0.0);
    EXPECT_EQ(track.TextDistanceTo(L"ABCX"), 0.25);
    EXPECT_EQ(track.TextDistanceTo(L"ABC"), 0.125);
    EXPECT_EQ(track.TextDistanceTo(L"ABCDE"), 0.1);
    EXPECT_EQ(track.TextDistanceTo(L"1234"), 1.0);
    EXPECT_EQ(track.TextDistanceTo(L""), 0.5);
}

TEST(Track, AnEmptyTextNeverMatchesAnEmptyText) {
    const CTrack empty = TrackOf({{1, L"", 10, 10, 0}});
    EXPECT_EQ(empty.TextDistanceTo(L""), 1.0);
    EXPECT_EQ(empty.TextDistanceTo(L"AB"), 0.5);
    const CTrack both = TrackOf({{1, L"", 10, 10, 0}, {2, L"AB", 10, 10, 0}});
    EXPECT_EQ(both.TextDistanceTo(L""), 0.5);
}

TEST(Track, TextDistanceEqualsThatOfAFullSearch) {
    std::mt19937 random(11);
    const auto below = [&](std::size_t limit) {
        return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random);
    };
    for (int round = 0; round < 20000; ++round) {
        const std::size_t longest = round % 100 == 0 ? 70 : 8;
        const auto text = [&] {
            std::wstring made(below(longest + 1), L' ');
            for (wchar_t& unit : made) {
                unit = static_cast<wchar_t>(L'A' + below(3));
            }
            return made;
        };
        CTrack track(0);
        std::vector<std::wstring> known(below(7));
        for (std::wstring& each : known) {
            each = text();
            track.Add(HolderOf({1, each, 10, 10, 0}));
        }
        const std::wstring read = text();
        double smallest = 1.0;
        double smallestUnequal = 1.0;
        for (const std::wstring& each : known) {
            const double share =
                RollingRowsDistance(each, read) / static_cast<double>(std::max(each.size(), read.size()));
            smallest = share < smallest ? share : smallest;
            smallestUnequal = each != read && share < smallestUnequal ? share : smallestUnequal;
        }
        ASSERT_EQ(track.TextDistanceTo(read), smallest) << "round " << round;
        ASSERT_EQ(track.HasText(read), smallest == 0.0) << "round " << round;
        if (!known.empty() && smallestUnequal < 1.0) {
            ASSERT_LE(track.DistanceLowerBound(read), smallestUnequal) << "round " << round;
        }
    }
}

TEST(Track, BestEqualsThatOfAFullSearch) {
    std::mt19937 random(12);
    const auto below = [&](std::size_t limit) {
        return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random);
    };
    for (int round = 0; round < 5000; ++round) {
        CTrack track(0);
        std::map<std::wstring, Reading> heaviest;
        for (std::uint64_t id = 1; id < 12; ++id) {
            const Reading reading{id, std::wstring(below(2), L'A') + static_cast<wchar_t>(L'A' + below(4)),
                                  10, 10,
                                  0,  static_cast<std::int32_t>(below(4))};
            track.Add(HolderOf(reading));
            const auto [entry, isNew] = heaviest.try_emplace(reading.text, reading);
            if (entry->second.weight < reading.weight) {
                entry->second = reading;
            }
            const Reading* best = nullptr;
            for (const auto& [text, each] : heaviest) {
                best = best == nullptr || each.weight > best->weight ? &each : best;
            }
            ASSERT_EQ(track.Best()->reading->id, best->id) << "round " << round << ", reading " << id;
        }
    }
}

TEST(Track, APlateInTheUpperHalfIsAssumedToMoveDown) {
    // The margin is 0.05 x (1280 + 720) = 100 pixels.
    const CTrack track = TrackOf({{1, L"A", 640, 359, 0}});
    EXPECT_FALSE(IsAhead(track, 640, 259));
    EXPECT_TRUE(IsAhead(track, 640, 260));
    EXPECT_FALSE(IsAhead(track, 0, 259));
    EXPECT_TRUE(IsAhead(track, 1280, 260));
    EXPECT_TRUE(IsAhead(track, 640, 5000));
}

TEST(Track, APlateInTheLowerHalfIsAssumedToMoveUp) {
    const CTrack track = TrackOf({{1, L"A", 640, 360, 0}});
    EXPECT_FALSE(IsAhead(track, 640, 460));
    EXPECT_TRUE(IsAhead(track, 640, 459));
    EXPECT_TRUE(IsAhead(track, 640, -5000));
}

TEST(Track, APlateAtTheSideIsAssumedToMoveAwayFromIt) {
    // Left third: x below 1280 / 3 = 426; right third: x above 2560 / 3 = 853. The direction is diagonal and has the
    // length of a diagonal, so the two margins of 100 add up to 200.
    const CTrack left = TrackOf({{1, L"A", 425, 100, 0}});
    EXPECT_FALSE(IsAhead(left, 225, 100));
    EXPECT_TRUE(IsAhead(left, 226, 100));
    const CTrack middle = TrackOf({{1, L"A", 426, 100, 0}});
    EXPECT_TRUE(IsAhead(middle, -5000, 100));
    const CTrack stillMiddle = TrackOf({{1, L"A", 853, 100, 0}});
    EXPECT_TRUE(IsAhead(stillMiddle, 5000, 100));
    const CTrack right = TrackOf({{1, L"A", 854, 100, 0}});
    EXPECT_FALSE(IsAhead(right, 1054, 100));
    EXPECT_TRUE(IsAhead(right, 1053, 100));
}

TEST(Track, TheMarginDependsOnTheCandidatesFrame) {
    const CTrack track = TrackOf({{1, L"A", 640, 300, 0}});
    Reading candidate{2, L"B", 640, 200, 0};
    EXPECT_FALSE(track.IsAhead(*HolderOf(candidate)));
    candidate.frameWidth = 2560;
    candidate.frameHeight = 1440;
    EXPECT_TRUE(track.IsAhead(*HolderOf(candidate)));
    candidate.frameWidth = 0;
    candidate.frameHeight = 0;
    candidate.y = 300;
    EXPECT_FALSE(track.IsAhead(*HolderOf(candidate))) << "exactly at the line is not ahead";
    candidate.y = 301;
    EXPECT_TRUE(track.IsAhead(*HolderOf(candidate)));
}

TEST(Track, MovementChangesTheDirectionByAFifth) {
    const CTrack track = TrackOf({{1, L"A", 640, 100, 0}, {2, L"A", 640, 90, 40}});
    // (0, 0.8 x 1 + 0.2 x -1), normalised: still downwards.
    EXPECT_TRUE(IsAhead(track, 640, -9));
    EXPECT_FALSE(IsAhead(track, 640, -10));

    const CTrack turned = TrackOf({{1, L"A", 640, 100, 0}, {2, L"A", 650, 100, 40}});
    // (0.2, 0.8) / sqrt(0.68): a sideways offset counts by the direction's x component.
    const double norm = std::sqrt(0.2 * 0.2 + 0.8 * 0.8);
    const double limit = 650 - 100 / (0.2 / norm);
    EXPECT_TRUE(IsAhead(turned, static_cast<std::int32_t>(limit) + 1, 100));
    EXPECT_FALSE(IsAhead(turned, static_cast<std::int32_t>(limit) - 1, 100));
}

TEST(Track, AMovementOfTwoPixelsKeepsTheDirection) {
    const CTrack two = TrackOf({{1, L"A", 640, 100, 0}, {2, L"A", 642, 100, 40}});
    EXPECT_TRUE(IsAhead(two, -5000, 100));
    const CTrack three = TrackOf({{1, L"A", 640, 100, 0}, {2, L"A", 643, 100, 40}});
    EXPECT_FALSE(IsAhead(three, -5000, 100));
}

TEST(Track, SpeedIsSmoothedByAFifth) {
    CTrack track = TrackOf({{1, L"A", 100, 100, 1000}});
    EXPECT_EQ(track.Speed(), 128.0);
    track.Add(HolderOf({2, L"A", 130, 140, 1100}));  // 50 pixels in a tenth of a second
    EXPECT_DOUBLE_EQ(track.Speed(), 0.2 * 500.0 + 0.8 * 128.0);
    track.Add(HolderOf({3, L"A", 130, 140, 1200}));
    EXPECT_DOUBLE_EQ(track.Speed(), 0.8 * (0.2 * 500.0 + 0.8 * 128.0));
}

TEST(Track, EqualTimesMakeTheSpeedInfinite) {
    CTrack track = TrackOf({{1, L"A", 100, 100, 1000}, {2, L"A", 130, 140, 1000}});
    EXPECT_EQ(track.Speed(), std::numeric_limits<double>::infinity());
    for (std::uint64_t more = 0; more < 30; ++more) {
        track.Add(HolderOf({3 + more, L"A", 130, 140, 1100 + more * 100}));
    }
    EXPECT_EQ(track.Speed(), std::numeric_limits<double>::infinity());
    EXPECT_FALSE(track.Speed() < 24.0);
}

TEST(Track, EqualTimesAtOnePlaceMakeTheSpeedNan) {
    CTrack track = TrackOf({{1, L"A", 100, 100, 1000}, {2, L"A", 100, 100, 1000}});
    EXPECT_TRUE(std::isnan(track.Speed()));
    track.Add(HolderOf({3, L"A", 100, 100, 1100}));
    EXPECT_TRUE(std::isnan(track.Speed()));
    EXPECT_FALSE(track.Speed() < 24.0);
}

TEST(Track, AnEarlierTimeWrapsToALongInterval) {
    const CTrack track = TrackOf({{1, L"A", 100, 100, 1000}, {2, L"A", 200, 100, 900}});
    EXPECT_DOUBLE_EQ(track.Speed(), 0.2 * (100.0 / (18446744073709551516.0 / 1000.0)) + 0.8 * 128.0);
}

TEST(Track, AVeryLargeMovementChangesTheDirection) {
    const CTrack track = TrackOf({{1, L"A", 640, 100, 0}, {2, L"A", 1000000640, 100, 1000}});
    EXPECT_TRUE(std::isfinite(track.Speed()));
    EXPECT_GT(track.Speed(), 1e8);
    EXPECT_FALSE(IsAhead(track, 640, 100));
}

TEST(Track, OneReadingIsPredictedAtItsPlace) {
    const CTrack track = TrackOf({{1, L"A", 100, 200, 1000}});
    const PredictedPosition position = track.PredictAt(5000);
    EXPECT_EQ(position.x, 100);
    EXPECT_EQ(position.y, 200);
}

TEST(Track, TheLastTwoReadingsAreExtrapolatedLinearly) {
    const CTrack track = TrackOf({{1, L"A", 0, 0, 0}, {2, L"A", 100, 200, 1000}, {3, L"A", 110, 190, 1100}});
    const PredictedPosition position = track.PredictAt(1250);
    EXPECT_EQ(position.x, 125);
    EXPECT_EQ(position.y, 175);
}

TEST(Track, APredictionIsTruncatedTowardZero) {
    const CTrack track = TrackOf({{1, L"A", 10, -10, 0}, {2, L"A", 11, -11, 4}});
    const PredictedPosition position = track.PredictAt(7);  // 11.75, -11.75
    EXPECT_EQ(position.x, 11);
    EXPECT_EQ(position.y, -11);
}

TEST(Track, EqualTimesArePredictedAtTheLastPlace) {
    const CTrack track = TrackOf({{1, L"A", 100, 200, 1000}, {2, L"A", 300, 400, 1000}});
    const PredictedPosition position = track.PredictAt(5000);
    EXPECT_EQ(position.x, 300);
    EXPECT_EQ(position.y, 400);
}

TEST(Track, APredictionBeyond32BitsIsTheSmallestNumber) {
    const CTrack track = TrackOf({{1, L"A", 100, 200, 1000}, {2, L"A", 300, 200, 1001}});
    const PredictedPosition position = track.PredictAt(std::uint64_t{1} << 40);
    EXPECT_EQ(position.x, std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(position.y, 200);
    // A time before the last reading wraps to a huge time after it.
    EXPECT_EQ(track.PredictAt(1000).x, std::numeric_limits<std::int32_t>::min());
}

}  // namespace
