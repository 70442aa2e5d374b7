/// Starting, finding and terminating processes. Any thread. On allocation failure the functions throw std::bad_alloc.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace platform {

/// A process or a thread; 0 is none. On Windows a system handle, which the library leaves open; elsewhere a plain value
/// (process id and start time) that needs no closing.
using SystemHandle = std::uintptr_t;

/// A started process and its first thread.
struct ProcessInformation {
    SystemHandle process = 0;
    SystemHandle thread = 0;
    std::uint32_t processId = 0;
    std::uint32_t threadId = 0;
};

/// One process of ListProcesses().
struct ProcessEntry {
    std::uint32_t processId = 0;
    std::string executableName;  ///< without folders
    std::uint32_t parentId = 0;  ///< on Windows; elsewhere 0
};

inline constexpr std::uint32_t showWindowHidden = 0;  ///< SW_HIDE
inline constexpr std::uint32_t showWindowShown = 5;   ///< SW_SHOW

inline constexpr std::uint32_t processAllAccess = 0x1F0FFF;  ///< PROCESS_ALL_ACCESS of Windows XP

/// Returns the id of the calling process; a forked child has a new one.
std::uint32_t CurrentProcessId();

/// Starts a program by bare name or absolute path, followed by its arguments. A bare name is searched for first in the
/// folder of the running program; then, on Windows, in the current folder, the system's folders and the search path;
/// elsewhere only in the absolute folders of the search path, never in the current folder. The program inherits the
/// caller's environment and current folder, but no handles. `creationFlags` and `showWindow` apply to Windows only.
/// Returns false on failure, with the last error set; `started` is written only on success.
bool StartProcess(const std::string& commandLine, std::uint32_t creationFlags, std::uint32_t showWindow,
                  ProcessInformation& started);

/// Terminates a process, on Windows with that exit code, and waits at most one second for its end. Returns false on
/// failure, with the last error set; a handle of 0 and a process that has already ended are failures. Not an
/// interruption point.
bool TerminateProcess(SystemHandle process, std::uint32_t exitCode);

/// Opens a process with Windows access rights. Returns 0 on failure, with the last error set.
SystemHandle OpenProcess(std::uint32_t access, bool inheritable, std::uint32_t processId);

/// Returns the running processes. The first entry is the system's own process. Processes that have ended but are still
/// in the system's table are not listed; on Linux neither are those that the caller may not signal. Empty on failure,
/// with the last error set.
std::vector<ProcessEntry> ListProcesses();

}  // namespace platform
