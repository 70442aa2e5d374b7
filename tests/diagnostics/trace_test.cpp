#include "diagnostics/trace.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <locale>
#include <string>
#include <thread>
#include <vector>

#include "diagnostics/debug_level.h"
#include "platform/last_error.h"
#include "tests/support/recording_debug_output.h"

namespace {

using diagnostics::LauncherTrace;
using diagnostics::WriteTrace;
using diagnostics::WriteTraceW;
using testing::ElementsAre;
using testing::IsEmpty;

class Trace : public testing::Test {
  protected:
    Trace() { diagnostics::SetDebugLevel(1); }
    ~Trace() override { diagnostics::SetDebugLevel(0); }

    RecordingDebugOutput output;
};

using TraceLine = Trace;
using WideTraceLine = Trace;
using LauncherLine = Trace;

TEST_F(TraceLine, LeavesItsBracketOpenAndHasNoAddedLineEnd) {
    WriteTrace("plate_recognition::VexlaneDetectorImpl::Recognize", 217, "Create vexlane detector");
    EXPECT_THAT(output.Texts(),
                ElementsAre("vexlane[plate_recognition::VexlaneDetectorImpl::Recognize(217): Create vexlane detector"));
    EXPECT_FALSE(output.Lines().front().isWide);
}

TEST_F(TraceLine, KeepsTheLineEndOfTheMessage) {
    WriteTrace("f", 1, "message\r\n");
    EXPECT_THAT(output.Texts(), ElementsAre("vexlane[f(1): message\r\n"));
}

TEST_F(TraceLine, IsWrittenAtAnyLevel) {
    for (const std::int32_t level : {0, 1, -1}) {
        diagnostics::SetDebugLevel(level);
        output.Clear();
        WriteTrace("f", 1, "message");
        EXPECT_THAT(output.Texts(), ElementsAre("vexlane[f(1): message")) << level;
    }
}

TEST_F(TraceLine, WritesTheLargestLineNumberAsUnsigned) {
    WriteTrace("f", 4294967295U, "m");
    EXPECT_THAT(output.Texts(), ElementsAre("vexlane[f(4294967295): m"));
}

TEST_F(TraceLine, AcceptsAnEmptyMessage) {
    WriteTrace("f", 0, "");
    EXPECT_THAT(output.Texts(), ElementsAre("vexlane[f(0): "));
}

TEST_F(TraceLine, DoesNotInterpretPlaceholdersInTheMessageOrTheName) {
    WriteTrace("f<%3%>", 1, "100% of %1% and %s");
    EXPECT_THAT(output.Texts(), ElementsAre("vexlane[f<%3%>(1): 100% of %1% and %s"));
}

TEST_F(TraceLine, OfAnyLengthIsWrittenWholeInOneCall) {
    const std::string message(1 << 20, 'x');
    WriteTrace("f", 1, message + "end");
    ASSERT_EQ(output.Lines().size(), 1u);
    EXPECT_TRUE(output.Texts().front() == "vexlane[f(1): " + message + "end");
}

TEST_F(WideTraceLine, HasTheFormOfTheNarrowOneAndIsPassedOnWide) {
    WriteTraceW("plate_recognition::VexlaneDetectorImpl::CreateResult", 31, L"Plate = \u4EACA12345");
    ASSERT_EQ(output.Lines().size(), 1u);
    EXPECT_TRUE(output.Lines().front().isWide);
    EXPECT_EQ(output.Lines().front().wide,
              L"vexlane[plate_recognition::VexlaneDetectorImpl::CreateResult(31): Plate = \u4EACA12345");
}

TEST_F(WideTraceLine, IsWrittenAtEveryLevelExceptZero) {
    for (const std::int32_t level : {1, 3, -1, INT32_MIN, 1 << 16}) {
        diagnostics::SetDebugLevel(level);
        output.Clear();
        WriteTraceW("f", 1, L"m");
        EXPECT_THAT(output.Texts(), ElementsAre("vexlane[f(1): m")) << level;
    }
    diagnostics::SetDebugLevel(0);
    output.Clear();
    WriteTraceW("f", 1, L"m");
    EXPECT_THAT(output.Lines(), IsEmpty());
}

TEST_F(WideTraceLine, OfAnyLengthIsWrittenWholeInOneCall) {
    const std::wstring message(1 << 20, L'\u4EAC');
    WriteTraceW("f", 1, message + L"end");
    ASSERT_EQ(output.Lines().size(), 1u);
    EXPECT_TRUE(output.Lines().front().wide == L"vexlane[f(1): " + message + L"end");
}

TEST_F(WideTraceLine, KeepsNeitherBracketNorLineEndAndInterpretsNothing) {
    WriteTraceW("f", 1, L"%2% is %1%\r\n");
    EXPECT_EQ(output.Lines().front().wide, L"vexlane[f(1): %2% is %1%\r\n");
}

TEST_F(LauncherLine, HasItsPrefixAndNoAddedLineEnd) {
    EXPECT_TRUE(LauncherTrace("Start server launcher"));
    EXPECT_THAT(output.Texts(), ElementsAre("ServerLauncher: Start server launcher"));
    EXPECT_FALSE(output.Lines().front().isWide);
}

TEST_F(LauncherLine, IsFormattedAsByPrintf) {
    EXPECT_TRUE(LauncherTrace("CreatedProcess(%s) - ok Process ID: 0x%x\r\n", "plate-Server.exe", 0xBEEFu));
    EXPECT_TRUE(LauncherTrace("%d %u %c %5d|%-5d| %05d %X %%", -1, 2u, 'z', 42, 42, 42, 0xABu));
    EXPECT_THAT(output.Texts(),
                ElementsAre("ServerLauncher: CreatedProcess(plate-Server.exe) - ok Process ID: 0xbeef\r\n",
                            "ServerLauncher: -1 2 z    42|42   | 00042 AB %"));
}

TEST_F(LauncherLine, DoesNotInterpretPlaceholdersInItsText) {
    EXPECT_TRUE(LauncherTrace("%s", "%1% %s %%"));
    EXPECT_THAT(output.Texts(), ElementsAre("ServerLauncher: %1% %s %%"));
}

TEST_F(LauncherLine, IsWrittenAtEveryLevelExceptZeroAndAlwaysReturnsTrue) {
    diagnostics::SetDebugLevel(-5);
    EXPECT_TRUE(LauncherTrace("negative"));
    diagnostics::SetDebugLevel(0);
    EXPECT_TRUE(LauncherTrace("quiet"));
    EXPECT_THAT(output.Texts(), ElementsAre("ServerLauncher: negative"));
}

TEST_F(LauncherLine, IsCutAfter999CharactersOfText) {
    std::string text;
    for (int index = 0; index < 3000; ++index) {
        text.push_back(static_cast<char>('a' + index % 26));
    }
    for (const std::size_t length : {0u, 1u, 998u, 999u, 1000u, 1001u, 1023u, 1024u, 1025u, 1026u, 3000u}) {
        output.Clear();
        EXPECT_TRUE(LauncherTrace("%s", text.substr(0, length).c_str()));
        EXPECT_THAT(output.Texts(),
                    ElementsAre("ServerLauncher: " + text.substr(0, std::min<std::size_t>(length, 999))))
            << length;
    }
}

TEST_F(LauncherLine, IsCutWithTheTextOfTheFormatCountedToo) {
    const std::string text(2000, 'y');
    EXPECT_TRUE(LauncherTrace("0123456789%s\r\n", text.c_str()));
    EXPECT_THAT(output.Texts(), ElementsAre("ServerLauncher: 0123456789" + std::string(989, 'y')));
}

TEST_F(Trace, PlainTextIsWrittenUnchangedAtAnyLevel) {
    diagnostics::SetDebugLevel(0);
    diagnostics::WriteDebugText("[BaseDetectorImpl] %1% trouble\r\n");
    EXPECT_THAT(output.Texts(), ElementsAre("[BaseDetectorImpl] %1% trouble\r\n"));
}

// Digits in groups of three, with a separator that occurs nowhere else.
template <class Character>
struct Grouping final : std::numpunct<Character> {
    Character do_thousands_sep() const override { return Character('_'); }
    std::string do_grouping() const override { return "\3"; }
};

class HostLocale {
  public:
    HostLocale()
        : before_(std::locale::global(
              std::locale(std::locale(std::locale::classic(), new Grouping<char>), new Grouping<wchar_t>))) {}
    ~HostLocale() { std::locale::global(before_); }
    HostLocale(const HostLocale&) = delete;
    HostLocale& operator=(const HostLocale&) = delete;

