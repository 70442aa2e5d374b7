#include "tests/host/process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <system_error>

#include "platform/linux/send_signal.h"

namespace host_test {
namespace {

void Require(bool condition, const char* what) {
    if (!condition) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

void Close(int& descriptor) {
    if (descriptor != -1) {
        ::close(descriptor);
        descriptor = -1;
    }
}

std::array<int, 2> MakePipe() {
    std::array<int, 2> ends{};
    Require(::pipe2(ends.data(), O_CLOEXEC) == 0, "pipe");
    return ends;
}

// The controlling end first, as with a pipe's reading end.
std::array<int, 2> MakeTerminal() {
    const int controller = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    Require(controller != -1 && ::grantpt(controller) == 0 && ::unlockpt(controller) == 0, "terminal");
    std::array<char, 64> name{};
    Require(::ptsname_r(controller, name.data(), name.size()) == 0, "terminal name");
    const int terminal = ::open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    Require(terminal != -1, "terminal");
    return {controller, terminal};
}

// Appends what can be read now; closes the descriptor at its end.
void ReadSome(int& descriptor, std::string& text) {
    std::array<char, 65536> buffer{};
    const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
    if (count > 0) {
        text.append(buffer.data(), static_cast<std::size_t>(count));
    } else if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
        Close(descriptor);  // a terminal whose other end has gone answers with an error
    }
}

std::vector<std::string> EnvironmentWith(
    const std::vector<std::pair<std::string, std::optional<std::string>>>& changes) {
    std::vector<std::string> variables;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const std::string text = *variable;
        const bool isChanged = std::any_of(changes.begin(), changes.end(), [&text](const auto& change) {
            return text.starts_with(change.first + "=");
        });
        if (!isChanged) {
            variables.push_back(text);
        }
    }
    for (const auto& [name, value] : changes) {
        if (value) {
            variables.push_back(name + "=" + *value);
        }
    }
    return variables;
}

}  // namespace

std::vector<StopRequest> StopRequests() {
    return {{"SigInt", SIGINT, SIGINT, true}, {"SigTerm", SIGTERM, SIGTERM, true}};
}

bool SystemHasTerminals() {
    int controller = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    const bool has = controller != -1;
    if (has) {
        Close(controller);
    }
    return has;
}

struct HostProcess::System {
    pid_t child = -1;
    int inputPipe = -1;
    int outputPipe = -1;
    int errorPipe = -1;
};

HostProcess::HostProcess(const Start& start) : system_(std::make_unique<System>()) {
    ::signal(SIGPIPE, SIG_IGN);
    std::array<int, 2> in = MakePipe();
    std::array<int, 2> out = MakePipe();
    if (start.outputIsUnwritable) {
        ::close(out[1]);
        out[1] = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
        Require(out[1] != -1, "full device");
    }
    std::array<int, 2> err = start.errorsToTerminal ? MakeTerminal() : MakePipe();

    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    if (start.outputIsMissing) {
        ::posix_spawn_file_actions_addclose(&actions, 1);
    } else {
        ::posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    }
    ::posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    posix_spawnattr_t attributes;
    ::posix_spawnattr_init(&attributes);
    sigset_t defaults;
    ::sigemptyset(&defaults);
    ::sigaddset(&defaults, SIGPIPE);
    ::posix_spawnattr_setsigdefault(&attributes, &defaults);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);

    std::vector<std::string> words{start.program};
    words.insert(words.end(), start.arguments.begin(), start.arguments.end());
    std::vector<char*> pointers;
    for (std::string& word : words) {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);
    std::vector<std::string> variables = EnvironmentWith(start.environment);
    std::vector<char*> variablePointers;
    for (std::string& variable : variables) {
        variablePointers.push_back(variable.data());
    }
    variablePointers.push_back(nullptr);
    errno = ::posix_spawn(&system_->child, start.program.c_str(), &actions, &attributes, pointers.data(),
                          variablePointers.data());
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(in[0]);
    ::close(out[1]);
    ::close(err[1]);
    system_->inputPipe = in[1];
    system_->outputPipe = out[0];
    system_->errorPipe = err[0];
    ::fcntl(system_->inputPipe, F_SETFL, O_NONBLOCK);
    Require(errno == 0, "spawn");
}

HostProcess::~HostProcess() {
    if (system_->child > 0) {
        platform::SendSignal(system_->child, SIGKILL);
        ::waitpid(system_->child, nullptr, 0);
    }
    Close(system_->inputPipe);
    Close(system_->outputPipe);
    Close(system_->errorPipe);
}

void HostProcess::PumpOnce() {
    std::array<pollfd, 3> waits{{{system_->outputPipe, POLLIN, 0},
                                 {system_->errorPipe, POLLIN, 0},
                                 {pendingInput_.empty() ? -1 : system_->inputPipe, POLLOUT, 0}}};
    ::poll(waits.data(), waits.size(), 20);
    if (waits[0].revents != 0) {
        ReadSome(system_->outputPipe, output_);
    }
    if (waits[1].revents != 0) {
        ReadSome(system_->errorPipe, errors_);
    }
    if (waits[2].revents != 0) {
        const ssize_t count = ::write(system_->inputPipe, pendingInput_.data(), pendingInput_.size());
        if (count > 0) {
            pendingInput_.erase(0, static_cast<std::size_t>(count));
        } else if (errno == EPIPE) {
            pendingInput_.clear();  // the process reads no further
        }
    }
}

void HostProcess::CloseInput() {
    Close(system_->inputPipe);
}

void HostProcess::CloseOutput() {
    Close(system_->outputPipe);
}

bool HostProcess::StreamsHaveEnded() const {
    return system_->outputPipe == -1 && system_->errorPipe == -1;
}

void HostProcess::WaitUntilInputIsRead() {
    const auto isRead = [this] {
        int waiting = 1;
        return ::ioctl(system_->inputPipe, FIONREAD, &waiting) == 0 && waiting == 0;
    };
    Pump(isRead, "reading of the input");
}

void HostProcess::Stop(const StopRequest& request) const {
    errno = platform::SendSignal(system_->child, request.systemsNumber);
    Require(errno == 0, "signal");
}

bool HostProcess::HasEnded(Finished& finished) {
    int status = 0;
    if (::waitpid(system_->child, &status, WNOHANG) != system_->child) {
        return false;
    }
    system_->child = -1;
    finished.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    finished.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    return true;
}

struct NamedPipe::System {
    TemporaryFolder folder;
};

NamedPipe::NamedPipe() : system_(std::make_unique<System>()), path_(system_->folder.Path("pipe.y4m")) {
    Require(::mkfifo(path_.c_str(), 0600) == 0, "named pipe");
}

NamedPipe::~NamedPipe() = default;

void NamedPipe::Write(const std::string& bytes) {
    std::ofstream pipe(path_, std::ios::binary);
    pipe.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    pipe.close();
    Require(!pipe.fail(), "named pipe");
}

void RemoveFile(const std::string& path) {
    ::unlink(path.c_str());
}

std::string SystemText::NoSuchFile() {
    return "No such file or directory";
}

std::string SystemText::Folder() {
    return "Is a directory";
}

std::string SystemText::UnwritableOutput() {
    return "No space left on device";
}

std::string SystemText::NoLibrary(const std::string& path) {
    return path + ": invalid ELF header";
}

std::string SystemText::ShortLibrary(const std::string& path) {
    return path + ": file too short";
}

std::string SystemText::LibraryWithoutEngine() {
    return "libRecon64.so: cannot open shared object file: No such file or directory";
}

}  // namespace host_test
