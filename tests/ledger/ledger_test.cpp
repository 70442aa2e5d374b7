// The ledger against the slow reference tracker, on random scenes.
#include "tools/ledger/ledger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <random>

#include "engine/engine_text.h"
#include "sdk/plate_events.h"
#include "tests/tracker/reference_tracker.h"

namespace {

using ledger::ChannelLedger;
using recording::EngineCall;
using recording::Frame;
using testing::ElementsAre;
using testing::Pair;

constexpr std::uint32_t width = 640;
constexpr std::uint32_t height = 360;
constexpr std::uint64_t lostTimeout = 3000;
constexpr std::size_t complete = TrackReason::Complete;

RPLATE MakePlate(const std::string& text, int left, int top) {
    RPLATE plate = {};
    text.copy(plate.text, sizeof plate.text);
    SetConfidenceSum(plate, 90.0 * static_cast<double>(text.size()));
    plate.corner1 = {left, top};
    plate.corner2 = {left, top + 14};
    plate.corner3 = {left + 60, top};
    plate.corner4 = {left + 60, top + 14};
    return plate;
}

recording::Event EventOf(const std::string& text, std::uint64_t timeMs) {
    return {{{"channel", 0}, {"time", timeMs}, {"arguments", {{OKM8::Analytics::PlateKey::Text, text}}}}, {}};
}

bool Close(const ledger::Counts& counts) {
    const std::vector<ledger::Balance> balances = ledger::BalancesOf(counts);
    return std::all_of(balances.begin(), balances.end(), [](const auto& balance) { return balance.Closes(); });
}

/// A vehicle that crosses the picture, or stands.
struct Vehicle {
    std::string text;
    double x, y, dx, dy;
};

/// A scene of some vehicles whose texts are misread now and then, with the events that the reference tracker expects.
class Scene {
  public:
    explicit Scene(unsigned seed)
        : random_(seed), early_(seed % 2 == 0 ? Early(seed) : plate_recognition::EarlyReport{}) {
        const auto limit = [&](std::int64_t value) {
            return static_cast<std::uint64_t>(early_.isWanted ? value : std::numeric_limits<std::int32_t>::max());
        };
        tracker_ = std::make_unique<reference::Tracker>(log_, coverage_, lostTimeout, limit(early_.waitSeconds * 1000),
                                                        limit(early_.readings));
        for (int frame = 0; frame < 120; ++frame) {
            Step(frame);
        }
        reported_ = coverage_.reported;
        tracker_->FinishAll();
        unreported_ = coverage_.reported[complete] - reported_[complete];
    }

    const std::vector<Frame>& Frames() const { return frames_; }
    const plate_recognition::EarlyReport& EarlyReport() const { return early_; }
    const std::array<std::uint64_t, 4>& Reported() const { return reported_; }
    std::uint64_t Unreported() const { return unreported_; }
    std::uint64_t ReadingCount() const { return readings_.size(); }

  private:
    static plate_recognition::EarlyReport Early(unsigned seed) {
        return {true, static_cast<std::int32_t>(seed % 5) + 1, static_cast<std::int32_t>(seed % 7) + 2};
    }

    int Number(int below) { return std::uniform_int_distribution<int>(0, below - 1)(random_); }

