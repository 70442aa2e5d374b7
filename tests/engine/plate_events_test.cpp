// From the tracker's report to the host's event.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <boost/make_shared.hpp>
#include <cstring>
#include <functional>
#include <limits>
#include <set>
#include <stdexcept>
#include <thread>
#include <utility>

#include "engine/track_points.h"
#include "platform/text.h"
#include "tests/engine/probe_detector.h"

namespace {

namespace PlateKey = OKM8::Analytics::PlateKey;
using engine_tests::EngineTest;
using engine_tests::Error;
using engine_tests::FoundPlate;
using OKM8::Analytics::TrackTimeEpoch;
using plate_recognition::PlateDescription;
using plate_recognition::RecognitionResult;
using recording_host::HostCall;
using recording_host::On;
using recording_host::Operation;
using recording_host::RecordedEvent;
using recording_host::RecordedTarget;
using recording_host::Refusals;
using testing::ElementsAre;
using testing::IsEmpty;

using BufferPointer = boost::shared_ptr<OKM8::MFF::ICompositeBuffer>;

constexpr std::int32_t largest = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t smallest = std::numeric_limits<std::int32_t>::min();
constexpr std::int64_t smallest64 = std::numeric_limits<std::int64_t>::min();

class PlateEvents : public EngineTest {
  protected:
    ~PlateEvents() override { End(); }

    BufferPointer Buffer(std::uint64_t time = 5) {
        return BufferPointer(static_cast<OKM8::MFF::ICompositeBuffer*>(recording_host::MakeFrame(counts, 64, 48, time)),
                             [](OKM8::MFF::ICompositeBuffer* buffer) { buffer->Release(); });
    }

    RecognitionResult ResultWith(const PlateDescription& description, std::uint64_t time = 5) {
        return RecognitionResult(Buffer(time), description, 1, time);
    }

    RecordedTarget TargetOf(const RecordedEvent& event) {
        EXPECT_EQ(event.targets.size(), 1u);
        return event.targets.empty() ? RecordedTarget{} : event.targets.front();
    }

    std::int64_t NumberOf(const RecordedTarget& target, const std::string& key) {
        const auto* const value = target.Find(key);
        EXPECT_NE(value, nullptr) << key;
        return value != nullptr ? value->number : -999;
    }

    std::vector<std::string> KeysOf(const RecordedTarget& target) {
        std::vector<std::string> keys;
        for (const auto& value : target.values) {
            keys.push_back(value.key);
        }
        return keys;
    }

    RecordedTarget LastTarget() {
        EXPECT_FALSE(host.Events().empty());
        return host.Events().empty() ? RecordedTarget{} : TargetOf(host.Events().back());
    }

    LicencePlatePtr Reading(std::uint64_t id, std::uint64_t time = 5) {
        const auto reading = boost::make_shared<LicencePlate>();
        reading->id = id;
        reading->timeStamp = time;
        return reading;
    }

