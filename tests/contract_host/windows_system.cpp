// The system's side of the contract host, built by this tree's own compiler, whose names of the C library the host
// links to.

#include <malloc.h>
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/contract_host/system.h"
#include "tests/support/scratch_registry.h"

namespace {

// A host that runs longer counts as hanging.
constexpr DWORD timeoutMilliseconds = 60000;

const char* pluginPath = nullptr;
HMODULE engine = nullptr;
char currentSubject[128] = "start";
int checkCount = 0;
int failureCount = 0;

void Fail(const char* what) {
    ++failureCount;
    std::printf("FAILED %s: %s\n", currentSubject, what);
    std::fflush(stdout);
}

void Pass(const char* what) {
    std::printf("ok %s: %s\n", currentSubject, what);
    std::fflush(stdout);
}

// The process cannot continue, and its resources are not released.
[[noreturn]] void FailAndEnd(const char* how) {
    Fail(how);
    TerminateProcess(GetCurrentProcess(), 3);
    std::abort();
}

std::atomic<DWORD> handledCode = 0;
std::atomic<int> handledCount = 0;
void* forbiddenPage = nullptr;
constexpr SIZE_T pageSize = 4096;

LONG WINAPI OnCrash(EXCEPTION_POINTERS* exception) {
    const DWORD code = exception->ExceptionRecord->ExceptionCode;
    if (code != 0 && code == handledCode) {
        ++handledCount;
        DWORD before = 0;
        if (code != EXCEPTION_ACCESS_VIOLATION || VirtualProtect(forbiddenPage, pageSize, PAGE_READWRITE, &before)) {
            return EXCEPTION_CONTINUE_EXECUTION;
        }
    }
    FailAndEnd("the call crashes");
}

std::mutex tracesMutex;
std::vector<std::string> traces;  // the messages; guarded by tracesMutex

// Debug output arrives as an exception that the system's own function handles.
LONG WINAPI OnDebugOutput(EXCEPTION_POINTERS* exception) {
    static constexpr char beginning[] = "vexlane[plate_recognition::VexlaneDetectorImpl::";
    const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
    if (record.ExceptionCode == DBG_PRINTEXCEPTION_C && record.NumberParameters >= 2) {
        const std::string line = reinterpret_cast<const char*>(record.ExceptionInformation[1]);
        if (line.starts_with(beginning)) {
            const std::lock_guard lock(tracesMutex);
            traces.push_back(line.substr(line.find("): ") + 3));
        }
    }
    return EXCEPTION_CONTINUE_SEARCH;
}

std::optional<test_support::ScratchRegistry> registry;

void OnAbort(int) {
    FailAndEnd("the call ends the process");
}

DWORD WINAPI Watch(void*) {
    Sleep(timeoutMilliseconds);
    FailAndEnd("the call does not return");
}

HMODULE Load(const char* path) {
    const HMODULE library = LoadLibraryExA(path, nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    if (library == nullptr) {
        std::printf("cannot load %s: error %lu\n", path, GetLastError());
    }
    return library;
}

}  // namespace

extern "C" {

void BeginChecks(const char* subject) {
    std::snprintf(currentSubject, sizeof currentSubject, "%s", subject);
}

void ReportCheck(const char* what, bool holds) {
    ++checkCount;
    (holds ? Pass : Fail)(what);
}

void ReportNumbers(const char* what, int64_t actual, int64_t expected) {
    ReportCheck(what, actual == expected);
    if (actual != expected) {
        std::printf("       %lld instead of %lld\n", static_cast<long long>(actual), static_cast<long long>(expected));
    }
}

void ReportTexts(const char* what, const char* actual, const char* expected) {
    const bool same =
        actual != nullptr && expected != nullptr ? std::strcmp(actual, expected) == 0 : actual == expected;
    ReportCheck(what, same);
    if (!same) {
        std::printf("       \"%s\" instead of \"%s\"\n", actual != nullptr ? actual : "(null)",
                    expected != nullptr ? expected : "(null)");
    }
}

int FailedChecks() {
    return failureCount;
}

void* LoadPlugin() {
    return reinterpret_cast<void*>(Load(pluginPath));
}

void UnloadPlugin(void* plugin) {
    if (plugin != nullptr) {
        FreeLibrary(static_cast<HMODULE>(plugin));
    }
}

void* FindExport(void* plugin, const char* name) {
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(plugin), name));
}

// The programs of both compilers and the library allocate from the one heap of the C library.

bool IsAllocated(const void* block) {
    return HeapValidate(reinterpret_cast<HANDLE>(_get_heap_handle()), 0, block) != FALSE;
}

void FreeBlock(void* block) {
    std::free(block);
}

uint64_t AllocatedBlocks() {
    const auto heap = reinterpret_cast<HANDLE>(_get_heap_handle());
    PROCESS_HEAP_ENTRY entry = {};
    uint64_t count = 0;
    HeapLock(heap);
    while (HeapWalk(heap, &entry)) {
        count += (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0 ? 1 : 0;
    }
    HeapUnlock(heap);
    return count;
}

void* FindEngineExport(const char* name) {
    return reinterpret_cast<void*>(GetProcAddress(engine, name));
}

void RunOnAnotherThread(void (*action)(void*), void* context) {
    std::thread(action, context).join();
}

bool ThrowsOwnException(void (*action)(void*), void* context) {
    try {
        action(context);
    } catch (...) {
        return true;
    }
    return false;
}

void RecordTraces() {
    using Registry = test_support::ScratchRegistry;
    registry.emplace();
    registry->StoreText(Registry::Hive::LocalMachine, "SOFTWARE\\Tellumark\\KORA\\DEBUG", "DebugLevel", "1");
    AddVectoredExceptionHandler(1, OnDebugOutput);
}

int CountTraces(const char* message) {
    const std::lock_guard lock(tracesMutex);
    return static_cast<int>(std::count(traces.begin(), traces.end(), message));
}

void HandleUnhandled(uint32_t code) {
    handledCount = 0;
    handledCode = code;
}

int HandledCount() {
    return handledCount;
}

uint8_t* ForbiddenPage() {
    forbiddenPage = VirtualAlloc(nullptr, pageSize, MEM_RESERVE | MEM_COMMIT, PAGE_NOACCESS);
    return static_cast<uint8_t*>(forbiddenPage);
}
}

int main(int count, char** arguments) {
    if (count != 4) {
        std::printf("usage: %s LIBRARY ENGINE SCRIPT\n", arguments[0]);
        return 2;
    }
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
    SetUnhandledExceptionFilter(OnCrash);
    std::signal(SIGABRT, OnAbort);
    CreateThread(nullptr, 0, Watch, nullptr, 0, nullptr);

    pluginPath = arguments[1];
    _putenv_s("VEXLANE_SCRIPT", arguments[3]);
    // The library binds to an engine that is already loaded.
    engine = Load(arguments[2]);
    if (engine == nullptr) {
        return 2;
    }
    const int failures = RunContractHost();
    registry.reset();
    std::printf("%d checks, %d failed\n", checkCount, failures);
    return failures == 0 && checkCount > 0 ? 0 : 1;
}
