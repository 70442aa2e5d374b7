#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <boost/make_shared.hpp>
#include <cmath>
#include <functional>
#include <map>
#include <numeric>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "tools/clip/light.h"
#include "tools/clip/random.h"
#include "tools/clip/readings.h"
#include "tools/clip/traffic.h"
#include "tracker/licence_plate_tracker.h"

namespace {

using namespace road_clip;

constexpr int width = 1280;
constexpr int height = 720;
constexpr int framesPerSecond = 25;

struct Clip {
    std::vector<Vehicle> vehicles;
    PlateTracks plates;
    std::vector<std::vector<Reading>> readings;

    explicit Clip(std::uint64_t seed, double seconds = roundSeconds) : vehicles(MakeTraffic(seed, seconds)) {
        const Camera camera(width, height);
        for (int frame = 0; frame < seconds * framesPerSecond; ++frame) {
            plates.push_back(ViewPlates(vehicles, static_cast<double>(frame) / framesPerSecond, camera, width, height));
        }
        readings = MakeReadings(seed, vehicles, plates);
    }

    std::size_t ReadingsOf(std::size_t vehicle) const {
        std::size_t count = 0;
        for (const auto& frame : readings) {
            count += static_cast<std::size_t>(
                std::count_if(frame.begin(), frame.end(), [&](const Reading& r) { return r.vehicle == vehicle; }));
        }
        return count;
    }

    std::vector<std::size_t> FramesOf(std::size_t vehicle) const {
        std::vector<std::size_t> frames;
        for (std::size_t frame = 0; frame < plates.size(); ++frame) {
            if (plates[frame][vehicle] && plates[frame][vehicle]->readable) {
                frames.push_back(frame);
            }
        }
        return frames;
    }

    std::size_t VehicleWith(Manner manner) const {
        return static_cast<std::size_t>(
            std::find_if(vehicles.begin(), vehicles.end(), [&](const Vehicle& v) { return v.manner == manner; }) -
            vehicles.begin());
    }
};

class Events : public ILicencePlateTrackerResultSink {
  public:
    void OnResult(ILicencePlateTracker*, boost::shared_ptr<LicencePlate> best, const std::vector<LicencePlatePtr>&,
                  std::int32_t reason) override {
        const std::string text(best->text.begin(), std::find(best->text.begin(), best->text.end(), L'\0'));
        texts.push_back(text);
        reasons[text] = reason;
        vehicles.push_back(static_cast<std::size_t>(best->id));
    }
    void OnMayReleaseLicencePlate(ILicencePlateTracker*, boost::shared_ptr<LicencePlate>) override {}

