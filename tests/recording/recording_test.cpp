#include "tools/recording/recording.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <thread>

#include "tests/host/temporary_folder.h"
#include "tools/host/system.h"
#include "tools/recording/recording_writer.h"

namespace recording {
namespace {

using testing::HasSubstr;

const Run run{.recorder = "plate-host 1.2.3",
              .system = "linux",
              .library = "/a folder/libvexlane.so",
              .engine = "C:\\\xD0\x96\\Recon64.dll",
              .video = "rtsp://camera/\"1\"",
              .startTime = "2026-01-31T12:00:00Z"};

RPLATE Plate(const std::string& text, double confidence) {
    RPLATE plate = {};
    text.copy(plate.text, sizeof plate.text);
    SetConfidenceSum(plate, confidence);
    plate.corner1 = {-1, 2};
    plate.corner2 = {3, std::numeric_limits<std::int32_t>::max()};
    plate.corner3 = {std::numeric_limits<std::int32_t>::min(), 6};
    plate.corner4 = {7, 8};
    return plate;
}

/// A frame with a value in every field.
Frame FullFrame() {
    RPLATE foreign = Plate(
        "\xBE\xA9"
        "A12345",
        std::numeric_limits<double>::infinity());
    SetCountryCode(foreign, "GBR");
    RPLATE unusual = Plate(std::string("AB\0CD", 5), 540.1);
    unusual.country[11] = '\x80';
    const RPLATE full = Plate("ABCDEFGHIJKLMNOP", -0.0);
    Frame frame;
    frame.channel = 3;
    frame.number = 1'000'000'000'000;
    frame.timeMs = std::numeric_limits<std::uint64_t>::max();
    frame.isAfterVideo = true;
    frame.width = 1280;
    frame.height = 720;
    frame.size = 1280 * 720 * 3 / 2;
    frame.checksum = 0xFEDCBA9876543210;
    frame.ranges = {{10, 200, true}, {-1, 0, false}};
    frame.engineCalls = {
        {.width = 640,
         .height = 360,
         .region = tagRECT{-5, 6, 700, 800},
         .count = 7,
         .plates = {foreign, unusual, full, RPLATE{}, Plate("quote\"\\", std::nan("1"))},
         .microseconds = 31'000,
         .hasThrown = false},
        {.width = 1, .height = 2, .region = {}, .count = -1, .plates = {}, .microseconds = 0, .hasThrown = true}};
    frame.code = 2816;
    frame.error = "Wrong \"image\" format";
    frame.microseconds = 32'000;
    frame.events = {{.value = {{"channel", 3}, {"time_ms", 5}, {"text", "\xE4\xBA\xAC"}},
                     .crop = Crop{.left = 1, .top = 2, .width = 3, .height = 4, .jpegBase64 = "/9j/AA=="}},
                    {.value = {{"channel", 3}}, .crop = {}}};
    frame.failedEvents = {"CreateEventRaiser", "targets"};
    return frame;
}

class RecordingFile : public testing::Test {
  protected:
    Recording Read(const std::string& bytes) const {
        return ReadRecording(plate_host::ToPath(folder.Write("run.vxr", bytes)));
    }

