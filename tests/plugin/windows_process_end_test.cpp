// What the library writes at the end of a Windows process, which only another process can still read.

#include "tests/plugin/plugin_fixture.h"
#include "tests/support/windows_debugger.h"

namespace {

using testing::Contains;
using testing::Not;
using testing::StartsWith;

// The system has already stopped the other threads; a line could wait for a lock that one of them held.
TEST(WindowsProcessEnd, WritesNoStopLines) {
    servers::Remove();
    const auto program = servers::OwnFolder() / VEXLANE_ENDING_HOST;
    const test_support::DebuggedRun run = test_support::RunUnderDebugger('"' + program.string() + "\" return");
    servers::Remove();
    ASSERT_TRUE(run.hasEnded);
    EXPECT_EQ(run.exitCode, 0u);
    // The line that a server has been created may come too late: the host ends as soon as the server runs.
    EXPECT_THAT(run.NarrowTexts(), Contains(StartsWith("ServerLauncher: Start server launcher")));
    for (const char* line : {"Stop server launcher", "Terminate"}) {
        EXPECT_THAT(run.NarrowTexts(), Not(Contains(StartsWith(std::string("ServerLauncher: ") + line))));
    }
}

}  // namespace
