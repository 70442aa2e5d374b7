#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "platform/last_error.h"
#include "platform/linux/send_signal.h"
#include "platform/process.h"
#include "tests/platform/process_fixture.h"

namespace {

using namespace process_tests;
using platform::ProcessEntry;
using platform::ProcessInformation;
using platform::SystemHandle;

/// Returns the letter of a process's state, 'Z' for a zombie; 0 for no process.
char StateOf(std::uint32_t process) {
    std::ifstream stat("/proc/" + std::to_string(process) + "/stat");
    std::string text;
    std::getline(stat, text);
    const std::size_t close = text.rfind(')');
    return close == std::string::npos ? '\0' : text[close + 2];
}

/// Waits until a child and all its threads have ended, without reaping it.
void WaitUntilEnded(std::uint32_t child) {
    siginfo_t information = {};
    EXPECT_EQ(waitid(P_PID, child, &information, WEXITED | WNOWAIT), 0);
}

/// Counts the children of this process, including zombies.
int CountChildren() {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        std::ifstream stat(entry.path() / "stat");
        std::string text;
        std::getline(stat, text);
        const std::size_t close = text.rfind(')');
        if (close != std::string::npos) {
            std::istringstream rest(text.substr(close + 1));
            char state = 0;
            pid_t parent = 0;
            rest >> state >> parent;
            count += parent == getpid() ? 1 : 0;
        }
    }
    return count;
}

