#include "platform/process.h"

// The narrow functions; with UNICODE the macros would select the wide ones.
#undef UNICODE
#include <windows.h>
// clang-format off: requires the header above
#include <tlhelp32.h>
// clang-format on

#include <memory>

namespace platform {

namespace {

static_assert(showWindowHidden == SW_HIDE);
static_assert(showWindowShown == SW_SHOW);
static_assert(sizeof(STARTUPINFOA) == 104);
static_assert(sizeof(PROCESSENTRY32) == 304);

// Newer headers define PROCESS_ALL_ACCESS with more rights than this.
static_assert(processAllAccess == (STANDARD_RIGHTS_REQUIRED | SYNCHRONIZE | 0xFFF));

constexpr DWORD endTimeoutMilliseconds = 1000;

HANDLE ToHandle(SystemHandle handle) {
    return reinterpret_cast<HANDLE>(handle);
}

SystemHandle FromHandle(HANDLE handle) {
    return reinterpret_cast<SystemHandle>(handle);
}

// Freeing `writable` may change the last error, so it is read directly after the call.
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

struct HandleCloser {
    void operator()(HANDLE handle) const { ::CloseHandle(handle); }
};

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
    // The call only starts the termination; the process is listed until it has ended.
    ::WaitForSingleObject(ToHandle(process), endTimeoutMilliseconds);
    return true;
}

SystemHandle OpenProcess(std::uint32_t access, bool inheritable, std::uint32_t processId) {
    return FromHandle(::OpenProcess(access, inheritable ? TRUE : FALSE, processId));
}

std::vector<ProcessEntry> ListProcesses() {
    const HANDLE snapshot = ::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    if (snapshot == INVALID_HANDLE_VALUE) {
        return {};
    }
    const std::unique_ptr<void, HandleCloser> closer(snapshot);
    std::vector<ProcessEntry> entries;
    PROCESSENTRY32 entry = {};
    entry.dwSize = sizeof(entry);
    for (BOOL isRead = ::Process32First(snapshot, &entry); isRead == TRUE; isRead = ::Process32Next(snapshot, &entry)) {
        entries.push_back({entry.th32ProcessID, entry.szExeFile, entry.th32ParentProcessID});
    }
    return entries;
}

}  // namespace platform
