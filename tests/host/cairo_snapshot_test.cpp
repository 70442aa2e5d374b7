#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "tests/host/pictures.h"
#include "tests/host/play_command.h"
#include "tests/host/png.h"
#include "tests/host/process.h"
#include "tests/host/temporary_folder.h"
#include "tools/host/snapshot_picture.h"
#include "tools/host/system.h"

namespace host_test {
namespace {

using plate_host::DrawSnapshot;
using plate_host::MakePicture;
using plate_host::Picture;
using plate_host::SnapshotBox;
using plate_host::SnapshotTarget;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

constexpr Colour frameColour{0, 255, 0};
constexpr Colour trackColour{255, 204, 0};
constexpr Colour labelColour{0, 0, 0};

Picture PictureOf(std::uint32_t width, std::uint32_t height, std::uint8_t luminance, std::uint8_t blue = 128,
                  std::uint8_t red = 128) {
    Picture picture = MakePicture(width, height, true);
    const std::size_t count = std::size_t{width} * height;
    std::fill_n(picture.bytes.get(), count, luminance);
    std::fill_n(picture.bytes.get() + count, count / 4, blue);
    std::fill_n(picture.bytes.get() + count + count / 4, count / 4, red);
    return picture;
}

class DrawnSnapshot : public testing::Test {
  protected:
    PngPicture Draw(const Picture& picture, const std::vector<SnapshotTarget>& targets) const {
        return ReadPng(folder.Write("drawn.png", DrawSnapshot(picture, targets)));
    }

