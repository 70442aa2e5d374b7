#include "platform/library.h"

#include <windows.h>

#include <cstdlib>

#ifdef __GLIBCXX__
namespace __gnu_cxx {
void __freeres();
}
#endif

namespace platform {

#ifdef __GLIBCXX__
namespace {

// The C++ runtime is linked into this library. It reserves 73 KiB for exceptions thrown when memory is exhausted, and
// frees them only on request. Constructors of this priority run before all others, so the function registered here runs
// after all destructors.
__attribute__((constructor(101))) void FreeExceptionMemoryLast() {
    std::atexit([] {
        if (!OtherThreadsAreGone()) {
            __gnu_cxx::__freeres();
        }
    });
}

}  // namespace
#endif

LibraryReference HoldLibrary() {
    HMODULE library = nullptr;
    // Any address inside this library identifies it.
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
