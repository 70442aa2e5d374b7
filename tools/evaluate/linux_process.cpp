#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>

#include "platform/linux/send_signal.h"
#include "tools/evaluate/failure.h"
#include "tools/evaluate/process.h"

namespace plate_evaluation {
namespace {

std::atomic<int> interruption{0};
static_assert(std::atomic<int>::is_always_lock_free, "written by a signal handler");

void OnInterruption(int signal) {
    int none = 0;
    if (!interruption.compare_exchange_strong(none, signal)) {
        ::_exit(128 + signal);
    }
}

std::string SystemText(int error) {
    return std::generic_category().message(error);
}

/// Turns the child process into the server. Runs between fork and exec, so it takes no lock and allocates no memory.
[[noreturn]] void ExecServer(char* const* words, int errorPipe, pid_t parent) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) {
        ::_exit(127);
    }
    const int nullInput = ::open("/dev/null", O_RDONLY);
    ::dup2(nullInput, 0);
    ::dup2(2, 1);
    ::execv(words[0], words);
    const int error = errno;
    [[maybe_unused]] const ssize_t written = ::write(errorPipe, &error, sizeof error);
    ::_exit(127);
}

std::string DescribeExit(int status) {
    return WIFSIGNALED(status) ? "was terminated by signal " + std::to_string(WTERMSIG(status))
                               : "exited with status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

void RecordInterruptions() {
    struct sigaction action {};
    action.sa_handler = OnInterruption;
    action.sa_flags = SA_RESTART;
    ::sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

int Interruption() {
    return interruption.load();
}

struct ServerProcess::System {
    pid_t child = -1;
    std::string name;
    std::mutex mutex;
    std::optional<int> status;  // of the ended process; guarded by mutex

    /// Checks whether the process has ended, without waiting.
    bool HasEnded() {
        const std::lock_guard lock(mutex);
        int ended = 0;
        if (!status && ::waitpid(child, &ended, WNOHANG) == child) {
            status = ended;
        }
        return status.has_value();
    }
};

ServerProcess::ServerProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                             std::chrono::milliseconds stopTimeout)
    : stopTimeout_(stopTimeout), system_(std::make_unique<System>()) {
    system_->name = std::filesystem::absolute(program).string();
    std::vector<std::string> words{system_->name};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    for (std::string& word : words) {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);

    std::array<int, 2> errorPipe{-1, -1};
    const pid_t parent = ::getpid();
    const bool isPiped = ::pipe2(errorPipe.data(), O_CLOEXEC) == 0;
    system_->child = isPiped ? ::fork() : -1;
    int error = errno;
    if (system_->child == 0) {
        ExecServer(pointers.data(), errorPipe[1], parent);
    }
    if (isPiped) {
        ::close(errorPipe[1]);
        ssize_t count = 0;
        do {
            // Reads no byte when the exec succeeds, which closes the pipe.
            count = system_->child == -1 ? 0 : ::read(errorPipe[0], &error, sizeof error);
        } while (count == -1 && errno == EINTR);
        ::close(errorPipe[0]);
        if (system_->child != -1 && count == 0) {
            return;
        }
    }
    if (system_->child != -1) {
        ::waitpid(system_->child, nullptr, 0);
    }
    throw Failure("cannot start the server \"" + system_->name + "\": " + SystemText(error));
}

ServerProcess::~ServerProcess() {
    if (system_->HasEnded()) {
        return;
    }
    platform::SendSignal(system_->child, SIGTERM);
    const auto end = std::chrono::steady_clock::now() + stopTimeout_;
    while (!system_->HasEnded()) {
        if (std::chrono::steady_clock::now() >= end) {
            platform::SendSignal(system_->child, SIGKILL);
            ::waitpid(system_->child, nullptr, 0);
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

void ServerProcess::RequireRunning() {
    if (system_->HasEnded()) {
        throw Failure("the server \"" + system_->name + "\" " + DescribeExit(*system_->status));
    }
}

}  // namespace plate_evaluation
