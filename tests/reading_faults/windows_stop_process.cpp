#include <windows.h>
// clang-format off: needs the one above
#include <winternl.h>
// clang-format on

#include <stdexcept>

#include "tests/reading_faults/stop_process.h"

// The system's own, which no header declares.
extern "C" NTSTATUS NTAPI NtSuspendProcess(HANDLE process);

namespace reading_faults {

void StopProcess(servers::ProcessId process) {
    const HANDLE handle = OpenProcess(PROCESS_SUSPEND_RESUME, FALSE, static_cast<DWORD>(process));
    const bool isStopped = handle != nullptr && NtSuspendProcess(handle) >= 0;
    CloseHandle(handle);
    if (!isStopped) {
        throw std::runtime_error("the process cannot be stopped");
    }
}

}  // namespace reading_faults
