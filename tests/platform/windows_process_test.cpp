#include <windows.h>

// clang-format off: needs the one above
#include <winternl.h>
// clang-format on

#include <chrono>
#include <string>

#include "tests/platform/process_fixture.h"

namespace {

using namespace process_tests;
using platform::ProcessInformation;
using platform::SystemHandle;

HANDLE ToHandle(SystemHandle handle) {
    return reinterpret_cast<HANDLE>(handle);
}

/// Returns true under Wine.
bool IsWine() {
    return GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr;
}

DWORD ExitCodeOf(SystemHandle process) {
    DWORD code = 0;
    EXPECT_NE(GetExitCodeProcess(ToHandle(process), &code), FALSE);
    return code;
}

/// Returns the access rights of a handle.
ACCESS_MASK AccessOf(SystemHandle handle) {
    using QueryObject = NTSTATUS(NTAPI*)(HANDLE, OBJECT_INFORMATION_CLASS, void*, ULONG, ULONG*);
    const auto queryObject = reinterpret_cast<QueryObject>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("ntdll.dll"), "NtQueryObject")));
    PUBLIC_OBJECT_BASIC_INFORMATION information = {};
    EXPECT_EQ(queryObject(ToHandle(handle), ObjectBasicInformation, &information, sizeof(information), nullptr), 0);
    return information.GrantedAccess;
}

bool IsInheritable(SystemHandle handle) {
    DWORD flags = 0;
    EXPECT_NE(GetHandleInformation(ToHandle(handle), &flags), FALSE);
    return (flags & HANDLE_FLAG_INHERIT) != 0;
}

