#include "tools/host/progress.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/host/pictures.h"
#include "tests/host/play_command.h"
#include "tests/host/process.h"
#include "tools/host/system.h"

namespace plate_host {
namespace {

using testing::HasSubstr;
using testing::Not;

TEST(Progress, ShowsFramesSpeedPlatesAndEvents) {
    const ProgressFigures figures{.frames = 50, .frameTotal = 200, .plates = 1, .events = 2};
    EXPECT_EQ(ProgressText(figures, 2.0, false), "50 of 200 frames, 25.0 a second, 1 plate, 2 events");
    EXPECT_EQ(ProgressText(figures, 2.0, true),
              "[#######-----------------------]  25 %  50 of 200 frames, 25.0 a second, 1 plate, 2 events");
}

TEST(Progress, HasNoBarWithoutATotalAndNeverGoesBeyondIt) {
    EXPECT_EQ(ProgressText({.frames = 1, .frameTotal = {}, .plates = 0, .events = 0}, 0.0, true),
              "1 frame, 0.0 a second, 0 plates, 0 events");
    EXPECT_THAT(ProgressText({.frames = 9, .frameTotal = 3, .plates = 0, .events = 0}, 1.0, true),
                testing::StartsWith("[##############################] 100 %"));
    EXPECT_THAT(ProgressText({.frames = 0, .frameTotal = 0, .plates = 0, .events = 0}, 1.0, true), HasSubstr("100 %"));
}

TEST(Progress, TheBarIsRemovedWhileOtherLinesAreWritten) {
    testing::internal::CaptureStderr();
    Console console(true);
    console.Bar("[bar]");
    console.WithoutBar([] { WriteStandard(StandardStream::Errors, "an event\n"); });
    console.Line("a line");
    console.Bar("");
    console.WithoutBar([] { WriteStandard(StandardStream::Errors, "a last event\n"); });
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "\r\033[K[bar]\r\033[Kan event\n[bar]\r\033[Ka line\n[bar]\r\033[Ka last event\n");
}

TEST(Progress, HasNoBarWithoutATerminal) {
    const host_test::Finished run =
        host_test::RunHost(host_test::PlayCommand("-", {}), host_test::Y4mStream(16, 16, 20));
    EXPECT_THAT(run.errors, Not(HasSubstr("\r")));
    EXPECT_THAT(run.errors, Not(HasSubstr("\033")));
}

TEST(Console, OneLineHasNoControlCharactersAndNoBlanksAround) {
    EXPECT_EQ(OneLine("\n two\r\nwords\t\n"), "two  words");
    EXPECT_EQ(OneLine("\n\n"), "");
    EXPECT_EQ(OneLine("caf\xC3\xA9"), "caf\xC3\xA9");
}

}  // namespace
}  // namespace plate_host
