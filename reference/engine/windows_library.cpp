#include "reference/engine/windows_library.h"

#include <windows.h>

#include <new>
#include <set>

namespace {

DWORD slot = TLS_OUT_OF_INDEXES;
SRWLOCK allLock = SRWLOCK_INIT;
std::set<void*>* all = nullptr;  // those of all threads; guarded by allLock

class AllLocked {
  public:
    AllLocked() { AcquireSRWLockExclusive(&allLock); }
    ~AllLocked() { ReleaseSRWLockExclusive(&allLock); }
    AllLocked(const AllLocked&) = delete;
    AllLocked& operator=(const AllLocked&) = delete;
};

void EndOfThread() {
    void* const kept = TlsGetValue(slot);
    if (kept != nullptr) {
        TlsSetValue(slot, nullptr);
        {
            const AllLocked locked;
            all->erase(kept);
        }
        engine_library::End(kept);
    }
}

// No other thread is in the library.
void EndOfLibrary() {
    for (void* const kept : *all) {
        engine_library::End(kept);
    }
    delete all;
    TlsFree(slot);
}

}  // namespace

namespace engine_library {

void* Kept() {
    return TlsGetValue(slot);
}

void Keep(void* kept) {
    const AllLocked locked;
    all->insert(kept);
    if (TlsSetValue(slot, kept) == FALSE) {
        all->erase(kept);
        throw std::bad_alloc();
    }
}

}  // namespace engine_library

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, void*) {
    switch (reason) {
        case DLL_PROCESS_ATTACH:
            slot = TlsAlloc();
            all = new std::set<void*>;
            return slot != TLS_OUT_OF_INDEXES;
        case DLL_THREAD_DETACH:
            EndOfThread();
            break;
        case DLL_PROCESS_DETACH:
            EndOfLibrary();
            break;
        default:
            break;
    }
    return TRUE;
}

extern "C" BOOL WINAPI DllMainCRTStartup(HINSTANCE library, DWORD reason, void* processEnds);

/// The library's entry point, which does nothing when the process ends.
extern "C" BOOL WINAPI EnterEngine(HINSTANCE library, DWORD reason, void* processEnds) {
    if (reason == DLL_PROCESS_DETACH && processEnds != nullptr) {
        return TRUE;
    }
    return DllMainCRTStartup(library, reason, processEnds);
}
