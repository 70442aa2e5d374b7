// The narrow forms, whose macros would otherwise name the wide ones.
#undef UNICODE
#include <windows.h>
// clang-format off: needs the one above
#include <tlhelp32.h>
// clang-format on

#include <functional>
#include <stdexcept>
#include <string>

#include "tests/support/comes_true.h"
#include "tests/support/servers.h"

namespace servers {

namespace {

namespace fs = std::filesystem;

constexpr DWORD longestEndMilliseconds = 60'000;

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

// One that has ended stands in the list for as long as somebody has it open.
bool HasEnded(DWORD process) {
    const HANDLE handle = OpenProcess(SYNCHRONIZE, FALSE, process);
    if (handle == nullptr) {
        return GetLastError() == ERROR_INVALID_PARAMETER;
    }
    const bool ended = WaitForSingleObject(handle, 0) == WAIT_OBJECT_0;
    CloseHandle(handle);
    return ended;
}

bool IsChild(const PROCESSENTRY32& entry) {
    return entry.th32ParentProcessID == GetCurrentProcessId();
}

bool IsServer(const PROCESSENTRY32& entry) {
    return lstrcmpiA(entry.szExeFile, serverName) == 0 && !HasEnded(entry.th32ProcessID);
}

}  // namespace

ProcessId ForeignServer() {
    ProcessId foreign = 0;
    ForEachProcess([&](const PROCESSENTRY32& entry) {
        if (!IsChild(entry) && IsServer(entry)) {
            foreign = static_cast<ProcessId>(entry.th32ProcessID);
        }
    });
    return foreign;
}

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

// The file of a program that runs, or has just ended, cannot be removed. It can be renamed, and is removed later.
void Remove() {
    const fs::path file = OwnFolder() / serverName;
    const std::string aside = std::string(serverName) + ".old-";
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(OwnFolder())) {
        if (entry.path().filename().string().starts_with(aside)) {
            fs::remove(entry.path(), error);
        }
    }
    const bool isGone = ComesTrue([&] {
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

std::set<ProcessId> Running() {
    std::set<ProcessId> running;
    ForEachProcess([&](const PROCESSENTRY32& entry) {
        if (IsChild(entry) && IsServer(entry)) {
            running.insert(static_cast<ProcessId>(entry.th32ProcessID));
        }
    });
    return running;
}

int Zombies() {
    return 0;
}

bool IsGone(ProcessId process) {
    return HasEnded(static_cast<DWORD>(process));
}

void Kill(ProcessId server) {
    const HANDLE handle = OpenProcess(PROCESS_TERMINATE, FALSE, static_cast<DWORD>(server));
    if (handle != nullptr) {
        TerminateProcess(handle, 1);
        CloseHandle(handle);
    }
}

void KillAll() {
    for (const ProcessId server : Running()) {
        const HANDLE handle = OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, static_cast<DWORD>(server));
        if (handle != nullptr) {
            TerminateProcess(handle, 1);
            WaitForSingleObject(handle, longestEndMilliseconds);
            CloseHandle(handle);
        }
    }
}

ProcessId StartStranger() {
    const std::string program = (OwnFolder() / serverName).string();
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION started = {};
    if (CreateProcessA(program.c_str(), nullptr, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &started) ==
        FALSE) {
        return 0;
    }
    CloseHandle(started.hThread);
    CloseHandle(started.hProcess);
    return static_cast<ProcessId>(started.dwProcessId);
}

}  // namespace servers
