// A library that holds a reference to itself and reports how it is unloaded.

#include <windows.h>

#include <cstdlib>
#include <fstream>

#include "platform/library.h"

namespace {

DWORD WINAPI WaitAndRelease(void* argument) {
    WaitForSingleObject(argument, INFINITE);
    platform::ReleaseLibrary(platform::HoldLibrary());
    return 1;  // never reached
}

platform::LibraryReference held = 0;

DWORD WINAPI ReleaseHeld(void* argument) {
    WaitForSingleObject(argument, INFINITE);
    platform::ReleaseLibrary(held);
    return 1;  // never reached
}

}  // namespace

extern "C" {

__declspec(dllexport) void Hold() {
    held = platform::HoldLibrary();
}

__declspec(dllexport) void Drop() {
    platform::DropLibrary(held);
}

/// Starts a thread that releases the reference when the event is set.
__declspec(dllexport) HANDLE StartReleasing(HANDLE event) {
    return CreateThread(nullptr, 0, &ReleaseHeld, event, 0, nullptr);
}

/// Starts a thread that acquires and releases its own reference when the event is set.
__declspec(dllexport) HANDLE StartHoldingAndReleasing(HANDLE event) {
    return CreateThread(nullptr, 0, &WaitAndRelease, event, 0, nullptr);
}

__declspec(dllexport) bool AreOtherThreadsGone() {
    return platform::OtherThreadsAreGone();
}

BOOL WINAPI DllMain(HINSTANCE, DWORD reason, void*) {
    const char* const file = std::getenv("VEXLANE_TEST_REPORT");
    if (reason == DLL_PROCESS_DETACH && file != nullptr) {
        std::ofstream(file) << (platform::OtherThreadsAreGone() ? "gone" : "there");
    }
    return TRUE;
}

}  // extern "C"
