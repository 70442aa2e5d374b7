#include "tests/support/servers.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "platform/linux/send_signal.h"
#include "tests/support/wait_until.h"

namespace servers {

static_assert(std::is_same_v<pid_t, ProcessId>);

namespace {

namespace fs = std::filesystem;

struct Process {
    pid_t id = 0;
    pid_t parent = 0;
    char state = 0;       ///< 0 where there is no such process
    std::string program;  ///< empty for one that has ended

    bool IsChild() const { return parent == getpid(); }

    /// A server whose program file was replaced still counts.
    bool IsServer() const { return state != 'Z' && program.substr(0, program.find(" (deleted)")) == serverName; }
};

Process ProcessOf(pid_t id) {
    const fs::path folder = "/proc/" + std::to_string(id);
    std::ifstream file(folder / "stat");
    std::string text;
    std::getline(file, text);
    Process process;
    process.id = id;
    if (const std::size_t close = text.rfind(')'); close != std::string::npos) {
        std::istringstream(text.substr(close + 1)) >> process.state >> process.parent;
    }
    std::error_code ignored;
    process.program = fs::read_symlink(folder / "exe", ignored).filename();
    return process;
}

std::vector<Process> AllProcesses() {
    std::vector<Process> processes;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator("/proc", error)) {
        const std::string name = entry.path().filename();
        pid_t id = 0;
        if (std::from_chars(name.data(), name.data() + name.size(), id).ptr == name.data() + name.size()) {
            processes.push_back(ProcessOf(id));
        }
    }
    return processes;
}

void Signal(ProcessId process, int signal) {
    const int error = platform::SendSignal(process, signal);
    const bool isGoneAsWanted = error == ESRCH && signal == SIGKILL;
    if (error != 0 && !isGoneAsWanted) {
        throw std::runtime_error("there is no process " + std::to_string(process) + " to signal");
    }
}

}  // namespace

fs::path OwnFolder() {
    return fs::read_symlink("/proc/self/exe").parent_path();
}

// A second name of the same file: a copy that is still being written could not be started.
void Place(const fs::path& program) {
    RequireNoForeignServer();
    Remove();
    fs::create_hard_link(OwnFolder() / program, OwnFolder() / serverName);
}

void Remove() {
    fs::remove(OwnFolder() / serverName);
}

// A server of another user is invisible to the library.
std::set<ProcessId> Running(Of whose) {
    std::set<ProcessId> running;
    for (const Process& process : AllProcesses()) {
        if (process.IsServer() && process.IsChild() == (whose == Of::This) &&
            platform::CheckMaySignal(process.id) == 0) {
            running.insert(process.id);
        }
    }
    return running;
}

int Zombies() {
    const std::vector<Process> all = AllProcesses();
    return static_cast<int>(std::count_if(
        all.begin(), all.end(), [](const Process& process) { return process.IsChild() && process.state == 'Z'; }));
}

bool IsGone(ProcessId process) {
    const char state = ProcessOf(process).state;
    return state == 0 || state == 'Z';
}

void Kill(ProcessId process) {
    Signal(process, SIGKILL);
}

void Suspend(ProcessId process) {
    Signal(process, SIGSTOP);
    if (!WaitUntil([process] { return ProcessOf(process).state == 'T'; })) {
        throw std::runtime_error("the process cannot be stopped");
    }
}

void Resume(ProcessId process) {
    Signal(process, SIGCONT);
}

void KillAll() {
    for (const ProcessId server : Running()) {
        Kill(server);
        waitpid(server, nullptr, 0);
    }
}

}  // namespace servers
