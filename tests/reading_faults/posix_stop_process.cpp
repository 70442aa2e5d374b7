#include <signal.h>

#include <fstream>
#include <stdexcept>
#include <string>

#include "tests/reading_faults/stop_process.h"
#include "tests/support/comes_true.h"

namespace reading_faults {

void StopProcess(servers::ProcessId process) {
    ::kill(process, SIGSTOP);
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

}  // namespace reading_faults