/// A file without sharing: it cannot be opened again while any process has it open.
class LockedFile {
  public:
    explicit LockedFile(const std::filesystem::path& path) : name_(path.string()) {
        SECURITY_ATTRIBUTES inheritable = {sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
        handle_ = CreateFileA(name_.c_str(), GENERIC_READ | GENERIC_WRITE, 0, &inheritable, CREATE_ALWAYS, 0, nullptr);
        EXPECT_NE(handle_, INVALID_HANDLE_VALUE);
    }

    void Close() const { CloseHandle(handle_); }

    bool IsOpenSomewhere() const {
        const HANDLE again = CreateFileA(name_.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        if (again == INVALID_HANDLE_VALUE) {
            EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
            return true;
        }
        CloseHandle(again);
        return false;
    }

  private:
    std::string name_;
    HANDLE handle_;
};

using WindowsProcess = ProcessFixture;

TEST_F(WindowsProcess, TheListStartsWithTheSystemProcess) {
    if (IsWine()) {
        GTEST_SKIP() << "under Wine the list starts with an ordinary process";
    }
    EXPECT_EQ(List().front().processId, 0u);
}

TEST_F(WindowsProcess, WindowModeIsPassedOn) {
    for (const std::uint32_t showWindow : {platform::showWindowHidden, platform::showWindowShown}) {
        auto report = Report(helperName, showWindow);
        EXPECT_EQ(report["flags"], std::to_string(STARTF_USESHOWWINDOW));
        EXPECT_EQ(report["show"], std::to_string(showWindow));
    }
}

TEST_F(WindowsProcess, CommandLineIsPassedOn) {
    const std::string file = (folder / "report").string();
    EXPECT_EQ(Report(helperName)["command-line"], helperName + std::string(" report \"") + file + "\"");
}

TEST_F(ProgramSearch, PrefersTheCurrentFolderToThePath) {
    CopyHelper(onPath / name);
    ExpectIsStarted(CopyHelper(current / name));
}

TEST_F(WindowsProcess, InheritsNoHandle) {
    const LockedFile file(folder / "locked");
    StartTracked(helperName);
    EXPECT_TRUE(file.IsOpenSomewhere());
    file.Close();
    EXPECT_FALSE(file.IsOpenSomewhere());
}

// Shows that the test above would fail if the child inherited the handle.
TEST_F(WindowsProcess, AnInheritedHandleIsDetected) {
    const LockedFile file(folder / "locked");
    STARTUPINFOA startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION started = {};
    std::string commandLine = helperName;
    ASSERT_NE(
        CreateProcessA(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &started),
        FALSE);
    file.Close();
    EXPECT_TRUE(file.IsOpenSomewhere());
    EXPECT_TRUE(platform::TerminateProcess(reinterpret_cast<SystemHandle>(started.hProcess), 0));
    EXPECT_TRUE(WaitUntil([&] { return !file.IsOpenSomewhere(); }));
    CloseHandle(started.hProcess);
    CloseHandle(started.hThread);
}

TEST_F(WindowsProcess, ATerminatedProcessHasTheGivenExitCode) {
    for (const std::uint32_t code : {0xFFFFFFFFu, 0u, 7u}) {
        const ProcessInformation started = StartTracked(helperName);
        EXPECT_EQ(ExitCodeOf(started.process), DWORD{STILL_ACTIVE});
        EXPECT_TRUE(platform::TerminateProcess(started.process, code));
        EXPECT_EQ(WaitForSingleObject(ToHandle(started.process), 0), WAIT_OBJECT_0);
        EXPECT_EQ(ExitCodeOf(started.process), code);
    }
}

TEST_F(WindowsProcess, TerminatingAnEndedProcessFails) {
    if (IsWine()) {
        GTEST_SKIP() << "it succeeds under Wine";
    }
    const ProcessInformation terminated = StartTracked(helperName);
    EXPECT_TRUE(platform::TerminateProcess(terminated.process, 0));
    const ProcessInformation ended = Start(helperName + std::string(" exit"));
    EXPECT_EQ(WaitForSingleObject(ToHandle(ended.process), INFINITE), WAIT_OBJECT_0);
    for (const SystemHandle process : {terminated.process, ended.process}) {
        platform::SetLastError(0);
        EXPECT_FALSE(platform::TerminateProcess(process, 0));
        EXPECT_EQ(platform::LastError(), std::uint32_t{ERROR_ACCESS_DENIED});
    }
}

TEST_F(WindowsProcess, TheEmptyHandleIsInvalid) {
    platform::SetLastError(0);
    EXPECT_FALSE(platform::TerminateProcess(0, 0xFFFFFFFF));
    EXPECT_EQ(platform::LastError(), std::uint32_t{ERROR_INVALID_HANDLE});
}

// A debugger that does not respond prevents its process from ending.
TEST_F(WindowsProcess, TerminateDoesNotWaitLongForABlockedProcess) {
    STARTUPINFOA startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION started = {};
    std::string commandLine = helperName;
    ASSERT_NE(CreateProcessA(nullptr, commandLine.data(), nullptr, nullptr, FALSE, DEBUG_ONLY_THIS_PROCESS, nullptr,
                             nullptr, &startup, &started),
              FALSE);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(platform::TerminateProcess(reinterpret_cast<SystemHandle>(started.hProcess), 0));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
    DebugActiveProcessStop(started.dwProcessId);
    EXPECT_EQ(WaitForSingleObject(started.hProcess, 60'000), WAIT_OBJECT_0);
    CloseHandle(started.hProcess);
    CloseHandle(started.hThread);
}

TEST_F(WindowsProcess, OpenReturnsTheRequestedRightsAndInheritance) {
    const ProcessInformation started = StartTracked(helperName);
    const SystemHandle all = platform::OpenProcess(platform::processAllAccess, true, started.processId);
    const SystemHandle few = platform::OpenProcess(SYNCHRONIZE, false, started.processId);
    // The system may add rights that others imply.
    EXPECT_EQ(AccessOf(all) & platform::processAllAccess, platform::processAllAccess);
    EXPECT_EQ(AccessOf(few), ACCESS_MASK{SYNCHRONIZE});
    EXPECT_TRUE(IsInheritable(all));
    EXPECT_FALSE(IsInheritable(few));
    EXPECT_EQ(GetProcessId(ToHandle(all)), started.processId);
    platform::SetLastError(0);
    EXPECT_FALSE(platform::TerminateProcess(few, 0));
    EXPECT_EQ(platform::LastError(), std::uint32_t{ERROR_ACCESS_DENIED});
    CloseHandle(ToHandle(all));
    CloseHandle(ToHandle(few));
}

TEST_F(WindowsProcess, OpenFailsWithInvalidParameterForAMissingProcess) {
    for (const std::uint32_t process : {0u, 0x7FFFFFFCu}) {
        platform::SetLastError(0);
        EXPECT_EQ(platform::OpenProcess(platform::processAllAccess, true, process), 0u);
        EXPECT_EQ(platform::LastError(), std::uint32_t{ERROR_INVALID_PARAMETER});
    }
}

}  // namespace
