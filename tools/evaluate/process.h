/// The processes of an evaluation: this one and the engine's server. One file per system.
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace plate_evaluation {

/// Must be called once, before all else, on the main thread. After it, requests to stop are recorded, and a second one
/// ends the process at once.
void RecordInterruptions();

/// The signal that requested the run to stop; 0 for none. Any thread.
int Interruption();

/// A server started for the evaluation. All its output goes to standard error. The system ends it with this process,
/// even if this process crashes.
class ServerProcess {
  public:
    /// Starts the program. The server ends when the calling thread does. Throws Failure.
    ServerProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                  std::chrono::milliseconds stopTimeout = std::chrono::seconds(2));
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;
    /// Requests the server to end, kills it after the timeout, and waits for its end.
    ~ServerProcess();

    /// Throws Failure, with the way in which the server ended, unless it runs. Any thread.
    void RequireRunning();

  private:
    struct System;

    const std::chrono::milliseconds stopTimeout_;
    std::unique_ptr<System> system_;
};

}  // namespace plate_evaluation
