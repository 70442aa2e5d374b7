/// One client for each thread that calls the engine.
#pragma once

#include "reference/engine/client.h"

namespace engine_client {

/// Returns the client of the calling thread; null when the exiting thread has already destroyed it. Throws
/// std::exception.
Client* ClientOfThread();

}  // namespace engine_client
