#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/host/checksum.h"
#include "tests/host/pictures.h"
#include "tests/host/play_command.h"
#include "tests/host/process.h"
#include "tests/host/system_text.h"
#include "tests/host/temporary_folder.h"
#include "tools/host/system.h"

namespace host_test {
namespace {

using testing::HasSubstr;
using testing::Not;

TEST(Play, AnEventOfEveryFrameOfAFileIsALineWithItsTimeAndChecksum) {
    const TemporaryFolder folder;
    const std::string video = folder.Write("three.y4m", Y4mStream(32, 24, 3));
    const Finished run = RunHost(PlayCommand(video, {"test_event_every=1"}));
    ASSERT_EQ(run.status, 0) << run.errors;
    const std::vector<Json> events = Lines(run.output);
    ASSERT_EQ(events.size(), 3u);
    for (int frame = 0; frame < 3; ++frame) {
        const Json& event = events[static_cast<std::size_t>(frame)];
        const std::vector<std::uint8_t> picture = MakeI420(32, 24, frame);
        EXPECT_EQ(event["channel"], 0);
        EXPECT_EQ(event["event"], "event");
        EXPECT_EQ(event["time"], frame * 40);
        EXPECT_EQ(event["arguments"]["char_num"], frame + 1);
        EXPECT_EQ(event["arguments"]["lpf_x1"], 32);
        EXPECT_EQ(event["arguments"]["lpf_y1"], 24);
        EXPECT_EQ(event["arguments"]["lpf_x3"], 32 * 24 * 3 / 2);
        EXPECT_EQ(event["arguments"]["checksum"], std::to_string(Checksum(picture.data(), picture.size())));
    }
}

TEST(Play, AnEventLineHasItsKeysInOrderAndItsTrack) {
    const Finished run = RunHost(PlayCommand("-", {"test_event_every=2"}), Y4mStream(16, 16, 2));
    ASSERT_EQ(run.status, 0) << run.errors;
    EXPECT_THAT(
        run.output,
        testing::StartsWith(R"({"channel":0,"event":"event","time":40,"arguments":{"lp_wnum":"A123BC","char_num":2,)"
                            R"("country_code":"one","confidence":99,"direction":0,"lpf_x1":16,"lpf_y1":16,)"
                            R"("lpf_x3":384,"lpf_y3":0,"id":"","use_area":false,"checksum":")"));
    EXPECT_THAT(run.output, testing::EndsWith(R"("},"track":[{"x":1,"y":2,"width":30,"height":10,"time":40},)"
                                              R"({"x":-5,"y":6,"width":31,"height":11,"time":"infinity"}]})"
                                              "\n"));
}

TEST(Play, FurtherTargetsAreKept) {
    const Finished run =
        RunHost(PlayCommand("-", {"test_event_every=1", "test_two_targets=true"}), Y4mStream(16, 16, 1));
    const std::vector<Json> events = Lines(run.output);
    ASSERT_EQ(events.size(), 1u) << run.errors;
    EXPECT_EQ(events[0]["more_targets"].dump(), R"([{"arguments":{"second":true},"track":null}])");
}

TEST(Play, InvalidUtf8IsShownWithReplacementCharacters) {
    const Finished run =
        RunHost(PlayCommand("-", {"test_event_every=1", "test_broken_text=true"}), Y4mStream(16, 16, 1));
    ASSERT_EQ(run.status, 0) << run.errors;
    EXPECT_THAT(run.output, HasSubstr("\"lp_wnum\":\"\xEF\xBF\xBD(\xEF\xBF\xBDz\""));
}

TEST(Play, ASettingOfAnyCharactersReachesTheDetectorAndItsEvents) {
    // Cyrillic, a character beyond the Basic Multilingual Plane, a quotation mark after a backslash, and a backslash at
    // the end.
    const std::string text = "\xD0\x90 1\xF0\x9F\x9A\x97\\\"x\\";
    const Finished run = RunHost(PlayCommand("-", {"test_event_every=1", "test_text=" + text}), Y4mStream(16, 16, 1));
    ASSERT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(Lines(run.output).at(0)["arguments"]["lp_wnum"], text);
    EXPECT_THAT(run.output, HasSubstr("\xD0\x90 1\xF0\x9F\x9A\x97")) << "as it is, and not escaped";
}

TEST(Play, PathsMayContainSpacesAndAnyCharacters) {
    const TemporaryFolder folder;
    const std::string inner = "gate \xD0\x96\xC3\xA9\xE7\x89\x8C";
    folder.MakeFolder(inner);
    const std::string video = folder.Write(inner + "/road \xC3\xBC.y4m", Y4mStream(16, 16, 1));
    const std::string plugin = folder.Copy(HOST_TEST_PLUGIN, inner + "/plug in \xC3\xA5.dll");
    const std::string engine = folder.Copy(HOST_TEST_ENGINE_TWO, inner + "/" + plate_host::EngineFileName());
    const Finished run =
        RunHost({"play", video, "--plugin", plugin, "--engine", engine, "--set", "test_event_every=1"});
    ASSERT_EQ(run.status, 0) << run.errors;
    EXPECT_THAT(run.output, HasSubstr(R"("country_code":"two")"));

    const Finished missing = RunHost(PlayCommand(folder.Path(inner + "/none.y4m"), {}));
    EXPECT_EQ(missing.status, 2);
    EXPECT_THAT(missing.errors, HasSubstr("cannot open \"" + folder.Path(inner + "/none.y4m") + "\": "));
}

TEST(Play, AFileWithALongNameIsPlayed) {
    const TemporaryFolder folder;
    const std::string video = folder.Write(std::string(240, 'x') + ".y4m", Y4mStream(16, 16, 1));
    const Finished run = RunHost(PlayCommand(video, {"test_event_every=1"}));
    std::filesystem::remove(plate_host::ToOpenPath(video));
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(Lines(run.output).size(), 1u);
}

TEST(Play, LinesEndWithoutACarriageReturn) {
    const Finished run = RunHost(PlayCommand("-", {"test_event_every=1"}), Y4mStream(16, 16, 2));
    EXPECT_EQ(Lines(run.output).size(), 2u);
    EXPECT_THAT(run.output, Not(HasSubstr("\r")));
    EXPECT_THAT(run.errors, Not(HasSubstr("\r")));
    EXPECT_THAT(RunHost({"--help"}).output, Not(HasSubstr("\r")));
    EXPECT_THAT(RunHost({"info", "--plugin", HOST_TEST_PLUGIN, "--engine", HOST_TEST_ENGINE_ONE}).output,
                Not(HasSubstr("\r")));
}

TEST(Play, PipesAreReadAsBinary) {
    // All byte values, those of line ends and of the text end-of-file mark included.
    std::string stream = Y4mHeaderLine(32, 32, " F25:1 Cmono") + "FRAME\n";
    std::vector<std::uint8_t> plane;
    for (int index = 0; index < 32 * 32; ++index) {
        plane.push_back(static_cast<std::uint8_t>(index));
        stream.push_back(static_cast<char>(plane.back()));
    }
    const Finished run = RunHost(PlayCommand("-", {"test_event_every=1"}), stream);
    const std::vector<Json> events = Lines(run.output);
    ASSERT_EQ(events.size(), 1u) << run.errors;
    EXPECT_EQ(events[0]["arguments"]["checksum"], std::to_string(Checksum(plane.data(), plane.size())));
}

TEST(Play, TheLibraryBindsToTheNamedEngine) {
    std::vector<std::string> command = PlayCommand("-", {"test_event_every=1"});
    ReplaceEngine(command, HOST_TEST_ENGINE_TWO);
    const Finished run = RunHost(command, Y4mStream(16, 16, 1));
    ASSERT_EQ(run.status, 0) << run.errors;
    EXPECT_THAT(run.output, HasSubstr(R"("country_code":"two")"));
}

TEST(Play, EveryChannelsDetectorReceivesEveryFrameAndLinesAreWhole) {
    std::vector<std::string> command = PlayCommand("-", {"test_event_every=1"});
    command.insert(command.end(), {"--channels", "3"});
    const Finished run = RunHost(command, Y4mStream(16, 16, 40));
    ASSERT_EQ(run.status, 0) << run.errors;
    std::map<int, std::vector<int>> framesOfChannel;
    for (const Json& event : Lines(run.output)) {
        framesOfChannel[event["channel"].get<int>()].push_back(event["arguments"]["char_num"].get<int>());
    }
    ASSERT_EQ(framesOfChannel.size(), 3u);
    for (const auto& [channel, frames] : framesOfChannel) {
        ASSERT_EQ(frames.size(), 40u) << channel;
        for (std::size_t index = 0; index < frames.size(); ++index) {
            EXPECT_EQ(frames[index], static_cast<int>(index) + 1) << channel;
        }
    }
    EXPECT_THAT(run.errors, HasSubstr("120 passed, 120 released"));
}

TEST(Play, AnOddPictureLosesItsLastColumnAndRow) {
    const Finished run = RunHost(PlayCommand("-", {"test_event_every=1"}), Y4mStream(7, 5, 1));
    const std::vector<Json> events = Lines(run.output);
    ASSERT_EQ(events.size(), 1u) << run.errors;
    std::vector<std::uint8_t> expected;
    const std::vector<std::uint8_t> whole = MakeI420(7, 5, 0);
    const auto take = [&](std::size_t offset, std::size_t stride, std::size_t width, std::size_t height) {
        for (std::size_t y = 0; y < height; ++y) {
            for (std::size_t x = 0; x < width; ++x) {
                expected.push_back(whole[offset + y * stride + x]);
            }
        }
    };
    take(0, 7, 6, 4);
    take(35, 4, 3, 2);
    take(35 + 12, 4, 3, 2);
    EXPECT_EQ(events[0]["arguments"]["lpf_x1"], 6);
    EXPECT_EQ(events[0]["arguments"]["lpf_y1"], 4);
    EXPECT_EQ(events[0]["arguments"]["checksum"], std::to_string(Checksum(expected.data(), expected.size())));
}

TEST(Play, AMonoStreamIsPassedOnAsLuminanceOnly) {
    const std::vector<std::uint8_t> plane = MakePlane(16, 8, 0, 0);
    const std::string stream =
        Y4mHeaderLine(16, 8, " F25:1 Cmono") + "FRAME\n" + std::string(plane.begin(), plane.end());
    const Finished run = RunHost(PlayCommand("-", {"test_event_every=1"}), stream);
    const std::vector<Json> events = Lines(run.output);
    ASSERT_EQ(events.size(), 1u) << run.errors;
    EXPECT_EQ(events[0]["arguments"]["lpf_x3"], 16 * 8);
    EXPECT_EQ(events[0]["arguments"]["checksum"], std::to_string(Checksum(plane.data(), plane.size())));
}

TEST(Play, TheFramesOptionLimitsTheRun) {
    std::vector<std::string> command = PlayCommand("-", {"test_event_every=1"});
    command.insert(command.end(), {"--frames", "2"});
    const Finished run = RunHost(command, Y4mStream(16, 16, 10));
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(Lines(run.output).size(), 2u);
}

std::string ChecksumOfEmptyScene(std::size_t bytes) {
    const std::vector<std::uint8_t> grey(bytes, 128);
    return std::to_string(Checksum(grey.data(), grey.size()));
}

TEST(Play, FourSecondsAndTenEmptyFramesFollowTheVideoAtItsRate) {
    std::string stream = Y4mHeaderLine(32, 16, " F10:1");
    for (int frame = 0; frame < 3; ++frame) {
        stream += Y4mFrame(32, 16, frame);
    }
    const Finished run = RunHost(PlayCommand("-", {"test_event_every=1"}, Drain::Yes), stream);
    ASSERT_EQ(run.status, 0) << run.errors;
    const std::vector<Json> events = Lines(run.output);
    ASSERT_EQ(events.size(), 3u + 50u);
    for (std::size_t index = 0; index < events.size(); ++index) {
        EXPECT_EQ(events[index]["time"], 100 * index);
        EXPECT_EQ(events[index]["arguments"]["checksum"] == ChecksumOfEmptyScene(32 * 16 * 3 / 2), index >= 3) << index;
    }
    EXPECT_THAT(run.errors, testing::ContainsRegex("frames of the video +3\n"));
    EXPECT_THAT(run.errors, testing::ContainsRegex("after the video +50 empty frames, events: 50\n"));
    EXPECT_THAT(run.errors, HasSubstr("53 passed, 53 released"));
}

TEST(Play, EmptyFramesHaveTheLayoutOfTheVideo) {
    const std::vector<std::uint8_t> plane = MakePlane(16, 8, 0, 0);
    const std::string stream =
        Y4mHeaderLine(16, 8, " F25:1 Cmono") + "FRAME\n" + std::string(plane.begin(), plane.end());
    const Finished run = RunHost(PlayCommand("-", {"test_event_every=1"}, Drain::Yes), stream);
    const std::vector<Json> events = Lines(run.output);
    ASSERT_EQ(events.size(), 111u) << run.errors;
    EXPECT_EQ(events.back()["arguments"]["lpf_x3"], 16 * 8);
    EXPECT_EQ(events.back()["arguments"]["checksum"], ChecksumOfEmptyScene(16 * 8));
}

TEST(Play, EmptyFramesFollowOnEveryChannelAfterALimitedVideo) {
    std::vector<std::string> command = PlayCommand("-", {"test_event_every=1"}, Drain::Yes);
    command.insert(command.end(), {"--channels", "2", "--frames", "2"});
    const Finished run = RunHost(command, Y4mStream(16, 16, 10));
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(Lines(run.output).size(), 2 * 112u);
    EXPECT_THAT(run.errors, testing::ContainsRegex("after the video +110 empty frames, events: 220\n"));
}

TEST(Play, AReferenceEngineInItsOwnFolderIsTheDefault) {
    for (const std::string inner : {"reference-engine", "reading"}) {
        const TemporaryFolder folder;
        const std::string program = CopyHost(folder);
        folder.MakeFolder(inner);
        const std::string engine = folder.Copy(HOST_TEST_ENGINE_TWO, inner + "/" + plate_host::EngineFileName());
        HostProcess process({.program = plate_host::ToPath(program),
                             .arguments = {"play", "-", "--plugin", HOST_TEST_PLUGIN, "--set", "test_event_every=1"}});
        process.WriteInput(Y4mStream(16, 16, 1));
        const Finished run = process.Wait();
        EXPECT_EQ(run.status, 0) << run.errors;
        EXPECT_THAT(run.output, HasSubstr(R"("country_code":"two")"));
        EXPECT_THAT(run.errors, HasSubstr("plate-host: no --engine: using the reference engine \"" +
                                          plate_host::ToText(plate_host::ToPath(engine).make_preferred()) + "\"\n"));
    }
}

TEST(Play, AnEngineBesideTheProgramIsPreferredToTheReferenceEngine) {
    const TemporaryFolder folder;
    const std::string program = CopyHost(folder);
    folder.MakeFolder("reference-engine");
    folder.Copy(HOST_TEST_ENGINE_TWO, std::string("reference-engine/") + plate_host::EngineFileName());
    folder.Copy(HOST_TEST_ENGINE_ONE, plate_host::EngineFileName());
    HostProcess process({.program = plate_host::ToPath(program),
                         .arguments = {"play", "-", "--plugin", HOST_TEST_PLUGIN, "--set", "test_event_every=1"}});
    process.WriteInput(Y4mStream(16, 16, 1));
    const Finished run = process.Wait();
    EXPECT_THAT(run.output, HasSubstr(R"("country_code":"one")"));
    EXPECT_THAT(run.errors, Not(HasSubstr("reference engine")));
}

TEST(Play, AnEngineMayHaveAnyNameWhereItsCallsAreFollowed) {
    std::vector<std::string> command = PlayCommand("-", {"test_event_every=1"});
    ReplaceEngine(command, HOST_TEST_ENGINE_MISNAMED);
    EXPECT_THAT(RunHost(command, Y4mStream(16, 16, 1)).output, HasSubstr(R"("country_code":"misnamed")"));
    ReplaceEngine(command, HOST_TEST_PLUGIN);
    EXPECT_THAT(RunHost(command, Y4mStream(16, 16, 1)).errors, HasSubstr("is not an engine: "));
}

TEST(Play, SinglePassesTheAreaAndCountsTheFrameDoneCalls) {
    std::vector<std::string> command = PlayCommand("-", {"test_event_every=1", "test_fail_every=3"});
    command.insert(command.end(), {"--single", "10,-20,30,40"});
    const Finished run = RunHost(command, Y4mStream(16, 16, 3));
    ASSERT_EQ(run.status, 0) << run.errors;
    EXPECT_THAT(run.output, HasSubstr(R"("area_left":10,"area_top":-20,"area_right":30,"area_bottom":40)"));
    EXPECT_THAT(run.errors, testing::ContainsRegex("frame-done calls +2\n"));
}

TEST(Play, WithoutSingleThereIsNoAreaAndNoFrameDoneLine) {
    const Finished run = RunHost(PlayCommand("-", {"test_event_every=1"}), Y4mStream(16, 16, 1));
    EXPECT_THAT(run.output, Not(HasSubstr("area_left")));
    EXPECT_THAT(run.errors, Not(HasSubstr("frame-done")));
}

TEST(Play, AHeldFrameHasNoFrameDoneCall) {
    std::vector<std::string> command = PlayCommand("-", {"test_hold_frames=true"});
    command.insert(command.end(), {"--single", "0,0,0,0"});
    const Finished run = RunHost(command, Y4mStream(16, 16, 3));
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_THAT(run.errors, testing::ContainsRegex("frame-done calls +0\n"));
}

TEST(Play, AFrameDoneCallWithAnotherBufferIsADefect) {
    std::vector<std::string> command = PlayCommand("-", {"test_wrong_done=true"});
    command.insert(command.end(), {"--single", "0,0,0,0"});
    const Finished run = RunHost(command, Y4mStream(16, 16, 2));
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.errors, HasSubstr("error: 2 frame-done calls were repeated or passed a wrong buffer"));
}

TEST(Play, FailedFramesAreCountedByTheirText) {
    const Finished run = RunHost(PlayCommand("-", {"test_fail_every=2"}), Y4mStream(16, 16, 5));
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_THAT(run.errors, testing::ContainsRegex("frames failed +2\n"));
    EXPECT_THAT(run.errors, HasSubstr("2 x code 1, \"asked to fail\"\n"));
}

TEST(Play, AnExceptionFromTheDetectorIsAFailedFrame) {
    const Finished run = RunHost(PlayCommand("-", {"test_throws=true"}), Y4mStream(16, 16, 2));
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_THAT(run.errors, HasSubstr("2 x an exception left the detector: \"thrown by the test\""));
}

TEST(Play, BuffersThatAreNotReleasedAreADefect) {
    const Finished run = RunHost(PlayCommand("-", {"test_keep_buffers=2"}), Y4mStream(16, 16, 5), LeaksAllowed::Yes);
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.errors, HasSubstr("plate-host: error: only 3 of 5 buffers were released\n"));
}

