#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/host/checksum.h"
#include "tests/host/pictures.h"
#include "tests/host/play_command.h"
#include "tests/host/process.h"
#include "tests/host/temporary_folder.h"
#include "tests/host/video_writer.h"
#include "tools/host/ffmpeg_reader.h"

namespace host_test {
namespace {

using testing::HasSubstr;
using testing::Not;

class FfmpegVideo : public testing::Test {
  protected:
    std::string Write(const std::string& name, const VideoTraits& traits) const {
        WriteVideo(folder.Path(name), traits);
        return folder.Path(name);
    }

    std::vector<plate_host::Picture> ReadAll(const std::string& path) {
        reader = plate_host::OpenFfmpegVideo(path);
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
    const std::string video = Write("video.mkv", {.frames = 4});
    const Finished run = RunHost(PlayCommand(video, {"test_event_every=1"}));
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
    const std::vector<plate_host::Picture> pictures =
        ReadAll(Write("odd.mkv", {.width = 61, .height = 47, .frames = 1}));
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
        const std::string name = std::string(format) + ".mkv";
        const std::vector<plate_host::Picture> pictures = ReadAll(Write(name, {.pixelFormat = format, .frames = 1}));
        ASSERT_EQ(pictures.size(), 1u) << format;
        ASSERT_EQ(pictures[0].size, 64u * 48 * 3 / 2) << format;
        const std::vector<std::uint8_t> luminance = MakePlane(64, 48, 0, 0);
        EXPECT_THAT(luminance, testing::ElementsAreArray(pictures[0].bytes.get(), luminance.size())) << format;
    }
}

TEST_F(FfmpegVideo, PicturesOfFullRangeKeepIt) {
    // Every plane of this format is a colour; a white picture has the largest luminance.
    const std::vector<plate_host::Picture> white =
        ReadAll(Write("white.mkv", {.codec = "utvideo", .pixelFormat = "gbrp", .frames = 1, .white = true}));
    ASSERT_EQ(white.size(), 1u);
    EXPECT_GE(white[0].bytes[0], 254);
    const std::vector<plate_host::Picture> marked =
        ReadAll(Write("marked.mkv", {.frames = 1, .white = true, .fullRange = true}));
    ASSERT_EQ(marked.size(), 1u);
    EXPECT_EQ(marked[0].bytes[0], 255);
}

TEST_F(FfmpegVideo, PicturesAreTurnedUpright) {
    for (const int degrees : {90, 180, 270}) {
        const std::vector<plate_host::Picture> pictures =
            ReadAll(Write("turned.mov", {.width = 62, .height = 44, .frames = 1, .turnedClockwise = degrees}));
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
    const std::vector<plate_host::Picture> pictures =
        ReadAll(Write("interlaced.mkv", {.frames = 1, .interlaced = true}));
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
    const std::vector<plate_host::Picture> pictures =
        ReadAll(Write("late.mkv", {.frames = 3, .rateNumerator = 10, .firstFrameNumber = 50}));
    ASSERT_EQ(pictures.size(), 3u);
    EXPECT_EQ(pictures[0].timeMs, 0u);
    EXPECT_EQ(pictures[1].timeMs, 100u);
    EXPECT_EQ(pictures[2].timeMs, 200u);
}

TEST_F(FfmpegVideo, CommonContainersAndCodecsArePlayed) {
    const std::vector<std::pair<std::string, VideoTraits>> videos{
        {"a.mp4", {.codec = "mpeg4", .frames = 12}},
        {"b.avi", {.codec = "mjpeg", .pixelFormat = "yuvj420p", .frames = 12}},
        {"c.ts", {.codec = "mpeg2video", .frames = 12}},
        {"d.mov", {.codec = "mpeg4", .frames = 12}},
    };
    for (const auto& [name, traits] : videos) {
        const std::vector<plate_host::Picture> pictures = ReadAll(Write(name, traits));
        ASSERT_EQ(pictures.size(), 12u) << name;
        EXPECT_EQ(pictures[11].timeMs, 440u) << name;
        EXPECT_EQ(reader->Damage(), "") << name;
    }
}

TEST_F(FfmpegVideo, ATruncatedFileIsPlayedToItsEndAndReported) {
    const std::vector<std::pair<std::string, VideoTraits>> videos{
        {"a.avi", {.codec = "mjpeg", .pixelFormat = "yuvj420p", .width = 320, .height = 240, .frames = 40}},
        {"b.mkv", {.codec = "mjpeg", .pixelFormat = "yuvj420p", .width = 320, .height = 240, .frames = 40}},
        {"c.mp4",
         {.codec = "mjpeg", .pixelFormat = "yuvj420p", .width = 320, .height = 240, .frames = 40, .indexFirst = true}},
    };
    for (const auto& [name, traits] : videos) {
        const std::string video = Write(name, traits);
        std::filesystem::resize_file(video, std::filesystem::file_size(video) * 6 / 10);
        const Finished run = RunHost(PlayCommand(video, {"test_event_every=1"}));
        EXPECT_EQ(run.status, 0) << name << run.errors;
        EXPECT_GT(Lines(run.output).size(), 15u) << name;
        EXPECT_LT(Lines(run.output).size(), 30u) << name;
        EXPECT_THAT(run.errors, HasSubstr("video is damaged")) << name;
    }
}

TEST_F(FfmpegVideo, ATruncatedFileWithoutItsIndexIsAOneLineError) {
    const std::string video = Write("cut.mp4", {.codec = "mpeg4", .width = 320, .height = 240, .frames = 40});
    std::filesystem::resize_file(video, std::filesystem::file_size(video) / 2);
    const Finished run = RunHost(PlayCommand(video, {}));
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.errors, testing::MatchesRegex("plate-host: cannot open [^\n]*\n"));
}

TEST_F(FfmpegVideo, ManyChannelsReceiveTheSamePictures) {
    const std::string video = Write("video.mkv", {.frames = 20});
    std::vector<std::string> command = PlayCommand(video, {"test_event_every=1"});
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

}  // namespace
}  // namespace host_test
