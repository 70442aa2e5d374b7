#include "tools/recording_engine/configuration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace recording_engine {
namespace {

const std::filesystem::path folder = std::filesystem::path("any") / "folder";

Configuration Read(const std::string& text) {
    std::istringstream lines(text);
    return ReadConfiguration(lines, folder, {.time = "20260131T120000Z", .processId = 77});
}

std::string ErrorOf(const std::string& text) {
    try {
        Read(text);
    } catch (const std::exception& error) {
        return error.what();
    }
    return "";
}

TEST(RecordingEngineConfiguration, PathsStartAtTheFolder) {
    const Configuration configuration = Read("engine = RealRecon64.dll\nrecording = made/run.vxr\n");
    EXPECT_EQ(configuration.engine, folder / "RealRecon64.dll");
    EXPECT_EQ(configuration.recording, folder / "made/run.vxr");
}

TEST(RecordingEngineConfiguration, AbsolutePathsStay) {
    const std::string file = (std::filesystem::temp_directory_path() / "engine.dll").string();
    EXPECT_EQ(Read("engine = " + file).engine, std::filesystem::path(file));
}

TEST(RecordingEngineConfiguration, ARecordingWithoutANameHasItsTimeAndProcess) {
    EXPECT_EQ(Read("engine = a").recording, folder / "run-20260131T120000Z-77.vxr");
}

TEST(RecordingEngineConfiguration, PlaceholdersAreFilled) {
    EXPECT_EQ(Read("engine=a\nrecording=%t/%p%%%p").recording, folder / "20260131T120000Z/77%77");
    EXPECT_EQ(ErrorOf("engine=a\nrecording=a%x"), "\"a%x\" has a % that is not %p, %t or %%");
    EXPECT_EQ(ErrorOf("engine=a\nrecording=a%"), "\"a%\" has a % that is not %p, %t or %%");
}

TEST(RecordingEngineConfiguration, FilesOfAnyEditorAreRead) {
    const Configuration configuration =
        Read("\xEF\xBB\xBF# comment\r\n\r\n \tengine\t=  real \xD0\x96 engine.dll \r\nrecording = a=b\r\n");
    EXPECT_EQ(configuration.engine, folder / std::filesystem::path(u8"real \u0416 engine.dll"));
    EXPECT_EQ(configuration.recording, folder / "a=b");
}

TEST(RecordingEngineConfiguration, OtherLinesAreRefusedWithTheirNumber) {
    EXPECT_EQ(ErrorOf("engine = a\nrecord = b"),
              "line 2: \"record = b\" is neither \"engine = FILE\" nor \"recording = FILE\"");
    EXPECT_THAT(ErrorOf("engine"), testing::StartsWith("line 1: \"engine\" is neither"));
    EXPECT_THAT(ErrorOf("engine ="), testing::StartsWith("line 1: \"engine =\" is neither"));
    EXPECT_EQ(ErrorOf("# none\n"), "it does not name the real engine: add a line \"engine = FILE\"");
}

}  // namespace
}  // namespace recording_engine
