#include <windows.h>

#include <cstdio>
#include <mutex>
#include <string>

#include "reference/server/program.h"

namespace reading_service {

namespace {

std::mutex tellingMutex;
Service* toldService = nullptr;  // guarded by tellingMutex

// On a thread of its own. The console's end and that of the session take the process with them as soon as this returns.
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
    // A window that tells of a crash would keep the process, whose name the one who starts servers looks for.
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    SetTold(&service);
    SetConsoleCtrlHandler(Tell, TRUE);
    const int status = RunToTheEnd(service);
    SetTold(nullptr);
    // What the run-time library does at the end can wait for a thread that is no more; nothing is left to be done.
    std::fflush(nullptr);
    TerminateProcess(GetCurrentProcess(), static_cast<UINT>(status));
    return status;
}

}  // namespace reading_service
