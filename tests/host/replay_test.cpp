// Recordings of runs of the detector library: replayed, explained and cut.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "tests/host/json_lines.h"
#include "tests/host/pictures.h"
#include "tests/host/process.h"
#include "tests/host/temporary_folder.h"
#include "tools/recording/recording.h"

namespace host_test {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr int width = 320;
constexpr int height = 240;

Json Plate(const std::string& text, int left, int top) {
    return {{"text", text},
            {"confidence", 90 * text.size()},
            {"corners", {{left, top}, {left, top + 14}, {left + 60, top}, {left + 60, top + 14}}}};
}

/// Three vehicles, one after another and two at once, in 160 frames.
Json Script() {
    Json script{{"counting", "thread"}, {"frames", Json::array()}};
    for (int frame = 0; frame < 160; ++frame) {
        Json plates = Json::array();
        if (frame >= 5 && frame < 25) {
            plates.push_back(Plate(frame % 7 == 0 ? "AB1Z34" : "AB1234", 20 + (frame - 5) * 12, 100));
        }
        if (frame >= 110 && frame < 130) {
            plates.push_back(Plate("CD5678", 20 + (frame - 110) * 12, 40));
        }
        if (frame >= 115 && frame < 135) {
            plates.push_back(Plate("EF9012", 250 - (frame - 115) * 11, 180));
        }
        script["frames"].push_back({{"plates", plates}});
    }
    return script;
}

std::string GreyVideo(int frames) {
    std::string video = Y4mHeaderLine(width, height);
    for (int frame = 0; frame < frames; ++frame) {
        video += "FRAME\n" + std::string(width * height * 3 / 2, static_cast<char>(60 + frame));
    }
    return video;
}

class Recorded : public testing::Test {
  protected:
    /// Plays the scene and records it.
    Finished Record(const std::vector<std::string>& options = {}) {
        std::vector<std::string> arguments{"play",     "-",
                                           "--plugin", HOST_TEST_LIBRARY,
                                           "--engine", HOST_TEST_SCRIPTED_ENGINE,
                                           "--record", recording,
                                           "--set",    "zone_width=50",
                                           "--set",    "use_area=true",
                                           "--set",    "area_right=100",
                                           "--set",    "area_bottom=100"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        HostProcess process({.arguments = arguments, .environment = {{"VEXLANE_SCRIPT", script}}});
        process.WriteInput(GreyVideo(160));
        return process.Wait();
    }

    Finished Run(std::vector<std::string> arguments) const {
        if (arguments.front() == "replay") {
            arguments.insert(arguments.end(), {"--plugin", HOST_TEST_LIBRARY});
        }
        return RunHost(arguments);
    }

    /// Replaces a text in the recording.
    void Change(const std::string& from, const std::string& to) const {
        std::string text = ReadFile();
        const std::size_t place = text.rfind(from);
        ASSERT_NE(place, std::string::npos);
        folder.Write("run.vxr", text.replace(place, from.size(), to));
    }

    std::string ReadFile() const {
        std::ostringstream text;
        text << std::ifstream(plate_host::ToOpenPath(recording), std::ios::binary).rdbuf();
        return text.str();
    }

    const TemporaryFolder folder;
    const std::string script = folder.Write("script.json", Script().dump());
    const std::string recording = folder.Path("run.vxr");
};

TEST_F(Recorded, HasTheEventsThatThePlayPrints) {
    const Finished run = Record({"--json"});
    ASSERT_EQ(run.status, 0) << run.errors;
    std::vector<Json> lines = Lines(run.output);
    const Json summary = lines.back()["summary"];
    lines.pop_back();
    const recording::Recording recorded = recording::ReadRecording(plate_host::ToOpenPath(recording));
    std::vector<Json> events;
    for (const recording::Frame& frame : recorded.frames) {
        for (const recording::Event& event : frame.events) {
            events.push_back(event.value);
        }
        EXPECT_NE(frame.checksum, 0u);
        EXPECT_EQ(frame.engineCalls.size(), 1u);
        EXPECT_EQ(frame.ranges, (std::vector<recording::RangeCall>{{0, 160, true}}));
    }
    EXPECT_EQ(events, lines);
    EXPECT_EQ(events.size(), 3u);
    EXPECT_EQ(recorded.frames.size(), 160u + 110u);
    EXPECT_EQ(std::count_if(recorded.frames.begin(), recorded.frames.end(),
                            [](const auto& frame) { return frame.isAfterVideo; }),
              110);
    ASSERT_TRUE(recorded.end);
    EXPECT_EQ(recorded.end->events, 3u);
    ASSERT_EQ(recorded.channels.size(), 1u);
    EXPECT_EQ(recorded.channels[0].settings.front(), (std::pair<std::string, std::string>{"zone_width", "50"}));

    EXPECT_EQ(summary["ledger"]["closes"], true);
    EXPECT_EQ(summary["ledger"]["readings"]["all"], 60);
    EXPECT_EQ(summary["ledger"]["tracks"]["all"], 3);
    EXPECT_EQ(summary["ledger"]["events"]["raised"], 3);
    EXPECT_THAT(run.errors, HasSubstr("plate-host: ledger\n"));
    EXPECT_THAT(run.errors, testing::Not(HasSubstr("does not close")));
}

TEST_F(Recorded, ReplaysTheSame) {
    ASSERT_EQ(Record({"--channels", "2"}).status, 0);
    const Finished replay = Run({"replay", recording});
    EXPECT_EQ(replay.status, 0) << replay.output;
    EXPECT_THAT(replay.errors, HasSubstr("replayed 540 frames, 6 events: the same as recorded"));
    EXPECT_THAT(replay.output, IsEmpty());
}

TEST_F(Recorded, ReplaysSingleCallsTheSame) {
    ASSERT_EQ(Record({"--single", "0,0,100,100"}).status, 0);
    EXPECT_EQ(Run({"replay", recording}).status, 0);
}

TEST_F(Recorded, ReplaysTheSameAThousandTimes) {
    ASSERT_EQ(Record().status, 0);
    ASSERT_EQ(Run({"cut", recording, "--plate", "AB1234", "--output", folder.Path("cut.vxr")}).status, 0);
    // A tenth of them with sanitizers, which are slow.
    const Finished replay = Run(
        {"replay", folder.Path("cut.vxr"), "--times", std::to_string(HOST_TEST_ROUNDS), "--copies", "100", "--json"});
    EXPECT_EQ(replay.status, 0) << replay.output;
    const std::vector<Json> lines = Lines(replay.output);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0]["replay"]["events"], 100 * HOST_TEST_ROUNDS);
}

