#include <windows.h>
// clang-format off: needs the one above
#include <winternl.h>
// clang-format on

#include <stdexcept>

#include "tests/reference/faults/process_control.h"

// The system's own, which no header declares.
extern "C" NTSTATUS NTAPI NtSuspendProcess(HANDLE process);
extern "C" NTSTATUS NTAPI NtResumeProcess(HANDLE process);

namespace reading_faults {

namespace {

constexpr DWORD longestEndMilliseconds = 60'000;

bool Tell(servers::ProcessId process, NTSTATUS(NTAPI* action)(HANDLE)) {
    const HANDLE handle = OpenProcess(PROCESS_SUSPEND_RESUME, FALSE, static_cast<DWORD>(process));
    const bool isTold = handle != nullptr && action(handle) >= 0;
    CloseHandle(handle);
    return isTold;
}

}  // namespace

void StopProcess(servers::ProcessId process) {
    if (!Tell(process, NtSuspendProcess)) {
        throw std::runtime_error("the process cannot be stopped");
    }
}

void ContinueProcess(servers::ProcessId process) {
    Tell(process, NtResumeProcess);
}

struct ProcessEnd::System {
    HANDLE process = nullptr;
};

ProcessEnd::ProcessEnd(servers::ProcessId awaited)
    : system_(new System{
          OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, static_cast<DWORD>(awaited))}) {}

ProcessEnd::~ProcessEnd() {
    CloseHandle(system_->process);
}

int ProcessEnd::Code() {
    DWORD code = 0;
    const bool isKnown = WaitForSingleObject(system_->process, longestEndMilliseconds) == WAIT_OBJECT_0 &&
                         GetExitCodeProcess(system_->process, &code) != FALSE;
    return isKnown ? static_cast<int>(code) : -1;
}

}  // namespace reading_faults
