#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <system_error>

#include "platform/linux/program_search.h"
#include "platform/process.h"
#include "tools/host/check_system.h"
#include "tools/host/failure.h"
#include "tools/host/system.h"

namespace plate_host {
namespace {

std::string SystemText(int error) {
    return std::generic_category().message(error);
}

std::string EndText(int status) {
    if (WIFSIGNALED(status)) {
        return "was ended by signal " + std::to_string(WTERMSIG(status)) + " (" + ::strsignal(WTERMSIG(status)) + ")";
    }
    return WEXITSTATUS(status) == 0 ? "" : "ended with status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

struct OwnProgram::System {
    pid_t process = 0;  // 0 once it has been waited for
    int output = -1;
};

OwnProgram::OwnProgram(const std::vector<std::string>& arguments) : system_(std::make_unique<System>()) {
    std::array<int, 2> pipe{-1, -1};
    if (::pipe2(pipe.data(), O_CLOEXEC) != 0) {
        throw Failure("cannot create a pipe: " + SystemText(errno));
    }
    system_->output = pipe[0];
    const std::string program = ProgramFile().native();
    std::vector<std::string> words{program};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    std::transform(words.begin(), words.end(), std::back_inserter(pointers),
                   [](std::string& word) { return word.data(); });
    pointers.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_adddup2(&actions, pipe[1], STDOUT_FILENO);
    const int error = ::posix_spawn(&system_->process, program.c_str(), &actions, nullptr, pointers.data(), ::environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(pipe[1]);
    if (error != 0) {
        ::close(pipe[0]);
        throw Failure("cannot start \"" + program + "\": " + SystemText(error));
    }
}

OwnProgram::~OwnProgram() {
    Wait(std::chrono::steady_clock::now());
    CloseOutput();
}

bool OwnProgram::HasEnded() {
    siginfo_t end = {};
    const auto id = static_cast<id_t>(system_->process);
    return ::waitid(P_PID, id, &end, WEXITED | WNOHANG | WNOWAIT) == 0 && end.si_pid != 0;
}

void OwnProgram::CloseOutput() {
    if (system_->output != -1) {
        ::close(system_->output);
        system_->output = -1;
    }
}

OwnProgram::Got OwnProgram::ReadLine(std::string& line, std::chrono::steady_clock::time_point deadline) {
    for (;;) {
        if (const std::size_t end = pending_.find('\n'); end != std::string::npos) {
            line = pending_.substr(0, end);
            pending_.erase(0, end + 1);
            return Got::Line;
        }
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
        pollfd wait{system_->output, POLLIN, 0};
        const int ready = ::poll(&wait, 1, static_cast<int>(std::max<std::int64_t>(left, 0)));
        if (ready == 0) {
            return Got::Nothing;
        }
        if (ready > 0 && !ReadAvailable()) {
            return Got::End;
        }
    }
}

bool OwnProgram::ReadAvailable() {
    std::array<char, 4096> bytes;
    const ssize_t count = ::read(system_->output, bytes.data(), bytes.size());
    if (count > 0) {
        pending_.append(bytes.data(), static_cast<std::size_t>(count));
    }
    return count > 0 || (count < 0 && errno == EINTR);
}

std::string OwnProgram::Wait(std::chrono::steady_clock::time_point deadline) {
    int status = 0;
    if (system_->process == 0) {
        return {};
    }
    while (::waitpid(system_->process, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() >= deadline) {
            const auto id = static_cast<std::uint32_t>(system_->process);
            platform::TerminateProcess(platform::OpenProcess(platform::processAllAccess, false, id), 1);
            while (::waitpid(system_->process, &status, 0) < 0 && errno == EINTR) {
            }
            break;
        }
        ::usleep(2000);
    }
    system_->process = 0;
    return EndText(status);
}

std::string FindProgram(const std::string& name) {
    std::string path;
    return platform::FindProgram(name, path) == 0 ? path : std::string();
}

const char* ProgramPlaces() {
    return "the folder of the host's program or the folders of PATH";
}

std::vector<std::string> MissingLibraries(const std::string&) {
    return {};
}

std::string VersionOf(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        return SystemText(errno);
    }
    std::array<char, 32> time{};
    std::tm parts{};
    ::gmtime_r(&status.st_mtime, &parts);
    std::strftime(time.data(), time.size(), "%Y-%m-%d %H:%M UTC", &parts);
    return "a library for Linux has no version; " + std::to_string(status.st_size) + " bytes, changed " + time.data();
}

const std::array<const char*, 2>& EngineFunctionNames() {
    static constexpr std::array names{"_Z10Recognize2P10YUV420_IMGP3IMGP7tagRECTP6RPLATEi", "_Z13SetPlateRangeii"};
    return names;
}

void EndOnCrash() {}

CheckResult CheckDebugOutput() {
    const int mode = ::fcntl(STDERR_FILENO, F_GETFL);
    if (mode == -1 || (mode & O_ACCMODE) == O_RDONLY) {
        return {CheckState::Warning, "standard error, where the trace lines go, cannot be written",
                "start the host with a standard error"};
    }
    return {CheckState::Ok, "standard error, where the trace lines go, can be written", ""};
}

}  // namespace plate_host