    void Step(int number) {
        if (Number(12) == 0) {
            const double speed = Number(4);  // one in four stands
            vehicles_.push_back({"AB" + std::to_string(1000 + Number(9000)), double(Number(width)),
                                 double(Number(height)), speed * (Number(9) - 4), speed * (Number(5) - 2)});
        }
        now_ += Number(30) == 0 ? 4000u : 40u;  // a camera that was away for longer than a track lives
        Frame frame;
        frame.number = static_cast<std::uint64_t>(number);
        frame.timeMs = now_;
        EngineCall call;
        call.width = width;
        call.height = height;
        std::vector<LicencePlatePtr> readings;
        for (Vehicle& vehicle : vehicles_) {
            vehicle.x += vehicle.dx;
            vehicle.y += vehicle.dy;
            const bool isInView = vehicle.x > 0 && vehicle.x < width && vehicle.y > 0 && vehicle.y < height;
            if (isInView && Number(5) != 0 && call.plates.size() < engineRecordCount) {
                std::string text = vehicle.text;
                if (Number(6) == 0) {
                    text[static_cast<std::size_t>(Number(6))] = 'X';
                }
                call.plates.push_back(MakePlate(text, static_cast<int>(vehicle.x), static_cast<int>(vehicle.y)));
                readings.push_back(Read(call.plates.back()));
            }
        }
        call.count = static_cast<int>(call.plates.size());
        frame.engineCalls.push_back(call);
        const std::size_t before = log_.calls.size();
        tracker_->ProcessPlates(readings, now_);
        for (std::size_t index = before; index < log_.calls.size(); ++index) {
            if (log_.calls[index].kind == reference::Call::Kind::Result) {
                const auto& [text, time] = readings_[log_.calls[index].readingId];
                frame.events.push_back(EventOf(text, time));
            }
        }
        frames_.push_back(frame);
    }

    LicencePlatePtr Read(const RPLATE& plate) {
        const LicencePlatePtr reading =
            plate_recognition::ReadingOf(plate, width, height, now_, readings_.size(), frames_.size() + 1);
        readings_.emplace_back(plate_recognition::Utf8Of(plate_recognition::ResultTextOf(plate)), now_);
        return reading;
    }

