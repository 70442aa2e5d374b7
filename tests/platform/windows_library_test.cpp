#include "platform/library.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "platform/last_error.h"
#include "tests/support/servers.h"

namespace {

constexpr char subjectName[] = "library-subject.dll";
constexpr DWORD waitTimeoutMilliseconds = 60'000;

TEST(WindowsLastError, TheTextIsTheSystemsWithItsLineEnd) {
    char text[512] = {};
    for (const DWORD error : {DWORD{ERROR_FILE_NOT_FOUND}, DWORD{ERROR_ACCESS_DENIED}, DWORD{ERROR_INVALID_HANDLE}}) {
        const DWORD length = FormatMessageA(FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM, nullptr, error,
                                            0x400, text, sizeof(text), nullptr);
        ASSERT_GT(length, 2u);
        EXPECT_EQ(platform::SystemErrorText(error), std::string(text, length));
        EXPECT_TRUE(platform::SystemErrorText(error).ends_with("\r\n"));
    }
}

TEST(WindowsLastError, InsertsInTextsAreKept) {
    EXPECT_NE(platform::SystemErrorText(ERROR_BAD_EXE_FORMAT).find("%1"), std::string::npos);
}

TEST(WindowsLastError, IsTheSystemsLastError) {
    SetLastError(1234);
    EXPECT_EQ(platform::LastError(), 1234u);
    platform::SetLastError(4321);
    EXPECT_EQ(GetLastError(), 4321u);
}

class WindowsLibrary : public testing::Test {
  protected:
    WindowsLibrary() : event(CreateEventA(nullptr, TRUE, FALSE, nullptr)) {
        library = LoadLibraryA((servers::OwnFolder() / subjectName).string().c_str());
        EXPECT_NE(library, nullptr);
    }
    ~WindowsLibrary() override {
        CloseHandle(event);
        EXPECT_FALSE(IsLoaded());
    }

    static bool IsLoaded() { return GetModuleHandleA(subjectName) != nullptr; }

    template <class Function>
    Function* Find(const char* name) const {
        return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(library, name)));
    }

    void Unload() const { FreeLibrary(library); }

    HMODULE library;
    HANDLE event;
};

TEST_F(WindowsLibrary, WithoutAReferenceItIsUnloaded) {
    Unload();
    EXPECT_FALSE(IsLoaded());
}

TEST_F(WindowsLibrary, AReferenceKeepsItLoadedUntilItIsDropped) {
    Find<void()>("Hold")();
    const auto drop = Find<void()>("Drop");
    Unload();
    EXPECT_TRUE(IsLoaded());
    // The second reference keeps the code loaded while the test calls it.
    const HMODULE again = LoadLibraryA(subjectName);
    drop();
    EXPECT_TRUE(IsLoaded());
    FreeLibrary(again);
    EXPECT_FALSE(IsLoaded());
}

TEST_F(WindowsLibrary, ReleaseEndsTheThreadAndUnloadsTheLibrary) {
    Find<void()>("Hold")();
    const HANDLE thread = Find<HANDLE(HANDLE)>("StartReleasing")(event);
    ASSERT_NE(thread, nullptr);
    Unload();
    EXPECT_TRUE(IsLoaded());
    SetEvent(event);
    EXPECT_EQ(WaitForSingleObject(thread, waitTimeoutMilliseconds), WAIT_OBJECT_0);
    DWORD code = 99;
    EXPECT_NE(GetExitCodeThread(thread, &code), FALSE);
    EXPECT_EQ(code, 0u) << "the code after the release must not run";
    CloseHandle(thread);
    EXPECT_FALSE(IsLoaded());
}

TEST_F(WindowsLibrary, AReferenceIsToTheCallingLibrary) {
    const HANDLE thread = Find<HANDLE(HANDLE)>("StartHoldingAndReleasing")(event);
    SetEvent(event);
    EXPECT_EQ(WaitForSingleObject(thread, waitTimeoutMilliseconds), WAIT_OBJECT_0);
    CloseHandle(thread);
    EXPECT_TRUE(IsLoaded()) << "the test's reference remains";
    Unload();
}

TEST_F(WindowsLibrary, WithoutAReferenceNothingIsReleased) {
    platform::ReleaseLibrary(0);
    platform::DropLibrary(0);
    EXPECT_TRUE(IsLoaded());
    EXPECT_FALSE(Find<bool()>("AreOtherThreadsGone")());
    Unload();
}

/// Returns what the library reported when a separate process unloaded it or exited.
std::string EndOf(const std::string& manner) {
    const std::filesystem::path folder = servers::OwnFolder();
    const std::filesystem::path report = folder / ("library-report-" + std::to_string(GetCurrentProcessId()));
    test_support::ChildProcess host({.program = folder / "library-host.exe",
                                     .arguments = {subjectName, manner},
                                     .environment = {{"VEXLANE_TEST_REPORT", report.string()}}});
    const test_support::Finished end = host.Wait();
    EXPECT_EQ(end.status, 42) << end.errors;
    std::string word;
    std::ifstream(report) >> word;
    std::filesystem::remove(report);
    return word;
}

TEST(WindowsLibraryEnd, OtherThreadsRunDuringUnload) {
    EXPECT_EQ(EndOf("unload"), "there");
}

TEST(WindowsLibraryEnd, OtherThreadsAreGoneAtProcessExit) {
    EXPECT_EQ(EndOf("end"), "gone");
}

}  // namespace