TEST_F(Recorded, ShowsWhatIsDifferent) {
    ASSERT_EQ(Record().status, 0);
    Change(R"("lp_wnum":"AB1234")", R"("lp_wnum":"AB12X4")");
    const Finished table = Run({"replay", recording});
    EXPECT_EQ(table.status, 1);
    EXPECT_THAT(table.output, AllOf(HasSubstr("recorded -> now"), HasSubstr(R"("AB12X4" -> "AB1234")")));
    EXPECT_THAT(table.errors, HasSubstr("plate-host: 1 differences"));

    const std::vector<Json> lines = Lines(Run({"replay", recording, "--json"}).output);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[1]["replay"]["same"], false);
    EXPECT_EQ(lines[0]["difference"]["recorded"], R"("AB12X4")");
    EXPECT_EQ(lines[0]["difference"]["now"], R"("AB1234")");
}

TEST_F(Recorded, ShowsAnotherQuestionToTheEngine) {
    ASSERT_EQ(Record().status, 0);
    const Finished replay = Run({"replay", recording, "--set", "zone_width=40", "--set", "area_left=10"});
    EXPECT_EQ(replay.status, 1);
    EXPECT_THAT(replay.output, AllOf(HasSubstr("0-160 -> 0-128"), HasSubstr("0,0,320,240 -> 32,0,320,240")));
}

TEST_F(Recorded, IsReplayedAfterACrash) {
    ASSERT_EQ(Record().status, 0);
    std::string text = ReadFile();
    folder.Write("run.vxr", text.substr(0, text.size() * 2 / 3));
    const Finished replay = Run({"replay", recording});
    EXPECT_EQ(replay.status, 0) << replay.output;
    EXPECT_THAT(replay.errors, AllOf(HasSubstr("the recording was cut off after frame "), HasSubstr("the same")));
}

TEST_F(Recorded, BesideTheEngineHasItsEventsPrinted) {
    ASSERT_EQ(Record().status, 0);
    std::string text = ReadFile();
    const std::size_t begin = text.find("\"recorder\":\"");
    const std::size_t end = text.find('"', begin + 12);
    folder.Write("run.vxr", text.replace(begin, end + 1 - begin, "\"recorder\":\"engine\""));
    const Finished replay = Run({"replay", recording});
    EXPECT_EQ(replay.status, 0) << replay.errors;
    EXPECT_EQ(Lines(replay.output).size(), 3u);
    EXPECT_THAT(replay.errors, HasSubstr("the events are printed and not compared"));
    EXPECT_THAT(replay.errors, testing::Not(HasSubstr("is asked for another")));
    EXPECT_THAT(Run({"replay", recording, "--set", "zone_width=40"}).errors,
                HasSubstr("is asked for another plate range than in the host, 0-128 instead of 0-160"));
}