std::size_t OpenDescriptors() {
    const std::filesystem::directory_iterator folder("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(folder), end(folder)));
}

class LinuxProcess : public ProcessFixture {
  protected:
    /// Starts a child of the host that this library did not start.
    std::uint32_t StartAsHost(const std::string& program, const std::string& part) {
        const pid_t child = fork();
        if (child == 0) {
            execl(program.c_str(), program.c_str(), part.c_str(), static_cast<char*>(nullptr));
            _exit(99);
        }
        EXPECT_GT(child, 0);
        return static_cast<std::uint32_t>(child);
    }

    /// Runs the helper until it has written its report, and returns the whole report.
    std::string ReportText(const std::string& program) {
        const std::filesystem::path file = folder / "report";
        const ProcessInformation started = Start(program + " report " + file.string());
        EXPECT_TRUE(WaitUntil([&started] {
            List();
            return StateOf(started.processId) == '\0';
        }));
        std::stringstream text;
        text << std::ifstream(file).rdbuf();
        return text.str();
    }
};

// Listing

TEST_F(LinuxProcess, TheListStartsWithTheSystemProcess) {
    EXPECT_EQ(List().front().processId, 0u);
}

TEST_F(LinuxProcess, ANameThatLooksLikeAProcStatRecordIsParsed) {
    const std::string name = "v) Z 1 (x";
    CopyHelper(OwnFolder() / name);
    const ProcessInformation started = StartTracked("\"" + name + "\" sleep");
    EXPECT_EQ(ListedAs(name), Ids{started.processId});
    EXPECT_EQ(platform::OpenProcess(platform::processAllAccess, true, started.processId), started.process);
}

TEST_F(LinuxProcess, AScriptIsListedUnderItsOwnName) {
    const std::string name = "vexlane-test-script.exe";
    ASSERT_EQ(mkfifo((folder / "never-written").c_str(), 0600), 0);
    std::ofstream(folder / name) << "#!/bin/sh\nread line < " << (folder / "never-written").string() << "\n";
    std::filesystem::permissions(folder / name, std::filesystem::perms::owner_all);
    // A new process runs before it has its program's name; the list must find it nevertheless.
    for (int i = 0; i < 50; ++i) {
        const ProcessInformation started = StartTracked((folder / name).string());
        ASSERT_EQ(ListedAs(name), Ids{started.processId});
        ASSERT_TRUE(platform::TerminateProcess(started.process, 0));
    }
}

TEST_F(LinuxProcess, AProgramWhoseFileIsRemovedKeepsItsName) {
    const std::string name = "vexlane-test-removed.exe";
    const std::filesystem::path file = CopyHelper(OwnFolder() / name);
    const ProcessInformation started = StartTracked(name);
    std::filesystem::remove(file);
    EXPECT_EQ(ListedAs(name), Ids{started.processId});
}

TEST_F(LinuxProcess, AProcessWhoseFirstThreadHasEndedStillRuns) {
    const std::string name = "vexlane-test-threads.exe";
    CopyHelper(OwnFolder() / name);
    const ProcessInformation started = StartTracked(name + " first-thread-ends");
    ASSERT_TRUE(WaitUntil([&] { return StateOf(started.processId) == 'Z'; }));
    EXPECT_EQ(ListedAs(name), Ids{started.processId});
    EXPECT_TRUE(platform::TerminateProcess(started.process, 0));
    EXPECT_EQ(ListedAs(name), Ids{});
    EXPECT_EQ(StateOf(started.processId), '\0');
}

TEST_F(LinuxProcess, WithoutDescriptorsTheListFails) {
    rlimit before = {};
    getrlimit(RLIMIT_NOFILE, &before);
    int lowestFree = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(lowestFree);
    // First no descriptor for the folder, then one for the folder and none for its entries.
    for (const int extra : {0, 1}) {
        const rlimit few = {static_cast<rlim_t>(lowestFree + extra), before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &few);
        platform::SetLastError(0);
        const std::vector<ProcessEntry> entries = platform::ListProcesses();
        const std::uint32_t error = platform::LastError();
        setrlimit(RLIMIT_NOFILE, &before);
        EXPECT_TRUE(entries.empty());
        EXPECT_EQ(error, static_cast<std::uint32_t>(EMFILE));
    }
}

// Starting

TEST_F(LinuxProcess, StartReturnsTheProcessAndItsIds) {
    const ProcessInformation started = StartTracked(helperName);
    EXPECT_NE(started.processId, 0u);
    EXPECT_EQ(started.threadId, started.processId);
    EXPECT_EQ(static_cast<std::uint32_t>(started.process), started.processId);
    EXPECT_NE(started.process >> 32, 0u);
    EXPECT_TRUE(IsListed(started.processId));
}

TEST_F(LinuxProcess, AMissingProgramIsNotStartedAndTheRecordIsUnchanged) {
    ProcessInformation started;
    started.processId = 77;
    for (const char* name : {"vexlane-test-missing.exe", "", "  ", "/nowhere/vexlane-test-missing.exe"}) {
        platform::SetLastError(0);
        EXPECT_FALSE(platform::StartProcess(name, 0, platform::showWindowShown, started)) << name;
        EXPECT_EQ(platform::LastError(), static_cast<std::uint32_t>(ENOENT)) << name;
    }
    EXPECT_EQ(started.processId, 77u);
    EXPECT_EQ(started.process, 0u);
}

TEST_F(LinuxProcess, AFileWithoutExecutePermissionIsNotStarted) {
    std::ofstream(folder / "vexlane-test-text") << "text";
    std::filesystem::create_directory(folder / "vexlane-test-folder");
    std::ofstream(folder / "vexlane-test-broken") << "no program at all";
    std::filesystem::permissions(folder / "vexlane-test-broken", std::filesystem::perms::owner_all);
    const std::string pathBefore = std::getenv("PATH");
    setenv("PATH", (folder.string() + ":" + pathBefore).c_str(), 1);
    ProcessInformation started;
    EXPECT_FALSE(platform::StartProcess("vexlane-test-text", 0, 0, started));
    EXPECT_EQ(platform::LastError(), static_cast<std::uint32_t>(EACCES));
    EXPECT_FALSE(platform::StartProcess("vexlane-test-folder", 0, 0, started));
    EXPECT_EQ(platform::LastError(), static_cast<std::uint32_t>(EACCES));
    EXPECT_FALSE(platform::StartProcess("vexlane-test-broken", 0, 0, started));
    EXPECT_EQ(platform::LastError(), static_cast<std::uint32_t>(ENOEXEC));
    setenv("PATH", pathBefore.c_str(), 1);
    EXPECT_EQ(CountChildren(), 0);
}

TEST_F(LinuxProcess, AStartedProgramInheritsOnlyEnvironmentAndFolder) {
    const int inheritable = open("/dev/zero", O_RDONLY);
    const int far = fcntl(inheritable, F_DUPFD, 700);
    ASSERT_GE(far, 700);
    sigset_t blocked;
    sigset_t maskBefore;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &blocked, &maskBefore);
    const auto ignoredBefore = signal(SIGTERM, SIG_IGN);
    setenv("VEXLANE_TEST_VARIABLE", "handed on", 1);
    std::filesystem::current_path(folder);

    const std::string report = ReportText(helperName);

    signal(SIGTERM, ignoredBefore);
    pthread_sigmask(SIG_SETMASK, &maskBefore, nullptr);
    close(inheritable);
    close(far);
    EXPECT_EQ(report, "executable " + (OwnFolder() / helperName).string() + "\nfolder " + folder.string() +
                          "\nvariable handed on\nleads its session 1\n"
                          "descriptor 0 /dev/null\ndescriptor 1 /dev/null\ndescriptor 2 /dev/null\n"
                          "SigBlk:0\nSigIgn:0\n");
}

