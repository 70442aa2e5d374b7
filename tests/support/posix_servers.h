/// The recognition server's real processes, under the name that tests for systems with fork know.
#pragma once

#include <sys/types.h>

#include <type_traits>

#include "tests/support/servers.h"

static_assert(std::is_same_v<pid_t, servers::ProcessId>);

namespace posix_servers = servers;
