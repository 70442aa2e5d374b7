#include "tools/host/progress.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/host/pictures.h"
#include "tests/host/play_command.h"
#include "tests/host/posix_process.h"

namespace plate_host {
namespace {

using testing::HasSubstr;
using testing::Not;

TEST(Progress, TellsFramesSpeedPlatesAndEvents) {
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

TEST(Progress, IsABarOnATerminalThatIsTakenAwayAtTheEnd) {
    if (!host_test::SystemHasTerminals()) {
        GTEST_SKIP() << "a changed root without pseudo-terminals";
    }
    const host_test::TemporaryFolder folder;
    const std::string video = folder.Write("video.y4m", host_test::Y4mStream(16, 16, 20));
    host_test::HostProcess process({.arguments = host_test::PlayCommand(video, {}), .errorsToTerminal = true});
    const host_test::Finished run = process.Wait();
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_THAT(run.errors, HasSubstr("of 20 frames"));
    EXPECT_THAT(run.errors, HasSubstr("\033[K"));
    const std::size_t lastBar = run.errors.rfind("of 20 frames");
    EXPECT_THAT(run.errors.substr(lastBar), HasSubstr("\r\033[K")) << "taken away before the summary";
}

TEST(Progress, TheBarIsOutOfTheWayOfWhatElseIsWritten) {
    testing::internal::CaptureStderr();
    Console console(true);
    console.Bar("[bar]");
    console.WithoutBar([] { std::fputs("an event\n", stderr); });
    console.Line("a line");
    console.Bar("");
    console.WithoutBar([] { std::fputs("a last event\n", stderr); });
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "\r\033[K[bar]\r\033[Kan event\n[bar]\r\033[Ka line\n[bar]\r\033[Ka last event\n");
}

TEST(Progress, IsNoBarElsewhere) {
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
