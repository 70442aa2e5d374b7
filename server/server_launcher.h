/// Starts, monitors and terminates the recognition server process.
#pragma once

#include <atomic>
#include <boost/shared_ptr.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/thread.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/mutex.h"
#include "platform/process.h"
#include "server/poll_timeout_thread.h"

/// The supervisor of the recognition server, one per process and shared by all detectors. Every operation may be called
/// from any thread; failures are written as trace lines. Lock order: poll mutex, start mutex, launcher mutex. The start
/// mutex is never held while polling is being stopped; the launcher mutex is held only to copy values.
///
/// The server belongs to the process that created the launcher. In a child process that the host forks, every operation
/// returns at once and does nothing: detectors there use the parent's server, which the parent supervises and
/// terminates. If the host had no detector before the fork, the child creates its own launcher.
class ServerLauncher : public ThreadRoutines::PollTimeoutThread {
  public:
    /// Starts polling every 5 seconds. The first poll, at once and on the poll thread, starts the server. Throws
    /// std::exception when the thread cannot be created.
    ServerLauncher();
    /// Ends polling and terminates the server. At the end of a Windows process it only terminates the server and writes
    /// no trace lines.
    /// REQUIRES: not on the poll thread, not in a forked child.
    ~ServerLauncher() override;

    /// Starts the server unless a process with its name is running.
    void Start();

    /// Ends polling permanently and terminates the server. On the poll thread it only terminates the server.
    void Stop();

    /// Calls Stop if a server is running, then Start.
    void Restart();

    /// Returns true when a process with the server's name is running; false in a forked child. If this launcher has
    /// recorded a server and finds another process with the name, that process replaces it, provided it can be opened.
    bool IsServerRunning();

    /// One poll: restarts the server when it is not running or has not been seen alive for more than 5 seconds.
    void OnTimeout();

    /// Records that the server is alive now. Takes no lock, because every frame of every channel calls it; in a forked
    /// child it changes only the child's copy.
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
    bool IsSilent() const;

    static constexpr std::int64_t never = INT64_MIN;
    std::atomic<std::int64_t> lastAlive_{never};  // microseconds since 1970-01-01 00:00 UTC
    platform::Mutex launcherMutex_;
    [[maybe_unused]] boost::thread unusedThread_;                              // never started
    platform::ProcessInformation process_ VEXLANE_GUARDED_BY(launcherMutex_);  // the recorded server; all 0 for none
    std::uint32_t creationFlags_ = 0;
    std::uint32_t showWindow_;
    std::string commandLine_ = "plate-Server.exe";  // also the name to search for
    [[maybe_unused]] std::string unusedText_;
    [[maybe_unused]] std::int64_t unusedValue_ = 5000;
    std::atomic<bool> isStarting_{false};  // a server may be running that is not recorded yet
    platform::Mutex startMutex_;           // makes scanning the processes and acting on the result atomic
};

/// Returns the process-wide launcher. It is created by the first call and destroyed when the library is unloaded,
/// except in a forked child. Throws std::exception when it cannot be created or has been destroyed. Any thread.
boost::shared_ptr<ServerLauncher> GetServerLauncher();