TEST_F(ProgramSearch, NeverFindsItInTheCurrentFolder) {
    std::filesystem::create_directory(current / "below");
    CopyHelper(current / name);
    CopyHelper(current / "below" / name);
    const auto isMissing = [](const std::string& program) {
        ProcessInformation started;
        if (platform::StartProcess(program, 0, platform::showWindowHidden, started)) {
            platform::TerminateProcess(started.process, 0);
            return false;
        }
        return platform::LastError() == static_cast<std::uint32_t>(ENOENT);
    };
    for (const char* path : {"", ":", ".", "./", ".:", ":.", "below", "./below", "../current", "below/:below::"}) {
        SetPath(path);
        EXPECT_TRUE(isMissing(name)) << path;
    }
    test_support::UnsetEnvironment("PATH");
    for (const std::string& program : {name, "./" + name, "below/" + name}) {
        EXPECT_TRUE(isMissing(program)) << program;
    }
    const std::filesystem::path program = CopyHelper(onPath / name);
    SetPath(":.::below:" + onPath.string() + ":.");
    ExpectIsStarted(program);
}

// Ending

TEST_F(LinuxProcess, ATerminatedProcessIsGoneWhenTheCallReturns) {
    for (const char* part : {" sleep", " ignore-termination"}) {
        const ProcessInformation started = StartTracked(helperName + std::string(part));
        EXPECT_TRUE(platform::TerminateProcess(started.process, 0));
        EXPECT_EQ(StateOf(started.processId), '\0') << "reaped, no zombie";
        EXPECT_FALSE(IsListed(started.processId));
    }
}

TEST_F(LinuxProcess, TerminatingAnEndedProcessFails) {
    const ProcessInformation terminated = StartTracked(helperName);
    EXPECT_TRUE(platform::TerminateProcess(terminated.process, 0));
    platform::SetLastError(0);
    EXPECT_FALSE(platform::TerminateProcess(terminated.process, 0));
    EXPECT_EQ(platform::LastError(), static_cast<std::uint32_t>(ESRCH));

    const ProcessInformation ended = StartTracked(helperName + std::string(" exit"));
    WaitUntilEnded(ended.processId);
    platform::SetLastError(0);
    EXPECT_FALSE(platform::TerminateProcess(ended.process, 0));
    EXPECT_EQ(platform::LastError(), static_cast<std::uint32_t>(ESRCH));
    EXPECT_EQ(StateOf(ended.processId), '\0');
}

TEST_F(LinuxProcess, AnEmptyHandleTerminatesNothing) {
    // Runs in a separate process group, which a signal to process 0 would end.
    const pid_t group = fork();
    if (group == 0) {
        setpgid(0, 0);
        for (const SystemHandle empty : {SystemHandle{0}, SystemHandle{5} << 32, SystemHandle{0xFFFFFFFF},
                                         SystemHandle{0x5FFFFFFFF}, SystemHandle{1}, SystemHandle{0x500000001}}) {
            platform::SetLastError(0);
            if (platform::TerminateProcess(empty, 0) || platform::LastError() != static_cast<std::uint32_t>(EINVAL)) {
                _exit(1);
            }
        }
        _exit(42);
    }
    int status = 0;
    ASSERT_EQ(waitpid(group, &status, 0), group);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 42);
}

