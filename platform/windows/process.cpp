#include "platform/process.h"

// The narrow forms, whose macros would otherwise name the wide ones.
#undef UNICODE
#include <windows.h>
// clang-format off: needs the one above
#include <tlhelp32.h>
// clang-format on

namespace platform {

namespace {

static_assert(showWindowHidden == SW_HIDE);
static_assert(showWindowShown == SW_SHOW);
static_assert(sizeof(STARTUPINFOA) == 104);
static_assert(sizeof(PROCESSENTRY32) == 304);

// Newer headers define PROCESS_ALL_ACCESS with more rights than this.
static_assert(processAllAccess == (STANDARD_RIGHTS_REQUIRED | SYNCHRONIZE | 0xFFF));

constexpr DWORD longestEndMilliseconds = 1000;

HANDLE ToHandle(SystemHandle handle) {
    return reinterpret_cast<HANDLE>(handle);
}

SystemHandle FromHandle(HANDLE handle) {
    return reinterpret_cast<SystemHandle>(handle);
}

// What the C library does behind the call, for the copy's sake, may change the last error: it is read at once.
bool Create(const std::string& commandLine, std::uint32_t creationFlags, std::uint32_t showWindow,
            PROCESS_INFORMATION& information, DWORD& error) {
    STARTUPINFOA startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESHOWWINDOW;
    startup.wShowWindow = static_cast<WORD>(showWindow);
    std::string writable = commandLine;
    const BOOL isCreated = ::CreateProcessA(nullptr, writable.data(), nullptr, nullptr, FALSE, creationFlags, nullptr,
                                            nullptr, &startup, &information);
    error = ::GetLastError();
    return isCreated != FALSE;
}

using ReadEntry = BOOL(WINAPI*)(HANDLE, PROCESSENTRY32*);

int Read(ReadEntry readEntry, SystemHandle list, ProcessEntry& entry) {
    PROCESSENTRY32 read = {};
    read.dwSize = sizeof(read);
    if (readEntry(ToHandle(list), &read) != TRUE) {
        return 0;
    }
    entry.processId = read.th32ProcessID;
    entry.parentId = read.th32ParentProcessID;
    entry.executableName = read.szExeFile;
    return 1;
}

}  // namespace

std::uint32_t CurrentProcessId() {
    return ::GetCurrentProcessId();
}

bool StartProcess(const std::string& commandLine, std::uint32_t creationFlags, std::uint32_t showWindow,
                  ProcessInformation& started) {
    PROCESS_INFORMATION information = {};
    DWORD error = ERROR_SUCCESS;
    if (!Create(commandLine, creationFlags, showWindow, information, error)) {
        ::SetLastError(error);
        return false;
    }
    started.process = FromHandle(information.hProcess);
    started.thread = FromHandle(information.hThread);
    started.processId = information.dwProcessId;
    started.threadId = information.dwThreadId;
    return true;
}

bool TerminateProcess(SystemHandle process, std::uint32_t exitCode) {
    if (::TerminateProcess(ToHandle(process), exitCode) == FALSE) {
        return false;
    }
    // The end is only begun: until it is reached the process still stands in the list.
    ::WaitForSingleObject(ToHandle(process), longestEndMilliseconds);
    return true;
}

SystemHandle OpenProcess(std::uint32_t access, bool inheritable, std::uint32_t processId) {
    return FromHandle(::OpenProcess(access, inheritable ? TRUE : FALSE, processId));
}

SystemHandle CreateProcessList() {
    const HANDLE list = ::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    return list == INVALID_HANDLE_VALUE ? 0 : FromHandle(list);
}

int FirstProcess(SystemHandle list, ProcessEntry& entry) {
    return Read(::Process32First, list, entry);
}

int NextProcess(SystemHandle list, ProcessEntry& entry) {
    return Read(::Process32Next, list, entry);
}

void CloseHandle(SystemHandle handle) {
    if (handle != 0) {
        ::CloseHandle(ToHandle(handle));
    }
}

}  // namespace platform
