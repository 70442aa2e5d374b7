/// The life of the server's process.
#pragma once

#include <filesystem>

#include "reference/server/service.h"

namespace reading_service {

/// What the process ends with.
inline constexpr int exitedWell = 0;
inline constexpr int exitedByFailure = 1;
inline constexpr int exitedForTheName = 3;  ///< another server listens

/// For the frames in hand of a process that has been asked to end; a reader that hangs does not keep it.
inline constexpr unsigned longestEndSeconds = 10;

/// Where the program lies.
std::filesystem::path ProgramFolder();

/// Runs the service until it ends, and returns what the process is to end with. Says on standard error why it ends,
/// where nobody has asked it to.
int RunToTheEnd(Service& service);

/// RunToTheEnd; the service also ends when the system asks the process to. REQUIRES: no other thread has been started.
int RunUntilTold(Service& service);

}  // namespace reading_service