    // Returns the four area values of the last event; empty when it has none.
    std::vector<std::int64_t> AreaOfLast() {
        const RecordedTarget target = LastTarget();
        std::vector<std::int64_t> sides;
        for (const char* key : {"area_left", "area_top", "area_right", "area_bottom"}) {
            if (const auto* const value = target.Find(key)) {
                EXPECT_EQ(value->setter, 'i');
                sides.push_back(value->number);
            }
        }
        return sides;
    }
};

TEST_F(PlateEvents, AnEventCarriesItsArgumentsInThisOrderByTheseSetters) {
    ReportAtOnce();
    Settings().SetBoolValue("use_area", true);
    Settings().SetIntValue("area_right", 100);
    Settings().SetIntValue("area_bottom", 90);
    Find(FoundPlate{.text = "\xBE\xA9"
                            "A123",
                    .left = 10,
                    .top = 20,
                    .right = 90,
                    .bottom = 40,
                    .confidenceSum = 400});
    EXPECT_EQ(Frame(1700000000123), 0);
    ASSERT_EQ(host.Events().size(), 1u);
    const RecordedEvent event = host.Events().front();
    EXPECT_EQ(event.detector, static_cast<OKM8::Analytics::IDetector*>(detector.get()));
    EXPECT_EQ(event.name, "event");
    EXPECT_EQ(event.timeMs, 1700000000123) << "the frame's time, not the current time";
    EXPECT_EQ(event.targetsTimeMs, 1700000000123);
    EXPECT_EQ(event.kind, 3);
    EXPECT_THAT(event.objectKeys, ElementsAre("targets")) << "no image";
    EXPECT_EQ(event.raised, 1);
    EXPECT_EQ(event.discarded, 0);
    const RecordedTarget target = TargetOf(event);
    EXPECT_EQ(target.reserved, 0);
    std::vector<std::string> values;
    for (const auto& value : target.values) {
        values.push_back(value.key + " " + value.setter + " " +
                         (value.setter == 's'   ? value.text
                          : value.setter == 'i' ? std::to_string(value.number)
                                                : std::to_string(value.bytes.size())));
    }
    EXPECT_THAT(values, ElementsAre("lp_wnum s \xE4\xBA\xAC"
                                    "A123",
                                    "char_num i 5", "country_code s ", "confidence i 80", "direction i 0",
                                    "lpf_x1 i 10", "lpf_y1 i 20", "lpf_x3 i 90", "lpf_y3 i 40", "area_left i 0",
                                    "area_top i 0", "area_right i 100", "area_bottom i 90", "all_tracks x 24"));
}

TEST_F(PlateEvents, TheDetectorsTypeIsVexlane) {
    EXPECT_EQ(Detector().GetDetectorType(), "VEXLANE");
}

TEST_F(PlateEvents, ATextOf16CharactersIsSentWhole) {
    ReportAtOnce();
    Find(FoundPlate{.text = "ABCDEFGHIJKLMNOP"});
    Frame(1);
    EXPECT_EQ(LastTarget().Find("lp_wnum")->text, "ABCDEFGHIJKLMNOP");
    EXPECT_EQ(NumberOf(LastTarget(), "char_num"), 16);
}

TEST_F(PlateEvents, AnEmptyTextIsSentAsSuch) {
    ReportAtOnce();
    Find(FoundPlate{.text = ""});
    Frame(1);
    EXPECT_EQ(LastTarget().Find("lp_wnum")->text, "");
    EXPECT_EQ(NumberOf(LastTarget(), "char_num"), 0);
    EXPECT_EQ(NumberOf(LastTarget(), "confidence"), 0);
}

TEST_F(PlateEvents, CountryAndDirectionAreThoseOfTheDescription) {
    PlateDescription description;
    description.strings = {"RUS", "b", "c", "d", "e", "f"};
    description.value = -77;
    Detector().RaisePlateEvent(ResultWith(description), {});
    EXPECT_EQ(LastTarget().Find("country_code")->text, "RUS");
    EXPECT_EQ(NumberOf(LastTarget(), "direction"), -77);
}

// Bytes of the system's code page, on Linux UTF-8, and invalid bytes, which become U+FFFD.
TEST_F(PlateEvents, TheCountryIsConvertedFromTheSystemsCodePageToUtf8) {
    std::string country = "\xC3\xA4 ";
    for (int byte = 0x80; byte <= 0xFF; ++byte) {
        country += static_cast<char>(byte);
        country += ' ';
    }
    std::wstring wide(country.size(), L'\0');
    const auto size = static_cast<int>(country.size());
    wide.resize(
        static_cast<std::size_t>(platform::ToWide(platform::codePageAnsi, country.data(), size, wide.data(), size)));
    std::string expected(country.size() * 3, '\0');
    expected.resize(
        static_cast<std::size_t>(platform::FromWide(platform::codePageUtf8, wide.data(), static_cast<int>(wide.size()),
                                                    expected.data(), static_cast<int>(expected.size()))));
    ASSERT_NE(expected, country);
    PlateDescription description;
    description.strings[0] = country;
    Detector().RaisePlateEvent(ResultWith(description), {});
    EXPECT_EQ(LastTarget().Find("country_code")->text, expected);
}

TEST_F(PlateEvents, ConfidenceIsClampedToPercents) {
    const std::vector<std::pair<std::int32_t, std::int64_t>> cases = {
        {130, 100}, {-5, 0}, {100, 100}, {101, 100}, {0, 0}, {57, 57}, {largest, 100}, {smallest, 0}};
    for (const auto& [confidence, sent] : cases) {
        PlateDescription description;
        description.confidence = confidence;
        Detector().RaisePlateEvent(ResultWith(description), {});
        EXPECT_EQ(NumberOf(LastTarget(), "confidence"), sent) << confidence;
    }
}

TEST_F(PlateEvents, AConfidenceThatIsNotANumberIsSentAs0) {
    ReportAtOnce();
    Find(FoundPlate{.confidenceSum = std::numeric_limits<double>::quiet_NaN()});
    Frame(1);
    EXPECT_EQ(NumberOf(LastTarget(), "confidence"), 0);
}

TEST_F(PlateEvents, ALostResultHasTheOtherName) {
    RecognitionResult result = ResultWith({}, 99);
    result.lost = true;
    Detector().RaisePlateEvent(result, {});
    ASSERT_EQ(host.Events().size(), 1u);
    EXPECT_EQ(host.Events()[0].name, "NUMBER_LOST");
    EXPECT_EQ(host.Events()[0].timeMs, 99);
    EXPECT_EQ(host.Events()[0].raised, 1);
}

TEST_F(PlateEvents, ATimeBeyondTheSignedRangeWraps) {
    Detector().RaisePlateEvent(ResultWith({}, 18446744073709551615u), {});
    EXPECT_EQ(host.Events()[0].timeMs, -1);
}

// Half frames.

class PlateRows : public PlateEvents, public testing::WithParamInterface<std::array<std::uint32_t, 3>> {};

TEST_P(PlateRows, AreCountedInTheFullFrame) {
    const auto [width, height, scale] = GetParam();
    ReportAtOnce();
    Settings().SetBoolValue("use_half_cadr", true);
    Find(FoundPlate{.left = 10, .top = 21, .right = 90, .bottom = 43});
    EXPECT_EQ(Frame(1, width, height), 0);
    EXPECT_EQ(NumberOf(LastTarget(), "lpf_x1"), 10);
    EXPECT_EQ(NumberOf(LastTarget(), "lpf_y1"), 21 * scale);
    EXPECT_EQ(NumberOf(LastTarget(), "lpf_x3"), 90);
    EXPECT_EQ(NumberOf(LastTarget(), "lpf_y3"), 43 * scale);
}

INSTANTIATE_TEST_SUITE_P(OfHalfFrames, PlateRows,
                         testing::Values(std::array{720u, 576u, 2u}, std::array{640u, 480u, 2u},
                                         std::array{638u, 576u, 1u}, std::array{720u, 478u, 1u}));

TEST_F(PlateEvents, RowsOf639By576AreNotScaled) {
    // An odd width requires luminance only.
    ReportAtOnce();
    Settings().SetBoolValue("use_half_cadr", true);
    Find(FoundPlate{.top = 21, .bottom = 43});
    recording_host::BufferOptions options;
    options.width = 639;
    options.height = 576;
    options.pixels.assign(639 * 576, 128);
    OKM8::Analytics::IMediaReceiver& receiver = Detector();
    EXPECT_EQ(receiver.Receive(recording_host::MakeBuffer(counts, options)), 0);
    EXPECT_EQ(NumberOf(LastTarget(), "lpf_y1"), 21);
    EXPECT_EQ(NumberOf(LastTarget(), "lpf_y3"), 43);
}

TEST_F(PlateEvents, RowsOfAWholeFrameAreNotScaled) {
    ReportAtOnce();
    Find(FoundPlate{.top = 21, .bottom = 43});
    Frame(1, 720, 576);
    EXPECT_EQ(NumberOf(LastTarget(), "lpf_y1"), 21);
}

// The setting is a member of the detector, so frames use it without ApplySettings; the picture's effective height
// depends only on the size.
TEST_F(PlateEvents, RowsFollowTheHalfFrameSettingFromTheNextFrameOn) {
    ReportAtOnce();
    std::uint64_t now = 0;
    const auto topOf = [&](char letter) {
        const std::string text(16, letter);  // like no text before
        Find(FoundPlate{.text = text, .top = 21, .bottom = 43});
        EXPECT_EQ(Frame(now += 100000, 720, 576), 0);
        EXPECT_EQ(LastTarget().Find("lp_wnum")->text, text);
        EXPECT_EQ(NumberOf(LastTarget(), "lpf_y3") * 21, NumberOf(LastTarget(), "lpf_y1") * 43);
        return NumberOf(LastTarget(), "lpf_y1");
    };
    EXPECT_EQ(topOf('A'), 21);
    Settings().SetBoolValue("use_half_cadr", true);
    EXPECT_EQ(topOf('B'), 42) << "not applied";
    EXPECT_EQ(Detector().effectiveHeight, 576u);
    Settings().ApplySettings();
    EXPECT_EQ(topOf('C'), 42) << "applied";
    EXPECT_EQ(Detector().effectiveHeight, 576u);
    Settings().SetBoolValue("use_half_cadr", false);
    EXPECT_EQ(topOf('D'), 21) << "not applied";
    Settings().ApplySettings();
    EXPECT_EQ(topOf('E'), 21) << "applied";
}

TEST_F(PlateEvents, RowsFollowTheLastFramesSizeOfAHalfFrameSettingThatStays) {
    ReportAtOnce();
    Settings().SetBoolValue("use_half_cadr", true);
    std::uint64_t now = 0;
    for (const auto& [height, top] : {std::pair(576u, 42), std::pair(478u, 21), std::pair(480u, 42)}) {
        Find(FoundPlate{.text = std::string(16, static_cast<char>('A' + now / 1000)), .top = 21, .bottom = 43});
        EXPECT_EQ(Frame(now += 1000, 720, height), 0);
        EXPECT_EQ(NumberOf(LastTarget(), "lpf_y1"), top) << height;
    }
}

TEST_F(PlateEvents, ScaledRowsWrap) {
    Settings().SetBoolValue("use_half_cadr", true);
    Frame(1, 720, 576);
    PlateDescription description;
    description.rect = {largest, largest, smallest, smallest};
    Detector().RaisePlateEvent(ResultWith(description), {});
    EXPECT_EQ(NumberOf(LastTarget(), "lpf_x1"), largest);
    EXPECT_EQ(NumberOf(LastTarget(), "lpf_y1"), -2);
    EXPECT_EQ(NumberOf(LastTarget(), "lpf_x3"), smallest);
    EXPECT_EQ(NumberOf(LastTarget(), "lpf_y3"), 0);
}

// Areas.

class PlateAreas : public PlateEvents {
  protected:
    PlateAreas() {
        ReportAtOnce();
        fake_engine::OnRecognize([this](const IMG&, RPLATE* plates) {
            // A new plate in every frame, unlike the ones before.
            plates[0] = RecordOf({.text = std::string(15, static_cast<char>('A' + found++))});
            return 1;
        });
    }
    int found = 0;
    std::uint64_t time = 0;
    std::uint64_t NextTime() { return time += 100000; }
};

TEST_F(PlateAreas, AreAbsentWithoutAnArea) {
    Settings().SetIntValue("area_left", 5);
    Settings().SetBoolValue("use_area", true);
    Frame(NextTime());
    std::vector<std::string> keys = KeysOf(LastTarget());
    EXPECT_EQ(std::erase_if(keys, [](const std::string& key) { return key.starts_with("area_"); }), 4u);
    Settings().SetBoolValue("use_area", false);
    Frame(NextTime());
    EXPECT_THAT(AreaOfLast(), IsEmpty());
    EXPECT_EQ(KeysOf(LastTarget()), keys);
}

TEST_F(PlateAreas, AreTheConfiguredPercents) {
    Settings().SetBoolValue("use_area", true);
    Settings().SetIntValue("area_left", -5);
    Settings().SetIntValue("area_top", 6);
    Settings().SetIntValue("area_right", 700);
    Settings().SetIntValue("area_bottom", 8);
    Frame(NextTime());
    EXPECT_THAT(AreaOfLast(), ElementsAre(-5, 6, 700, 8));
}

TEST_F(PlateAreas, OfASingleCallTakePrecedenceAndOutliveTheirCallUntilAnEmptyOne) {
    Settings().SetBoolValue("use_area", true);
    Settings().SetIntValue("area_left", 1);
    SingleFrame(NextTime(), {10, 20, 30, 40});
    EXPECT_THAT(AreaOfLast(), ElementsAre(10, 20, 40, 60));
    Frame(NextTime());
    EXPECT_THAT(AreaOfLast(), ElementsAre(10, 20, 40, 60)) << "it outlives its call";
    Settings().SetBoolValue("use_area", false);
    Settings().ApplySettings();
    Frame(NextTime());
    EXPECT_THAT(AreaOfLast(), ElementsAre(10, 20, 40, 60));
    SingleFrame(NextTime(), {10, 20, 0, 40});
    EXPECT_THAT(AreaOfLast(), IsEmpty());
    Settings().SetBoolValue("use_area", true);
    Frame(NextTime());
    EXPECT_THAT(AreaOfLast(), ElementsAre(1, 0, 0, 0));
    EXPECT_EQ(host.Events().size(), 5u);
}

// The track.

TEST_F(PlateEvents, TheTrackHoldsEveryReadingOfTheReportedText) {
    Settings().SetBoolValue("result_ready", true);
    Settings().SetIntValue("result_rec_count", 4);
    Settings().SetIntValue("result_wait_time", 1000000);
    for (int frame = 0; frame < 4; ++frame) {
        const int x = 100 + 40 * frame;
        // The third reading differs and is later in the order of texts.
        Find(FoundPlate{
            .text = frame == 2 ? "AB123D" : "AB123C", .left = x, .top = 200, .right = x + 60, .bottom = 220 + frame});
        Frame(1000 + static_cast<std::uint64_t>(frame) * 100);
    }
    ASSERT_EQ(host.Events().size(), 1u);
    EXPECT_EQ(LastTarget().Find("lp_wnum")->text, "AB123C");
    EXPECT_EQ(host.Events()[0].timeMs, 1000) << "of the best reading, the first with that text";
    const auto& track = LastTarget().track;
    ASSERT_EQ(track.size(), 3u);
    const int frames[] = {0, 1, 3};
    for (std::size_t index = 0; index < 3; ++index) {
        EXPECT_EQ(track[index].x, 100 + 40 * frames[index]);
        EXPECT_EQ(track[index].y, 200);
        EXPECT_EQ(track[index].width, 0) << "corner C is below corner A";
        EXPECT_EQ(track[index].height, 20 + frames[index]);
        EXPECT_EQ(track[index].time, TrackTimeEpoch + (1000 + frames[index] * 100) * 1000);
        EXPECT_EQ(track[index].flag, 0);
    }
}

TEST_F(PlateEvents, ATrackPointIsCornerAAndTheDistanceToCornerC) {
    ReportAtOnce();
    RPLATE record = fake_engine::Plate("AB123C", 0, 0, 0, 0, 0);
    record.corner1 = {11, 12};
    record.corner2 = {21, 42};
    record.corner3 = {1031, 2032};
    record.corner4 = {1041, 2042};
    Find({record});
    Frame(0);
    ASSERT_EQ(LastTarget().track.size(), 1u);
    EXPECT_EQ(LastTarget().track[0].x, 11);
    EXPECT_EQ(LastTarget().track[0].y, 12);
    EXPECT_EQ(LastTarget().track[0].width, 10);
    EXPECT_EQ(LastTarget().track[0].height, 30);
    EXPECT_EQ(LastTarget().track[0].time, TrackTimeEpoch);
}

TEST(TrackPoints, WrapInPlaceAndTime) {
    const auto reading = boost::make_shared<LicencePlate>();
    reading->cornerA = {largest, smallest};
    reading->cornerC = {smallest, largest};
    reading->timeStamp = 18446744073709551615u;
    const auto points = plate_recognition::TrackPointsOf({reading});
    const auto view = plate_recognition::ViewOf(points);
    ASSERT_EQ(view.last - view.first, 1);
    EXPECT_EQ(view.first->x, largest);
    EXPECT_EQ(view.first->y, smallest);
    EXPECT_EQ(view.first->width, 1);
    EXPECT_EQ(view.first->height, -1);
    EXPECT_EQ(view.first->time, TrackTimeEpoch - 1000);
    EXPECT_EQ(view.first->flag, 0);
}

std::int64_t TrackTimeOf(std::uint64_t milliseconds) {
    const auto reading = boost::make_shared<LicencePlate>();
    reading->timeStamp = milliseconds;
    const auto points = plate_recognition::TrackPointsOf({reading});
    return plate_recognition::ViewOf(points).first->time;
}

TEST(TrackPoints, TimesOfEverySizeAreCreatedWithoutAnException) {
    for (const std::uint64_t time :
         {0ull, 1ull, 1700000000123ull, 9223372036854775ull, 9223372036854776ull, 9223372036854775807ull,
          9223372036854775808ull, 18446744073709551614ull, 1ull << 62, 123456789012345678ull}) {
        const auto expected = static_cast<std::int64_t>(static_cast<std::uint64_t>(TrackTimeEpoch) + time * 1000u);
        EXPECT_EQ(TrackTimeOf(time), expected) << time;
    }
}

TEST(TrackPoints, ATimeWhoseMicrosecondsAreASpecialValueIsThatValue) {
    // A multiple of 1000 ends in three zero bits; of the special values only minus infinity does.
    EXPECT_EQ(TrackTimeOf(1ull << 60), smallest64);
    EXPECT_EQ(TrackTimeOf((1ull << 60) + (1ull << 61)), smallest64);
}

TEST(TrackPoints, OfNoReadingsAreAnEmptyView) {
    const auto points = plate_recognition::TrackPointsOf({});
    const auto view = plate_recognition::ViewOf(points);
    EXPECT_EQ(view.first, view.last);
}

TEST_F(PlateEvents, TheTrackIsPassedAsThreePointersToLiveMemory) {
    std::vector<std::uint8_t> header;
    std::vector<OKM8::Analytics::TrackPoint> seenInRaise;
    host.onCall = On(Operation::Raise, [&] {
        header = LastTarget().Find("all_tracks")->bytes;
        OKM8::Analytics::TrackPointList list;
        ASSERT_EQ(header.size(), sizeof list);
        std::memcpy(&list, header.data(), sizeof list);
        EXPECT_GE(list.storage, list.last);
        for (const auto* point = list.first; point != list.last; ++point) {
            seenInRaise.push_back(*point);
        }
    });
    ReportAtOnce();
    Find(FoundPlate{});
    Frame(7);
    ASSERT_EQ(seenInRaise.size(), 1u) << "still readable inside Raise";
    EXPECT_EQ(seenInRaise[0].x, 100);
    EXPECT_EQ(seenInRaise[0].time, TrackTimeEpoch + 7000);
}

TEST_F(PlateEvents, TheThirdPointerIsTheEndOfTheListsStorage) {
    std::vector<plate_recognition::TrackPoint> track = plate_recognition::TrackPointsOf({Reading(1), Reading(2)});
    track.reserve(7);
    ASSERT_GT(track.capacity(), track.size());
    Detector().RaisePlateEvent(ResultWith({}), track);
    const RecordedTarget target = LastTarget();
    OKM8::Analytics::TrackPointList list = {};
    ASSERT_EQ(target.Find("all_tracks")->bytes.size(), sizeof list);
    std::memcpy(&list, target.Find("all_tracks")->bytes.data(), sizeof list);
    const auto* const first = reinterpret_cast<const OKM8::Analytics::TrackPoint*>(track.data());
    EXPECT_EQ(list.first, first);
    EXPECT_EQ(list.last, first + 2);
    EXPECT_EQ(list.storage, first + track.capacity());
}

TEST_F(PlateEvents, ATargetWithoutTheBinarySetterGetsNoTrack) {
    ReportAtOnce();
    Find(FoundPlate{});
    EXPECT_EQ(Frame(7), 0);
    std::vector<std::string> keys = KeysOf(LastTarget());
    EXPECT_EQ(std::erase(keys, "all_tracks"), 1u);
    host.refusals.binarySetter = true;
    Find(FoundPlate{.text = "ZZZZZZ", .left = 400, .right = 460});
    EXPECT_EQ(Frame(8), 0);
    ASSERT_EQ(host.Events().size(), 2u);
    EXPECT_EQ(host.Events()[1].raised, 1);
    EXPECT_EQ(host.Events()[1].discarded, 0);
    EXPECT_EQ(KeysOf(LastTarget()), keys);
    EXPECT_EQ(ErrorState(), Error(0, ""));
}

// A host that returns null.

struct FailingStep {
    const char* description;
    bool Refusals::*refusal;
    const char* text;
    bool hasRaiser;
};

std::ostream& operator<<(std::ostream& stream, const FailingStep& step) {
    return stream << step.description;
}

class PlateEventFailure : public PlateEvents, public testing::WithParamInterface<FailingStep> {};

TEST_P(PlateEventFailure, IsTheFramesErrorAndThePlateIsNotRetried) {
    diagnostics::SetDebugLevel(1);
    ReportAtOnce();
    output.Clear();
    host.refusals.*GetParam().refusal = true;
    Find(FoundPlate{});
    EXPECT_EQ(Frame(100), 1);
    EXPECT_EQ(ErrorState(), Error(1, GetParam().text));
    const auto events = host.Events();
    ASSERT_EQ(events.size(), GetParam().hasRaiser ? 1u : 0u);
    for (const RecordedEvent& event : events) {
        EXPECT_EQ(event.raised, 0);
        EXPECT_EQ(event.discarded, 1);
    }
    EXPECT_THAT(Trace(),
                ElementsAre(LineOf("Recognize", "Frame count: 1 Iteration : 0 NumberOfPlate is 1"),
                            LineOf("CreateResult",
                                   "Create result: Plate = AB123C Rect = {100, 100, 160, 120} IsFinished = 0 Id = 0"),
                            LineOf("OnResult", "Send plate ID = 0 Tracks: 1"),
                            LineOf("OnMayReleaseLicencePlate", "Remove plate ID = 0, still left = 1")));
    EXPECT_THAT(Detector().pendingResults, IsEmpty());
    EXPECT_EQ(counts.released, 1);
    // Never retried.
    host.refusals = {};
    FindNothing();
    EXPECT_EQ(Frame(200), 0);
    EXPECT_EQ(Frame(100000), 0);
    EXPECT_EQ(host.Events().size(), events.size());
    EXPECT_EQ(ErrorState(), Error(0, ""));
}

TEST_P(PlateEventFailure, DoesNotPreventEventsOfTheFramesOtherPlates) {
    ReportAtOnce();
    host.refusals.*GetParam().refusal = true;
    bool isFirst = true;
    recording_host::RecordingFrameDone done;
    fake_engine::OnRecognize([&](const IMG&, RPLATE* plates) {
        plates[0] = RecordOf({.text = "AAAAAA"});
        plates[1] = RecordOf({.text = "ZZZZZZ", .left = 400, .right = 460});
        return 2;
    });
    // The host fails only for the first of the two.
    output.Clear();
    diagnostics::SetDebugLevel(1);
    class RefusalRemover final : public platform::DebugOutputSink {
      public:
        RefusalRemover(Refusals& refusals, bool& first)
            : refusals_(refusals), isFirst_(first), before_(platform::ExchangeDebugOutputSink(this)) {}
        ~RefusalRemover() override { platform::ExchangeDebugOutputSink(before_); }
        void Write(const char* text) override {
            if (std::strstr(text, "Send plate ID") != nullptr && isFirst_) {
                isFirst_ = false;
                refusals_ = {};
            }
        }
        void Write(const wchar_t*) override {}

      private:
        Refusals& refusals_;
        bool& isFirst_;
        platform::DebugOutputSink* before_;
    } const heal(host.refusals, isFirst);
    OKM8::Analytics::IMediaReceiverSingle2& receiver = Detector();
    EXPECT_EQ(receiver.ReceiveSingle(recording_host::MakeFrame(counts, 640, 480, 5), nullptr, &done), 1);
    EXPECT_EQ(ErrorState(), Error(1, GetParam().text)) << "a later event does not clear it";
    EXPECT_EQ(done.buffers.size(), 1u) << "the frame is handled to its end";
    ASSERT_FALSE(host.Events().empty());
    EXPECT_EQ(host.Events().back().raised, 1);
    EXPECT_EQ(LastTarget().Find("lp_wnum")->text, "ZZZZZZ");
}

INSTANTIATE_TEST_SUITE_P(
    AtEachStep, PlateEventFailure,
    testing::Values(FailingStep{"Factory", &Refusals::factory, "ITargetEnumeratorFactory getting error", false},
                    FailingStep{"Enumerator", &Refusals::enumerator, "ITargetEnumeratorAdjuster getting error", false},
                    FailingStep{"Raiser", &Refusals::raiser, "IDetectorEventRaiser getting error", false},
                    FailingStep{"Arguments", &Refusals::arguments, "IEventArgsAdjuster getting error", true},
                    FailingStep{"Target", &Refusals::target, "ITargetAdjuster getting error", true}),
    [](const auto& instance) { return std::string(instance.param.description); });

// A host whose target throws.

class ThrowingTarget : public PlateEvents, public testing::WithParamInterface<const char*> {};

TEST_P(ThrowingTarget, IsATraceLineAndTheRaiserIsDiscardedOnceAndTheFrameContinues) {
    diagnostics::SetDebugLevel(1);
    ReportAtOnce();
    output.Clear();
    host.onCall = [](const HostCall& call) {
        if (call.Sets(GetParam())) {
            throw std::runtime_error("target lost");
        }
    };
    Find(FoundPlate{});
    recording_host::RecordingFrameDone done;
    OKM8::Analytics::IMediaReceiverSingle2& receiver = Detector();
    EXPECT_EQ(receiver.ReceiveSingle(recording_host::MakeFrame(counts, 640, 480, 100), nullptr, &done), 0);
    EXPECT_EQ(ErrorState(), Error(0, ""));
    EXPECT_EQ(done.buffers.size(), 1u);
    ASSERT_EQ(host.Events().size(), 1u);
    EXPECT_EQ(host.Events()[0].raised, 0);
    EXPECT_EQ(host.Events()[0].discarded, 1);
    EXPECT_THAT(Trace(),
                ElementsAre(LineOf("Recognize", "Frame count: 1 Iteration : 0 NumberOfPlate is 1"),
                            LineOf("CreateResult",
                                   "Create result: Plate = AB123C Rect = {100, 100, 160, 120} IsFinished = 1 Id = 0"),
                            LineOf("OnResult", "target lost"),
                            LineOf("OnMayReleaseLicencePlate", "Remove plate ID = 0, still left = 1")));
    EXPECT_THAT(Detector().pendingResults, IsEmpty());
    EXPECT_EQ(counts.released, 1);
    EXPECT_EQ(Frame(200), 0);
    End();
    EXPECT_EQ(host.Events().size(), 1u);
    EXPECT_EQ(host.Events()[0].discarded, 1);
}

TEST_P(ThrowingTarget, DoesNotPreventEventsOfTheNextPlates) {
    ReportAtOnce();
    host.onCall = [](const HostCall& call) {
        if (call.Sets(GetParam())) {
            throw std::runtime_error("target lost");
        }
    };
    Find(FoundPlate{});
    EXPECT_EQ(Frame(100), 0);
    ASSERT_EQ(host.Events().size(), 1u);
    host.onCall = nullptr;
    Find(FoundPlate{.text = "ZZ999Z", .left = 400, .right = 460});
    EXPECT_EQ(Frame(100000), 0);
    EXPECT_EQ(host.Events().front().discarded, 1);
    EXPECT_EQ(host.Events().back().raised, 1);
    EXPECT_EQ(LastTarget().Find("lp_wnum")->text, "ZZ999Z");
}

TEST_P(ThrowingTarget, DoesNotPreventEventsOfTheSameFramesOtherPlates) {
    ReportAtOnce();
    int thrown = 0;
    host.onCall = [&](const HostCall& call) {
        if (call.Sets(GetParam()) && thrown++ == 0) {
            throw 42;
        }
    };
    Find({RecordOf({.text = "AAAAAA"}), RecordOf({.text = "ZZZZZZ", .left = 400, .right = 460})});
    EXPECT_EQ(Frame(100), 0);
    ASSERT_EQ(host.Events().size(), 2u);
    EXPECT_EQ(host.Events().front().discarded, 1);
    EXPECT_EQ(host.Events().back().raised, 1);
    EXPECT_EQ(LastTarget().Find("lp_wnum")->text, "ZZZZZZ");
    EXPECT_EQ(counts.released, 1);
}

// The first text, the first number, the last number and the track.
INSTANTIATE_TEST_SUITE_P(AtEachKind, ThrowingTarget,
                         testing::Values(PlateKey::Text, PlateKey::CharacterCount, PlateKey::Bottom,
                                         PlateKey::AllTracks),
                         [](const auto& instance) { return std::string(instance.param); });

// One plate whose event failed every time prevented all later ones from being reported and removed, with their frames.
class PlateThatAlwaysThrows : public PlateEvents {
  protected:
    PlateThatAlwaysThrows() { fake_engine::StopRecording(); }  // copying all frames would take most of the time

