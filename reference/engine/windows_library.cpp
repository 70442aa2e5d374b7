#include "reference/engine/windows_library.h"

#include <windows.h>

#include <new>
#include <set>

namespace {

DWORD slot = TLS_OUT_OF_INDEXES;
SRWLOCK valuesLock = SRWLOCK_INIT;
std::set<void*>* values = nullptr;  // those of all threads; guarded by valuesLock

class ValuesLocked {
  public:
    ValuesLocked() { AcquireSRWLockExclusive(&valuesLock); }
    ~ValuesLocked() { ReleaseSRWLockExclusive(&valuesLock); }
    ValuesLocked(const ValuesLocked&) = delete;
    ValuesLocked& operator=(const ValuesLocked&) = delete;
};

void OnThreadExit() {
    void* const value = TlsGetValue(slot);
    if (value != nullptr) {
        TlsSetValue(slot, nullptr);
        {
            const ValuesLocked locked;
            values->erase(value);
        }
        engine_library::DestroyThreadValue(value);
    }
}

// No other thread is in the library.
void OnUnload() {
    for (void* const value : *values) {
        engine_library::DestroyThreadValue(value);
    }
    delete values;
    TlsFree(slot);
}

}  // namespace

namespace engine_library {

void* ThreadValue() {
    return TlsGetValue(slot);
}

void SetThreadValue(void* value) {
    const ValuesLocked locked;
    values->insert(value);
    if (TlsSetValue(slot, value) == FALSE) {
        values->erase(value);
        throw std::bad_alloc();
    }
}

}  // namespace engine_library

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, void*) {
    switch (reason) {
        case DLL_PROCESS_ATTACH:
            slot = TlsAlloc();
            values = new std::set<void*>;
            return slot != TLS_OUT_OF_INDEXES;
        case DLL_THREAD_DETACH:
            OnThreadExit();
            break;
        case DLL_PROCESS_DETACH:
            OnUnload();
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
