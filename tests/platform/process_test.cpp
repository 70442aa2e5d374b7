#include "platform/process.h"

#include <atomic>
#include <cstdlib>
#include <new>
#include <thread>

#include "tests/platform/process_fixture.h"
#include "tests/support/allocation_count.h"
#include "tests/support/descriptors.h"
#include "tests/support/environment.h"

namespace {

using namespace process_tests;
using platform::ProcessEntry;
using platform::ProcessInformation;
using platform::SystemHandle;

constexpr std::uint32_t noSuchFile = 2;  // on every system

using Process = ProcessFixture;

// Listing

TEST_F(Process, TheListContainsThisProcessWithoutAPath) {
    const std::vector<ProcessEntry> entries = List();
    for (std::size_t index = 1; index < entries.size(); ++index) {
        EXPECT_NE(entries[index].processId, 0u);
        EXPECT_EQ(entries[index].executableName.find_first_of("/\\"), std::string::npos);
    }
    EXPECT_TRUE(IsListed(OwnProcessId()));
}

TEST_F(Process, TheFirstEntryIsNeverTheStartedProcess) {
    const ProcessInformation started = StartTracked(helperName);
    const std::vector<ProcessEntry> entries = List();
    EXPECT_NE(entries.front().processId, started.processId);
    EXPECT_TRUE(IsListed(started.processId));
}

TEST_F(Process, ALongNameIsListedCompletely) {
    const std::string name = "vexlane-test-sixteen-and-more.exe";
    CopyHelper(OwnFolder() / name);
    const ProcessInformation started = StartTracked(name);
    EXPECT_EQ(ListedAs(name), Ids{started.processId});
}

TEST_F(Process, AllocationFailureInTheListThrowsAndLeaksNothing) {
    List();
    const std::size_t before = test_support::CountOpen().all;
    bool hasFailed = true;
    for (std::uint64_t number = 1; hasFailed; number += 1 + number / 4) {
        bool isComplete = false;
        allocation_count::Failure failure(number);
        try {
            isComplete = !platform::ListProcesses().empty();
        } catch (const std::bad_alloc&) {
        }
        hasFailed = failure.End();
        EXPECT_NE(isComplete, hasFailed) << number;
        EXPECT_EQ(test_support::CountOpen().all, before) << number;
    }
}

// Starting

TEST_F(Process, StartReturnsTheProcessAndItsIds) {
    const ProcessInformation started = StartTracked(helperName);
    EXPECT_NE(started.process, 0u);
    EXPECT_NE(started.processId, 0u);
    EXPECT_NE(started.threadId, 0u);
    EXPECT_EQ(ListedAs(helperName), Ids{started.processId});
}

TEST_F(Process, AMissingProgramIsNotStartedAndTheRecordIsUnchanged) {
    ProcessInformation started;
    started.processId = 77;
    platform::SetLastError(0);
    EXPECT_FALSE(platform::StartProcess("vexlane-test-missing.exe", 0, platform::showWindowShown, started));
    EXPECT_EQ(platform::LastError(), noSuchFile);
    EXPECT_EQ(started.processId, 77u);
    EXPECT_EQ(started.process, 0u);
}

TEST_F(Process, AFileThatIsNotAProgramIsNotStarted) {
    for (const char* name : {"vexlane-test-text.exe", "vexlane-test-empty.exe"}) {
        std::ofstream(folder / name) << (name == std::string("vexlane-test-text.exe") ? "no program at all" : "");
        const std::string program = '"' + (folder / name).string() + '"';
        ProcessInformation started;
        platform::SetLastError(0);
        EXPECT_FALSE(platform::StartProcess(program, 0, platform::showWindowShown, started)) << name;
        EXPECT_NE(platform::LastError(), 0u) << name;
        EXPECT_NE(platform::LastError(), noSuchFile) << name;
        EXPECT_EQ(ListedAs(name), Ids{});
    }
}

TEST_F(ProgramSearch, PrefersItsOwnFolderToThePath) {
    for (const std::filesystem::path& place : {onPath, OwnFolder()}) {
        ExpectIsStarted(CopyHelper(place / name));
    }
}

TEST_F(Process, AStartedProcessInheritsEnvironmentAndFolder) {
    test_support::SetEnvironment("VEXLANE_TEST_VARIABLE", "handed on");
    std::filesystem::current_path(folder);
    auto report = Report(helperName);
    EXPECT_EQ(report["variable"], "handed on");
    EXPECT_TRUE(std::filesystem::equivalent(report["folder"], folder)) << report["folder"];
    test_support::UnsetEnvironment("VEXLANE_TEST_VARIABLE");
}

// Ending

TEST_F(Process, ATerminatedProcessIsGoneWhenTheCallReturns) {
    for (int round = 0; round < 5; ++round) {
        const ProcessInformation started = StartTracked(helperName);
        EXPECT_TRUE(platform::TerminateProcess(started.process, 0));
        EXPECT_FALSE(IsListed(started.processId));
    }
}

TEST_F(Process, AProcessKilledFromOutsideIsNotListed) {
    const ProcessInformation started = StartTracked(helperName);
    KillFromOutside(started.processId);
    EXPECT_TRUE(WaitUntil([&] { return !IsListed(started.processId); }));
}

TEST_F(Process, AnExitedProcessIsNotListed) {
    const ProcessInformation started = Start(helperName + std::string(" exit"));
    EXPECT_TRUE(WaitUntil([&] { return !IsListed(started.processId); }));
}

TEST_F(Process, TheEmptyHandleTerminatesNothing) {
    const ProcessInformation started = StartTracked(helperName);
    std::atomic<bool> isEnding = false;
    std::atomic<int> turns = 0;
    std::thread other([&] {
        while (!isEnding) {
            ++turns;
            std::this_thread::yield();
        }
    });
    platform::SetLastError(0);
    EXPECT_FALSE(platform::TerminateProcess(0, 0));
    EXPECT_NE(platform::LastError(), 0u);
    const int turnsBefore = turns;
    EXPECT_TRUE(WaitUntil([&] { return turns > turnsBefore; })) << "the other threads of this process go on";
    isEnding = true;
    other.join();
    EXPECT_TRUE(IsListed(started.processId));
}

// Opening

TEST_F(Process, AnOpenedProcessCanBeTerminated) {
    const ProcessInformation started = StartTracked(helperName);
    const SystemHandle opened = platform::OpenProcess(platform::processAllAccess, true, started.processId);
    ASSERT_NE(opened, 0u);
    EXPECT_TRUE(platform::TerminateProcess(opened, 0));
    EXPECT_FALSE(IsListed(started.processId));
}

TEST_F(Process, OpenFailsForAMissingProcess) {
    for (const std::uint32_t process : {0u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        platform::SetLastError(0);
        EXPECT_EQ(platform::OpenProcess(platform::processAllAccess, true, process), 0u) << process;
        EXPECT_NE(platform::LastError(), 0u) << process;
    }
}

TEST_F(Process, ManyThreadsCanListStartAndTerminate) {
    const ProcessInformation longRunning = StartTracked(helperName);
    std::atomic<int> failures = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 5; ++round) {
                ProcessInformation started;
                if (!platform::StartProcess(helperName, 0, 0, started) || !IsListed(started.processId) ||
                    !platform::TerminateProcess(started.process, 0) || IsListed(started.processId) ||
                    !IsListed(longRunning.processId)) {
                    ++failures;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures, 0);
}

}  // namespace