    // Plays one plate after the other, each in two frames; returns how many frames the detector holds after each.
    std::vector<int> Play() {
        Settings().SetBoolValue("result_ready", true);
        Settings().SetIntValue("result_rec_count", 2);
        Settings().SetIntValue("result_wait_time", 1000000);
        std::vector<int> held;
        std::uint64_t time = 1000;
        for (int frame = 0; frame < 2 * plates; ++frame) {
            const std::string text(6, static_cast<char>('A' + frame / 2));
            const int x = 100 + 40 * (frame % 2);
            Find(FoundPlate{.text = text, .left = x, .right = x + 60});
            time += frame % 2 == 0 ? 2000U : 100U;
            const bool isReported = frame % 2 != 0;
            const std::int32_t expected = isReported && onReport ? onReport(frame / 2) : 0;
            EXPECT_EQ(Frame(time, 320, 240), expected);
            held.push_back(counts.made - counts.released);
        }
        FindNothing();
        for (int frame = 0; frame < 3; ++frame) {
            EXPECT_EQ(Frame(time += 2000, 320, 240), 0);
            held.push_back(counts.made - counts.released);
        }
        return held;
    }

    std::set<std::string> Raised() {
        std::set<std::string> raised;
        for (const RecordedEvent& event : host.Events()) {
            if (event.raised != 0) {
                raised.insert(TargetOf(event).Find("lp_wnum")->text);
            }
        }
        return raised;
    }

