#include "server/server_launcher.h"

#include <atomic>
#include <boost/algorithm/string/predicate.hpp>
#include <boost/make_shared.hpp>
#include <exception>
#include <locale>
#include <stdexcept>

#include "diagnostics/debug_level.h"
#include "diagnostics/trace.h"
#include "platform/clock.h"

using diagnostics::LauncherTrace;

namespace {

constexpr std::int64_t pollPeriodMilliseconds = 5000;
constexpr std::int32_t maxSilenceSeconds = 5;
constexpr std::uint32_t terminatedExitCode = 0xFFFFFFFF;

// The trace lines print the low 32 bits of the handle where they say ID.
std::uint32_t Low32Bits(platform::SystemHandle handle) {
    return static_cast<std::uint32_t>(handle);
}

// The owner of the launcher. A host with detectors in static objects may destroy them after this object.
struct ProcessWideLauncher {
    ProcessWideLauncher() = default;
    // In a forked child the launcher is not destroyed, because that could wait forever for the poll thread, which does
    // not exist there.
    ~ProcessWideLauncher() {
        hasEnded = true;
        if (!(*launcher)->IsInForkedChild()) {
            delete launcher;
        }
    }
    ProcessWideLauncher(const ProcessWideLauncher&) = delete;
    ProcessWideLauncher& operator=(const ProcessWideLauncher&) = delete;

    static constinit std::atomic<bool> hasEnded;
    boost::shared_ptr<ServerLauncher>* const launcher =
        new boost::shared_ptr<ServerLauncher>(boost::make_shared<ServerLauncher>());
};

constinit std::atomic<bool> ProcessWideLauncher::hasEnded = false;

}  // namespace

ServerLauncher::ServerLauncher()
    : showWindow_(diagnostics::DebugLevel() != 0 ? platform::showWindowShown : platform::showWindowHidden) {
    SetPeriod(pollPeriodMilliseconds);
    PollTimeoutThread::Start([this] { OnTimeout(); });
}

ServerLauncher::~ServerLauncher() {
    try {
        PollTimeoutThread::Stop();
        if (platform::OtherThreadsAreGone()) {
            // The system stopped the other threads at arbitrary points: one may hold a mutex or be inside the
            // allocator. So this takes no lock and writes no trace lines, which could block or end the process before
            // the server is terminated.
            platform::TerminateProcess(process_.process, terminatedExitCode);
            if (isStarting_) {
                TerminateStartedProcess();
            }
        } else {
            Stop();
        }
    } catch (const std::exception&) {
        // A destructor cannot report a failure.
    }
}

void ServerLauncher::Start() {
    if (IsInForkedChild()) {
        return;
    }
    LauncherTrace("Start server launcher");
    const platform::Lock lock(startMutex_);
    if (ScanProcesses()) {
        LauncherTrace("Already started. Process ID: 0x%x", Low32Bits(Record().process));
        return;
    }
    StartProcess();
}

void ServerLauncher::StartProcess() {
    SetRecord({});
    platform::ProcessInformation started;
    isStarting_ = true;
    if (!platform::StartProcess(commandLine_, creationFlags_, showWindow_, started)) {
        isStarting_ = false;
        if (diagnostics::DebugLevel() != 0) {
            LauncherTrace("CreateProcess(%s) - failed, err = %s\r\n", commandLine_.c_str(),
                          diagnostics::LastErrorText().c_str());
        }
        return;
    }
    SetRecord(started);
    isStarting_ = false;
    LauncherTrace("CreatedProcess(%s) - ok Process ID: 0x%x\r\n", commandLine_.c_str(), Low32Bits(started.process));
    MarkAlive();
}

void ServerLauncher::Stop() {
    if (IsInForkedChild()) {
        return;
    }
    LauncherTrace("Stop server launcher");
    PollTimeoutThread::Stop();
    const platform::Lock lock(startMutex_);
    TerminateProcess();
}

