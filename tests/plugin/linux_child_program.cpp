#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <stdexcept>

#include "platform/linux/send_signal.h"
#include "tests/plugin/child_program.h"

namespace plugin_test {

ChildProgram::ChildProgram(const std::filesystem::path& program, const std::string& argument) {
    std::array<int, 2> report = {};
    if (pipe(report.data()) != 0) {
        throw std::runtime_error("no pipe");
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, report[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, report[0]);
    std::string writable = argument;
    std::array<char*, 3> arguments = {const_cast<char*>(program.c_str()), writable.data(), nullptr};
    pid_t child = 0;
    const int error = posix_spawn(&child, program.c_str(), &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(report[1]);
    output_ = report[0];
    if (error != 0) {
        close(report[0]);
        throw std::runtime_error(program.string() + " cannot be started");
    }
    process_ = child;
}

ChildProgram::~ChildProgram() {
    close(static_cast<int>(output_));
    if (!Status()) {
        platform::SendSignal(static_cast<pid_t>(process_), SIGKILL);
        waitpid(static_cast<pid_t>(process_), nullptr, 0);
    }
}

std::int32_t ChildProgram::ReadNumber() {
    std::array<char, 32> text = {};
    const ssize_t count = read(static_cast<int>(output_), text.data(), text.size() - 1);
    return count > 0 ? std::atoi(text.data()) : 0;
}

std::optional<std::int64_t> ChildProgram::Status() {
    int ended = 0;
    if (!status_ && waitpid(static_cast<pid_t>(process_), &ended, WNOHANG) != 0) {
        status_ = ended;
    }
    return status_;
}

}  // namespace plugin_test