TEST_F(LinuxProcess, AProcessWithAReusedIdIsNotTerminated) {
    const ProcessInformation started = StartTracked(helperName);
    for (const SystemHandle difference : {SystemHandle{1} << 32, SystemHandle{1} << 63}) {
        platform::SetLastError(0);
        EXPECT_FALSE(platform::TerminateProcess(started.process ^ difference, 0));
        EXPECT_EQ(platform::LastError(), static_cast<std::uint32_t>(ESRCH));
        EXPECT_TRUE(IsListed(started.processId));
    }
    EXPECT_TRUE(platform::TerminateProcess(started.process, 0));
}

TEST_F(LinuxProcess, AChildKilledFromOutsideIsReapedAndNotListed) {
    const ProcessInformation started = StartTracked(helperName);
    KillFromOutside(started.processId);
    WaitUntilEnded(started.processId);
    EXPECT_FALSE(IsListed(started.processId));
    EXPECT_EQ(StateOf(started.processId), '\0');
}

TEST_F(LinuxProcess, ExitedProgramsAreReaped) {
    for (int i = 0; i < 20; ++i) {
        const ProcessInformation started = Start(helperName + std::string(" exit"));
        WaitUntilEnded(started.processId);
        EXPECT_LE(CountChildren(), 1);
    }
    List();
    EXPECT_EQ(CountChildren(), 0);
}

// Signals

TEST(LinuxSignal, IsSentToAProcessAndNeverToAGroup) {
    // Runs in a separate process group, which a signal to process 0 would end.
    const pid_t group = fork();
    if (group == 0) {
        setpgid(0, 0);
        for (const pid_t process : {0, 1, -1, -getpid(), INT_MIN}) {
            // Only signal 0, so that a failure of this test has no effect on other processes.
            if (platform::SendSignal(process, 0) != EINVAL ||
                platform::SendSignalThrough(pidfd_open(getpid(), 0), process, 0) != EINVAL) {
                _exit(1);
            }
        }
        _exit(42);
    }
    int status = 0;
    ASSERT_EQ(waitpid(group, &status, 0), group);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 42);
}

TEST_F(LinuxProcess, ASignalReachesItsProcessOrFails) {
    const std::uint32_t child = StartAsHost(OwnFolder() / helperName, "sleep");
    EXPECT_EQ(platform::CheckMaySignal(static_cast<pid_t>(child)), 0);
    EXPECT_EQ(platform::SendSignal(static_cast<pid_t>(child), SIGKILL), 0);
    int status = 0;
    EXPECT_EQ(waitpid(static_cast<pid_t>(child), &status, 0), static_cast<pid_t>(child));
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(platform::SendSignal(static_cast<pid_t>(child), SIGKILL), ESRCH);
    EXPECT_EQ(platform::CheckMaySignal(static_cast<pid_t>(child)), ESRCH);
    for (const pid_t invalid : {0, -1}) {
        EXPECT_EQ(platform::CheckMaySignal(invalid), EINVAL);
    }
}

// Opening, and other users' processes

TEST_F(LinuxProcess, AnOpenedProcessHasTheHandleItWasStartedWith) {
    const ProcessInformation started = StartTracked(helperName);
    EXPECT_EQ(platform::OpenProcess(platform::processAllAccess, true, started.processId), started.process);
}

