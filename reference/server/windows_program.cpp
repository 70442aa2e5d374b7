#include <windows.h>

#include <cstdio>
#include <mutex>
#include <string>

#include "reference/server/program.h"

namespace reading_service {

namespace {

std::mutex serviceMutex;
Service* runningService = nullptr;  // guarded by serviceMutex

// Called on its own thread. When the console or the session closes, the system ends the process once this returns.
BOOL WINAPI HandleConsoleEvent(DWORD) {
    {
        const std::lock_guard lock(serviceMutex);
        if (runningService != nullptr) {
            runningService->Stop();
        }
    }
    Sleep(shutdownTimeoutSeconds * 1000);
    TerminateProcess(GetCurrentProcess(), exitFailure);
    return TRUE;
}

void SetRunningService(Service* service) {
    const std::lock_guard lock(serviceMutex);
    runningService = service;
}

}  // namespace

std::filesystem::path ProgramFolder() {
    constexpr DWORD maxPath = 32768;
    std::wstring name(maxPath, L'\0');
    name.resize(GetModuleFileNameW(nullptr, name.data(), maxPath));
    return std::filesystem::path(name).parent_path();
}

int RunUntilTerminated(Service& service) {
    // An error window after a crash would keep the process, whose name the library looks for, in the process list.
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    SetRunningService(&service);
    SetConsoleCtrlHandler(HandleConsoleEvent, TRUE);
    const int status = RunToCompletion(service);
    SetRunningService(nullptr);
    // The run-time library's clean-up can wait for a thread that no longer exists; there is nothing left to clean up.
    std::fflush(nullptr);
    TerminateProcess(GetCurrentProcess(), static_cast<UINT>(status));
    return status;
}

}  // namespace reading_service