    std::mt19937 random_;
    const plate_recognition::EarlyReport early_;
    reference::Log log_;
    reference::Coverage coverage_;
    std::unique_ptr<reference::Tracker> tracker_;
    std::vector<Vehicle> vehicles_;
    std::vector<std::pair<std::string, std::uint64_t>> readings_;  // by number: text and time
    std::vector<Frame> frames_;
    std::uint64_t now_ = 0;
    std::array<std::uint64_t, 4> reported_{};
    std::uint64_t unreported_ = 0;
};

ledger::Counts CountsOf(const Scene& scene, const std::vector<Frame>& frames) {
    ChannelLedger ledger(scene.EarlyReport(), false);
    for (const Frame& frame : frames) {
        ledger.Add(frame);
    }
    return ledger.CountsSoFar();
}

TEST(Ledger, CountsWhatTheReferenceTrackerDoes) {
    std::array<std::uint64_t, 4> all{};
    for (unsigned seed = 0; seed < 60; ++seed) {
        const Scene scene(seed);
        const ledger::Counts counts = CountsOf(scene, scene.Frames());
        EXPECT_EQ(counts.tracksReported, scene.Reported()) << seed;
        EXPECT_EQ(counts.tracksUnreported, scene.Unreported()) << seed;
        EXPECT_EQ(counts.readings, scene.ReadingCount()) << seed;
        EXPECT_EQ(counts.eventsUnexpected, 0u) << seed;
        EXPECT_TRUE(Close(counts)) << seed;
        for (std::size_t reason = 0; reason < all.size(); ++reason) {
            all[reason] += counts.tracksReported[reason];
        }
    }
    EXPECT_THAT(all, testing::Each(testing::Gt(10u))) << "every reason occurs";
}

TEST(Ledger, KeepsTheLifeOfEveryTrack) {
    const Scene scene(3);
    ChannelLedger ledger(scene.EarlyReport(), true);
    for (const Frame& frame : scene.Frames()) {
        ledger.Add(frame);
    }
    const ledger::Counts counts = ledger.CountsSoFar();
    ASSERT_EQ(ledger.Tracks().size(), counts.tracks);
    std::uint64_t readings = 0;
    std::uint64_t reported = 0;
    for (const auto& track : ledger.Tracks()) {
        readings += track->readings.size();
        reported += track->reason ? 1u : 0u;
        EXPECT_EQ(track->hasEvent, track->reason.has_value());
        EXPECT_TRUE(std::is_sorted(track->readings.begin(), track->readings.end(),
                                   [](const auto& one, const auto& other) { return one.timeMs < other.timeMs; }));
    }
    EXPECT_EQ(readings, counts.readings);
    EXPECT_EQ(reported + counts.tracksUnreported, counts.tracks);
}

TEST(Ledger, DoesNotCloseWithAMissingOrAForeignEvent) {
    const Scene scene(5);
    std::vector<Frame> frames = scene.Frames();
    const auto frame =
        std::find_if(frames.begin(), frames.end(), [](const Frame& each) { return !each.events.empty(); });
    ASSERT_NE(frame, frames.end());
    const recording::Event event = frame->events.front();
    frame->events.erase(frame->events.begin());
    EXPECT_FALSE(Close(CountsOf(scene, frames))) << "a report without an event";

    frame->failedEvents = {"discarded"};
    EXPECT_TRUE(Close(CountsOf(scene, frames))) << "a report whose event failed";
    EXPECT_THAT(CountsOf(scene, frames).eventsFailed, ElementsAre(Pair("discarded", 1)));

    frame->failedEvents.clear();
    frame->events.insert(frame->events.begin(), EventOf("ANOTHER", frame->timeMs));
    EXPECT_FALSE(Close(CountsOf(scene, frames))) << "an event of another text";
    EXPECT_EQ(CountsOf(scene, frames).eventsUnexpected, 1u);
}

TEST(Ledger, GivesEveryFrameOneReason) {
    ChannelLedger ledger({}, false);
    Frame refused;
    refused.code = 5;
    refused.error = "Wrong image format";
    ledger.Add(refused);
    Frame unnamed;
    unnamed.code = 7;
    ledger.Add(unnamed);
    ledger.Add(Frame());
    Frame thrown;
    thrown.engineCalls.emplace_back().hasThrown = true;
    ledger.Add(thrown);
    for (const int count : {-1, 0, 1025, 1, 7}) {  // negative and huge counts are no plates; seven have five records
        Frame searched;
        searched.engineCalls.push_back({width, height, {}, count, {}, 0, false});
        searched.ranges = {{10, 20, count != 0}};
        if (count == 1) {
            searched.engineCalls.front().plates = {MakePlate("AB1234", 10, 20)};
        }
        ledger.Add(searched);
    }
    const ledger::Counts counts = ledger.CountsSoFar();
    EXPECT_THAT(counts.framesRefused, ElementsAre(Pair("Wrong image format", 1), Pair("code 7", 1)));
    EXPECT_EQ(counts.framesNotSearched, 1u);
    EXPECT_EQ(counts.framesEngineFailed, 1u);
    EXPECT_EQ(counts.framesWithoutPlates, 3u);
    EXPECT_EQ(counts.framesWithPlates, 2u);
    EXPECT_EQ(counts.readings, 8u);
    EXPECT_EQ(counts.rangesRefused, 1u);
    EXPECT_EQ(counts.frames, 9u);
}

TEST(Ledger, ReadsTheEarlyReportFromTheSettings) {
    const auto early = ledger::EarlyReportOf({{"result_ready", "false"},
                                              {"result_wait_time", "7"},
                                              {"zone_width", "3"},
                                              {"result_ready", "1"},
                                              {"result_rec_count", "+12"}});
    EXPECT_TRUE(early.isWanted);
    EXPECT_EQ(early.waitSeconds, 7);
    EXPECT_EQ(early.readings, 12);
    EXPECT_FALSE(ledger::EarlyReportOf({}).isWanted);
}

TEST(Ledger, AddsTheChannelsOfARecording) {
    const Scene one(2);
    const Scene other(9);
    recording::Recording recording;
    recording.channels = {{1,
                           {{"result_ready", "true"},
                            {"result_wait_time", std::to_string(one.EarlyReport().waitSeconds)},
                            {"result_rec_count", std::to_string(one.EarlyReport().readings)}},
                           {}},
                          {4, {}, {}}};
    for (std::size_t index = 0; index < one.Frames().size(); ++index) {
        recording.frames.push_back(one.Frames()[index]);
        recording.frames.back().channel = 1;
        recording.frames.push_back(other.Frames()[index]);
        recording.frames.back().channel = 4;
    }
    ledger::Counts sum = CountsOf(one, one.Frames());
    sum += CountsOf(other, other.Frames());
    EXPECT_EQ(ledger::JsonOf(ledger::CountsOf(recording)), ledger::JsonOf(sum));
    EXPECT_TRUE(Close(sum));
}

}  // namespace
