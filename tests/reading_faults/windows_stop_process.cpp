#include <windows.h>
// clang-format off: needs the one above
#include <winternl.h>
// clang-format on

#include "tests/reading_faults/faults_fixture.h"

// The system's own, which no header declares.
extern "C" NTSTATUS NTAPI NtSuspendProcess(HANDLE process);

namespace reading_faults {

void StopProcess(servers::ProcessId process) {
    const HANDLE handle = OpenProcess(PROCESS_SUSPEND_RESUME, FALSE, static_cast<DWORD>(process));
    ASSERT_NE(handle, nullptr);
    EXPECT_GE(NtSuspendProcess(handle), 0);
    CloseHandle(handle);
}

}  // namespace reading_faults
