#include <windows.h>

#include <atomic>

#include "tests/plugin/plugin.h"
#include "tests/soak/kept_handles.h"
#include "tools/validate/system.h"

namespace soak {
namespace {

std::atomic<std::uint64_t> keptHandles = 0;
std::atomic<std::uint64_t> keptBytes = 0;

HANDLE WINAPI CountOpenProcess(DWORD access, BOOL isInheritable, DWORD process) {
    const HANDLE handle = OpenProcess(access, isInheritable, process);
    keptHandles += handle != nullptr ? 1u : 0u;
    return handle;
}

BOOL WINAPI CountCreateProcess(LPCSTR program, LPSTR commandLine, LPSECURITY_ATTRIBUTES process,
                               LPSECURITY_ATTRIBUTES thread, BOOL inherits, DWORD flags, LPVOID environment,
                               LPCSTR folder, LPSTARTUPINFOA startup, LPPROCESS_INFORMATION started) {
    const BOOL isStarted =
        CreateProcessA(program, commandLine, process, thread, inherits, flags, environment, folder, startup, started);
    const DWORD error = GetLastError();
    keptHandles += isStarted != FALSE ? 2u : 0u;
    SetLastError(error);
    return isStarted;
}

}  // namespace

void CountKeptHandles() {
    void* const library = GetModuleHandleW(plugin_test::LibraryFile().filename().c_str());
    validate::ReplaceImport(library, "OpenProcess", reinterpret_cast<void*>(&CountOpenProcess));
    validate::ReplaceImport(library, "CreateProcessA", reinterpret_cast<void*>(&CountCreateProcess));
}

void AddRuntimeHandles(std::uint64_t count) {
    keptHandles += count;
    keptBytes += maxRuntimeBytes;
}

std::uint64_t KeptHandles() {
    return keptHandles;
}

std::uint64_t KeptBytes() {
    return keptBytes;
}

}  // namespace soak