TEST(Play, ARaiserThatIsNeitherRaisedNorDiscardedIsADefect) {
    const Finished run =
        RunHost(PlayCommand("-", {"test_event_every=1", "test_lose_raiser=true"}), Y4mStream(16, 16, 2));
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.errors, HasSubstr("error: only 0 of 2 event raisers were raised or discarded"));
}

TEST(Play, ATargetListWithoutEventIsADefect) {
    const Finished run =
        RunHost(PlayCommand("-", {"test_event_every=1", "test_lose_targets=true"}), Y4mStream(16, 16, 2));
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.errors, HasSubstr("error: 2 target lists were not attached to an event"));
}

TEST(Play, ADiscardedEventIsNotPrinted) {
    const Finished run = RunHost(PlayCommand("-", {"test_event_every=1", "test_discard=true"}), Y4mStream(16, 16, 2));
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(run.output, "");
    EXPECT_THAT(run.errors, HasSubstr("2 created, 0 raised, 2 discarded"));
}

TEST(Play, AClosedOutputEndsAnEndlessVideoQuietly) {
    HostProcess process({.arguments = PlayCommand("-", {"test_event_every=1"})});
    process.WriteInput(Y4mStream(16, 16, 1));
    process.WaitForOutput("\n");
    process.CloseOutput();
    // The input stays open: the run ends without it, while frames still arrive.
    for (int frame = 1; process.Errors().find("unloaded") == std::string::npos; ++frame) {
        process.WriteInput(Y4mFrame(16, 16, frame));
        process.PumpOnce();
    }
    const Finished run = process.Wait();
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(run.signal, 0);
    EXPECT_THAT(run.errors, Not(HasSubstr("error")));
}

