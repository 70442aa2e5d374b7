// Selects the narrow functions.
#undef UNICODE
#include <windows.h>
// clang-format off: needs the one above
#include <tlhelp32.h>
// clang-format on

#include <functional>
#include <stdexcept>
#include <string>

#include "tests/support/servers.h"
#include "tests/support/wait_until.h"

namespace servers {

namespace {

namespace fs = std::filesystem;

void ForEachProcess(const std::function<void(const PROCESSENTRY32&)>& action) {
    const HANDLE list = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    if (list == INVALID_HANDLE_VALUE) {
        throw std::runtime_error("no list of processes");
    }
    PROCESSENTRY32 entry = {};
    entry.dwSize = sizeof entry;
    for (BOOL found = Process32First(list, &entry); found != FALSE; found = Process32Next(list, &entry)) {
        action(entry);
    }
    CloseHandle(list);
}

/// Calls a system function that no header declares.
bool CallOnProcess(ProcessId process, const char* function) {
    const FARPROC found = GetProcAddress(GetModuleHandleA("ntdll.dll"), function);
    const HANDLE handle = OpenProcess(PROCESS_SUSPEND_RESUME, FALSE, static_cast<DWORD>(process));
    const bool hasSucceeded = handle != nullptr && found != nullptr &&
                              reinterpret_cast<LONG(NTAPI*)(HANDLE)>(reinterpret_cast<void*>(found))(handle) >= 0;
    CloseHandle(handle);
    return hasSucceeded;
}

}  // namespace

fs::path OwnFolder() {
    std::wstring name(32768, L'\0');
    name.resize(GetModuleFileNameW(nullptr, name.data(), static_cast<DWORD>(name.size())));
    return fs::path(name).parent_path();
}

void Place(const fs::path& program) {
    RequireNoForeignServer();
    Remove();
    fs::copy_file(OwnFolder() / program, OwnFolder() / serverName);
}

// The file of a program that runs or has just ended cannot be removed. It is renamed and removed later.
void Remove() {
    const fs::path file = OwnFolder() / serverName;
    const std::string aside = std::string(serverName) + ".old-";
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(OwnFolder())) {
        if (entry.path().filename().string().starts_with(aside)) {
            fs::remove(entry.path(), error);
        }
    }
    const bool isGone = WaitUntil([&] {
        fs::remove(file, error);
        if (fs::exists(file)) {
            fs::rename(file, OwnFolder() / (aside + std::to_string(GetTickCount64())), error);
        }
        return !fs::exists(file);
    });
    if (!isGone) {
        throw std::runtime_error("the server's program cannot be removed");
    }
}

std::set<ProcessId> Running(Of whose) {
    std::set<ProcessId> running;
    ForEachProcess([&](const PROCESSENTRY32& entry) {
        const bool isChild = entry.th32ParentProcessID == GetCurrentProcessId();
        const auto process = static_cast<ProcessId>(entry.th32ProcessID);
        if (isChild == (whose == Of::This) && lstrcmpiA(entry.szExeFile, serverName) == 0 && !IsGone(process)) {
            running.insert(process);
        }
    });
    return running;
}

int Zombies() {
    return 0;
}

// An ended process stays in the list while a handle to it is open.
bool IsGone(ProcessId process) {
    const HANDLE handle = OpenProcess(SYNCHRONIZE, FALSE, static_cast<DWORD>(process));
    if (handle == nullptr) {
        return GetLastError() == ERROR_INVALID_PARAMETER;
    }
    const bool ended = WaitForSingleObject(handle, 0) == WAIT_OBJECT_0;
    CloseHandle(handle);
    return ended;
}

void Kill(ProcessId process) {
    const HANDLE handle = OpenProcess(PROCESS_TERMINATE, FALSE, static_cast<DWORD>(process));
    if (handle != nullptr) {
        TerminateProcess(handle, 1);
        CloseHandle(handle);
    }
}

void Suspend(ProcessId process) {
    if (!CallOnProcess(process, "NtSuspendProcess")) {
        throw std::runtime_error("the process cannot be stopped");
    }
}

void Resume(ProcessId process) {
    CallOnProcess(process, "NtResumeProcess");
}

void KillAll() {
    for (const ProcessId server : Running()) {
        Kill(server);
        WaitUntil([server] { return IsGone(server); });
    }
}

}  // namespace servers
