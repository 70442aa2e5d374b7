/// The life of the server's process.
#pragma once

#include "tools/server/service.h"

namespace reading_service {

/// What the process ends with.
inline constexpr int exitedWell = 0;
inline constexpr int exitedByFailure = 1;
inline constexpr int exitedForTheName = 3;  ///< another server listens

/// Runs the service until it ends by itself or the system asks the process to end, and answers what the process is to
/// end with. Says on standard error why it ends, where nobody has asked it to. REQUIRES: no other thread has been
/// started.
int RunUntilTold(Service& service);

}  // namespace reading_service
