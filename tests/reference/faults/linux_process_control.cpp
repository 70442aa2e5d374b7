#include <sys/wait.h>

#include <fstream>
#include <stdexcept>
#include <string>

#include "platform/linux/send_signal.h"
#include "tests/reference/faults/process_control.h"
#include "tests/support/comes_true.h"

namespace reading_faults {

void StopProcess(servers::ProcessId process) {
    if (platform::SendSignal(process, SIGSTOP) != 0) {
        throw std::runtime_error("there is no process " + std::to_string(process) + " to stop");
    }
    const bool isStopped = ComesTrue([process] {
        std::ifstream file("/proc/" + std::to_string(process) + "/stat");
        std::string text;
        std::getline(file, text);
        const std::size_t close = text.rfind(')');
        return close != std::string::npos && text.compare(close, 3, ") T") == 0;
    });
    if (!isStopped) {
        throw std::runtime_error("the process cannot be stopped");
    }
}

void ContinueProcess(servers::ProcessId process) {
    if (platform::SendSignal(process, SIGCONT) != 0) {
        throw std::runtime_error("there is no process " + std::to_string(process) + " to go on");
    }
}

struct ProcessEnd::System {
    pid_t process = 0;
};

ProcessEnd::ProcessEnd(servers::ProcessId awaited) : system_(new System{awaited}) {}

ProcessEnd::~ProcessEnd() = default;

int ProcessEnd::Code() {
    int status = 0;
    if (!ComesTrue([&] { return ::waitpid(system_->process, &status, WNOHANG) == system_->process; })) {
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace reading_faults