    static constexpr int plates = 24;
    std::function<std::int32_t(int plate)> onReport;  // called before the reporting frame; returns its code
};

TEST_F(PlateThatAlwaysThrows, DoesNotPreventOtherEventsAndHoldsNoFrameLongerThanASuccessfulEvent) {
    const std::vector<int> heldWithoutFailure = Play();
    EXPECT_EQ(Raised().size(), static_cast<std::size_t>(plates));
    EXPECT_EQ(heldWithoutFailure.back(), 0);
    End();
    const std::size_t before = host.Events().size();
    int thrown = 0;
    host.onCall = On(Operation::Raise, [&] {
        if (LastTarget().Find("lp_wnum")->text == "AAAAAA") {
            ++thrown;
            throw std::runtime_error("host lost");
        }
    });
    EXPECT_EQ(Play(), heldWithoutFailure);
    EXPECT_EQ(host.Events().size() - before, static_cast<std::size_t>(plates)) << "each plate once";
    EXPECT_EQ(thrown, 1);
    for (const RecordedEvent& event : host.Events()) {
        EXPECT_EQ(event.raised, 1);
        EXPECT_EQ(event.discarded, 0) << "a raised event is not discarded too";
    }
}

// A host that fails for every second plate.

struct LastingFailure {
    const char* description;
    bool Refusals::*refusal = nullptr;
    const char* throwingKey = nullptr;
    bool raiseThrows = false;
    bool throwsOther = false;
};

void PrintTo(const LastingFailure& failure, std::ostream* stream) {
    *stream << failure.description;
}

class HostThatKeepsFailing : public PlateThatAlwaysThrows, public testing::WithParamInterface<LastingFailure> {
  protected:
    void Throw() const {
        if (GetParam().throwsOther) {
            throw 42;
        }
        throw std::runtime_error("host lost");
    }
};

TEST_P(HostThatKeepsFailing, GetsAllOtherEventsAndItsFramesAsSoonAsWithoutAFailure) {
    const std::vector<int> heldWithoutFailure = Play();
    const std::set<std::string> raisedWithoutFailure = Raised();
    EXPECT_EQ(raisedWithoutFailure.size(), static_cast<std::size_t>(plates));
    End();
    const std::size_t before = host.Events().size();

    const LastingFailure& failure = GetParam();
    bool isFailing = false;
    onReport = [&](int plate) {
        isFailing = plate % 2 != 0;
        if (failure.refusal != nullptr) {
            host.refusals.*failure.refusal = isFailing;
        }
        return isFailing && failure.refusal != nullptr ? 1 : 0;
    };
    host.onCall = [&](const HostCall& call) {
        const bool isThrowing = call.operation == Operation::Raise
                                    ? failure.raiseThrows
                                    : failure.throwingKey != nullptr && call.Sets(failure.throwingKey);
        if (isFailing && isThrowing) {
            Throw();
        }
    };
    EXPECT_EQ(Play(), heldWithoutFailure);
    std::set<int> missing;
    for (int plate = 0; plate < plates; ++plate) {
        missing.insert(plate);
    }
    const std::vector<RecordedEvent> events = host.Events();
    for (std::size_t index = before; index < events.size(); ++index) {
        EXPECT_EQ(events[index].raised + events[index].discarded, 1);
        if (events[index].raised == 1) {
            EXPECT_EQ(missing.erase(TargetOf(events[index]).Find("lp_wnum")->text[0] - 'A'), 1u);
        }
    }
    EXPECT_EQ(missing.size(), static_cast<std::size_t>(failure.raiseThrows ? 0 : plates / 2));
    for (const int plate : missing) {
        EXPECT_EQ(plate % 2, 1) << "the host did not fail for this one";
    }
}

INSTANTIATE_TEST_SUITE_P(
    At, HostThatKeepsFailing,
    testing::Values(LastingFailure{.description = "Factory", .refusal = &Refusals::factory},
                    LastingFailure{.description = "Enumerator", .refusal = &Refusals::enumerator},
                    LastingFailure{.description = "Raiser", .refusal = &Refusals::raiser},
                    LastingFailure{.description = "Arguments", .refusal = &Refusals::arguments},
                    LastingFailure{.description = "Target", .refusal = &Refusals::target},
                    LastingFailure{.description = "Text", .throwingKey = PlateKey::Text},
                    LastingFailure{.description = "LastNumber", .throwingKey = PlateKey::Bottom, .throwsOther = true},
                    LastingFailure{.description = "Track", .throwingKey = PlateKey::AllTracks},
                    LastingFailure{.description = "Raise", .raiseThrows = true},
                    LastingFailure{.description = "RaiseOfAnotherException", .raiseThrows = true, .throwsOther = true}),
    [](const auto& instance) { return std::string(instance.param.description); });

// The tracker's reports, called as the tracker calls them.

class TrackerReports : public PlateEvents {
  protected:
    TrackerReports() {
        diagnostics::SetDebugLevel(1);
        Detector();
        output.Clear();
    }
    void AddPending(std::int32_t key) {
        Detector().pendingResults[key] =
            boost::make_shared<RecognitionResult>(Buffer(), PlateDescription{}, static_cast<std::uint32_t>(key), 5u);
    }
};

TEST_F(TrackerReports, AResultIsSentAndItsPendingEntryRemoved) {
    AddPending(3);
    AddPending(4);
    Detector().OnResult(nullptr, Reading(3), {Reading(3), Reading(2)}, 3);
    ASSERT_EQ(host.Events().size(), 1u);
    EXPECT_EQ(host.Events()[0].raised, 1);
    EXPECT_EQ(LastTarget().track.size(), 2u);
    EXPECT_THAT(Trace(), ElementsAre(LineOf("OnResult", "Send plate ID = 3 Tracks: 2"),
                                     LineOf("OnMayReleaseLicencePlate", "Remove plate ID = 3, still left = 2")));
    EXPECT_EQ(Detector().pendingResults.size(), 1u);
    EXPECT_EQ(Detector().pendingResults.count(4), 1u);
    EXPECT_EQ(counts.released, 1);
}

TEST_F(TrackerReports, AResultWithoutAPlateDoesNothing) {
    AddPending(0);
    Detector().OnResult(nullptr, {}, {Reading(0)}, 3);
    Detector().OnMayReleaseLicencePlate(nullptr, {});
    EXPECT_THAT(host.Events(), IsEmpty());
    EXPECT_THAT(Trace(), IsEmpty());
    EXPECT_EQ(Detector().pendingResults.size(), 1u);
}

TEST_F(TrackerReports, AResultOfAnUnknownIdIsNotSentAndItsRemovalIsTraced) {
    AddPending(3);
    Detector().OnResult(nullptr, Reading(8), {Reading(8)}, 0);
    EXPECT_THAT(host.Events(), IsEmpty());
    EXPECT_THAT(Trace(), ElementsAre(LineOf("OnMayReleaseLicencePlate", "Remove plate ID = 8, still left = 1")));
    EXPECT_EQ(Detector().pendingResults.size(), 1u);
}

TEST_F(TrackerReports, AnIdIsLookedUpByIts32BitsAndTracedWhole) {
    AddPending(-1);
    Detector().OnResult(nullptr, Reading(0x2FFFFFFFFu), {}, 0);
    EXPECT_EQ(host.Events().size(), 1u);
    EXPECT_THAT(Trace(),
                ElementsAre(LineOf("OnResult", "Send plate ID = 12884901887 Tracks: 0"),
                            LineOf("OnMayReleaseLicencePlate", "Remove plate ID = 12884901887, still left = 1")));
    EXPECT_THAT(Detector().pendingResults, IsEmpty());
}

TEST_F(TrackerReports, AReleasedReadingIsRemovedWithoutAnEvent) {
    AddPending(5);
    Detector().OnMayReleaseLicencePlate(nullptr, Reading(5));
    Detector().OnMayReleaseLicencePlate(nullptr, Reading(5));
    EXPECT_THAT(host.Events(), IsEmpty());
    EXPECT_THAT(Trace(), ElementsAre(LineOf("OnMayReleaseLicencePlate", "Remove plate ID = 5, still left = 1"),
                                     LineOf("OnMayReleaseLicencePlate", "Remove plate ID = 5, still left = 0")));
    EXPECT_EQ(counts.released, 1);
}

TEST_F(TrackerReports, AResultWhoseEventThrowsIsTracedAndRemovedAndNothingIsThrown) {
    AddPending(3);
    AddPending(4);
    host.onCall = On(Operation::Raise, [] { throw std::runtime_error("host lost"); });
    EXPECT_NO_THROW(Detector().OnResult(nullptr, Reading(3), {Reading(3)}, 3));
    host.onCall = On(Operation::Raise, [] { throw 42; });
    EXPECT_NO_THROW(Detector().OnResult(nullptr, Reading(4), {Reading(4)}, 3));
    EXPECT_THAT(Trace(), ElementsAre(LineOf("OnResult", "host lost"),
                                     LineOf("OnMayReleaseLicencePlate", "Remove plate ID = 3, still left = 2"),
                                     LineOf("OnResult", "Exception"),
                                     LineOf("OnMayReleaseLicencePlate", "Remove plate ID = 4, still left = 1")));
    EXPECT_THAT(Detector().pendingResults, IsEmpty());
    EXPECT_EQ(counts.released, 2);
    EXPECT_EQ(ErrorState(), Error(0, ""));
}

TEST_F(TrackerReports, AreSilentAtLevel0) {
    diagnostics::SetDebugLevel(0);
    AddPending(3);
    Detector().OnResult(nullptr, Reading(3), {}, 3);
    EXPECT_EQ(host.Events().size(), 1u);
    EXPECT_THAT(Trace(), IsEmpty());
}

// Another thread releases a result. It runs to its end wherever the results' lock is not held.

class ConcurrentRelease : public TrackerReports {
  protected:
    bool IsLocked() {
        bool isLocked = false;
        std::thread([&] {
            isLocked = !Detector().resultsMutex.try_lock();
            if (!isLocked) {
                Detector().resultsMutex.unlock();
            }
        }).join();
        return isLocked;
    }

