#include "platform/library.h"

#include <windows.h>

namespace platform {

LibraryReference HoldLibrary() {
    HMODULE library = nullptr;
    // Any address inside this library names it.
    if (::GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, reinterpret_cast<LPCSTR>(&HoldLibrary),
                             &library) == FALSE) {
        return 0;
    }
    return reinterpret_cast<LibraryReference>(library);
}

void ReleaseLibrary(LibraryReference reference) {
    if (reference != 0) {
        ::FreeLibraryAndExitThread(reinterpret_cast<HMODULE>(reference), 0);
    }
}

void DropLibrary(LibraryReference reference) {
    if (reference != 0) {
        ::FreeLibrary(reinterpret_cast<HMODULE>(reference));
    }
}

bool OtherThreadsAreGone() {
    using ShutdownInProgress = BOOLEAN(WINAPI*)();
    const HMODULE system = ::GetModuleHandleA("ntdll.dll");
    if (system == nullptr) {
        return false;
    }
    const auto shutdownInProgress = reinterpret_cast<ShutdownInProgress>(
        reinterpret_cast<void*>(::GetProcAddress(system, "RtlDllShutdownInProgress")));
    return shutdownInProgress != nullptr && shutdownInProgress() != FALSE;
}

}  // namespace platform
