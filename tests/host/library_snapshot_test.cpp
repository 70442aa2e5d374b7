// Snapshots of the plates that the detector library reports, in frames that it has kept until then.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/host/pictures.h"
#include "tests/host/png.h"
#include "tests/host/process.h"
#include "tests/host/temporary_folder.h"

namespace host_test {
namespace {

using Json = nlohmann::json;

constexpr int width = 320;
constexpr int height = 240;
constexpr int frames = 12;

/// The grey value of a frame, which identifies its number.
int GreyOf(int frame) {
    return 40 + frame * 15;
}

/// The position of the plate in a frame.
int LeftIn(int frame) {
    return 40 + frame * 10;
}

int TopIn(int frame) {
    return 60 + frame * 12;
}

std::string GreyVideo() {
    std::string video = Y4mHeaderLine(width, height);
    for (int frame = 0; frame < frames; ++frame) {
        video += "FRAME\n" + std::string(width * height, static_cast<char>(GreyOf(frame))) +
                 std::string(width * height / 2, '\x80');
    }
    return video;
}

/// The alphabetically first text of a track is reported, with its first reading: that of frame 3.
std::string Script() {
    Json script{{"frames", Json::array()}};
    for (int frame = 0; frame < frames; ++frame) {
        const int left = LeftIn(frame);
        const int top = TopIn(frame);
        script["frames"].push_back(
            {{"plates",
              {{{"text", frame < 3 ? "AB1239" : "AB1234"},
                {"confidence", 540},
                {"corners", {{left, top}, {left, top + 14}, {left + 60, top}, {left + 60, top + 14}}}}}}});
    }
    return script.dump();
}

TEST(LibrarySnapshot, ShowsTheReportedPlateInTheFrameInWhichItWasRead) {
    const TemporaryFolder folder;
    const std::string video = folder.Write("grey.y4m", GreyVideo());
    HostProcess process(
        {.arguments = {"play", video, "--plugin", HOST_TEST_LIBRARY, "--engine", HOST_TEST_SCRIPTED_ENGINE, "--set",
                       "result_ready=true", "--set", "result_rec_count=8", "--set", "result_wait_time=100",
                       "--snapshots", folder.Path("made")},
         .environment = {{"VEXLANE_SCRIPT", folder.Write("script.json", Script())}}});
    const Finished run = process.Wait();
    ASSERT_EQ(run.status, 0) << run.errors;
    std::istringstream output(run.output);
    std::string line;
    ASSERT_TRUE(std::getline(output, line)) << run.errors;
    const Json event = Json::parse(line);
    ASSERT_EQ(event["time"], 3 * 40);
    ASSERT_GE(event["track"].size(), 3u);

    const std::vector<std::string> names = NamesIn(folder.Path("made"));
    ASSERT_FALSE(names.empty()) << run.errors;
    EXPECT_EQ(names[0], "channel0_0001_000000120ms_AB1234.png");
    const PngPicture png = ReadPng(folder.Path("made/" + names[0]));
    ASSERT_EQ(png.width, width);
    ASSERT_EQ(png.height, height);
    const Colour grey{GreyOf(3), GreyOf(3), GreyOf(3)};
    EXPECT_EQ(png.At(2, 2), grey) << "though later frames had come when it was reported";
    EXPECT_EQ(png.At(LeftIn(3) + 55, TopIn(3) + 3), grey) << "nothing covers the plate";
    for (const int x : {LeftIn(3) - 1, LeftIn(3) + 60}) {
        EXPECT_EQ(png.At(x, TopIn(3) + 7), (Colour{0, 255, 0})) << x;
    }
    for (const int y : {TopIn(3) - 1, TopIn(3) + 14}) {
        EXPECT_EQ(png.At(LeftIn(3) + 50, y), (Colour{0, 255, 0})) << y;
    }
    // The first point belongs to the reported reading, whose plate is not covered.
    for (std::size_t index = 1; index < event["track"].size(); ++index) {
        const Json& point = event["track"][index];
        const int x = point["x"].get<int>() + point["width"].get<int>() / 2;
        const int y = point["y"].get<int>() + point["height"].get<int>() / 2;
        EXPECT_EQ(png.At(x, y), (Colour{255, 204, 0})) << point;
    }
}

}  // namespace
}  // namespace host_test
