/// Every thread that calls the engine has a client of its own.
#pragma once

#include "reference/engine/client.h"

namespace engine_client {

/// The client of the calling thread, which ends with the thread; null when that has happened already. Throws
/// std::exception.
Client* ClientOfThread();

}  // namespace engine_client
