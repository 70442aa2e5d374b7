/// Starts, watches and ends the recognition server's process.
#pragma once

#include <atomic>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/thread.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/mutex.h"
#include "platform/process.h"
#include "server/poll_timeout_thread.h"

/// One for the whole process, shared by all detectors. Every operation may be called from any thread; failures are
/// trace lines. Lock order: poll mutex, start mutex, launcher mutex. The start mutex is never held while polling is
/// being stopped, the launcher mutex for no longer than it takes to copy.
///
/// The server belongs to the process that made the launcher. In a child that the host forks every operation returns at
/// once and does nothing: detectors there read through the parent's server, and the parent goes on watching it and ends
/// it. A child of a host that had no detector before the fork makes a launcher of its own.
class ServerLauncher : public ThreadRoutines::PollTimeoutThread {
  public:
    /// Starts polling; the first poll, at once and on the poll thread, starts the server. Throws std::exception when no
    /// thread can be had.
    ServerLauncher();
    /// Ends polling and the server. At the end of a Windows process it ends the server alone and writes no lines.
    /// REQUIRES: not on the poll thread, not in a forked child.
    ~ServerLauncher() override;

    /// Starts the server unless a process of its name runs.
    void Start();

    /// Ends polling for good, and the server. Reached on the poll thread it ends the server alone.
    void Stop();

    /// Stops, when a server runs, and starts.
    void Restart();

    /// Looks through the processes for the server's name. While a server of ours is on record, another process of that
    /// name takes its place there, if it can be opened. False in a forked child.
    bool IsServerRunning();

    /// One poll: restarts the server when it is gone or was not seen alive for more than 5 seconds.
    void OnTimeout();

    /// The server has shown that it lives.
    void MarkAlive();

  private:
    bool ScanProcesses() VEXLANE_REQUIRES(startMutex_);
    std::vector<platform::ProcessEntry> ListServers() const;
    void ExamineProcess(const platform::ProcessEntry& entry);
    void StartProcess() VEXLANE_REQUIRES(startMutex_);
    void TerminateProcess() VEXLANE_REQUIRES(startMutex_);
    void TerminateStartedProcess();
    void SetRecord(const platform::ProcessInformation& record);
    platform::ProcessInformation Record();

    boost::posix_time::ptime lastAlive_ VEXLANE_GUARDED_BY(launcherMutex_);  // local time
    platform::Mutex launcherMutex_;
    [[maybe_unused]] boost::thread unusedThread_;                              // never started
    platform::ProcessInformation process_ VEXLANE_GUARDED_BY(launcherMutex_);  // ours, all 0 without one
    std::uint32_t creationFlags_ = 0;
    std::uint32_t showWindow_;
    std::string commandLine_ = "plate-Server.exe";  // also the name to look for
    [[maybe_unused]] std::string unusedText_;
    [[maybe_unused]] std::int64_t unusedValue_ = 5000;
    std::atomic<bool> isStarting_{false};  // a server may exist that is not on record yet
    platform::Mutex startMutex_;           // makes one step of a look at the processes and what follows from it
};

/// The process-wide launcher, made by the first call and ended when the library is unloaded, but not when a forked
/// child unloads it or exits. Throws std::exception when it cannot be made and when it has ended. Any thread.
boost::shared_ptr<ServerLauncher> GetServerLauncher();