    // Calls the action for every trace line during its lifetime.
    class OnTrace final : public platform::DebugOutputSink {
      public:
        explicit OnTrace(std::function<void(const char*)> onLine)
            : action_(std::move(onLine)), before_(platform::ExchangeDebugOutputSink(this)) {}
        ~OnTrace() override { platform::ExchangeDebugOutputSink(before_); }
        void Write(const char* text) override { action_(text); }
        void Write(const wchar_t*) override {}

      private:
        std::function<void(const char*)> action_;
        platform::DebugOutputSink* before_;
    };
};

TEST_F(ConcurrentRelease, WaitsUntilTheResultsEventHasBeenRaised) {
    AddPending(3);
    bool wasLocked = false;
    std::thread other;
    host.onCall = On(Operation::Raise, [&] {
        wasLocked = IsLocked();
        other = std::thread([&] { Detector().OnMayReleaseLicencePlate(nullptr, Reading(3)); });
        if (!wasLocked) {
            other.join();
        }
        EXPECT_EQ(counts.released, 0) << "the result was released while its event was being raised";
    });
    Detector().OnResult(nullptr, Reading(3), {Reading(3)}, 3);
    EXPECT_TRUE(wasLocked);
    ASSERT_EQ(host.Events().size(), 1u);
    if (other.joinable()) {
        other.join();
    }
    EXPECT_THAT(Detector().pendingResults, IsEmpty());
    EXPECT_EQ(counts.released, 1);
}

TEST_F(ConcurrentRelease, LocksTheResults) {
    AddPending(3);
    std::vector<bool> locked;
    {
        const OnTrace onTrace([&](const char* text) {
            if (std::strstr(text, "Remove plate ID = 3") != nullptr) {
                locked.push_back(IsLocked());
            }
        });
        Detector().OnMayReleaseLicencePlate(nullptr, Reading(3));
    }
    EXPECT_THAT(locked, ElementsAre(true));
    EXPECT_FALSE(IsLocked());
}

TEST_F(ConcurrentRelease, ContinuesWhenItsLineCannotBeWritten) {
    AddPending(3);
    {
        const OnTrace onTrace([](const char* text) {
            if (std::strstr(text, "Remove plate ID = 3") != nullptr) {
                throw std::runtime_error("no room for lines");
            }
        });
        EXPECT_NO_THROW(Detector().OnMayReleaseLicencePlate(nullptr, Reading(3)));
    }
    EXPECT_THAT(Detector().pendingResults, IsEmpty());
    EXPECT_EQ(counts.released, 1);
}

// For the thread sanitizer: a frame stores its results at the same time.
TEST_F(ConcurrentRelease, MayRunDuringFrames) {
    diagnostics::SetDebugLevel(0);
    constexpr std::uint64_t frames = 100;
    ReportAtOnce();
    std::atomic<bool> isOver = false;
    std::thread other([&] {
        for (std::uint64_t id = 1000000; !isOver; ++id) {
            Detector().OnMayReleaseLicencePlate(nullptr, Reading(id));
        }
    });
    for (std::uint64_t frame = 0; frame < frames; ++frame) {
        Find(FoundPlate{.text = "AB" + std::to_string(1000 + frame)});
        EXPECT_EQ(Frame(frame * 100000, 64, 48), 0);
        FindNothing();  // the track is lost
        EXPECT_EQ(Frame(frame * 100000 + 50000, 64, 48), 0);
    }
    isOver = true;
    other.join();
    EXPECT_EQ(host.Events().size(), frames);
}

// A frame inside the frame-done callback of another one: both use the same converter picture, tracker and table.
class FrameFromInsideFrameDone : public PlateEvents {
  protected:
    std::int32_t OuterFrame(std::uint64_t time, std::function<void()> inside) {
        recording_host::RecordingFrameDone callback(On(Operation::OnFrameDone, std::move(inside)));
        OKM8::Analytics::IMediaReceiverSingle2& receiver = Detector();
        return receiver.ReceiveSingle(recording_host::MakeFrame(counts, 640, 480, time), nullptr, &callback);
    }

