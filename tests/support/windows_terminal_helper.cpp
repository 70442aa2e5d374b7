// Runs a program with this process's terminal as its standard error: windows_terminal_helper PROGRAM ...
#include <windows.h>

#include <cwchar>

int main() {
    // The helper's own name is in quotation marks, followed by the command to run.
    wchar_t* const line = std::wcschr(::GetCommandLineW() + 1, L'"') + 2;
    SECURITY_ATTRIBUTES inheritable = {sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = ::GetStdHandle(STD_INPUT_HANDLE);
    startup.hStdOutput = ::GetStdHandle(STD_OUTPUT_HANDLE);
    startup.hStdError = ::CreateFileW(L"CONOUT$", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                      &inheritable, OPEN_EXISTING, 0, nullptr);
    PROCESS_INFORMATION information = {};
    if (startup.hStdError == INVALID_HANDLE_VALUE ||
        ::CreateProcessW(nullptr, line, nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &information) == FALSE) {
        return static_cast<int>(::GetLastError());
    }
    ::WaitForSingleObject(information.hProcess, INFINITE);
    DWORD status = 0;
    ::GetExitCodeProcess(information.hProcess, &status);
    return static_cast<int>(status);
}