  private:
    std::locale before_;
};

TEST_F(Trace, AHostsLocaleWithThousandsSeparatorsChangesNoLine) {
    const HostLocale locale;
    WriteTrace("f", 1234567, "m");
    WriteTraceW("f", 1234567, L"m");
    EXPECT_TRUE(LauncherTrace("%d", 1234567));
    EXPECT_EQ(diagnostics::Compose("%1% %2%", 1234567, -7654321), "1234567 -7654321");
    EXPECT_EQ(diagnostics::Compose(L"%1%", std::uint64_t{18446744073709551615U}), L"18446744073709551615");
    EXPECT_THAT(output.Texts(),
                ElementsAre("vexlane[f(1234567): m", "vexlane[f(1234567): m", "ServerLauncher: 1234567"));
}

TEST_F(Trace, LinesOfSeveralThreadsAreWrittenWhole) {
    constexpr int threadCount = 4;
    constexpr int lineCount = 200;
    std::vector<std::string> expected;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < threadCount; ++thread) {
        const std::string text(300, static_cast<char>('a' + thread));
        expected.insert(expected.end(), lineCount, "vexlane[f(7): " + text);
        expected.insert(expected.end(), lineCount, "vexlane[f(8): " + text);
        expected.insert(expected.end(), lineCount, "ServerLauncher: " + text);
        threads.emplace_back([text] {
            for (int line = 0; line < lineCount; ++line) {
                WriteTrace("f", 7, text);
                WriteTraceW("f", 8, std::wstring(text.begin(), text.end()));
                LauncherTrace("%s", text.c_str());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(output.Texts(), testing::UnorderedElementsAreArray(expected));
}

TEST(Composing, ReplacesPlaceholdersWithTheirArguments) {
    EXPECT_EQ(diagnostics::Compose("%2% before %1%, %2% again", "one", 2), "2 before one, 2 again");
    EXPECT_EQ(diagnostics::Compose(L"%1%%2%", L"wide", 2u), L"wide2");
}

TEST(Composing, ThrowsWhenArgumentsAndPlaceholdersDoNotMatch) {
    EXPECT_THROW(diagnostics::Compose("%1%", 1, 2), std::exception);
    EXPECT_THROW(diagnostics::Compose("%1% %2%", 1), std::exception);
}

TEST(LastErrorText, IsEmptyWithoutAnError) {
    platform::SetLastError(0);
    EXPECT_EQ(diagnostics::LastErrorText(), "");
}

TEST(LastErrorText, IsTheSystemsMessageForTheErrorOfThisThread) {
    constexpr std::uint32_t noSuchFile = 2;  // on every system
    platform::SetLastError(noSuchFile);
    EXPECT_EQ(diagnostics::LastErrorText(), platform::SystemErrorText(noSuchFile));
    EXPECT_NE(diagnostics::LastErrorText(), "");
    std::string elsewhere = "not asked";
    std::thread([&elsewhere] { elsewhere = diagnostics::LastErrorText(); }).join();
    EXPECT_EQ(elsewhere, "");
    platform::SetLastError(0);
}

TEST(LastErrorText, OfDifferentErrorsDiffers) {
    platform::SetLastError(2);
    const std::string first = diagnostics::LastErrorText();
    platform::SetLastError(5);
    EXPECT_NE(diagnostics::LastErrorText(), first);
    platform::SetLastError(0);
}

}  // namespace
