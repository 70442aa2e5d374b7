#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "tests/host/process.h"
#include "tests/host/temporary_folder.h"

namespace plate_host {
namespace {

using host_test::Finished;
using host_test::RunHost;
using host_test::TemporaryFolder;
using testing::HasSubstr;

constexpr char recordingText[] =
    R"({"recording":1,"recorder":"plate-host 0.1.0","system":"linux","library":"l","engine":"e","video":"v/gate.mp4","start_time":""}
{"channel":0,"settings":[["zone_width","20"]]}
{"frame":0,"channel":0,"time_ms":40,"size":[64,48,4608],"us":900,"events":[{"event":{"channel":0,"event":"event","time":40,"arguments":{"lp_wnum":"AB12CDE"},"track":null}}]}
)";

std::string TextOf(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(ToOpenPath(path), std::ios::binary).rdbuf();
    return text.str();
}

TEST(ReportCommand, ThePageIsBesideTheRecording) {
    const TemporaryFolder folder;
    const std::string recording = folder.Write(
        "W\xC3\xA4"
        "chter.vxr",
        recordingText);
    const std::string page = folder.Path(
        "W\xC3\xA4"
        "chter.html");
    const Finished run = RunHost({"report", recording});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(run.errors, "plate-host: the report is " + page + "\n");
    EXPECT_THAT(TextOf(page), HasSubstr("AB12CDE"));
}

TEST(ReportCommand, TheOutputIsAFileOrAFolder) {
    const TemporaryFolder folder;
    const std::string recording = folder.Write("run.vxr", recordingText);
    EXPECT_EQ(RunHost({"report", recording, "--output", folder.Path("page.htm")}).status, 0);
    EXPECT_THAT(TextOf(folder.Path("page.htm")), HasSubstr("AB12CDE"));
    EXPECT_EQ(RunHost({"report", recording, "--output", folder.MakeFolder("pages")}).status, 0);
    EXPECT_THAT(TextOf(folder.Path("pages/report.html")), HasSubstr("AB12CDE"));
}

TEST(ReportCommand, TheTruthOfTheVideosClipIsCompared) {
    const TemporaryFolder folder;
    const std::string recording = folder.Write("run.vxr", recordingText);
    const std::string truth =
        folder.Write("truth.tsv", "clip\tplate\tfirst_s\tlast_s\ngate\tAB12CDX\t0\t1\nother\tXY99ZZZ\t0\t1\n");
    EXPECT_EQ(RunHost({"report", recording, "--truth", truth}).status, 0);
    const std::string page = TextOf(folder.Path("run.html"));
    EXPECT_THAT(page, HasSubstr("\"outcome\":\"wrong\",\"event\":0,\"plate\":\"AB12CDX\""));
    EXPECT_THAT(page, HasSubstr("\"vehicles\":1,"));
}

TEST(ReportCommand, ErrorsAreOneLine) {
    const TemporaryFolder folder;
    const std::string recording = folder.Write("run.vxr", recordingText);
    for (const auto& arguments :
         std::vector<std::vector<std::string>>{{"report", folder.Path("missing.vxr")},
                                               {"report", folder.Write("other.vxr", "no recording\n")},
                                               {"report", recording, "--truth", folder.Path("missing.tsv")},
                                               {"report", recording, "--output", folder.Path("missing/page.html")}}) {
        const Finished run = RunHost(arguments);
        EXPECT_EQ(run.status, 2);
        EXPECT_THAT(run.errors, testing::StartsWith("plate-host: "));
        EXPECT_EQ(run.errors.find('\n'), run.errors.size() - 1);
    }
}

}  // namespace
}  // namespace plate_host
