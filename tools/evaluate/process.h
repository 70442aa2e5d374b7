/// The processes of an evaluation: its own and the engine's server. One file per system.
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace plate_evaluation {

/// Called once, first of all, on the main thread: requests to stop are noted from then on, and a second one ends the
/// process at once.
void NoteInterruptions();

/// The number of the signal that asked the run to stop; 0 for none. Any thread.
int Interruption();

/// A server that was started for the evaluation. It writes to standard error whatever it writes, and ends with this
/// process at the latest, however this process ends.
class ServerProcess {
  public:
    /// Starts the program; on the thread that lives as long as the server is to live. Throws Failure.
    ServerProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                  std::chrono::milliseconds newPatience = std::chrono::seconds(2));
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;
    /// Asks the server to end, ends it when it has not done so in time, and waits until it is gone.
    ~ServerProcess();

    /// Throws Failure, which tells how the server ended, unless it runs. Any thread.
    void RequireRunning();

  private:
    struct System;

    const std::chrono::milliseconds patience_;
    std::unique_ptr<System> system_;
};

}  // namespace plate_evaluation
