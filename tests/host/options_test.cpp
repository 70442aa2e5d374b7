#include "tools/host/options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/host/process.h"
#include "tools/host/failure.h"

namespace plate_host {
namespace {

using testing::HasSubstr;

TEST(Options, PlayHasDefaults) {
    const Options options = ParseOptions({"play", "gate.mp4"});
    EXPECT_EQ(options.command, Command::Play);
    EXPECT_EQ(options.play.video, "gate.mp4");
    EXPECT_EQ(options.play.channels, 1);
    EXPECT_EQ(options.play.frames, 0u);
    EXPECT_FALSE(options.play.realtime);
    EXPECT_FALSE(options.play.singleArea.has_value());
    EXPECT_EQ(options.play.paths.engine, "");
}

TEST(Options, CheckHasDefaults) {
    const Options options = ParseOptions({"check"});
    EXPECT_EQ(options.command, Command::Check);
    EXPECT_FALSE(options.check.json);
    EXPECT_FALSE(options.check.isInside);
    EXPECT_LT(options.check.timeout, 60);
    EXPECT_EQ(ParseOptions({"check", "--engine", "e", "--plugin", "p"}).check.paths.library, "p");
    EXPECT_THROW(ParseOptions({"check", "--timeout", "0"}), Failure);
}

TEST(Options, StandardInputIsAVideoAtAnyPosition) {
    EXPECT_EQ(ParseOptions({"play", "-"}).play.video, "-");
    EXPECT_EQ(ParseOptions({"play", "--realtime", "-", "--frames", "3"}).play.video, "-");
}

TEST(Options, AVideoAfterASettingIsAVideo) {
    const Options options = ParseOptions({"play", "--set", "id=7", "gate.mp4"});
    EXPECT_EQ(options.play.video, "gate.mp4");
    ASSERT_EQ(options.play.settings.size(), 1u);
}

TEST(Options, AVideoMayBeginWithASlash) {
    EXPECT_EQ(ParseOptions({"play", "/v/gate.mp4"}).play.video, "/v/gate.mp4");
}

TEST(Options, SettingsKeepTheirOrder) {
    const Options options = ParseOptions({"play", "v", "--set", "id=1", "name=x", "--set", "id=--set", "zone_width=4"});
    ASSERT_EQ(options.play.settings.size(), 4u);
    EXPECT_EQ(options.play.settings[0].text, "1");
    EXPECT_EQ(options.play.settings[1].key, "name");
    EXPECT_EQ(options.play.settings[2].text, "--set");
    EXPECT_EQ(options.play.settings[3].key, "zone_width");
}

TEST(Options, AnAreaIsFourWholeNumbers) {
    const OKM8::FrameArea area = ParseArea("1,-2,300,0");
    EXPECT_EQ(area.x, 1);
    EXPECT_EQ(area.y, -2);
    EXPECT_EQ(area.width, 300);
    EXPECT_EQ(area.height, 0);
    for (const char* bad :
         {"", "1", "1,2,3", "1,2,3,", "1,2,3,4,", "1,2,3,4,5", "a,2,3,4", "1;2;3;4", "1,,3,4", "99999999999,0,0,0"}) {
        EXPECT_THROW(ParseArea(bad), Failure) << bad;
    }
}

TEST(Options, AnEmptyAreaIsRefused) {
    EXPECT_THROW(ParseOptions({"play", "v", "--single", ""}), Failure);
}

TEST(Options, HelpDescribesTheOptionsAndTheTimes) {
    const host_test::Finished main = host_test::RunHost({"--help"});
    EXPECT_EQ(main.status, 0);
    EXPECT_EQ(main.errors, "");
    EXPECT_THAT(main.output, HasSubstr("Exit status"));
    const host_test::Finished play = host_test::RunHost({"play", "--help"});
    EXPECT_EQ(play.status, 0);
    for (const char* part : {"--plugin", "--engine", "--set", "--channels", "--single", "--realtime", "--frames",
                             "frame number x 1000 / frame"}) {
        EXPECT_THAT(play.output, HasSubstr(part));
    }
}

TEST(Options, TheVersionIsOneLine) {
    const host_test::Finished run = host_test::RunHost({"--version"});
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.output, testing::MatchesRegex("plate-host .+\\..+\\..+ \\(Y4M.*\\)\n"));
}

}  // namespace
}  // namespace plate_host
