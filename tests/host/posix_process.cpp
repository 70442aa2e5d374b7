#include "tests/host/posix_process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace host_test {
namespace {

constexpr std::chrono::seconds deadline{120};

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

}  // namespace

bool SystemHasTerminals() {
    int controller = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    const bool has = controller != -1;
    if (has) {
        Close(controller);
    }
    return has;
}

HostProcess::HostProcess(const Start& start) {
    ::signal(SIGPIPE, SIG_IGN);
    std::array<int, 2> in = MakePipe();
    std::array<int, 2> out = MakePipe();
    std::array<int, 2> err = start.errorsToTerminal ? MakeTerminal() : MakePipe();

    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    ::posix_spawn_file_actions_adddup2(&actions, out[1], 1);
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
    errno = ::posix_spawn(&child, start.program.c_str(), &actions, &attributes, pointers.data(), environ);
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(in[0]);
    ::close(out[1]);
    ::close(err[1]);
    inputPipe = in[1];
    outputPipe = out[0];
    errorPipe = err[0];
    ::fcntl(inputPipe, F_SETFL, O_NONBLOCK);
    Require(errno == 0, "spawn");
}

HostProcess::~HostProcess() {
    if (child > 0) {
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
    }
    Close(inputPipe);
    Close(outputPipe);
    Close(errorPipe);
}

void HostProcess::PumpOnce() {
    std::array<pollfd, 3> waits{
        {{outputPipe, POLLIN, 0}, {errorPipe, POLLIN, 0}, {pendingInput.empty() ? -1 : inputPipe, POLLOUT, 0}}};
    ::poll(waits.data(), waits.size(), 20);
    if (waits[0].revents != 0) {
        ReadSome(outputPipe, output);
    }
    if (waits[1].revents != 0) {
        ReadSome(errorPipe, errors);
    }
    if (waits[2].revents != 0) {
        const ssize_t count = ::write(inputPipe, pendingInput.data(), pendingInput.size());
        if (count > 0) {
            pendingInput.erase(0, static_cast<std::size_t>(count));
        } else if (errno == EPIPE) {
            pendingInput.clear();  // the process reads no further
        }
    }
}

void HostProcess::Pump(const std::function<bool()>& isDone, const char* what) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!isDone()) {
        if (std::chrono::steady_clock::now() > end) {
            throw std::runtime_error(std::string("no ") + what + "; output: " + output + "; errors: " + errors);
        }
        PumpOnce();
    }
}

void HostProcess::WriteInput(const std::string& bytes) {
    pendingInput += bytes;
    Pump([this] { return pendingInput.empty(); }, "room for the input");
}

void HostProcess::CloseInput() {
    Close(inputPipe);
}

void HostProcess::CloseOutput() {
    Close(outputPipe);
}

// A process that has closed its streams says nothing more, however long the wait.
void HostProcess::WaitForText(const std::string& stream, const std::string& text, const char* what) {
    const auto isThere = [&stream, &text] { return stream.find(text) != std::string::npos; };
    Pump([&] { return isThere() || (outputPipe == -1 && errorPipe == -1); }, what);
    if (!isThere()) {
        throw std::runtime_error(std::string("no ") + what + "; output: " + output + "; errors: " + errors);
    }
}

void HostProcess::WaitForOutput(const std::string& text) {
    WaitForText(output, text, "output");
}

void HostProcess::WaitForErrors(const std::string& text) {
    WaitForText(errors, text, "line on standard error");
}

void HostProcess::WaitUntilInputIsRead() {
    const auto isRead = [this] {
        int waiting = 1;
        return ::ioctl(inputPipe, FIONREAD, &waiting) == 0 && waiting == 0;
    };
    Pump(isRead, "reading of the input");
}

void HostProcess::Signal(int signal) const {
    ::kill(child, signal);
}

Finished HostProcess::Wait() {
    CloseInput();
    int status = 0;
    Pump([this, &status] { return ::waitpid(child, &status, WNOHANG) == child; }, "end of the process");
    child = -1;
    Pump([this] { return outputPipe == -1 && errorPipe == -1; }, "end of the streams");
    Finished finished;
    finished.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    finished.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    finished.output = output;
    finished.errors = errors;
    return finished;
}

Finished RunHost(const std::vector<std::string>& arguments, const std::string& input, LeaksAllowed leaks) {
    HostProcess::Start start{.arguments = arguments};
    if (leaks == LeaksAllowed::Yes) {
        start.arguments.insert(start.arguments.begin(), {"ASAN_OPTIONS=detect_leaks=0", start.program});
        start.program = "/usr/bin/env";
    }
    HostProcess process(start);
    process.WriteInput(input);
    return process.Wait();
}

void MakeNamedPipe(const std::string& path) {
    Require(::mkfifo(path.c_str(), 0600) == 0, "named pipe");
}

void WriteToNamedPipe(const std::string& path, const std::string& bytes) {
    std::ofstream pipe(path, std::ios::binary);
    pipe.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    pipe.close();
    Require(!pipe.fail(), "named pipe");
}

TemporaryFolder::TemporaryFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "plate_host_test_XXXXXX").string();
    Require(::mkdtemp(pattern.data()) != nullptr, "temporary folder");
    path = pattern;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

std::string TemporaryFolder::Write(const std::string& name, const std::string& bytes) const {
    std::ofstream file(Path(name), std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    Require(!file.fail(), "temporary file");
    return Path(name);
}

}  // namespace host_test
