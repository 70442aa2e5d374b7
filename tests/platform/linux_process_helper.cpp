// The program that the process tests start. Its first argument names what it does.

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <thread>

namespace {

constexpr unsigned maxLifetimeSeconds = 120;  // no process is left if the test crashes

int SleepUntilTerminated() {
    for (;;) {
        pause();
    }
}

/// Writes how it was started to a file, which is renamed into place when it is complete.
int Report(const std::string& file) {
    const std::string unfinished = file + ".unfinished";
    {
        std::ofstream report(unfinished);
        report << "executable " << std::filesystem::read_symlink("/proc/self/exe").string() << '\n';
        report << "folder " << std::filesystem::current_path().string() << '\n';
        const char* variable = std::getenv("VEXLANE_TEST_VARIABLE");
        report << "variable " << (variable == nullptr ? "none" : variable) << '\n';
        report << "leads its session " << (getsid(0) == getpid()) << '\n';
        for (int descriptor = 0; descriptor < 1024; ++descriptor) {
            std::error_code missing;
            const std::filesystem::path target =
                std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), missing);
            if (!missing && target != unfinished) {
                report << "descriptor " << descriptor << ' ' << target.string() << '\n';
            }
        }
        std::ifstream status("/proc/self/status");
        for (std::string line; std::getline(status, line);) {
            if (line.starts_with("SigBlk:") || line.starts_with("SigIgn:")) {
                // The C library uses two signals above these.
                const unsigned long signals = std::stoul(line.substr(7), nullptr, 16) & 0x7FFFFFFF;
                report << line.substr(0, 7) << signals << '\n';
            }
        }
    }
    return std::rename(unfinished.c_str(), file.c_str());
}

}  // namespace

int main(int count, char** arguments) {
    alarm(maxLifetimeSeconds);
    const std::string_view part = count > 1 ? arguments[1] : "sleep";
    if (part == "ignore-termination") {
        signal(SIGTERM, SIG_IGN);
        signal(SIGINT, SIG_IGN);
        signal(SIGHUP, SIG_IGN);
        return SleepUntilTerminated();
    }
    if (part == "exit") {
        return 0;
    }
    if (part == "report" && count > 2) {
        return Report(arguments[2]);
    }
    if (part == "first-thread-ends") {
        std::thread([] { SleepUntilTerminated(); }).detach();
        pthread_exit(nullptr);
    }
    return SleepUntilTerminated();
}