    std::vector<std::string> RaisedTexts() {
        std::vector<std::string> texts;
        for (const RecordedEvent& event : host.Events()) {
            texts.push_back(event.raised == 1 ? TargetOf(event).Find("lp_wnum")->text : "not raised");
        }
        return texts;
    }
};

TEST_F(FrameFromInsideFrameDone, IsProcessedAndItsPlatesAreReportedAfterTheOuterFrames) {
    ReportAtOnce();
    Find(FoundPlate{.text = "AAAAAA"});
    EXPECT_EQ(OuterFrame(1000,
                         [&] {
                             Find(FoundPlate{.text = "ZZZZZZ", .left = 20, .right = 80});
                             EXPECT_EQ(Frame(1040, 320, 240), 0);
                         }),
              0);
    EXPECT_THAT(RaisedTexts(), ElementsAre("AAAAAA", "ZZZZZZ"));
    const auto calls = fake_engine::RecognizeCalls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].image.width, 640u);
    EXPECT_EQ(calls[1].image.width, 320u);
    FindNothing();
    EXPECT_EQ(Frame(1080), 0);
    EXPECT_EQ(counts.released, counts.made);
    EXPECT_THAT(Detector().pendingResults, IsEmpty());
}

TEST_F(FrameFromInsideFrameDone, HasItsOwnOutcomeWhenAnEventFails) {
    ReportAtOnce();
    host.refusals.raiser = true;
    Find(FoundPlate{.text = "AAAAAA"});
    EXPECT_EQ(OuterFrame(1000,
                         [&] {
                             host.refusals = {};
                             Find(FoundPlate{.text = "ZZZZZZ", .left = 400, .right = 460});
                             EXPECT_EQ(Frame(1040), 0);
                             EXPECT_EQ(ErrorState(), Error(0, ""));
                         }),
              1);
    EXPECT_EQ(ErrorState(), Error(1, "IDetectorEventRaiser getting error"));
    EXPECT_EQ(OuterFrame(100000,
                         [&] {
                             host.refusals.target = true;
                             Find(FoundPlate{.text = "MMMMMM", .left = 20, .right = 80});
                             EXPECT_EQ(Frame(200000), 1);
                             EXPECT_EQ(ErrorState(), Error(1, "ITargetAdjuster getting error"));
                         }),
              0);
    EXPECT_EQ(ErrorState(), Error(0, ""));
}

TEST_F(PlateEvents, SettersAndErrorReadsWorkFromInsideRaise) {
    int raised = 0;
    host.onCall = On(Operation::Raise, [&] {
        ++raised;
        EXPECT_EQ(Settings().SetIntValue("zone_width", 44), 0);
        OKM8::Analytics::IMediaReceiverSingle2& values = Detector();
        EXPECT_EQ(values.SetStringValue("anything", "x"), 0);
        EXPECT_EQ(ErrorState(), Error(0, ""));
        EXPECT_EQ(Settings().SetIntValue("nothing", 1), 2816);
        EXPECT_EQ(ErrorState(), Error(2816, "nothing"));
    });
    ReportAtOnce();
    Find(FoundPlate{});
    EXPECT_EQ(Frame(7), 0);
    EXPECT_EQ(raised, 1);
    EXPECT_EQ(Detector().zoneWidth, 44);
}

}  // namespace
