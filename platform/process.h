/// Starting, finding and ending other processes. Any thread. On allocation failure they throw std::bad_alloc.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace platform {

/// A process or a thread; 0 is none. On Windows a handle that stays open until the caller closes it as the system says;
/// elsewhere a plain value (process id and start time) that holds nothing open.
using SystemHandle = std::uintptr_t;

struct ProcessInformation {
    SystemHandle process = 0;
    SystemHandle thread = 0;
    std::uint32_t processId = 0;
    std::uint32_t threadId = 0;
};

struct ProcessEntry {
    std::uint32_t processId = 0;
    std::string executableName;  ///< without folders
    std::uint32_t parentId = 0;  ///< on Windows; elsewhere 0
};

inline constexpr std::uint32_t showWindowHidden = 0;  ///< SW_HIDE
inline constexpr std::uint32_t showWindowShown = 5;   ///< SW_SHOW

inline constexpr std::uint32_t processAllAccess = 0x1F0FFF;

/// The calling process. Changes in a child that a fork makes.
std::uint32_t CurrentProcessId();

/// Starts a program by its bare name or by an absolute path. The bare name is looked for in the running program's own
/// folder first. Windows then looks where it always does: in the current folder, in its own folders and on the search
/// path. Elsewhere only the absolute folders of the search path follow, never the current folder. The program inherits
/// no handles, and the caller's environment and folder. False on failure, with the last error set; `started` is written
/// on success alone.
bool StartProcess(const std::string& commandLine, std::uint32_t creationFlags, std::uint32_t showWindow,
                  ProcessInformation& started);

/// Ends a process with that exit code (where the system lets an outsider choose one) and waits, at most a second, until
/// it is gone. False on failure, an empty handle and a process that has ended already included, with the last error
/// set. No interruption point.
bool TerminateProcess(SystemHandle process, std::uint32_t exitCode);

/// Opens a process; 0 on failure, with the last error set.
SystemHandle OpenProcess(std::uint32_t access, bool inheritable, std::uint32_t processId);

/// Returns the processes that exist now. The first entry is the system's own process; processes that have ended but are
/// still in the system's table are not listed. Empty on failure, with the last error set.
std::vector<ProcessEntry> ListProcesses();

}  // namespace platform
