/// Signals to single processes. Nothing else in this tree sends a signal to a process id; `scripts/check-rooms` looks.
#pragma once

#include <errno.h>
#include <signal.h>
#include <sys/types.h>
// This header forgets in some versions that it is read by C++, too.
extern "C" {
#include <sys/pidfd.h>
}

namespace platform {

/// 0 is the caller's process group, -1 every process, and every other negative number a group: an id that was never
/// set, or that of a fork that failed, would reach the host itself. 1 is the system's own process.
inline constexpr pid_t lowestSignalledProcess = 2;

/// Sends a signal to one process. Returns 0 or the error; EINVAL for an id below lowestSignalledProcess. Any thread.
inline int SendSignal(pid_t process, int signal) {
    if (process < lowestSignalledProcess) {
        return EINVAL;
    }
    return ::kill(process, signal) == 0 ? 0 : errno;
}

/// The same through a descriptor of that process, which no later process with its id takes over.
inline int SendSignalThrough(int processDescriptor, pid_t process, int signal) {
    if (process < lowestSignalledProcess) {
        return EINVAL;
    }
    return ::pidfd_send_signal(processDescriptor, signal, nullptr, 0) == 0 ? 0 : errno;
}

/// Returns 0 when the process exists and the caller may signal it, else the error. Sends nothing. Any thread.
inline int CheckMaySignal(pid_t process) {
    if (process < 1) {
        return EINVAL;
    }
    return ::kill(process, 0) == 0 ? 0 : errno;
}

}  // namespace platform
