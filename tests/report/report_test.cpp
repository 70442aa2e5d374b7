#include "tools/report/report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <random>
#include <sstream>
#include <stdexcept>

#include "tests/report/synthetic.h"
#include "tools/report/page_data.h"

namespace report {
namespace {

using recording::Json;
using report_test::PlainFrame;
using report_test::PlateEvent;
using report_test::RunWith;
using testing::HasSubstr;
using testing::Not;

constexpr char dataStart[] = "<script type=\"application/json\" id=\"data\">";

std::string DataTextOf(const std::string& page) {
    const std::size_t start = page.find(dataStart) + sizeof dataStart - 1;
    return page.substr(start, page.find("</script>", start) - start);
}

Json DataOf(const recording::Recording& recording, const ReportExtras& extras = {}) {
    return Json::parse(DataTextOf(MakeReport(recording, extras)));
}

std::size_t CountOf(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t place = text.find(part); place != std::string::npos; place = text.find(part, place + 1)) {
        ++count;
    }
    return count;
}

recording::Recording RunWithEvent(const recording::Event& event) {
    recording::Recording run = RunWith(0);
    run.frames.push_back(PlainFrame(0, 0, 0));
    run.frames.back().events.push_back(event);
    return run;
}

TEST(Report, WithoutPicturesThePageIsSmall) {
    EXPECT_LT(MakeReport(RunWith(0), {}).size(), 100'000U);
    recording::Recording hour = RunWith(0);
    for (std::uint64_t number = 0; number < 90'000; ++number) {
        hour.frames.push_back(PlainFrame(0, number, 40 * number));
    }
    EXPECT_LT(MakeReport(hour, {}).size(), 200'000U);
}

TEST(Report, ThePageLoadsNothing) {
    const std::string page = MakeReport(RunWith(40), {});
    EXPECT_THAT(page, HasSubstr("default-src 'none'; img-src data:; style-src 'sha256-"));
    for (const char* part :
         {"http:", "https:", "src=", "<link", "@import", "url(", "fetch(", "XMLHttpRequest", "eval("}) {
        EXPECT_THAT(page, Not(HasSubstr(part)));
    }
}

TEST(Report, EveryPlaceOfTheTemplateIsFilled) {
    const std::string page = MakeReport(RunWith(3), {});
    EXPECT_THAT(page, Not(HasSubstr("{{")));
    EXPECT_EQ(CountOf(page, "<script"), 3U);
    EXPECT_EQ(CountOf(page, "</script>"), 3U);
}

TEST(Report, TextsOfTheRunCannotLeaveTheirElement) {
    for (const std::string text : {"</script><script>injected = 1</script>", "<!--<script>",
                                   "<img src=x onerror=injected=1>", "]]>{{script}}", "\"'\\ \xE2\x80\xA8 &lt;b&gt;"}) {
        recording::Recording run = RunWithEvent(PlateEvent(0, 40, text));
        run.run.video = "/videos/" + text;
        run.channels[0].settings.emplace_back(text, text);
        run.frames[0].code = 1;
        run.frames[0].error = text;
        ReportExtras extras;
        extras.ledger = {{text, {{text, 1}}, true}};
        extras.notes = {text};
        extras.truth = {{std::nullopt, text, 0, 1000}};
        const std::string page = MakeReport(run, extras);
        EXPECT_THAT(DataTextOf(page), Not(HasSubstr("<")));
        EXPECT_EQ(CountOf(page, "<script"), 2U);
        const Json data = Json::parse(DataTextOf(page));
        EXPECT_EQ(data["events"][0]["text"], text);
        EXPECT_EQ(data["run"]["video"], "/videos/" + text);
        EXPECT_EQ(data["channels"][0]["settings"].back(), Json({text, text}));
        EXPECT_EQ(data["errors"][0], Json({text, 1}));
        EXPECT_EQ(data["ledger"][0]["lines"][0], Json({text, 1}));
        EXPECT_EQ(data["notes"][0], text);
    }
}

TEST(Report, BytesThatAreNotUtf8AreReplaced) {
    recording::Recording run = RunWith(0);
    run.run.video = "gate\xFF.mp4";
    EXPECT_EQ(DataOf(run)["run"]["video"], "gate\xEF\xBF\xBD.mp4");
}

TEST(Report, EventsHaveTheirValues) {
    recording::Event event = PlateEvent(1, 5000, "AB12CDE");
    event.crop = recording::Crop{100, 200, 300, 200, "/9j/4AAQ"};
    const std::string page = MakeReport(RunWithEvent(event), {});
    EXPECT_EQ(Json::parse(DataTextOf(page))["events"][0], Json::parse(R"({"channel":0,"time":5000,"text":"AB12CDE",
        "country":"GBR","confidence":65,"frame":[640,480],"plate":[200,300,300,320],"readings":2,"from":5000,"to":5200,
        "track":[200,310,220,320],"crop":[100,200,300,200],"picture":0})"));
    EXPECT_THAT(page, HasSubstr("<script type=\"text/plain\" class=\"pictures\">/9j/4AAQ</script>"));
}

TEST(Report, APictureThatIsNotBase64IsLeftOut) {
    recording::Event event = PlateEvent(0, 0, "AB12CDE");
    event.crop = recording::Crop{0, 0, 30, 20, "</script><script>injected = 1</script>"};
    const std::string page = MakeReport(RunWithEvent(event), {});
    EXPECT_THAT(page, Not(HasSubstr("injected")));
    EXPECT_FALSE(Json::parse(DataTextOf(page))["events"][0].contains("picture"));
}

TEST(Report, PicturesAreInElementsOfSixteen) {
    const std::string page = MakeReport(RunWith(33), {});
    EXPECT_EQ(CountOf(page, "class=\"pictures\""), 3U);
    EXPECT_EQ(Json::parse(DataTextOf(page))["events"][32]["picture"], 32);
}

TEST(Report, EventsOfUnexpectedTypesAreShownWithWhatTheyHave) {
    for (const char* text : {"null", "[]", "7", "{}", R"({"arguments":null,"track":7,"event":[]})",
                             R"({"arguments":{"lp_wnum":5,"confidence":"x","lpf_x1":1e300,"lpf_y1":99999999999},
                                 "track":[null,{"x":"1"},{"x":1,"y":2,"time":"infinity"}],"time":"now"})"}) {
        const Json data = DataOf(RunWithEvent({Json::parse(text), std::nullopt}));
        EXPECT_EQ(data["events"][0]["text"], "") << text;
        EXPECT_EQ(data["events"][0]["time"], 0) << text;
    }
}

TEST(Report, LongTracksKeepTheirEnds) {
    recording::Event event = PlateEvent(0, 0, "AB12CDE");
    event.value["track"] = Json::array();
    for (int x = 0; x <= 1000; ++x) {
        event.value["track"].push_back({{"x", x}, {"y", 5}, {"width", 0}, {"height", 0}, {"time", x}});
    }
    const Json track = DataOf(RunWithEvent(event))["events"][0]["track"];
    EXPECT_EQ(track.size(), 80U);
    EXPECT_EQ(track[0], 0);
    EXPECT_EQ(track[78], 1000);
}

TEST(Report, FailuresAreCountedByText) {
    recording::Recording run = RunWith(4);
    run.frames[0].code = run.frames[2].code = 1;
    run.frames[0].error = run.frames[2].error = "Wrong image format";
    run.frames[3].code = 7;
    run.frames[1].failedEvents = {"CreateTargetEnumerator"};
    const Json data = DataOf(run);
    EXPECT_EQ(data["errors"], Json::parse(R"([["Wrong image format",2],["error 7",1]])"));
    EXPECT_EQ(data["failed_events"], Json::parse(R"([["CreateTargetEnumerator",1]])"));
    EXPECT_EQ(data["run"]["frames_failed"], 3);
    EXPECT_EQ(data["channels"][0]["failed"], 2);
}

TEST(Report, ARecordingThatWasCutOffHasNoDuration) {
    recording::Recording run = RunWith(2);
    EXPECT_EQ(DataOf(run)["run"]["seconds"], 0.04);
    run.end.reset();
    EXPECT_FALSE(DataOf(run)["run"].contains("seconds"));
}

TEST(Report, ARecordingWithoutFramesIsAPage) {
    recording::Recording run;
    run.run.recorder = "engine";
    EXPECT_EQ(DataOf(run)["plot"]["frames_per_second"], Json::array());
}

TEST(Report, PlotsHaveTheSumsOfTheirFrames) {
    std::mt19937 random(1);
    for (const std::uint64_t spacing : {7U, 40U, 333U, 5000U, 1'000'000U}) {
        std::vector<recording::Frame> frames;
        for (std::uint64_t number = 0; number < 3000; ++number) {
            frames.push_back(PlainFrame(0, number, 1234 + number * spacing + random() % 20));
            frames.back().microseconds = random() % 50'000;
            if (random() % 5 == 0) {
                frames.back().engineCalls.clear();
            } else {
                frames.back().engineCalls[0].microseconds = random() % 40'000;
            }
        }
        const Plot plot = PlotOf(frames);
        ASSERT_LE(plot.points.size(), maximumPlotPoints);
        std::uint64_t start = plot.firstMs;
        for (const PlotPoint& point : plot.points) {
            PlotPoint expected;
            for (const recording::Frame& frame : frames) {
                if (frame.timeMs < start || frame.timeMs >= start + plot.stepMs) {
                    continue;
                }
                ++expected.frames;
                expected.microseconds += frame.microseconds;
                for (const recording::EngineCall& call : frame.engineCalls) {
                    ++expected.engineCalls;
                    expected.engineMicroseconds += call.microseconds;
                    expected.longestMicroseconds = std::max(expected.longestMicroseconds, call.microseconds);
                }
            }
            ASSERT_EQ(point, expected) << spacing << " at " << start;
            start += plot.stepMs;
        }
        EXPECT_TRUE(std::all_of(frames.begin(), frames.end(),
                                [&](const recording::Frame& frame) { return frame.timeMs < start; }));
    }
}

TEST(Report, PlotsAcceptAnyTimeStamps) {
    const auto last = std::numeric_limits<std::uint64_t>::max();
    const Plot plot = PlotOf({PlainFrame(0, 0, last), PlainFrame(0, 1, 0), PlainFrame(0, 2, last / 2)});
    EXPECT_LE(plot.points.size(), maximumPlotPoints);
    EXPECT_EQ(plot.points.front().frames, 1U);
    EXPECT_EQ(plot.points.back().frames, 1U);
    EXPECT_EQ(PlotOf({PlainFrame(0, 0, last)}).points.size(), 1U);
}

TEST(Report, PlotValuesArePerFrameAndPerCall) {
    recording::Recording run = RunWith(0);
    run.frames = {PlainFrame(0, 0, 0), PlainFrame(0, 1, 40)};
    run.frames[0].microseconds = 10'000;
    run.frames[1].microseconds = 30'000;
    run.frames[0].engineCalls[0].microseconds = 8'000;
    run.frames[1].engineCalls[0].microseconds = 20'000;
    run.frames.push_back(PlainFrame(0, 2, 600));
    run.frames[2].engineCalls.clear();
    EXPECT_EQ(DataOf(run)["plot"], Json::parse(R"({"first":0,"step":200,"frames_per_second":[50.0,null,null,98.0],
        "engine_mean":[14.0,null,null,null],"engine_longest":[20.0,null,null,null]})"));
}

TEST(Report, WritingReplacesTheFile) {
    const std::filesystem::path file =
        std::filesystem::temp_directory_path() / (u8"r\u00e9port" + std::u8string(1, u8'_'));
    std::ofstream(file) << "earlier";
    const recording::Recording run = RunWith(1);
    WriteReport(file, run, {});
    std::ostringstream written;
    written << std::ifstream(file, std::ios::binary).rdbuf();
    std::filesystem::remove(file);
    EXPECT_EQ(written.str(), MakeReport(run, {}));
}

TEST(Report, AFileThatCannotBeWrittenIsNamed) {
    try {
        WriteReport("no such folder/report.html", RunWith(0), {});
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), HasSubstr("cannot write the report \"no such folder/report.html\": "));
    }
}

}  // namespace
}  // namespace report