    std::vector<std::string> texts;
    std::map<std::string, std::int32_t> reasons;
    std::vector<std::size_t> vehicles;
};

/// Returns the events that the tracker reports for the readings, frame by frame.
Events Track(const std::vector<std::vector<Reading>>& readings) {
    Events events;
    constexpr std::uint64_t never = 2147483647;
    CLicencePlateTracker tracker(&events, 3000, never, never);
    for (std::size_t frame = 0; frame < readings.size(); ++frame) {
        const std::uint64_t time = 1'700'000'000'000 + frame * 1000 / framesPerSecond;
        std::vector<LicencePlatePtr> plates;
        for (const Reading& reading : readings[frame]) {
            const auto plate = boost::make_shared<LicencePlate>();
            plate->timeStamp = time;
            plate->frameWidth = width;
            plate->frameHeight = height;
            plate->cornerA = {reading.corners[0][0], reading.corners[0][1]};
            plate->cornerB = {reading.corners[2][0], reading.corners[2][1]};
            plate->cornerC = {reading.corners[1][0], reading.corners[1][1]};
            plate->cornerD = {reading.corners[3][0], reading.corners[3][1]};
            plate->weight = 100;
            plate->id = reading.vehicle;
            // As the detector converts the engine's 16 bytes: padded with NULs, without the last one.
            plate->text.assign(reading.text.begin(), reading.text.end());
            plate->text.resize(15, L'\0');
            plates.push_back(plate);
        }
        tracker.ProcessPlates(plates, time);
    }
    return events;
}

Events Track(const Clip& clip) {
    return Track(clip.readings);
}

/// Returns the readings of an engine that sees each plate only for a part of its way, sometimes loses it for a while,
/// and sometimes reads a wrong character.
std::vector<std::vector<Reading>> Degrade(const Clip& clip, std::uint64_t seed) {
    Random random(seed);
    std::vector<std::vector<Reading>> worse(clip.readings.size());
    for (std::size_t vehicle = 0; vehicle < clip.vehicles.size(); ++vehicle) {
        const std::vector<std::size_t> frames = clip.FramesOf(vehicle);
        const auto length = static_cast<int>(frames.size());
        const std::size_t first = frames.at(static_cast<std::size_t>(random.Below(length / 4)));
        const std::size_t last = frames.at(static_cast<std::size_t>(length - 1 - random.Below(length / 4)));
        int lost = 0;
        for (std::size_t frame = first; frame <= last; ++frame) {
            lost = lost > 0 ? lost - 1 : random.Unit() < 0.05 ? random.Below(6) : 0;
            for (const Reading& reading : clip.readings[frame]) {
                if (reading.vehicle == vehicle && lost == 0) {
                    worse[frame].push_back(reading);
                    if (random.Unit() < 0.03) {
                        std::string& text = worse[frame].back().text;
                        text[static_cast<std::size_t>(random.Below(static_cast<int>(text.size())))] =
                            static_cast<char>('A' + random.Below(26));
                    }
                }
            }
        }
    }
    return worse;
}

std::vector<std::string> PlatesOf(const Clip& clip) {
    std::vector<std::string> plates;
    for (const Vehicle& vehicle : clip.vehicles) {
        plates.push_back(vehicle.plate);
    }
    return plates;
}

class GeneratedClip : public testing::TestWithParam<std::uint64_t> {};

TEST_P(GeneratedClip, IsTrackedWithOneCorrectEventPerVehicle) {
    const Clip clip(GetParam());
    EXPECT_EQ(clip.vehicles.size(), 15U);
    EXPECT_THAT(Track(clip).texts, testing::UnorderedElementsAreArray(PlatesOf(clip)));
}

TEST_P(GeneratedClip, OfTwoRoundsIsTrackedWithOneCorrectEventPerVehicle) {
    const Clip clip(GetParam(), 2 * roundSeconds);
    EXPECT_EQ(clip.vehicles.size(), 30U);
    EXPECT_THAT(Track(clip).texts, testing::UnorderedElementsAreArray(PlatesOf(clip)));
}

TEST_P(GeneratedClip, ShowsEveryCharacterAndNoAmbiguousOnes) {
    const Clip clip(GetParam());
    std::set<char> characters;
    for (const Vehicle& vehicle : clip.vehicles) {
        const std::string_view format = KindOf(vehicle.design).format;
        ASSERT_EQ(vehicle.plate.size(), format.size());
        for (std::size_t i = 0; i < format.size(); ++i) {
            const char character = vehicle.plate[i];
            characters.insert(character);
            EXPECT_EQ(character >= '0' && character <= '9', format[i] == '1') << vehicle.plate;
            // Every format has a letter in the second place and a digit in the fourth.
            EXPECT_TRUE(i == 1 || (character != 'O' && character != 'I' && character != 'Q')) << vehicle.plate;
            EXPECT_TRUE(i == 3 || (character != '0' && character != '1')) << vehicle.plate;
        }
        EXPECT_FALSE(vehicle.plate[1] == 'O' && vehicle.plate[3] == '0') << vehicle.plate;
        EXPECT_FALSE(vehicle.plate[1] == 'I' && vehicle.plate[3] == '1') << vehicle.plate;
    }
    EXPECT_EQ(characters.size(), 36U);
}

TEST_P(GeneratedClip, SimultaneousVehiclesHaveNoCommonCharacters) {
    const Clip clip(GetParam());
    for (std::size_t a = 0; a < clip.vehicles.size(); ++a) {
        for (std::size_t b = a + 1; b < clip.vehicles.size(); ++b) {
            if (clip.FramesOf(b).front() < clip.FramesOf(a).back() + 3 * framesPerSecond) {
                EXPECT_EQ(CommonCharacters(clip.vehicles[a].plate, clip.vehicles[b].plate), 0U)
                    << clip.vehicles[a].plate << " " << clip.vehicles[b].plate;
            }
        }
    }
}

TEST_P(GeneratedClip, HasMistakes) {
    const Clip clip(GetParam());
    std::size_t wrong = 0;
    std::size_t missed = 0;
    for (std::size_t frame = 0; frame < clip.plates.size(); ++frame) {
        for (const Reading& reading : clip.readings[frame]) {
            const std::string& plate = clip.vehicles[reading.vehicle].plate;
            ASSERT_EQ(reading.text.size(), plate.size());
            const auto mistakes = std::inner_product(plate.begin(), plate.end(), reading.text.begin(), 0, std::plus<>(),
                                                     std::not_equal_to<>());
            ASSERT_LE(mistakes, 2);
            wrong += mistakes > 0 ? 1U : 0U;
        }
        missed += static_cast<std::size_t>(std::count_if(clip.plates[frame].begin(), clip.plates[frame].end(),
                                                         [](const auto& plate) { return plate && plate->readable; })) -
                  clip.readings[frame].size();
    }
    EXPECT_GT(wrong, 20U);
    EXPECT_GT(missed, 8U);
}

INSTANTIATE_TEST_SUITE_P(OfManySeeds, GeneratedClip, testing::Range<std::uint64_t>(1, 17));

TEST(DemonstrationClip, IsTrackedWithOneEventPerVehicleDespitePoorReadings) {
    const Clip clip(1);
    std::vector<std::size_t> all(clip.vehicles.size());
    std::iota(all.begin(), all.end(), 0U);
    for (std::uint64_t engine = 0; engine < 100; ++engine) {
        EXPECT_THAT(Track(Degrade(clip, engine)).vehicles, testing::UnorderedElementsAreArray(all)) << engine;
    }
}

TEST(DemonstrationClip, HasManyReadingsOfEveryVehicle) {
    const Clip clip(1);
    for (std::size_t i = 0; i < clip.vehicles.size(); ++i) {
        EXPECT_GT(clip.ReadingsOf(i), 25U) << clip.vehicles[i].plate;
    }
}

TEST(DemonstrationClip, ReadingsAreAtThePlates) {
    const Clip clip(1);
    for (std::size_t frame = 0; frame < clip.readings.size(); ++frame) {
        for (const Reading& reading : clip.readings[frame]) {
            ASSERT_TRUE(clip.plates[frame][reading.vehicle]);
            const PlateCorners& corners = clip.plates[frame][reading.vehicle]->corners;
            for (std::size_t i = 0; i < 4; ++i) {
                EXPECT_NEAR(reading.corners[i][0], corners[i].x, 2.0);
                EXPECT_NEAR(reading.corners[i][1], corners[i].y, 2.0);
            }
            EXPECT_LT(corners[0].x, corners[2].x);
            EXPECT_LT(corners[0].y, corners[1].y);
        }
    }
}

TEST(DemonstrationClip, HasSeveralPlatesInOneFrameUpToTheEnginesLimit) {
    const Clip clip(1);
    std::size_t most = 0;
    for (const auto& frame : clip.readings) {
        most = std::max(most, frame.size());
    }
    EXPECT_GE(most, 2U);
    EXPECT_LE(most, 5U);
}

TEST(DemonstrationClip, HasAStandingVehicleThatIsReportedAsSlow) {
    const Clip clip(1);
    const std::size_t stopping = clip.VehicleWith(Manner::ComesAndStops);
    ASSERT_LT(stopping, clip.vehicles.size());
    int standing = 0;
    for (const std::size_t frame : clip.FramesOf(stopping)) {
        if (frame > 0 && clip.plates[frame - 1][stopping] &&
            clip.plates[frame - 1][stopping]->corners[0].y == clip.plates[frame][stopping]->corners[0].y) {
            ++standing;
        }
    }
    EXPECT_GT(standing, 2 * framesPerSecond);
    Events events = Track(clip);
    EXPECT_EQ(events.reasons.at(clip.vehicles[stopping].plate), TrackReason::Slow);
}

TEST(DemonstrationClip, HasAVehicleThatLeavesAtTheSide) {
    const Clip clip(1);
    const std::size_t turning = clip.VehicleWith(Manner::ComesAndTurnsOff);
    ASSERT_LT(turning, clip.vehicles.size());
    const std::vector<std::size_t> frames = clip.FramesOf(turning);
    const PlateCorners last = clip.plates.at(frames.back())[turning]->corners;
    EXPECT_LT(last[0].x, 30);
    EXPECT_LT(last[1].y, height * 0.8);
    Events events = Track(clip);
    EXPECT_EQ(events.reasons.at(clip.vehicles[turning].plate), TrackReason::OutOfView);
}

TEST(DemonstrationClip, HasDepartingVehiclesThatAreLost) {
    const Clip clip(1);
    Events events = Track(clip);
    int going = 0;
    int lost = 0;
    for (const Vehicle& vehicle : clip.vehicles) {
        if (vehicle.manner == Manner::Goes) {
            ++going;
            lost += events.reasons.at(vehicle.plate) == TrackReason::Lost ? 1 : 0;
        }
    }
    EXPECT_GE(going, 3);
    EXPECT_GE(lost, 1);
}

TEST(DemonstrationClip, ShowsPlatesOfManySizesKindsAndLights) {
    const Clip clip(1);
    double narrowest = width;
    double widest = 0;
    std::set<PlateDesign> designs;
    std::map<bool, int> lights;  // vehicles, by darkness
    for (std::size_t vehicle = 0; vehicle < clip.vehicles.size(); ++vehicle) {
        designs.insert(clip.vehicles[vehicle].design);
        for (const std::size_t frame : clip.FramesOf(vehicle)) {
            const PlateCorners& corners = clip.plates[frame][vehicle]->corners;
            narrowest = std::min(narrowest, corners[2].x - corners[0].x);
            widest = std::max(widest, corners[2].x - corners[0].x);
        }
        const Light light = LightAt(static_cast<double>(clip.FramesOf(vehicle).front()) / framesPerSecond);
        ++lights[light.brightness < 0.6];
    }
    EXPECT_LT(narrowest, 53);
    EXPECT_GT(widest, 175);
    EXPECT_EQ(designs.size(), 6U);
    EXPECT_GE(lights[true], 3);
    EXPECT_GE(lights[false], 8);
}

TEST(DemonstrationClip, SlantsPlates) {
    const Clip clip(1);
    double steepest = 0;
    for (std::size_t vehicle = 0; vehicle < clip.vehicles.size(); ++vehicle) {
        for (const std::size_t frame : clip.FramesOf(vehicle)) {
            const PlateCorners& corners = clip.plates[frame][vehicle]->corners;
            steepest = std::max(steepest, std::abs((corners[2].y - corners[0].y) / (corners[2].x - corners[0].x)));
        }
    }
    EXPECT_GT(steepest, 0.05);
    EXPECT_LT(steepest, 0.5);
}

TEST(DemonstrationClip, HidesAPlateBehindAnotherVehicle) {
    // A truck between the camera and a car, both in one lane.
    Vehicle car;
    car.plate = "CAR";
    car.entryTime = 0;
    car.speed = 1;
    Vehicle truck = car;
    truck.shape = VehicleShape::Truck;
    truck.entryTime = -10;
    const Camera camera(width, height);
    const auto alone = ViewPlates({car}, 0, camera, width, height);
    const auto behind = ViewPlates({car, truck}, 0, camera, width, height);
    EXPECT_TRUE(alone[0]);
    EXPECT_FALSE(behind[0]);
    EXPECT_TRUE(behind[1]);
}

TEST(DemonstrationClip, OmitsVehiclesThatWouldNotBeReportedInTime) {
    for (int seconds = 8; seconds <= 40; ++seconds) {
        const Clip clip(3, seconds);
        EXPECT_THAT(Track(clip).texts, testing::UnorderedElementsAreArray(PlatesOf(clip))) << seconds << " seconds";
        EXPECT_FALSE(clip.vehicles.empty());
    }
}

}  // namespace