TEST(Play, AnOutputThatCannotBeWrittenIsAnError) {
    HostProcess process({.arguments = PlayCommand("-", {"test_event_every=1"}), .outputIsUnwritable = true});
    process.WriteInput(Y4mStream(16, 16, 3));
    const Finished run = process.Wait();
    EXPECT_EQ(run.status, 1) << run.errors;
    EXPECT_THAT(run.errors,
                HasSubstr("plate-host: error: cannot write the events: " + SystemText::UnwritableOutput() + "\n"));
}

TEST(Play, TheVideoFileDoesNotReplaceAMissingOutput) {
    const TemporaryFolder folder;
    const std::string video = folder.Write("video.y4m", Y4mStream(16, 16, 2));
    HostProcess process({.arguments = PlayCommand(video, {"test_event_every=1"}), .outputIsMissing = true});
    const Finished run = process.Wait();
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_THAT(run.errors, HasSubstr("2 of them plates\n"));
}

TEST(Play, ATruncatedStreamIsPlayedToItsEndAndReported) {
    std::string stream = Y4mStream(16, 16, 3);
    stream.resize(stream.size() - 5);
    const Finished run = RunHost(PlayCommand("-", {"test_event_every=1"}), stream);
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(Lines(run.output).size(), 2u);
    EXPECT_THAT(run.errors, testing::ContainsRegex("video is damaged +frame 2 is cut off\n"));
}

