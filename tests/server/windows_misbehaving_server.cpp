// A server that fails in the way that VEXLANE_TEST_SERVER names.

#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <string_view>

namespace {

constexpr DWORD maxLifetimeMilliseconds = 120'000;  // no process is left if the test crashes

BOOL WINAPI Refuse(DWORD) {
    return TRUE;
}

DWORD WINAPI ExitAfterTimeout(void*) {
    Sleep(maxLifetimeMilliseconds);
    ExitProcess(0);
}

/// Writes the requested window mode to a file, which is renamed into place when it is complete.
void Report(const char* file) {
    STARTUPINFOA startup = {};
    GetStartupInfoA(&startup);
    const std::string unfinished = std::string(file) + ".unfinished";
    std::ofstream(unfinished) << startup.dwFlags << ' ' << startup.wShowWindow << '\n';
    std::rename(unfinished.c_str(), file);
}

}  // namespace

int main() {
    CloseHandle(CreateThread(nullptr, 0, &ExitAfterTimeout, nullptr, 0, nullptr));
    const char* const variable = std::getenv("VEXLANE_TEST_SERVER");
    const std::string_view failure = variable == nullptr ? "" : variable;
    if (failure == "dies-at-start") {
        return 3;
    }
    if (failure == "crashes") {
        std::abort();
    }
    if (failure == "ends-soon") {
        Sleep(30);
        return 0;
    }
    if (failure == "ignores-termination") {
        SetConsoleCtrlHandler(&Refuse, TRUE);
    } else if (failure == "stops-itself") {
        SuspendThread(GetCurrentThread());
    } else if (failure == "spins") {
        for (volatile bool spins = true; spins;) {
        }
    } else if (failure == "reports") {
        Report(std::getenv("VEXLANE_TEST_REPORT"));
    }
    Sleep(INFINITE);
}
