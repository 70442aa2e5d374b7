#include "tests/support/servers.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <charconv>
#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "platform/linux/send_signal.h"

namespace servers {

static_assert(std::is_same_v<pid_t, ProcessId>);

namespace {

namespace fs = std::filesystem;

struct Process {
    pid_t id = 0;
    pid_t parent = 0;
    char state = 0;
    std::string program;  ///< empty for one that has ended

    bool IsChild() const { return parent == getpid(); }

    /// A program that was replaced while it runs is still one.
    bool IsServer() const { return state != 'Z' && program.substr(0, program.find(" (deleted)")) == serverName; }
};

void ForEachProcess(const std::function<void(const Process&)>& action) {
    std::error_code error;
    for (const auto& entry : fs::directory_iterator("/proc", error)) {
        const std::string name = entry.path().filename();
        Process process;
        if (std::from_chars(name.data(), name.data() + name.size(), process.id).ptr != name.data() + name.size()) {
            continue;
        }
        std::ifstream file(entry.path() / "stat");
        std::string text;
        std::getline(file, text);
        const std::size_t close = text.rfind(')');
        if (close == std::string::npos) {
            continue;
        }
        std::istringstream rest(text.substr(close + 1));
        rest >> process.state >> process.parent;
        std::error_code gone;
        process.program = fs::read_symlink(entry.path() / "exe", gone).filename();
        action(process);
    }
}

}  // namespace

// Another user's is as invisible to the library.
ProcessId ForeignServer() {
    ProcessId foreign = 0;
    ForEachProcess([&](const Process& process) {
        if (process.IsServer() && !process.IsChild() && platform::CheckMaySignal(process.id) == 0) {
            foreign = process.id;
        }
    });
    return foreign;
}

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

std::set<ProcessId> Running() {
    std::set<ProcessId> running;
    ForEachProcess([&](const Process& process) {
        if (process.IsServer() && process.IsChild()) {
            running.insert(process.id);
        }
    });
    return running;
}

int Zombies() {
    int count = 0;
    ForEachProcess([&](const Process& process) { count += process.IsChild() && process.state == 'Z' ? 1 : 0; });
    return count;
}

bool IsGone(ProcessId process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string text;
    std::getline(file, text);
    const std::size_t close = text.rfind(')');
    return close == std::string::npos || text.compare(close, 3, ") Z") == 0;
}

void Kill(ProcessId server) {
    if (platform::SendSignal(server, SIGKILL) == EINVAL) {
        throw std::runtime_error("there is no process " + std::to_string(server) + " to kill");
    }
}

void KillAll() {
    for (const ProcessId server : Running()) {
        Kill(server);
        waitpid(server, nullptr, 0);
    }
}

ProcessId StartStranger() {
    const std::string program = OwnFolder() / serverName;
    char* arguments[] = {const_cast<char*>(program.c_str()), nullptr};
    pid_t process = 0;
    return posix_spawn(&process, program.c_str(), nullptr, nullptr, arguments, environ) == 0 ? process : 0;
}

}  // namespace servers
