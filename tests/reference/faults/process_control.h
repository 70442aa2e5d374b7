/// What a test does to processes, and learns of them.
#pragma once

#include <memory>

#include "tests/support/servers.h"

namespace reading_faults {

/// Stops a process, and comes back when it does nothing any more. Throws std::runtime_error.
void StopProcess(servers::ProcessId process);

/// Lets one that was stopped go on.
void ContinueProcess(servers::ProcessId process);

/// How a process that was started by this one ends. It is made while the process runs, or before anybody has waited for
/// it.
class ProcessEnd {
  public:
    explicit ProcessEnd(servers::ProcessId awaited);
    ~ProcessEnd();
    ProcessEnd(const ProcessEnd&) = delete;
    ProcessEnd& operator=(const ProcessEnd&) = delete;

    /// Waits for it; -1 when it does not end in time, and where a signal has ended it.
    int Code();

  private:
    struct System;
    std::unique_ptr<System> system_;
};

}  // namespace reading_faults