    const TemporaryFolder folder;
};

bool IsNear(const Colour& one, const Colour& other) {
    return std::abs(one.red - other.red) <= 1 && std::abs(one.green - other.green) <= 1 &&
           std::abs(one.blue - other.blue) <= 1;
}

TEST_F(DrawnSnapshot, HasThePictureInItsSizeAndItsFullRange) {
    for (const std::uint8_t luminance : {std::uint8_t{0}, std::uint8_t{16}, std::uint8_t{235}, std::uint8_t{255}}) {
        const PngPicture drawn = Draw(PictureOf(64, 48, luminance), {});
        EXPECT_EQ(drawn.width, 64);
        EXPECT_EQ(drawn.height, 48);
        EXPECT_EQ(drawn.At(63, 47), (Colour{luminance, luminance, luminance}));
    }
    // Blue difference 50 below the neutral value, red difference 40 above it.
    EXPECT_TRUE(IsNear(Draw(PictureOf(64, 48, 120, 78, 168), {}).At(10, 10), {176, 109, 31}));
}

TEST_F(DrawnSnapshot, TakesEveryColourFromItsPosition) {
    Picture picture = PictureOf(8, 6, 100);
    picture.bytes[8 * 3 + 5] = 200;                // column 5, row 3
    picture.bytes[8 * 6 + 4 * 1 + 2] = 228;        // blue, columns 4 and 5, rows 2 and 3
    picture.bytes[8 * 6 + 4 * 3 + 4 * 2 + 3] = 8;  // red, columns 6 and 7, rows 4 and 5
    const PngPicture drawn = Draw(picture, {});
    EXPECT_EQ(drawn.At(4, 3), drawn.At(4, 2));
    EXPECT_TRUE(IsNear(drawn.At(4, 2), {100, 66, 255}));
    EXPECT_TRUE(IsNear(drawn.At(5, 3), {200, 166, 255}));
    EXPECT_TRUE(IsNear(drawn.At(7, 5), {0, 186, 100}));
    EXPECT_EQ(drawn.At(3, 3), (Colour{100, 100, 100}));
    EXPECT_EQ(drawn.At(6, 3), (Colour{100, 100, 100}));
}

TEST_F(DrawnSnapshot, OfLuminanceOnlyIsGrey) {
    Picture picture = MakePicture(16, 16, false);
    std::fill_n(picture.bytes.get(), picture.size, std::uint8_t{77});
    EXPECT_EQ(Draw(picture, {}).At(15, 15), (Colour{77, 77, 77}));
}

TEST_F(DrawnSnapshot, DrawsTheFrameAroundThePlate) {
    SnapshotTarget target;
    target.plate = SnapshotBox{40, 60, 90, 80};
    const PngPicture drawn = Draw(PictureOf(160, 120, 100), {target});
    for (int y = 0; y < drawn.height; ++y) {
        for (int x = 0; x < drawn.width; ++x) {
            const bool isInside = x >= 40 && x < 90 && y >= 60 && y < 80;
            const bool isInFrame = !isInside && x >= 38 && x < 92 && y >= 58 && y < 82;
            ASSERT_EQ(drawn.At(x, y), isInFrame ? frameColour : (Colour{100, 100, 100})) << x << ", " << y;
        }
    }
}

TEST_F(DrawnSnapshot, OfALargePictureHasThickerLines) {
    SnapshotTarget target;
    target.plate = SnapshotBox{40, 60, 90, 80};
    const PngPicture drawn = Draw(PictureOf(160, 1080, 100), {target});
    EXPECT_EQ(drawn.At(36, 70), frameColour);
    EXPECT_EQ(drawn.At(35, 70), (Colour{100, 100, 100}));
}

TEST_F(DrawnSnapshot, JoinsThePointsOfTheTrack) {
    SnapshotTarget target;
    target.track = {{20, 30}, {100, 30}, {100, 90}};
    const PngPicture drawn = Draw(PictureOf(160, 120, 100), {target});
    for (const auto& [x, y] :
         {std::pair{20, 30}, std::pair{100, 30}, std::pair{100, 90}, std::pair{60, 30}, std::pair{100, 60}}) {
        EXPECT_EQ(drawn.At(x, y), trackColour) << x << ", " << y;
    }
    EXPECT_EQ(drawn.At(21, 31), trackColour) << "a point is thicker than the line";
    EXPECT_EQ(drawn.At(60, 32), (Colour{100, 100, 100}));
    EXPECT_EQ(drawn.At(60, 60), (Colour{100, 100, 100})) << "the track is not closed";
}

TEST_F(DrawnSnapshot, TheTrackDoesNotCoverThePlate) {
    SnapshotTarget target;
    target.plate = SnapshotBox{40, 60, 90, 80};
    target.track = {{10, 70}, {65, 70}, {120, 70}};
    const PngPicture drawn = Draw(PictureOf(160, 120, 100), {target});
    EXPECT_EQ(drawn.At(20, 70), trackColour);
    EXPECT_EQ(drawn.At(110, 70), trackColour);
    for (int x = 40; x < 90; ++x) {
        ASSERT_EQ(drawn.At(x, 70), (Colour{100, 100, 100})) << x;
    }
}

TEST_F(DrawnSnapshot, HasTheTextAboveThePlateOrWhereThereIsRoom) {
    const auto count = [](const PngPicture& drawn, const Colour& colour, int fromRow, int toRow) {
        return std::count(drawn.pixels.begin() + fromRow * drawn.width, drawn.pixels.begin() + toRow * drawn.width,
                          colour);
    };
    SnapshotTarget target;
    target.label = "AB12";
    target.plate = SnapshotBox{40, 60, 90, 80};
    const PngPicture over = Draw(PictureOf(160, 120, 100), {target});
    EXPECT_GT(count(over, labelColour, 0, 58), 200);
    EXPECT_GT(count(over, {255, 255, 255}, 0, 58), 50) << "the letters";
    EXPECT_EQ(count(over, labelColour, 58, 120), 0);

    target.plate = SnapshotBox{40, 5, 90, 20};
    const PngPicture under = Draw(PictureOf(160, 120, 100), {target});
    EXPECT_EQ(count(under, labelColour, 0, 22), 0);
    EXPECT_GT(count(under, labelColour, 22, 120), 200);

    target.plate.reset();
    EXPECT_EQ(Draw(PictureOf(160, 120, 100), {target}).At(0, 0), labelColour);
    target.label.clear();
    EXPECT_EQ(count(Draw(PictureOf(160, 120, 100), {target}), labelColour, 0, 120), 0);
}

TEST_F(DrawnSnapshot, TakesCoordinatesOfAnySize) {
    constexpr std::int32_t far = 2147483647;
    SnapshotTarget target;
    target.label = "far away";
    target.plate = SnapshotBox{-far, -far, far, far};
    target.track = {{-far, -far}, {far, far}, {8, 8}};
    const PngPicture drawn = Draw(PictureOf(32, 32, 100), {target, {"b", SnapshotBox{far, far, -far, -far}, {}}});
    EXPECT_EQ(drawn.width, 32);
}

std::vector<std::string> SnapshotCommand(const std::string& video, const std::string& folder,
                                         const std::vector<std::string>& settings) {
    std::vector<std::string> command = PlayCommand(video, settings);
    command.insert(command.end(), {"--snapshots", folder});
    return command;
}

TEST(Snapshots, OfEveryEventIsAPictureOfItsFrame) {
    const TemporaryFolder folder;
    const std::string video = folder.Write("five.y4m", Y4mStream(32, 24, 5));
    const Finished run = RunHost(SnapshotCommand(video, folder.Path("made/for/this"), {"test_event_every=2"}));
    ASSERT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(Lines(run.output).size(), 2u) << "the events are printed as well";
    EXPECT_THAT(run.errors, HasSubstr("  snapshots           2 written, 0 failed, 0 events without a frame\n"));
    const std::string made = folder.Path("made/for/this");
    ASSERT_THAT(NamesIn(made),
                ElementsAre("channel0_0001_000000040ms_A123BC.png", "channel0_0002_000000120ms_A123BC.png"));
    const PngPicture png = ReadPng(made + "/" + NamesIn(made)[0]);
    EXPECT_EQ(png.width, 32);
    EXPECT_EQ(png.height, 24);
}

TEST(Snapshots, OfSeveralChannelsAreInOneFolder) {
    const TemporaryFolder folder;
    const std::string video = folder.Write("two.y4m", Y4mStream(32, 24, 2));
    std::vector<std::string> command = SnapshotCommand(video, folder.MakeFolder("made"), {"test_event_every=1"});
    command.insert(command.end(), {"--channels", "2"});
    const Finished run = RunHost(command);
    ASSERT_EQ(run.status, 0) << run.errors;
    EXPECT_THAT(NamesIn(folder.Path("made")),
                ElementsAre("channel0_0001_000000000ms_A123BC.png", "channel0_0002_000000040ms_A123BC.png",
                            "channel1_0001_000000000ms_A123BC.png", "channel1_0002_000000040ms_A123BC.png"));
}

TEST(Snapshots, StayInTheirFolderWithAnyPlateText) {
    const TemporaryFolder folder;
    const std::string video = folder.Write("one.y4m", Y4mStream(32, 24, 1));
    const std::string inner = folder.MakeFolder("inner");
    const Finished run = RunHost(
        SnapshotCommand(video, inner + "/made", {"test_event_every=1", "test_text=../../\xE4\xBA\xAC/\xD0\x90.x"}));
    ASSERT_EQ(run.status, 0) << run.errors;
    EXPECT_THAT(NamesIn(inner + "/made"), ElementsAre("channel0_0001_000000000ms___________x.png"));
    EXPECT_THAT(NamesIn(inner), ElementsAre("made"));
}

TEST(Snapshots, InAFolderThatCannotBeCreatedFailBeforeTheRun) {
    const TemporaryFolder folder;
    const std::string video = folder.Write("one.y4m", Y4mStream(32, 24, 1));
    const std::string file = folder.Write("file", "");
    for (const std::string& place : {file, file + "/inner"}) {
        const Finished run = RunHost(SnapshotCommand(video, place, {"test_event_every=1"}));
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.output, "");
        EXPECT_EQ(run.errors,
                  "plate-host: cannot create the folder \"" + place + "\" for the snapshots: Not a directory\n");
    }
}

TEST(Snapshots, ThatCannotBeWrittenAreReportedOnceAndTheEventsContinue) {
    const TemporaryFolder folder;
    const std::string video = folder.Write("three.y4m", Y4mStream(32, 24, 3));
    // Folders have the names of two of the files.
    folder.MakeFolder("made");
    const std::string first = folder.MakeFolder("made/channel0_0001_000000000ms_A123BC.png");
    folder.MakeFolder("made/channel0_0002_000000040ms_A123BC.png");
    const Finished run = RunHost(SnapshotCommand(video, folder.Path("made"), {"test_event_every=1"}));
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(Lines(run.output).size(), 3u);
    const std::string reason = "cannot write \"" + first + "\": Is a directory\n";
    EXPECT_THAT(run.errors, HasSubstr("plate-host: " + reason));
    EXPECT_THAT(run.errors, HasSubstr("  snapshots           1 written, 2 failed, 0 events without a frame\n"));
    EXPECT_THAT(run.errors, EndsWith("plate-host: error: 2 snapshots could not be written: " + reason));
    EXPECT_EQ(ReadPng(folder.Path("made/channel0_0003_000000080ms_A123BC.png")).width, 32);
}

TEST(Snapshots, AreWrittenOnlyOnRequest) {
    const TemporaryFolder folder;
    const std::string video = folder.Write("one.y4m", Y4mStream(32, 24, 1));
    const Finished run = RunHost(PlayCommand(video, {"test_event_every=1"}));
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_THAT(run.errors, testing::Not(HasSubstr("snapshots")));
}

}  // namespace
}  // namespace host_test
