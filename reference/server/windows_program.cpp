#include <windows.h>

#include <cstdio>
#include <mutex>
#include <string>

#include "reference/server/program.h"

namespace reading_service {

namespace {

std::mutex tellingMutex;
Service* toldService = nullptr;  // guarded by tellingMutex

// Called on its own thread. When the console or the session closes, the system ends the process once this returns.
BOOL WINAPI Tell(DWORD) {
    {
        const std::lock_guard lock(tellingMutex);
        if (toldService != nullptr) {
            toldService->Stop();
        }
    }
    Sleep(longestEndSeconds * 1000);
    TerminateProcess(GetCurrentProcess(), exitedByFailure);
    return TRUE;
}

void SetTold(Service* service) {
    const std::lock_guard lock(tellingMutex);
    toldService = service;
}

}  // namespace

std::filesystem::path ProgramFolder() {
    constexpr DWORD longestPath = 32768;
    std::wstring name(longestPath, L'\0');
    name.resize(GetModuleFileNameW(nullptr, name.data(), longestPath));
    return std::filesystem::path(name).parent_path();
}

int RunUntilTold(Service& service) {
    // An error window after a crash would keep the process, whose name the library looks for, in the process list.
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    SetTold(&service);
    SetConsoleCtrlHandler(Tell, TRUE);
    const int status = RunToTheEnd(service);
    SetTold(nullptr);
    // The run-time library's clean-up can wait for a thread that no longer exists; there is nothing left to clean up.
    std::fflush(nullptr);
    TerminateProcess(GetCurrentProcess(), static_cast<UINT>(status));
    return status;
}

}  // namespace reading_service
