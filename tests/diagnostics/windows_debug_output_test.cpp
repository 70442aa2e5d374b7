// The debug output as other processes receive it: a debugger, and a viewer of the whole machine.

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "diagnostics/debug_level.h"
#include "diagnostics/trace.h"
#include "platform/debug_output.h"
#include "platform/text.h"
#include "tests/diagnostics/windows_debug_lines.h"
#include "tests/support/wait_until.h"
#include "tests/support/windows_debugger.h"

namespace {

using test_support::DebuggedRun;
using test_support::DebugText;
using testing::ElementsAreArray;

DebuggedRun RunWriter(const std::string& part) {
    DebuggedRun run = test_support::RunUnderDebugger("\"" VEXLANE_DEBUG_WRITER "\" " + part);
    EXPECT_TRUE(run.hasEnded);
    EXPECT_EQ(run.exitCode, 42u);
    return run;
}

std::string InTheSystemsCodePage(const std::wstring& wide) {
    const int count = static_cast<int>(wide.size());
    std::string narrow(wide.size() * 4, '\0');
    narrow.resize(static_cast<std::size_t>(platform::FromWide(platform::codePageAnsi, wide.data(), count, narrow.data(),
                                                              static_cast<int>(narrow.size()))));
    return narrow;
}

/// Checks a wide text that a debugger received: unchanged or, where the system does not pass it on, in its code page.
void ExpectWide(const DebugText& text, const std::wstring& expected) {
    if (text.isWide) {
        EXPECT_TRUE(text.wide == expected) << text.wide.size() << " characters";
    } else {
        EXPECT_TRUE(text.narrow == InTheSystemsCodePage(expected)) << text.narrow.substr(0, 100);
    }
}

TEST(DebugOutputSeenByADebugger, IsEachTextByteForByteInOneCall) {
    const DebuggedRun run = RunWriter("plain");
    const std::vector<std::string> narrow = NarrowTexts();
    const std::vector<std::wstring> wide = WideTexts();
    ASSERT_EQ(run.texts.size(), narrow.size() + wide.size());
    for (std::size_t index = 0; index < narrow.size(); ++index) {
        EXPECT_FALSE(run.texts[index].isWide) << index;
        EXPECT_TRUE(run.texts[index].narrow == narrow[index]) << index << ": " << run.texts[index].narrow.size();
    }
    for (std::size_t index = 0; index < wide.size(); ++index) {
        ExpectWide(run.texts[narrow.size() + index], wide[index]);
    }
}

TEST(DebugOutputSeenByADebugger, IsOneCallForEachTraceLine) {
    const DebuggedRun run = RunWriter("lines");
    std::vector<std::string> expected;
    for (const std::string& text : NarrowTexts()) {
        expected.push_back("vexlane[room::Function(7): " + text);
        expected.push_back(text);
        expected.push_back("ServerLauncher: " + text.substr(0, 999));
    }
    const std::vector<std::wstring> wide = WideTexts();
    ASSERT_EQ(run.texts.size(), expected.size() + wide.size());
    for (std::size_t index = 0; index < expected.size(); ++index) {
        EXPECT_FALSE(run.texts[index].isWide) << index;
        EXPECT_TRUE(run.texts[index].narrow == expected[index])
            << index << ": " << run.texts[index].narrow.substr(0, 100);
    }
    for (std::size_t index = 0; index < wide.size(); ++index) {
        ExpectWide(run.texts[expected.size() + index], L"vexlane[room::Function(8): " + wide[index]);
    }
}

TEST(DebugOutputSeenByADebugger, IsWithoutTheWideAndTheLaunchersLinesAtLevel0) {
    const DebuggedRun run = RunWriter("quiet");
    std::vector<std::string> expected;
    for (const std::string& text : NarrowTexts()) {
        expected.push_back("vexlane[room::Function(7): " + text);
        expected.push_back(text);
    }
    EXPECT_TRUE(run.NarrowTexts() == expected) << run.texts.size();
}

// Texts that fit the shared buffer.
TEST(DebugOutputSeenByAViewer, IsEveryLineInOrderAndComplete) {
    const test_support::DebugOutputViewer viewer;
    if (!viewer.IsOnlyViewer()) {
        GTEST_SKIP() << "another viewer is active";
    }
    diagnostics::SetDebugLevel(1);
    diagnostics::WriteTrace("room::Function", 7, "message");
    diagnostics::WriteTraceW("room::Function", 8, L"wide message");
    diagnostics::LauncherTrace("Start server launcher");
    diagnostics::WriteTrace("room::Function", 9,
                            "\xBE\xA9"
                            "A12345");
    diagnostics::WriteDebugText(std::string(4000, 'x') + "end");
    diagnostics::SetDebugLevel(0);
    const std::vector<std::string> expected = {"vexlane[room::Function(7): message",
                                               "vexlane[room::Function(8): wide message",
                                               "ServerLauncher: Start server launcher",
                                               "vexlane[room::Function(9): \xBE\xA9"
                                               "A12345",
                                               std::string(4000, 'x') + "end"};
    EXPECT_TRUE(WaitUntil([&] { return viewer.Pieces().size() >= expected.size(); }));
    EXPECT_THAT(viewer.Pieces(), ElementsAreArray(expected));
}

}  // namespace
