#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/host/checksum.h"
#include "tests/host/pictures.h"
#include "tests/host/play_command.h"
#include "tests/host/process.h"
#include "tests/host/temporary_folder.h"
#include "tools/host/ffmpeg_reader.h"

namespace host_test {
namespace {

using testing::HasSubstr;
using testing::Not;

class FfmpegVideo : public testing::Test {
  protected:
    /// A video that the build has written.
    static std::string Video(const std::string& name) { return std::string(HOST_TEST_VIDEOS "/") + name; }

    std::string Truncated(const std::string& name, double part) const {
        const std::string video = folder.Copy(Video(name), "gekürzt " + name);
        const std::filesystem::path path = plate_host::ToPath(video);
        std::filesystem::resize_file(
            path, static_cast<std::uintmax_t>(part * static_cast<double>(std::filesystem::file_size(path))));
        return video;
    }

    std::vector<plate_host::Picture> ReadAll(const std::string& path) {
        reader = plate_host::OpenFfmpegVideo(path, {});
        std::vector<plate_host::Picture> pictures;
        for (plate_host::Picture picture; reader->Read(picture);) {
            pictures.push_back(std::move(picture));
        }
        return pictures;
    }

    const TemporaryFolder folder;
    std::unique_ptr<plate_host::VideoReader> reader;
};

TEST_F(FfmpegVideo, AFilesPicturesReachTheDetectorByteForByte) {
    const Finished run = RunHost(PlayCommand(Video("four.mkv"), {"test_event_every=1"}));
    ASSERT_EQ(run.status, 0) << run.errors;
    const std::vector<Json> events = Lines(run.output);
    ASSERT_EQ(events.size(), 4u);
    for (int frame = 0; frame < 4; ++frame) {
        const Json& event = events[static_cast<std::size_t>(frame)];
        const std::vector<std::uint8_t> picture = MakeI420(64, 48, frame);
        EXPECT_EQ(event["time"], frame * 40);
        EXPECT_EQ(event["arguments"]["lpf_x1"], 64);
        EXPECT_EQ(event["arguments"]["lpf_y1"], 48);
        EXPECT_EQ(event["arguments"]["checksum"], std::to_string(Checksum(picture.data(), picture.size())));
    }
    EXPECT_THAT(run.errors, Not(HasSubstr("damaged")));
}

TEST_F(FfmpegVideo, OddSizesLoseTheirLastColumnAndRow) {
    const std::vector<plate_host::Picture> pictures = ReadAll(Video("odd.mkv"));
    ASSERT_EQ(pictures.size(), 1u);
    EXPECT_EQ(pictures[0].width, 60u);
    EXPECT_EQ(pictures[0].height, 46u);
    ASSERT_EQ(pictures[0].size, 60u * 46 * 3 / 2);
    const std::vector<std::uint8_t> whole = MakePlane(61, 47, 0, 0);
    for (std::size_t y = 0; y < 46; ++y) {
        for (std::size_t x = 0; x < 60; ++x) {
            ASSERT_EQ(pictures[0].bytes[y * 60 + x], whole[y * 61 + x]) << x << " " << y;
        }
    }
}

TEST_F(FfmpegVideo, OtherFormatsBecome420WithTheirLuminanceUnchanged) {
    for (const char* format : {"yuv422p", "yuv444p", "yuv410p", "gray", "yuv420p10le", "yuv422p10le", "yuv444p12le"}) {
        const std::vector<plate_host::Picture> pictures = ReadAll(Video(std::string(format) + ".mkv"));
        ASSERT_EQ(pictures.size(), 1u) << format;
        ASSERT_EQ(pictures[0].size, 64u * 48 * 3 / 2) << format;
        const std::vector<std::uint8_t> luminance = MakePlane(64, 48, 0, 0);
        EXPECT_THAT(luminance, testing::ElementsAreArray(pictures[0].bytes.get(), luminance.size())) << format;
    }
}

TEST_F(FfmpegVideo, PicturesOfFullRangeKeepIt) {
    // Every plane of this format is a colour; a white picture has the largest luminance.
    const std::vector<plate_host::Picture> white = ReadAll(Video("white.mkv"));
    ASSERT_EQ(white.size(), 1u);
    EXPECT_GE(white[0].bytes[0], 254);
    const std::vector<plate_host::Picture> marked = ReadAll(Video("marked.mkv"));
    ASSERT_EQ(marked.size(), 1u);
    EXPECT_EQ(marked[0].bytes[0], 255);
}

TEST_F(FfmpegVideo, PicturesAreTurnedUpright) {
    for (const int degrees : {90, 180, 270}) {
        const std::vector<plate_host::Picture> pictures = ReadAll(Video("turned" + std::to_string(degrees) + ".mov"));
        ASSERT_EQ(pictures.size(), 1u) << degrees;
        const bool isPortrait = degrees != 180;
        const std::size_t width = isPortrait ? 44 : 62;
        const std::size_t height = isPortrait ? 62 : 44;
        ASSERT_EQ(pictures[0].width, width);
        ASSERT_EQ(pictures[0].height, height);
        const std::uint8_t* turned = pictures[0].bytes.get();
        for (int plane = 0; plane < 3; ++plane) {
            const std::size_t part = plane == 0 ? 1 : 2;
            const std::vector<std::uint8_t> lying =
                MakePlane(62 / static_cast<int>(part), 44 / static_cast<int>(part), 0, plane);
            const std::size_t lyingWidth = 62 / part;
            const std::size_t lyingHeight = 44 / part;
            for (std::size_t y = 0; y < height / part; ++y) {
                for (std::size_t x = 0; x < width / part; ++x) {
                    // The first column of a picture that is turned once clockwise was its last row.
                    const std::size_t fromX = degrees == 90    ? y
                                              : degrees == 180 ? lyingWidth - 1 - x
                                                               : lyingWidth - 1 - y;
                    const std::size_t fromY = degrees == 90    ? lyingHeight - 1 - x
                                              : degrees == 180 ? lyingHeight - 1 - y
                                                               : x;
                    ASSERT_EQ(*turned++, lying[fromY * lyingWidth + fromX])
                        << degrees << " " << plane << " " << x << " " << y;
                }
            }
        }
    }
}

TEST_F(FfmpegVideo, OfInterlacedPicturesTheUpperFieldIsTaken) {
    const std::vector<plate_host::Picture> pictures = ReadAll(Video("interlaced.mkv"));
    ASSERT_EQ(pictures.size(), 1u);
    ASSERT_EQ(pictures[0].height, 48u);
    const std::vector<std::uint8_t> upper = MakePlane(64, 48, 0, 0);
    // Away from the jumps of the pattern the row below a row of the field lies between it and the next one.
    for (std::size_t x = 0; x < 8; ++x) {
        for (std::size_t y = 4; y < 24; ++y) {
            ASSERT_NEAR(pictures[0].bytes[y * 64 + x], upper[y * 64 + x], 6) << x << " " << y;
        }
    }
}

TEST_F(FfmpegVideo, TimesStartWithTheVideo) {
    const std::vector<plate_host::Picture> pictures = ReadAll(Video("late.mkv"));
    ASSERT_EQ(pictures.size(), 3u);
    EXPECT_EQ(pictures[0].timeMs, 0u);
    EXPECT_EQ(pictures[1].timeMs, 40u);
    EXPECT_EQ(pictures[2].timeMs, 80u);
}

TEST_F(FfmpegVideo, CommonContainersAndCodecsArePlayed) {
    for (const char* name :
         {"h264.mp4", "h264.ts", "h265.mkv", "mjpeg.avi", "mpeg2.ts", "mpeg4.mov", "vp8.webm", "vp9.webm"}) {
        const std::vector<plate_host::Picture> pictures = ReadAll(Video(name));
        ASSERT_EQ(pictures.size(), 12u) << name;
        EXPECT_EQ(pictures[11].timeMs, 440u) << name;
        EXPECT_EQ(reader->Damage(), "") << name;
    }
}

TEST_F(FfmpegVideo, ATruncatedFileIsPlayedToItsEndAndReported) {
    for (const char* name : {"large.avi", "large.mkv", "index-first.mp4"}) {
        const Finished run = RunHost(PlayCommand(Truncated(name, 0.6), {"test_event_every=1"}));
        EXPECT_EQ(run.status, 0) << name << run.errors;
        EXPECT_GT(Lines(run.output).size(), 15u) << name;
        EXPECT_LT(Lines(run.output).size(), 30u) << name;
        EXPECT_THAT(run.errors, HasSubstr("video is damaged")) << name;
    }
}

TEST_F(FfmpegVideo, AFileThatCannotBeOpenedIsAOneLineError) {
    for (const auto& [video, error] : {std::pair(folder.Path("none.mp4"), "No such file or directory"),
                                       std::pair(Truncated("index-last.mp4", 0.5), "Invalid data found")}) {
        const Finished run = RunHost(PlayCommand(video, {}));
        EXPECT_EQ(run.status, 2);
        EXPECT_THAT(run.errors, testing::StartsWith("plate-host: cannot open \"" + video + "\": " + error));
        EXPECT_EQ(run.errors.find('\n'), run.errors.size() - 1);
    }
}

TEST_F(FfmpegVideo, ManyChannelsReceiveTheSamePictures) {
    std::vector<std::string> command = PlayCommand(Video("twenty.mkv"), {"test_event_every=1"});
    command.insert(command.end(), {"--channels", "3"});
    const Finished run = RunHost(command);
    ASSERT_EQ(run.status, 0) << run.errors;
    const std::vector<Json> events = Lines(run.output);
    ASSERT_EQ(events.size(), 60u);
    for (const Json& event : events) {
        const std::vector<std::uint8_t> picture = MakeI420(64, 48, event["arguments"]["char_num"].get<int>() - 1);
        EXPECT_EQ(event["arguments"]["checksum"], std::to_string(Checksum(picture.data(), picture.size())));
    }
}

TEST_F(FfmpegVideo, ItsPacketsAreKeptBesideTheRecording) {
    for (const char* const name : {"h264.mp4", "h264.ts", "h265.mkv", "mjpeg.avi", "vp9.webm"}) {
        std::vector<std::string> command = PlayCommand(Video(name), {"test_event_every=1"});
        std::vector<std::string> keeping = command;
        keeping.insert(keeping.end(), {"--record", folder.Path("run.vxr"), "--with-frames"});
        const Finished run = RunHost(keeping);
        ASSERT_EQ(run.status, 0) << run.errors;
        command[1] = folder.Path("run.mkv");
        const std::vector<Json> kept = Lines(RunHost(command).output);
        const std::vector<Json> played = Lines(run.output);
        ASSERT_EQ(kept.size(), played.size()) << name;
        for (std::size_t index = 0; index < kept.size(); ++index) {
            EXPECT_EQ(kept[index]["arguments"]["checksum"], played[index]["arguments"]["checksum"]) << name << index;
            EXPECT_EQ(kept[index]["time"], played[index]["time"]) << name << index;
        }
    }
    const std::string video = folder.Copy(Video("h265.mkv"), "own.mkv");
    std::vector<std::string> overwriting = PlayCommand(video, {});
    overwriting.insert(overwriting.end(), {"--record", folder.Path("own.vxr"), "--with-frames"});
    EXPECT_THAT(RunHost(overwriting).errors, HasSubstr("would be overwritten while it is read"));
    EXPECT_EQ(ReadAll(video).size(), 12u) << "the video is as it was";

    std::vector<std::string> stream = PlayCommand("-", {});
    stream.insert(stream.end(), {"--record", folder.Path("run.vxr"), "--with-frames"});
    EXPECT_THAT(RunHost(stream, Y4mStream(16, 16, 1)).errors, HasSubstr("frames of a Y4M stream are not kept"));
}

}  // namespace
}  // namespace host_test