TEST(Play, ABrokenFrameInTheMiddleEndsTheVideoAndIsReported) {
    const std::string stream = Y4mStream(16, 16, 2) + "NOISE\n" + Y4mFrame(16, 16, 2);
    const Finished run = RunHost(PlayCommand("-", {"test_event_every=1"}), stream);
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(Lines(run.output).size(), 2u);
    EXPECT_THAT(run.errors, HasSubstr("frame 2 does not begin with FRAME\n"));
}

TEST(Play, TheLibraryIsFinalizedInOrder) {
    std::vector<std::string> command = PlayCommand("-", {});
    command.insert(command.end(), {"--channels", "2"});
    const Finished run = RunHost(command, Y4mStream(16, 16, 1));
    EXPECT_THAT(run.errors, testing::StartsWith("plate-host: log 3: detector made\n"
                                                "plate-host: log 3: detector made\n"
                                                "plate-host: log 3: detector destroyed\n"
                                                "plate-host: log 3: detector destroyed\n"
                                                "plate-host: log 3: module finalized\n"
                                                "test plug-in unloaded\n"
                                                "plate-host: summary\n"));
}

TEST(Play, RealtimePlaysAtTheVideosSpeed) {
    std::vector<std::string> command = PlayCommand("-", {"test_event_every=1"});
    command.emplace_back("--realtime");
    std::string stream = Y4mHeaderLine(16, 16, " F10:1");
    for (int frame = 0; frame < 4; ++frame) {
        stream += Y4mFrame(16, 16, frame);
    }
    const auto start = std::chrono::steady_clock::now();
    const Finished run = RunHost(command, stream);
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_GE(elapsed, std::chrono::milliseconds(300));
    const std::vector<Json> events = Lines(run.output);
    ASSERT_EQ(events.size(), 4u);
    EXPECT_EQ(events[3]["time"], 300);
}

}  // namespace
}  // namespace host_test
