#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <tuple>
#include <type_traits>

#include "platform/linux/send_signal.h"
#include "tests/support/child_process.h"

namespace test_support {

static_assert(std::is_same_v<pid_t, std::int32_t>);

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

// The reading end first.
std::pair<int, int> MakePipe() {
    std::array<int, 2> ends{};
    Require(::pipe2(ends.data(), O_CLOEXEC) == 0, "pipe");
    return {ends[0], ends[1]};
}

// The controlling end first, as with a pipe's reading end.
std::pair<int, int> MakeTerminal() {
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
        Close(descriptor);  // a terminal whose other end is closed returns an error
    }
}

/// As system calls expect them: valid for as long as the texts are.
std::vector<char*> PointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

std::vector<StopRequest> StopRequests() {
    return {{"SigInt", SIGINT, SIGINT, true}, {"SigTerm", SIGTERM, SIGTERM, true}};
}

bool SystemHasTerminals() {
    int controller = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    const bool has = controller != -1;
    Close(controller);
    return has;
}

std::vector<std::string> ChildProcess::OwnVariables() {
    std::vector<std::string> variables;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        variables.emplace_back(*variable);
    }
    return variables;
}

/// The test's ends of the streams.
struct ChildProcess::System {
    ~System() {
        Close(input);
        Close(output);
        Close(errors);
    }

    int input = -1;
    int output = -1;
    int errors = -1;
};

ChildProcess::ChildProcess(const Start& start) : system_(std::make_unique<System>()) {
    std::array<int, 3> theirs{-1, -1, -1};
    if (!start.streamsAreInherited) {
        std::tie(theirs[0], system_->input) = MakePipe();
        std::tie(system_->output, theirs[1]) = MakePipe();
        std::tie(system_->errors, theirs[2]) = start.errorsToTerminal ? MakeTerminal() : MakePipe();
        ::fcntl(system_->input, F_SETFL, O_NONBLOCK);
    }
    if (start.outputIsUnwritable) {
        Close(theirs[1]);
        theirs[1] = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
        Require(theirs[1] != -1, "full device");
    }
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    for (int number = 0; number < 3; ++number) {
        if (number == STDOUT_FILENO && start.outputIsMissing) {
            ::posix_spawn_file_actions_addclose(&actions, number);
        } else if (!start.streamsAreInherited) {
            ::posix_spawn_file_actions_adddup2(&actions, theirs[static_cast<std::size_t>(number)], number);
        }
    }
    posix_spawnattr_t attributes;
    ::posix_spawnattr_init(&attributes);
    sigset_t defaults;
    ::sigemptyset(&defaults);
    ::sigaddset(&defaults, SIGPIPE);
    ::posix_spawnattr_setsigdefault(&attributes, &defaults);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);

    std::vector<std::string> words{start.program.string()};
    words.insert(words.end(), start.arguments.begin(), start.arguments.end());
    std::vector<std::string> variables = OwnVariablesWith(start.environment);
    const int error = ::posix_spawn(&id_, start.program.c_str(), &actions, &attributes, PointersTo(words).data(),
                                    PointersTo(variables).data());
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&actions);
    for (int& descriptor : theirs) {
        Close(descriptor);
    }
    errno = error;
    Require(error == 0, words.front().c_str());
}

ChildProcess::~ChildProcess() {
    if (!HasEnded()) {
        platform::SendSignal(id_, SIGKILL);
        ::waitpid(id_, nullptr, 0);
    }
}

void ChildProcess::PumpOnce() {
    std::array<pollfd, 3> waits{{{system_->output, POLLIN, 0},
                                 {system_->errors, POLLIN, 0},
                                 {pendingInput_.empty() ? -1 : system_->input, POLLOUT, 0}}};
    ::poll(waits.data(), waits.size(), 20);
    if (waits[0].revents != 0) {
        ReadSome(system_->output, finished_.output);
    }
    if (waits[1].revents != 0) {
        ReadSome(system_->errors, finished_.errors);
    }
    if (waits[2].revents != 0) {
        ::signal(SIGPIPE, SIG_IGN);
        const ssize_t count = ::write(system_->input, pendingInput_.data(), pendingInput_.size());
        if (count > 0) {
            pendingInput_.erase(0, static_cast<std::size_t>(count));
        } else if (errno == EPIPE) {
            pendingInput_.clear();  // the process reads no further
        }
    }
}

void ChildProcess::CloseInput() {
    Close(system_->input);
}

void ChildProcess::CloseOutput() {
    Close(system_->output);
}

bool ChildProcess::StreamsHaveEnded() const {
    return system_->output == -1 && system_->errors == -1;
}

void ChildProcess::WaitUntilInputIsRead() {
    const auto isRead = [this] {
        int waiting = 1;
        return ::ioctl(system_->input, FIONREAD, &waiting) == 0 && waiting == 0;
    };
    Pump(isRead, "reading of the input");
}

void ChildProcess::Stop(const StopRequest& request) const {
    errno = hasEnded_ ? ESRCH : platform::SendSignal(id_, request.systemsNumber);
    Require(errno == 0, "signal");
}

// A process that other code has waited for has ended, too, and its id may belong to another process.
bool ChildProcess::HasEnded() {
    int status = 0;
    const pid_t waited = hasEnded_ ? 0 : ::waitpid(id_, &status, WNOHANG);
    if (waited == id_) {
        finished_.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        finished_.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    }
    hasEnded_ = hasEnded_ || waited != 0;
    return hasEnded_;
}

}  // namespace test_support