void ServerLauncher::TerminateProcess() {
    const platform::SystemHandle handle = Record().process;
    if (!platform::TerminateProcess(handle, terminatedExitCode) && diagnostics::DebugLevel() != 0) {
        LauncherTrace("TerminateProcess(0x%x) - failed, err = %s\r\n", Low32Bits(handle),
                      diagnostics::LastErrorText().c_str());
    }
    LauncherTrace("Terminated server launcher");
    SetRecord({});  // the handles stay open
}

void ServerLauncher::Restart() {
    if (IsInForkedChild()) {
        return;
    }
    LauncherTrace("Restart server launcher");
    if (IsServerRunning()) {
        Stop();
    }
    Start();
}

// Only for the end of the process, when the thread that started the server was stopped before it stored the handle.
void ServerLauncher::TerminateStartedProcess() {
    for (const platform::ProcessEntry& server : ListServers()) {
        if (server.parentId == platform::CurrentProcessId()) {
            platform::TerminateProcess(platform::OpenProcess(platform::processAllAccess, false, server.processId),
                                       terminatedExitCode);
        }
    }
}

bool ServerLauncher::IsServerRunning() {
    if (IsInForkedChild()) {
        return false;
    }
    const platform::Lock lock(startMutex_);
    return ScanProcesses();
}

bool ServerLauncher::ScanProcesses() {
    const std::vector<platform::ProcessEntry> servers = ListServers();
    for (const platform::ProcessEntry& server : servers) {
        ExamineProcess(server);
    }
    return !servers.empty();
}

// The first process in the list is the system's own and is skipped.
std::vector<platform::ProcessEntry> ServerLauncher::ListServers() const {
    std::vector<platform::ProcessEntry> processes = platform::ListProcesses();
    if (!processes.empty()) {
        processes.erase(processes.begin());
    }
    std::erase_if(processes, [this](const platform::ProcessEntry& entry) {
        return !boost::algorithm::iequals(entry.executableName, commandLine_, std::locale::classic());
    });
    return processes;
}

// A process that cannot be opened counts as running but does not replace the recorded one: without a handle it could
// not be terminated, and the handle of the recorded server would be lost.
void ServerLauncher::ExamineProcess(const platform::ProcessEntry& entry) {
    const platform::SystemHandle handle = platform::OpenProcess(platform::processAllAccess, true, entry.processId);
    MarkAlive();
    const platform::Lock lock(launcherMutex_);
    if (process_.processId != 0 && process_.processId != entry.processId && handle != 0) {
        process_.processId = entry.processId;
        process_.process = handle;
    }
}

void ServerLauncher::OnTimeout() {
    if (IsInForkedChild()) {
        return;
    }
    const bool isRunning = IsServerRunning();
    if (IsSilent() || !isRunning) {
        LauncherTrace("Restar server by timeout.");
        Restart();
    }
}

bool ServerLauncher::IsSilent() const {
    const boost::posix_time::ptime now = platform::LocalTimeAt(platform::MicrosecondsSinceEpoch());
    const std::int64_t lastAlive = lastAlive_;
    return lastAlive != never &&
           static_cast<std::int32_t>((now - platform::LocalTimeAt(lastAlive)).total_seconds()) > maxSilenceSeconds;
}

void ServerLauncher::MarkAlive() {
    lastAlive_ = platform::MicrosecondsSinceEpoch();
}

void ServerLauncher::SetRecord(const platform::ProcessInformation& record) {
    const platform::Lock lock(launcherMutex_);
    process_ = record;
}

platform::ProcessInformation ServerLauncher::Record() {
    const platform::Lock lock(launcherMutex_);
    return process_;
}

boost::shared_ptr<ServerLauncher> GetServerLauncher() {
    static const ProcessWideLauncher processWide;
    if (ProcessWideLauncher::hasEnded) {
        throw std::runtime_error("The server launcher has ended");
    }
    return *processWide.launcher;
}