TEST_F(LinuxProcess, OpenFailsForAProcessThatDoesNotRun) {
    const ProcessInformation started = StartTracked(helperName);
    EXPECT_TRUE(platform::TerminateProcess(started.process, 0));
    const std::uint32_t zombie = StartAsHost(OwnFolder() / helperName, "exit");
    WaitUntilEnded(zombie);
    for (const std::uint32_t process : {started.processId, zombie, 0u, 1u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        platform::SetLastError(0);
        EXPECT_EQ(platform::OpenProcess(platform::processAllAccess, true, process), 0u);
        EXPECT_NE(platform::LastError(), 0u);
    }
    waitpid(static_cast<pid_t>(zombie), nullptr, 0);
}

TEST_F(LinuxProcess, AZombieOfTheHostIsNotListedAndNotReaped) {
    const std::uint32_t zombie = StartAsHost(OwnFolder() / helperName, "sleep");
    const SystemHandle handle = platform::OpenProcess(platform::processAllAccess, true, zombie);
    EXPECT_NE(handle, 0u);
    KillFromOutside(zombie);
    WaitUntilEnded(zombie);
    const ProcessInformation started = StartTracked(helperName);
    EXPECT_FALSE(IsListed(zombie));
    EXPECT_TRUE(platform::TerminateProcess(started.process, 0));
    EXPECT_FALSE(platform::TerminateProcess(handle, 0));
    EXPECT_EQ(platform::LastError(), static_cast<std::uint32_t>(ESRCH));
    int status = -1;
    EXPECT_EQ(waitpid(static_cast<pid_t>(zombie), &status, WNOHANG), static_cast<pid_t>(zombie));
    EXPECT_TRUE(WIFSIGNALED(status));
}

TEST_F(LinuxProcess, AForeignProcessIsTerminatedAndNotReaped) {
    const std::string name = "vexlane-test-stranger.exe";
    const std::filesystem::path program = CopyHelper(folder / name);
    const std::uint32_t stranger = StartAsHost(program, "ignore-termination");
    ASSERT_TRUE(WaitUntil([&] { return ListedAs(name) == Ids{stranger}; }));
    const SystemHandle handle = platform::OpenProcess(platform::processAllAccess, true, stranger);
    EXPECT_NE(handle, 0u);
    EXPECT_TRUE(platform::TerminateProcess(handle, 0));
    EXPECT_EQ(ListedAs(name), Ids{});
    int status = 0;
    EXPECT_EQ(waitpid(static_cast<pid_t>(stranger), &status, WNOHANG), static_cast<pid_t>(stranger));
    EXPECT_TRUE(WIFSIGNALED(status));
}

TEST_F(LinuxProcess, AProcessOfAnotherUserIsSkipped) {
    if (getuid() != 0) {
        GTEST_SKIP() << "needs root";
    }
    const ProcessInformation mine = StartTracked(helperName);
    const pid_t other = fork();
    if (other == 0) {
        if (setgid(65534) != 0 || setuid(65534) != 0) {
            _exit(98);
        }
        platform::SetLastError(0);
        const std::vector<ProcessEntry> entries = platform::ListProcesses();
        if (entries.empty()) {
            _exit(1);
        }
        for (const ProcessEntry& entry : entries) {
            if (entry.processId == mine.processId) {
                _exit(2);
            }
        }
        if (platform::OpenProcess(platform::processAllAccess, true, mine.processId) != 0 ||
            platform::LastError() != static_cast<std::uint32_t>(EPERM)) {
            _exit(3);
        }
        if (platform::TerminateProcess(mine.process, 0) || platform::LastError() != static_cast<std::uint32_t>(EPERM)) {
            _exit(4);
        }
        _exit(42);
    }
    int status = 0;
    ASSERT_EQ(waitpid(other, &status, 0), other);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 42);
    EXPECT_TRUE(IsListed(mine.processId));
}

// The part of the test below that runs as an unprivileged user, who may execute but not read the program. Returns 42 on
// success.
int CheckAsOtherUser(const std::filesystem::path& program, std::uint32_t othersProcess) {
    if (setgid(65534) != 0 || setuid(65534) != 0 || access(program.c_str(), R_OK) == 0) {
        return 1;
    }
    ProcessInformation own;
    if (!platform::StartProcess(program.string(), 0, platform::showWindowHidden, own)) {
        return 2;
    }
    std::error_code hidden;
    static_cast<void>(std::filesystem::read_symlink("/proc/" + std::to_string(own.processId) + "/exe", hidden));
    const Ids listed = ListedAs(program.filename());
    const bool isOthersListed = IsListed(othersProcess);
    if (!platform::TerminateProcess(own.process, 0)) {
        return 3;
    }
    if (hidden != std::errc::permission_denied) {
        return 4;  // the system does not hide the program's name
    }
    if (listed != Ids{own.processId}) {
        return 5;
    }
    return isOthersListed ? 6 : 42;
}

