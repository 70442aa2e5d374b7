/// Signals to single processes. No other code in this tree sends signals to process ids; `scripts/check-rooms` checks
/// it.
#pragma once

#include <errno.h>
#include <signal.h>
#include <sys/types.h>
// Some versions of this header lack extern "C".
extern "C" {
#include <sys/pidfd.h>
}

namespace platform {

/// The lowest process id that may be signalled. 0 is the caller's process group, -1 every process, other negative
/// numbers are groups: an unset id, or that of a failed fork, would signal the host itself. 1 is the system's own
/// process.
inline constexpr pid_t lowestSignalledProcess = 2;

/// Sends a signal to one process. Returns 0 or the error; EINVAL for an id below lowestSignalledProcess. Any thread.
inline int SendSignal(pid_t process, int signal) {
    if (process < lowestSignalledProcess) {
        return EINVAL;
    }
    return ::kill(process, signal) == 0 ? 0 : errno;
}

/// The same through a descriptor of the process, so that no later process with the same id can receive the signal.
inline int SendSignalThrough(int processDescriptor, pid_t process, int signal) {
    if (process < lowestSignalledProcess) {
        return EINVAL;
    }
    return ::pidfd_send_signal(processDescriptor, signal, nullptr, 0) == 0 ? 0 : errno;
}

/// Returns 0 when the process exists and the caller may signal it, else the error. Sends no signal. Any thread.
inline int CheckMaySignal(pid_t process) {
    if (process < 1) {
        return EINVAL;
    }
    return ::kill(process, 0) == 0 ? 0 : errno;
}

}  // namespace platform