TEST_F(Recorded, BecomesARecordingWithEventsByAReplay) {
    ASSERT_EQ(Record().status, 0);
    const std::string again = folder.Path("again.vxr");
    ASSERT_EQ(Run({"replay", recording, "--set", "result_ready=true", "--set", "result_rec_count=4", "--record", again})
                  .status,
              1)
        << "the events come earlier";
    EXPECT_EQ(Run({"replay", again}).status, 0);
    EXPECT_EQ(Run({"replay", again, "--record", again}).status, 2) << "it would be overwritten";
}

TEST_F(Recorded, TellsTheLifeOfAVehicle) {
    ASSERT_EQ(Record().status, 0);
    const Finished life = Run({"explain", recording, "--time", "0.5", "--plate", "AB1234"});
    EXPECT_EQ(life.status, 0);
    EXPECT_THAT(life.output, HasSubstr("a vehicle of channel 0, 20 readings: 17 x \"AB1234\", 3 x \"AB1Z34\""));
    EXPECT_THAT(life.output, HasSubstr("0.20 s  first reading: \"AB1234\", 90 %, 60 x 14 pixels at 20,100"));
    EXPECT_THAT(life.output, HasSubstr("reported because "));
    EXPECT_THAT(life.output, EndsWith("the event was raised\n"));
    EXPECT_THAT(life.output, testing::Not(HasSubstr("CD5678")));
}

TEST_F(Recorded, SaysWhatWasReadInsteadOfAVehicle) {
    ASSERT_EQ(Record().status, 0);
    const Finished none = Run({"explain", recording, "--time", "5", "--plate", "XYXYXY"});
    EXPECT_EQ(none.status, 1);
    EXPECT_THAT(none.output, AllOf(HasSubstr("no vehicle of that time and text was followed"),
                                   HasSubstr("the engine was asked for plates of 0 to 160 pixels width"),
                                   HasSubstr("it was asked to search 0,0 to 320,240 of 320 x 240 pixels"),
                                   HasSubstr("20 x \"CD5678\""), HasSubstr("20 x \"EF9012\"")));
    EXPECT_EQ(Run({"explain", recording}).status, 2);
    EXPECT_EQ(Run({"explain", recording, "--time", "1", "--channel", "3"}).status, 2);
}

TEST_F(Recorded, CutToAVehicleReplaysTheSame) {
    ASSERT_EQ(Record().status, 0);
    const std::string cut = folder.Path("cut.vxr");
    for (const char* const plate : {"AB1234", "CD5678", "EF9012"}) {
        ASSERT_EQ(Run({"cut", recording, "--plate", plate, "--output", cut}).status, 0) << plate;
        const recording::Recording part = recording::ReadRecording(plate_host::ToOpenPath(cut));
        EXPECT_LT(part.frames.size(), 150u) << plate;
        EXPECT_THAT(part.run.library + part.run.engine, testing::Not(HasSubstr("/"))) << "no paths";
        EXPECT_THAT(Run({"replay", cut}).errors, HasSubstr("the same as recorded")) << plate;
        EXPECT_THAT(Run({"explain", cut, "--plate", plate}).output, EndsWith("the event was raised\n")) << plate;
    }
}

TEST_F(Recorded, IsNotOverwrittenByItsCut) {
    ASSERT_EQ(Record().status, 0);
    const Finished cut = Run({"cut", recording, "--plate", "AB1234", "--output", recording});
    EXPECT_EQ(cut.status, 2);
    EXPECT_THAT(cut.errors, HasSubstr("would be overwritten"));
}

TEST_F(Recorded, CannotBeWrittenWhereThereIsNoFolder) {
    const Finished run = RunHost({"play", "-", "--plugin", HOST_TEST_LIBRARY, "--engine", HOST_TEST_SCRIPTED_ENGINE,
                                  "--record", folder.Path("none/run.vxr")},
                                 GreyVideo(1));
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.errors, HasSubstr("cannot write the recording \""));
}

TEST_F(Recorded, WithAReport) {
    const std::string out = folder.Path("out");
    HostProcess process({.arguments = {"play", "-", "--plugin", HOST_TEST_LIBRARY, "--engine",
                                       HOST_TEST_SCRIPTED_ENGINE, "--report", out},
                         .environment = {{"VEXLANE_SCRIPT", script}}});
    process.WriteInput(GreyVideo(160));
    const Finished run = process.Wait();
    ASSERT_EQ(run.status, 0) << run.errors;
    EXPECT_THAT(run.errors, HasSubstr("the report is "));
    EXPECT_TRUE(std::filesystem::is_regular_file(plate_host::ToOpenPath(folder.Path("out/report.html"))));
    const recording::Recording recorded = recording::ReadRecording(plate_host::ToOpenPath(folder.Path("out/run.vxr")));
    int crops = 0;
    for (const recording::Frame& frame : recorded.frames) {
        for (const recording::Event& event : frame.events) {
            crops += event.crop && !event.crop->jpegBase64.empty() ? 1 : 0;
        }
    }
    EXPECT_EQ(crops, 3);
}

}  // namespace
}  // namespace host_test