// The system hides the executable's path of such a process, so its name must come from another source.
TEST_F(LinuxProcess, AnUnreadableProgramIsListedOnlyForItsOwnUser) {
    if (getuid() != 0) {
        GTEST_SKIP() << "needs root";
    }
    namespace fs = std::filesystem;
    fs::permissions(folder, fs::perms::owner_all | fs::perms::group_exec | fs::perms::others_exec);
    for (const mode_t mode : {mode_t{0711}, mode_t{0111}}) {
        const std::string name = "vexlane-test-unreadable-" + std::to_string(mode) + ".exe";
        const fs::path program = CopyHelper(folder / name);
        ASSERT_EQ(chmod(program.c_str(), mode), 0);
        const ProcessInformation others = StartTracked(program.string());
        const pid_t child = fork();
        if (child == 0) {
            _exit(CheckAsOtherUser(program, others.processId));
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), 42) << name;
        EXPECT_EQ(ListedAs(name), Ids{others.processId}) << "root can read it";
    }
}

// Hosts with unusual child handling

TEST_F(LinuxProcess, WorksInAHostThatIgnoresSigchld) {
    const auto before = signal(SIGCHLD, SIG_IGN);
    const ProcessInformation first = StartTracked(helperName);
    EXPECT_TRUE(IsListed(first.processId));
    EXPECT_TRUE(platform::TerminateProcess(first.process, 0));
    EXPECT_FALSE(IsListed(first.processId));
    EXPECT_FALSE(platform::TerminateProcess(first.process, 0));
    const ProcessInformation second = StartTracked(helperName);
    EXPECT_EQ(platform::OpenProcess(platform::processAllAccess, true, second.processId), second.process);
    EXPECT_TRUE(platform::TerminateProcess(second.process, 0));
    // The system reaps these children itself, and may not have finished with the last one.
    EXPECT_TRUE(WaitUntil([] { return CountChildren() == 0; }));
    signal(SIGCHLD, before);
}

TEST_F(LinuxProcess, WorksInAHostThatReapsAllChildren) {
    const ProcessInformation first = StartTracked(helperName);
    KillFromOutside(first.processId);
    EXPECT_EQ(waitpid(-1, nullptr, 0), static_cast<pid_t>(first.processId));
    EXPECT_FALSE(IsListed(first.processId));
    EXPECT_FALSE(platform::TerminateProcess(first.process, 0));

    const ProcessInformation second = StartTracked(helperName);
    std::thread host([&second] { waitpid(static_cast<pid_t>(second.processId), nullptr, 0); });
    EXPECT_TRUE(platform::TerminateProcess(second.process, 0));
    host.join();
    EXPECT_FALSE(IsListed(second.processId));
}

TEST_F(LinuxProcess, NoDescriptorStaysOpen) {
    const std::size_t before = OpenDescriptors();
    ProcessInformation missing;
    for (int i = 0; i < 3; ++i) {
        const ProcessInformation started = StartTracked(helperName);
        List();
        platform::OpenProcess(platform::processAllAccess, true, started.processId);
        platform::TerminateProcess(started.process, 0);
        platform::TerminateProcess(started.process, 0);
        platform::TerminateProcess(0, 0);
        platform::StartProcess("vexlane-test-missing.exe", 0, 0, missing);
    }
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(LinuxProcess, ManyThreadsCanListStartAndTerminate) {
    const ProcessInformation longRunning = StartTracked(helperName);
    const std::size_t descriptorsBefore = OpenDescriptors();
    std::atomic<int> failures = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 10; ++round) {
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
    EXPECT_EQ(OpenDescriptors(), descriptorsBefore);
    EXPECT_TRUE(platform::TerminateProcess(longRunning.process, 0));
    EXPECT_EQ(CountChildren(), 0);
}

}  // namespace
