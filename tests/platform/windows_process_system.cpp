#include <windows.h>

#include <string>

#include "tests/platform/process_system.h"

namespace process_tests {

std::filesystem::path OwnFolder() {
    constexpr std::size_t longestPath = 32768;
    std::wstring name(longestPath, L'\0');
    name.resize(GetModuleFileNameW(nullptr, name.data(), static_cast<DWORD>(name.size())));
    return std::filesystem::path(name).parent_path();
}

std::uint32_t OwnProcessId() {
    return GetCurrentProcessId();
}

void KillFromOutside(std::uint32_t process) {
    const HANDLE handle = OpenProcess(PROCESS_TERMINATE, FALSE, process);
    if (handle != nullptr) {
        TerminateProcess(handle, 1);
        CloseHandle(handle);
    }
}

}  // namespace process_tests
