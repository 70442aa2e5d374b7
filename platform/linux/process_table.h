/// What the system's process table, /proc, says about processes. Functions that return an int return 0 or the error.
/// Any thread. On allocation failure they throw std::bad_alloc.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "platform/process.h"

namespace platform {

struct ProcessState {
    std::string comm;  ///< the name, cut to 15 bytes
    std::uint64_t startTime = 0;
    bool ended = false;        ///< a zombie
    bool leaderEnded = false;  ///< the first thread has ended, others go on
};

int ReadState(pid_t process, ProcessState& state);

/// True for the errors of reading about a process that does not exist any more.
bool MeansGone(int error);

/// Reads the path of the program that runs in a process, which is given by its folder of the table.
int ReadProgram(const std::string& folder, std::string& program);

/// Waits, at most a second, until a child that was just started has its own name. The system lets it go a moment
/// earlier, and a list that is made right then would not have a script under its name.
void WaitForName(pid_t child);

/// Adds the system's own process and then each one that runs and that the caller may signal.
int ReadProcesses(std::vector<ProcessEntry>& entries);

}  // namespace platform
