#include <unistd.h>

#include "platform/linux/send_signal.h"
#include "tests/platform/process_system.h"

namespace process_tests {

std::filesystem::path OwnFolder() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path();
}

std::uint32_t OwnProcessId() {
    return static_cast<std::uint32_t>(getpid());
}

void KillFromOutside(std::uint32_t process) {
    platform::SendSignal(static_cast<pid_t>(process), SIGKILL);
}

}  // namespace process_tests
