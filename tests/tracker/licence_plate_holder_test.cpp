#include "tracker/licence_plate_holder.h"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>
#include <type_traits>

#include "tests/tracker/tracker_fixture.h"

namespace {

using tracker_test::Call;
using tracker_test::Reading;
using tracker_test::RecordingSink;
using tracker_test::Release;

TEST(LicencePlateHolder, ReleasesAnUnreportedReadingOnce) {
    RecordingSink sink;
    { const LicencePlateHolder holder(Reading{7, L"A1"}, &sink); }
    EXPECT_EQ(sink.calls, std::vector<Call>{Release(7)});
}

TEST(LicencePlateHolder, ReleasesTheSameObject) {
    struct KeepingSink final : ILicencePlateTrackerResultSink {
        void OnResult(ILicencePlateTracker*, boost::shared_ptr<LicencePlate>, const std::vector<LicencePlatePtr>&,
                      std::int32_t) override {}
        void OnMayReleaseLicencePlate(ILicencePlateTracker*, boost::shared_ptr<LicencePlate> reading) override {
            kept = reading;
        }
        LicencePlatePtr kept;
    } keepingSink;
    const LicencePlatePtr reading = Reading{7, L"A1"};
    { const LicencePlateHolder holder(reading, &keepingSink); }
    EXPECT_EQ(keepingSink.kept, reading);
    EXPECT_EQ(reading.use_count(), 2);
}

TEST(LicencePlateHolder, ReleasesWithItsLastReference) {
    RecordingSink sink;
    LicencePlateHolderPtr one = boost::make_shared<LicencePlateHolder>(Reading{7, L"A1"}, &sink);
    LicencePlateHolderPtr other = one;
    one.reset();
    EXPECT_TRUE(sink.calls.empty());
    other.reset();
    EXPECT_EQ(sink.calls, std::vector<Call>{Release(7)});
}

TEST(LicencePlateHolder, DoesNotReleaseAReportedReading) {
    RecordingSink sink;
    {
        LicencePlateHolder holder(Reading{7, L"A1"}, &sink);
        EXPECT_FALSE(holder.released);
        holder.released = true;
    }
    EXPECT_TRUE(sink.calls.empty());
}

TEST(LicencePlateHolder, MayHaveNoReadingOrSink) {
    RecordingSink sink;
    {
        const LicencePlateHolder holder(nullptr, &sink);
        EXPECT_EQ(holder.centreX, 0);
        EXPECT_EQ(holder.centreY, 0);
    }
    EXPECT_TRUE(sink.calls.empty());
    { const LicencePlateHolder holder(Reading{7, L"A1"}, nullptr); }
}

TEST(LicencePlateHolder, CatchesExceptionsOfItsSink) {
    struct FailingSink final : ILicencePlateTrackerResultSink {
        void OnResult(ILicencePlateTracker*, boost::shared_ptr<LicencePlate>, const std::vector<LicencePlatePtr>&,
                      std::int32_t) override {}
        void OnMayReleaseLicencePlate(ILicencePlateTracker*, boost::shared_ptr<LicencePlate>) override {
            ++calls;
            throw std::runtime_error("no");
        }
        int calls = 0;
    } failingSink;
    { const LicencePlateHolder holder(Reading{7, L"A1"}, &failingSink); }
    EXPECT_EQ(failingSink.calls, 1);
}

TEST(LicencePlateHolder, CentreIsThatOfCornersABAndC) {
    LicencePlate plate;
    plate.cornerA = {10, 20};
    plate.cornerB = {31, 1000};
    plate.cornerC = {-4000, 45};
    plate.cornerD = {9999, 9999};
    const LicencePlateHolder holder(boost::make_shared<LicencePlate>(plate), nullptr);
    EXPECT_EQ(holder.centreX, 20);
    EXPECT_EQ(holder.centreY, 32);
}

TEST(LicencePlateHolder, TruncatesANegativeCentreTowardZero) {
    LicencePlate plate;
    plate.cornerA = {-10, -20};
    plate.cornerB = {-31, 0};
    plate.cornerC = {0, -45};
    const LicencePlateHolder holder(boost::make_shared<LicencePlate>(plate), nullptr);
    EXPECT_EQ(holder.centreX, -20);
    EXPECT_EQ(holder.centreY, -32);
}

TEST(LicencePlateHolder, WrapsTheSumOfFarCorners) {
    constexpr std::int32_t highest = std::numeric_limits<std::int32_t>::max();
    constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();
    LicencePlate plate;
    plate.cornerA = {highest, lowest};
    plate.cornerB = {highest, 0};
    plate.cornerC = {0, lowest};
    const LicencePlateHolder holder(boost::make_shared<LicencePlate>(plate), nullptr);
    EXPECT_EQ(holder.centreX, -1);
    EXPECT_EQ(holder.centreY, 0);
}

TEST(LicencePlateHolder, DestructorIsVirtual) {
    EXPECT_TRUE(std::has_virtual_destructor_v<LicencePlateHolder>);
    EXPECT_FALSE(std::has_virtual_destructor_v<ILicencePlateTracker>);
}

}  // namespace
