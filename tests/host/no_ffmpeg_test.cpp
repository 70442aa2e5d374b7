// The error for videos other than Y4M in a program without FFmpeg's libraries.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/host/play_command.h"
#include "tests/host/process.h"
#include "tests/host/system_text.h"
#include "tests/host/temporary_folder.h"

namespace host_test {
namespace {

TEST(NoFfmpeg, OtherVideosAreRefusedInOneLineThatNamesAWayToPlayThem) {
    const TemporaryFolder folder;
    for (const std::string& video : {folder.Write("gate 1.mp4", "other bytes"), std::string("rtsp://camera/1")}) {
        const Finished run = RunHost(PlayCommand(video, {}));
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.output, "");
        EXPECT_THAT(run.errors,
                    testing::MatchesRegex("plate-host: cannot open \".*\": this program reads only Y4M; .*\n"));
        EXPECT_THAT(run.errors,
                    testing::HasSubstr("ffmpeg -i \"" + video + "\" -pix_fmt yuv420p -f yuv4mpegpipe - | plate-host"));
        EXPECT_THAT(run.errors, testing::EndsWith(" play -\n"));
    }
}

TEST(NoFfmpeg, AMissingVideoIsReportedAsMissing) {
    const TemporaryFolder folder;
    const Finished run = RunHost(PlayCommand(folder.Path("none.mp4"), {}));
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.errors, testing::EndsWith("none.mp4\": " + SystemText::NoSuchFile() + "\n"));
}

}  // namespace
}  // namespace host_test
