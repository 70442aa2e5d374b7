#include <windows.h>

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <vector>

#include "platform/process.h"
#include "tests/server/server_process_fixture.h"

namespace {

using servers::ProcessId;
using servers::Running;
using testing::ElementsAre;

/// Returns both ids in the order of the list of all processes.
std::vector<ProcessId> InListOrder(ProcessId first, ProcessId second) {
    std::vector<ProcessId> order;
    for (const platform::ProcessEntry& entry : platform::ListProcesses()) {
        const auto process = static_cast<ProcessId>(entry.processId);
        if (process == first || process == second) {
            order.push_back(process);
        }
    }
    return order;
}

class WindowsServerProcess : public ServerProcess {
  protected:
    WindowsServerProcess() : report(servers::OwnFolder() / "report") {
        std::filesystem::remove(report);
        test_support::SetEnvironment("VEXLANE_TEST_REPORT", report.string());
    }
    ~WindowsServerProcess() override {
        std::filesystem::remove(report);
        test_support::UnsetEnvironment("VEXLANE_TEST_REPORT");
    }

    /// Returns the window mode that the server received.
    DWORD ShownMode() {
        Misbehave("reports");
        StartPolling();
        DWORD flags = 0;
        DWORD mode = 99;
        // The file may exist before its text.
        EXPECT_TRUE(WaitUntil([&] { return static_cast<bool>(std::ifstream(report) >> flags >> mode); }));
        EXPECT_EQ(flags, DWORD{STARTF_USESHOWWINDOW});
        return mode;
    }

    std::filesystem::path report;
};

TEST_F(WindowsServerProcess, IsHiddenAtLevel0) {
    diagnostics::SetDebugLevel(0);
    EXPECT_EQ(ShownMode(), DWORD{SW_HIDE});
}

TEST_F(WindowsServerProcess, IsShownAtOtherLevels) {
    diagnostics::SetDebugLevel(-1);
    EXPECT_EQ(ShownMode(), DWORD{SW_SHOW});
}

TEST_F(WindowsServerProcess, IsTerminatedWithExitCodeMinusOne) {
    StartPolling();
    const ProcessId server = TheServer();
    ASSERT_NE(server, 0);
    const HANDLE handle = OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, static_cast<DWORD>(server));
    ASSERT_NE(handle, nullptr);
    launcher->Stop();
    DWORD code = 0;
    EXPECT_NE(GetExitCodeProcess(handle, &code), FALSE);
    EXPECT_EQ(code, 0xFFFFFFFF);
    CloseHandle(handle);
}

// The last of the two in the list is adopted.
TEST_F(WindowsServerProcess, StopEndsTheLastListedServer) {
    StartPolling();
    const ProcessId ours = TheServer();
    ASSERT_NE(ours, 0);
    const auto stranger = servers::StartForeignServer();
    ASSERT_TRUE(WaitUntil([] { return Running().size() == 2; }));
    const std::vector<ProcessId> order = InListOrder(ours, stranger->Id());
    ASSERT_EQ(order.size(), 2u);
    EXPECT_TRUE(launcher->IsServerRunning());
    launcher->Stop();
    EXPECT_THAT(Running(), ElementsAre(order.front()));
    EXPECT_TRUE(servers::IsGone(order.back()));
    EXPECT_EQ(LinesStartingWith("TerminateProcess("), 0);
}

// With our server on record, the adopted one gets a new handle, which can end it.
TEST_F(WindowsServerProcess, ForeignServerIsAdoptedWhenOursHasEnded) {
    StartPolling();
    const ProcessId ours = TheServer();
    ASSERT_NE(ours, 0);
    launcher->PollTimeoutThread::Stop();
    servers::Kill(ours);
    ASSERT_TRUE(WaitUntil([] { return Running().empty(); }));
    const auto stranger = servers::StartForeignServer();
    ASSERT_TRUE(WaitUntil([&] { return Running().contains(stranger->Id()); }));
    EXPECT_TRUE(launcher->IsServerRunning());
    launcher->Stop();
    EXPECT_TRUE(servers::IsGone(stranger->Id()));
    EXPECT_EQ(LinesStartingWith("TerminateProcess("), 0);
}

}  // namespace
