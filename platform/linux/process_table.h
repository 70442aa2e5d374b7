/// The system's process table, /proc. Functions that return an int return 0 or an errno value. Any thread. On
/// allocation failure they throw std::bad_alloc.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "platform/process.h"

namespace platform {

/// The state of a process.
struct ProcessState {
    std::string comm;             ///< the name, truncated to 15 bytes
    std::uint64_t startTime = 0;  ///< clock ticks since boot
    bool ended = false;           ///< a zombie
    bool leaderEnded = false;     ///< the first thread has ended, others are running
};

/// Reads the state of a process.
int ReadState(pid_t process, ProcessState& state);

/// Returns true for the errors of reading a process that does not exist any more.
bool IsGoneError(int error);

/// Reads the path of the program of a process, given by the process's folder, such as "/proc/self".
int ReadProgram(const std::string& folder, std::string& program);

/// Waits, at most one second, until a child that was just started has its name. Its start returns slightly earlier, and
/// a list of processes made at that moment would not show a script under its own name.
void WaitForName(pid_t child);

/// Appends the system's own process and then each running process that the caller may signal.
int ReadProcesses(std::vector<ProcessEntry>& entries);

}  // namespace platform