    std::string ErrorOf(const std::string& bytes) const {
        try {
            Read(bytes);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "";
    }

    const host_test::TemporaryFolder folder;
    const std::string name = "\"" + folder.Path("run.vxr") + "\"";
};

TEST_F(RecordingFile, EveryFieldComesBack) {
    const Channel channel{.number = 3,
                          .settings = {{"zone_width", "40"}, {"name", "\xD0\x96 \"gate\""}, {"zone_width", "41"}},
                          .singleArea = {{1, 2, 30, 40}}};
    const Frame frame = FullFrame();
    const End end{.frames = 5, .events = 2, .seconds = 1.25};
    const std::string text = LineOf(run) + '\n' + LineOf(channel) + '\n' + LineOf(frame) + '\n' + LineOf(Frame()) +
                             '\n' + LineOf(end) + '\n';
    const Recording read = Read(text);
    ASSERT_EQ(read.channels.size(), 1u);
    ASSERT_EQ(read.frames.size(), 2u);
    ASSERT_TRUE(read.end.has_value());
    EXPECT_EQ(LineOf(read.run), LineOf(run));
    EXPECT_EQ(LineOf(read.channels[0]), LineOf(channel));
    EXPECT_EQ(LineOf(read.frames[0]), LineOf(frame));
    EXPECT_EQ(LineOf(read.frames[1]), LineOf(Frame()));
    EXPECT_EQ(LineOf(*read.end), LineOf(end));

    // What the line does not show: that no field is left out of it.
    EXPECT_EQ(read.run.recorder, run.recorder);
    EXPECT_EQ(read.run.system, run.system);
    EXPECT_EQ(read.run.library, run.library);
    EXPECT_EQ(read.run.engine, run.engine);
    EXPECT_EQ(read.run.video, run.video);
    EXPECT_EQ(read.run.startTime, run.startTime);
    EXPECT_EQ(read.channels[0].settings, channel.settings);
    EXPECT_EQ(read.channels[0].singleArea, channel.singleArea);
    const Frame& back = read.frames[0];
    EXPECT_EQ(back.channel, frame.channel);
    EXPECT_EQ(back.number, frame.number);
    EXPECT_EQ(back.timeMs, frame.timeMs);
    EXPECT_TRUE(back.isAfterVideo);
    EXPECT_EQ(back.width, frame.width);
    EXPECT_EQ(back.height, frame.height);
    EXPECT_EQ(back.size, frame.size);
    EXPECT_EQ(back.checksum, frame.checksum);
    EXPECT_EQ(back.ranges, frame.ranges);
    EXPECT_EQ(back.code, frame.code);
    EXPECT_EQ(back.error, frame.error);
    EXPECT_EQ(back.microseconds, frame.microseconds);
    EXPECT_EQ(back.failedEvents, frame.failedEvents);
    ASSERT_EQ(back.events.size(), frame.events.size());
    EXPECT_EQ(back.events[0].value.dump(), frame.events[0].value.dump()) << "with its keys in their order";
    ASSERT_TRUE(back.events[0].crop.has_value());
    EXPECT_EQ(back.events[0].crop->left, 1u);
    EXPECT_EQ(back.events[0].crop->top, 2u);
    EXPECT_EQ(back.events[0].crop->width, 3u);
    EXPECT_EQ(back.events[0].crop->height, 4u);
    EXPECT_EQ(back.events[0].crop->jpegBase64, "/9j/AA==");
    EXPECT_FALSE(back.events[1].crop.has_value());
    ASSERT_EQ(back.engineCalls.size(), 2u);
    EXPECT_EQ(back.engineCalls[0].width, 640u);
    EXPECT_EQ(back.engineCalls[0].height, 360u);
    EXPECT_EQ(back.engineCalls[0].count, 7);
    EXPECT_EQ(back.engineCalls[0].microseconds, 31'000u);
    EXPECT_FALSE(back.engineCalls[0].hasThrown);
    EXPECT_TRUE(back.engineCalls[1].hasThrown);
    ASSERT_TRUE(back.engineCalls[0].region.has_value());
    EXPECT_EQ(std::memcmp(&*back.engineCalls[0].region, &*frame.engineCalls[0].region, sizeof(tagRECT)), 0);
    EXPECT_FALSE(back.engineCalls[1].region.has_value());
    EXPECT_EQ(back.engineCalls[1].count, -1);
    EXPECT_EQ(read.end->frames, 5u);
    EXPECT_EQ(read.end->events, 2u);
    EXPECT_EQ(read.end->seconds, 1.25);
}

TEST_F(RecordingFile, PlatesComeBackByteForByte) {
    const Frame frame = FullFrame();
    const Recording read = Read(LineOf(run) + '\n' + LineOf(frame) + '\n');
    const std::vector<RPLATE>& plates = read.frames.at(0).engineCalls.at(0).plates;
    ASSERT_EQ(plates.size(), frame.engineCalls[0].plates.size());
    for (std::size_t index = 0; index < plates.size(); ++index) {
        EXPECT_EQ(std::memcmp(&plates[index], &frame.engineCalls[0].plates[index], sizeof(RPLATE)), 0) << index;
    }
}

TEST_F(RecordingFile, WhatIsNotReadOfAPlateIsLeftOut) {
    Frame frame;
    frame.engineCalls.resize(1);
    frame.engineCalls[0].plates = {Plate("AB", 1)};
    std::memset(frame.engineCalls[0].plates[0].notRead1, 1, sizeof RPLATE::notRead1);
    std::memset(frame.engineCalls[0].plates[0].notRead2, 1, sizeof RPLATE::notRead2);
    const RPLATE expected = Plate("AB", 1);
    const Recording read = Read(LineOf(run) + '\n' + LineOf(frame) + '\n');
    EXPECT_EQ(std::memcmp(&read.frames.at(0).engineCalls.at(0).plates.at(0), &expected, sizeof expected), 0);
}

TEST_F(RecordingFile, ATextThatIsNotUtf8KeepsTheLineReadable) {
    Frame frame;
    frame.code = 1;
    frame.error = "\xC3(";
    EXPECT_EQ(Read(LineOf(run) + '\n' + LineOf(frame) + '\n').frames.at(0).error, "\xEF\xBF\xBD(");
}

TEST_F(RecordingFile, ARecordingThatIsCutOffAnywhereKeepsItsWholeLines) {
    const std::string first = LineOf(run) + '\n';
    Frame frame;
    frame.ranges = {{10, 200, true}};
    const std::string line = LineOf(frame) + '\n';
    const std::string text = first + LineOf(FullFrame()) + '\n' + line + line;
    for (std::size_t cut = 0; cut <= 2 * line.size(); ++cut) {
        const Recording read = Read(text.substr(0, text.size() - cut));
        ASSERT_EQ(read.frames.size(), 1 + (2 * line.size() - cut) / line.size()) << cut;
        ASSERT_FALSE(read.end.has_value());
    }
    EXPECT_EQ(ErrorOf(""), name + " is not a recording: it has no first line");
    EXPECT_EQ(ErrorOf(first.substr(0, first.size() - 1)), name + " is not a recording: it has no first line");
}

TEST_F(RecordingFile, AnInvalidLineIsNamedByItsNumber) {
    const std::string first = LineOf(run) + '\n';
    EXPECT_THAT(ErrorOf("garbage\n"), testing::StartsWith(name + " is not a recording: line 1: "));
    EXPECT_THAT(ErrorOf(first + "{}\n{\n"), testing::StartsWith(name + " is not a recording: line 3: "));
    const auto inSecondLine = [&](const std::string& from, const std::string& to) {
        std::string line = LineOf(FullFrame());
        EXPECT_NE(line.find(from), std::string::npos) << from;
        return ErrorOf(first + line.replace(line.find(from), from.size(), to) + '\n');
    };
    const std::string start = name + " is not a recording: line 2: ";
    EXPECT_THAT(inSecondLine("\"size\":[1280,", "\"size\":["), testing::StartsWith(start));
    EXPECT_THAT(inSecondLine("\"us\":32000", "\"us\":\"long\""), testing::StartsWith(start));
    EXPECT_EQ(inSecondLine("fedcba9876543210", "fedcba987654321x"), start + "\"fedcba987654321x\" is not a checksum");
    EXPECT_EQ(inSecondLine("BEA9", "BEA"), start + "expected 32 hexadecimal digits");
    EXPECT_THAT(inSecondLine("BEA9", "BEAX"), testing::EndsWith(" is not hexadecimal"));
    EXPECT_EQ(inSecondLine("ABCDEFGHIJKLMNOP", "ABCDEFGHIJKLMNOPQ"), start + "text is longer than its field");
    EXPECT_EQ(ErrorOf(first + R"({"channel":0,"settings":[],"single_area":[1,2]})"
                              "\n"),
              start + "single_area does not have four numbers");
    Frame frame;
    frame.engineCalls.resize(1);
    frame.engineCalls[0].plates.resize(engineRecordCount + 1);
    EXPECT_EQ(ErrorOf(first + LineOf(frame) + '\n'), start + "an engine call has more than 5 plates");
}

TEST_F(RecordingFile, ANewerFormatIsRefusedAndOtherLinesOfThisOneAreNot) {
    const std::string first = LineOf(run);
    const std::string version = "\"recording\":" + std::to_string(formatVersion);
    ASSERT_THAT(first, HasSubstr(version));
    std::string newer = first;
    newer.replace(newer.find(version), version.size(), "\"recording\":" + std::to_string(formatVersion + 1));
    EXPECT_EQ(ErrorOf(newer + '\n'),
              name + " is not a recording: line 1: the recording has format 2; this program reads up to 1");
    EXPECT_EQ(Read(first + "\n{\"note\":1}\n" + LineOf(Frame()) + '\n').frames.size(), 1u);
}

TEST_F(RecordingFile, TheExamplesOfTheReadmeAreLinesOfARecording) {
    std::ifstream readme(RECORDING_README);
    std::string text;
    for (std::string line; std::getline(readme, line);) {
        text += line.starts_with("{\"") ? line + '\n' : "";
    }
    const Recording read = Read(text);
    ASSERT_EQ(read.channels.size(), 1u);
    ASSERT_EQ(read.frames.size(), 1u);
    ASSERT_TRUE(read.end.has_value());
    EXPECT_EQ(text, LineOf(read.run) + '\n' + LineOf(read.channels[0]) + '\n' + LineOf(read.frames[0]) + '\n' +
                        LineOf(*read.end) + '\n');
}

TEST_F(RecordingFile, AMissingFileIsNamed) {
    try {
        ReadRecording(plate_host::ToPath(folder.Path("none.vxr")));
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(), "cannot open the recording \"" + folder.Path("none.vxr") + "\"");
    }
}

TEST_F(RecordingFile, LinesOfSeveralThreadsStayWholeAndCanBeReadWhileTheyAreWritten) {
    const auto file = plate_host::ToPath(folder.Path("run.vxr"));
    RecordingWriter writer(file, run);
    constexpr int threadCount = 4;
    constexpr int frameCount = 50;
    std::vector<std::thread> threads;
    for (int channel = 0; channel < threadCount; ++channel) {
        threads.emplace_back([&writer, channel] {
            for (int number = 0; number < frameCount; ++number) {
                Frame frame = FullFrame();
                frame.channel = channel;
                frame.number = static_cast<std::uint64_t>(number);
                writer.Write(frame);
            }
        });
    }
    EXPECT_LE(ReadRecording(file).frames.size(), std::size_t{threadCount * frameCount});
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(writer.Error(), "");
    const Recording read = ReadRecording(file);
    EXPECT_EQ(read.frames.size(), std::size_t{threadCount * frameCount}) << "before the writer has ended";
    std::vector<std::uint64_t> next(threadCount, 0);
    for (const Frame& frame : read.frames) {
        EXPECT_EQ(frame.number, next.at(static_cast<std::size_t>(frame.channel))++);
    }
}

TEST_F(RecordingFile, AFileThatCannotBeCreatedIsAnError) {
    const auto file = plate_host::ToPath(folder.MakeFolder("occupied"));
    EXPECT_THAT([&] { RecordingWriter writer(file, run); },
                testing::ThrowsMessage<std::runtime_error>(testing::StartsWith("cannot write the recording \"")));
}

}  // namespace
}  // namespace recording
