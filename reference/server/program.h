/// The server's process: its exit status and how it ends.
#pragma once

#include <filesystem>

#include "reference/server/service.h"

namespace reading_service {

/// Exit statuses.
inline constexpr int exitSuccess = 0;
inline constexpr int exitFailure = 1;
inline constexpr int exitNameTaken = 3;  ///< another server is listening

/// How long a process that was asked to end waits for the frames being read. Then it ends even if a reader hangs.
inline constexpr unsigned shutdownTimeoutSeconds = 10;

/// The folder of the program.
std::filesystem::path ProgramFolder();

/// Runs the service until it ends and returns the exit status. Writes a failure to standard error.
int RunToCompletion(Service& service);

/// RunToCompletion, and stops when the system asks the process to end. REQUIRES: no other thread has been started.
int RunUntilTerminated(Service& service);

}  // namespace reading_service
