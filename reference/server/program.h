/// The server's process: its exit status and how it ends.
#pragma once

#include <filesystem>

#include "reference/server/service.h"

namespace reading_service {

/// Exit statuses.
inline constexpr int exitedWell = 0;
inline constexpr int exitedByFailure = 1;
inline constexpr int exitedForTheName = 3;  ///< another server is listening

/// How long a process that was asked to end waits for the frames being read. Then it ends even if a reader hangs.
inline constexpr unsigned longestEndSeconds = 10;

/// The folder of the program.
std::filesystem::path ProgramFolder();

/// Runs the service until it ends and returns the exit status. Writes a failure to standard error.
int RunToTheEnd(Service& service);

/// RunToTheEnd, which also ends when the system asks the process to end. REQUIRES: no other thread has been started.
int RunUntilTold(Service& service);

}  // namespace reading_service
