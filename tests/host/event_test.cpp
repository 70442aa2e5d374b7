#include "tools/host/event.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "tools/host/event_printer.h"

namespace plate_host {
namespace {

using OKM8::Analytics::TrackPoint;
using OKM8::Analytics::TrackPointList;
using OKM8::Analytics::TrackTimeEpoch;

TEST(Event, TrackTimesAreMillisecondsSince1970RoundedDown) {
    EXPECT_EQ(TrackTimeToJson(TrackTimeEpoch), 0);
    EXPECT_EQ(TrackTimeToJson(TrackTimeEpoch + 1999), 1);
    EXPECT_EQ(TrackTimeToJson(TrackTimeEpoch - 1), -1);
    EXPECT_EQ(TrackTimeToJson(-1), -TrackTimeEpoch / 1000 - 1);
}

TEST(Event, SpecialTrackTimesAreNotNumbers) {
    constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
    EXPECT_EQ(TrackTimeToJson(largest), "infinity");
    EXPECT_TRUE(TrackTimeToJson(largest - 1).is_null());
    EXPECT_EQ(TrackTimeToJson(std::numeric_limits<std::int64_t>::min()), "-infinity");
    EXPECT_TRUE(TrackTimeToJson(largest - 2).is_number());
    EXPECT_TRUE(TrackTimeToJson(std::numeric_limits<std::int64_t>::min() + 1).is_number());
}

TEST(Event, AnEmptyTrackIsAnEmptyArray) {
    EXPECT_EQ(TrackToJson({nullptr, nullptr, nullptr}).dump(), "[]");
    const TrackPoint point{};
    EXPECT_EQ(TrackToJson({&point, &point, &point + 1}).dump(), "[]");
}

TEST(Event, ATrackThatEndsBeforeItBeginsIsNotRead) {
    const TrackPoint points[2]{};
    EXPECT_TRUE(TrackToJson({points + 1, points, points + 2}).is_null());
    EXPECT_TRUE(TrackToJson({points, points + 2, points + 1}).is_null());
}

TEST(Event, BytesAreHexadecimalDigits) {
    const unsigned char bytes[]{0x00, 0x0A, 0xF5};
    EXPECT_EQ(ToHexadecimal(bytes, 3), "000af5");
    EXPECT_EQ(ToHexadecimal(nullptr, 0), "");
}

TEST(Event, AnEventWithoutTargetHasEmptyArgumentsAndNoTrack) {
    EventRecord event;
    event.channel = 3;
    event.name = "NUMBER_LOST";
    event.timeMs = -1;
    EXPECT_EQ(ToJsonLine(event), R"({"channel":3,"event":"NUMBER_LOST","time":-1,"arguments":{},"track":null})"
                                 "\n");
}

TEST(Event, OtherAttachedObjectsAreNamed) {
    EventRecord event;
    event.otherObjects = {"image"};
    EXPECT_THAT(ToJsonLine(event), testing::HasSubstr(R"("objects":["image"])"));
}

TEST(Event, InvalidUtf8DoesNotThrow) {
    EventRecord event;
    event.name = "\xFE";
    event.otherObjects = {"\xC0"};
    event.targets.emplace_back();
    event.targets[0].arguments["\xFF"] = "\x80";
    event.targets[0].arguments["number"] = std::numeric_limits<double>::quiet_NaN();
    const Json line = Json::parse(ToJsonLine(event));
    EXPECT_EQ(line["event"], "\xEF\xBF\xBD");
    EXPECT_EQ(line["arguments"]["\xEF\xBF\xBD"], "\xEF\xBF\xBD");
    EXPECT_TRUE(line["arguments"]["number"].is_null());
}

/// Accepts lines until it is full.
class Output {
  public:
    Output(std::size_t room, std::string error) : room_(room), error_(std::move(error)) {}

    EventPrinter::Output Function() {
        return [this](std::string_view line) -> WriteResult {
            ++callCount;
            if (lines.size() == room_) {
                return {.isWritten = false, .error = error_};
            }
            lines.emplace_back(line);
            return {};
        };
    }

    std::vector<std::string> lines;
    int callCount = 0;

  private:
    const std::size_t room_;
    const std::string error_;
};

class EventPrinting : public testing::Test {
  protected:
    static EventRecord Named(const char* name) {
        EventRecord event;
        event.name = name;
        return event;
    }

    Console console{false};
};

TEST_F(EventPrinting, CountsEventsAndPlates) {
    Output output(2, "");
    EventPrinter printer(output.Function(), console);
    printer.OnEvent(Named("event"));
    printer.OnEvent(Named("NUMBER_LOST"));
    EXPECT_EQ(printer.EventCount(), 2u);
    EXPECT_EQ(printer.PlateCount(), 1u);
    EXPECT_FALSE(printer.HasEnded());
    EXPECT_EQ(printer.Error(), "");
    EXPECT_THAT(output.lines, testing::ElementsAre(ToJsonLine(Named("event")), ToJsonLine(Named("NUMBER_LOST"))));
}

TEST_F(EventPrinting, EndsWithTheFirstLineThatCannotBeWritten) {
    Output output(1, "the disk is full");
    EventPrinter printer(output.Function(), console);
    for (int count = 0; count < 3; ++count) {
        printer.OnEvent(Named("event"));
    }
    EXPECT_TRUE(printer.HasEnded());
    EXPECT_EQ(printer.Error(), "the disk is full");
    EXPECT_EQ(output.callCount, 2);
    EXPECT_EQ(printer.EventCount(), 3u);
}

TEST_F(EventPrinting, AClosedReaderIsNotAnError) {
    Output output(0, "");
    EventPrinter printer(output.Function(), console);
    printer.OnEvent(Named("event"));
    EXPECT_TRUE(printer.HasEnded());
    EXPECT_EQ(printer.Error(), "");
}

}  // namespace
}  // namespace plate_host
