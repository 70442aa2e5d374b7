// The program that the process tests start. Its first argument names what it does.

#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace {

constexpr DWORD maxLifetimeMilliseconds = 120'000;  // no process is left if the test crashes

/// Writes how it was started to a file, which is renamed into place when it is complete.
int Report(const std::string& file) {
    const std::string unfinished = file + ".unfinished";
    {
        char executable[MAX_PATH] = {};
        GetModuleFileNameA(nullptr, executable, MAX_PATH);
        STARTUPINFOA startup = {};
        GetStartupInfoA(&startup);
        const char* variable = std::getenv("VEXLANE_TEST_VARIABLE");
        std::ofstream report(unfinished);
        report << "executable " << executable << '\n';
        report << "folder " << std::filesystem::current_path().string() << '\n';
        report << "variable " << (variable == nullptr ? "none" : variable) << '\n';
        report << "flags " << startup.dwFlags << '\n';
        report << "show " << startup.wShowWindow << '\n';
        report << "command-line " << GetCommandLineA() << '\n';
    }
    return std::rename(unfinished.c_str(), file.c_str());
}

}  // namespace

int main(int count, char** arguments) {
    const std::string_view part = count > 1 ? arguments[1] : "sleep";
    if (part == "exit") {
        return 0;
    }
    if (part == "report" && count > 2) {
        return Report(arguments[2]);
    }
    Sleep(maxLifetimeMilliseconds);
    return 0;
}
