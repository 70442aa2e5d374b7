#include "platform/process.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/last_error.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/process_table.h"
#include "platform/linux/program_search.h"
#include "platform/linux/send_signal.h"

namespace platform {

namespace {

static_assert(sizeof(SystemHandle) == 8);

constexpr std::chrono::seconds endTimeout{1};
constexpr std::uint32_t accessTerminate = 1;

bool Failed(int error) {
    SetLastError(static_cast<std::uint32_t>(error));
    return false;
}

// Handles

constexpr SystemHandle MakeProcessHandle(pid_t process, std::uint64_t startTime) {
    return static_cast<SystemHandle>(startTime) << 32 | static_cast<std::uint32_t>(process);
}

constexpr std::uint32_t ProcessIdOf(SystemHandle handle) {
    return static_cast<std::uint32_t>(handle);
}

// False for 0, for process groups and for the system's own process.
constexpr bool IsSignallable(std::uint32_t processId) {
    return processId >= static_cast<std::uint32_t>(lowestSignalledProcess) && processId <= INT_MAX;
}

constexpr bool Matches(SystemHandle handle, const ProcessState& state) {
    return static_cast<std::uint32_t>(handle >> 32) == static_cast<std::uint32_t>(state.startTime);
}

// The processes that this library started. Each is reaped by its own id once it has ended. Other children belong to the
// host and are never waited for.

struct Child {
    pid_t process = 0;
    std::uint64_t startTime = 0;
    Child* following = nullptr;
};

constinit Child* children = nullptr;
constinit std::mutex childrenMutex;  // guards the list above

// Returns false for a child that has ended; it has been reaped, here or by the host.
bool IsUnreaped(const Child& child) {
    ProcessState state;
    const int error = ReadState(child.process, state);
    if (IsGoneError(error)) {
        return false;
    }
    if (error != 0) {
        return true;  // unknown; checked again later
    }
    if (state.startTime != child.startTime) {
        return false;  // the host reaped it, and another process has the id
    }
    return ::waitpid(child.process, nullptr, WNOHANG) == 0;
}

void ReapChildren() {
    const std::lock_guard lock(childrenMutex);
    Child** link = &children;
    while (Child* child = *link) {
        if (IsUnreaped(*child)) {
            link = &child->following;
        } else {
            *link = child->following;
            delete child;
        }
    }
}

void AddChild(std::unique_ptr<Child> child) {
    const std::lock_guard lock(childrenMutex);
    child->following = children;
    children = child.release();
}

// Starting

// Splits a command line at blanks; quotation marks keep blanks inside a word.
std::vector<std::string> SplitWords(std::string_view commandLine) {
    std::vector<std::string> words;
    bool insideWord = false;
    bool quoted = false;
    for (const char character : commandLine) {
        if (!quoted && (character == ' ' || character == '\t')) {
            insideWord = false;
            continue;
        }
        if (!insideWord) {
            words.emplace_back();
            insideWord = true;
        }
        if (character == '"') {
            quoted = !quoted;
        } else {
            words.back().push_back(character);
        }
    }
    return words;
}

// Returns 0 for a file that may be executed, else the error.
int CheckExecutable(const std::string& path) {
    struct stat status = {};
    if (::stat(path.c_str(), &status) != 0) {
        return errno;
    }
    return S_ISREG(status.st_mode) && ::access(path.c_str(), X_OK) == 0 ? 0 : EACCES;
}

// The folder of the running program, then those of PATH. Never the current folder: a user who may write there could
// place a program that a host with more rights would run. So an empty element of PATH, which means the current folder,
// and other relative elements are skipped.
std::vector<std::string> SearchedFolders() {
    std::vector<std::string> folders;
    const auto add = [&folders](std::string_view folder) {
        if (folder.starts_with('/')) {
            folders.emplace_back(folder);
        }
    };
    std::string own;
    if (ReadProgram("/proc/self", own) == 0) {
        add(std::string_view(own).substr(0, std::max<std::size_t>(own.rfind('/'), 1)));
    }
    const char* const variable = std::getenv("PATH");
    std::string_view rest = variable == nullptr ? "" : variable;
    while (!rest.empty()) {
        const std::string_view folder = rest.substr(0, rest.find(':'));
        add(folder);
        rest.remove_prefix(std::min(folder.size() + 1, rest.size()));
    }
    return folders;
}

// The attributes of a child: it inherits environment and current folder, but no descriptors and no signal settings.
class SpawnSettings {
  public:
    SpawnSettings() {
        ::posix_spawnattr_init(&attributes_);
        ::posix_spawn_file_actions_init(&actions_);
    }
    ~SpawnSettings() {
        ::posix_spawn_file_actions_destroy(&actions_);
        ::posix_spawnattr_destroy(&attributes_);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    // Returns 0 or the error.
    int Prepare() {
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        ::posix_spawnattr_setsigmask(&attributes_, &none);
        ::posix_spawnattr_setsigdefault(&attributes_, &all);
        // In its own session the child does not receive a terminal's interrupt and hang-up.
        ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID);
        for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            const int mode = standard == STDIN_FILENO ? O_RDONLY : O_WRONLY;
            if (const int error = ::posix_spawn_file_actions_addopen(&actions_, standard, "/dev/null", mode, 0)) {
                return error;
            }
        }
        return ::posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
    }

    const posix_spawnattr_t* Attributes() const { return &attributes_; }
    const posix_spawn_file_actions_t* Actions() const { return &actions_; }

  private:
    posix_spawnattr_t attributes_;
    posix_spawn_file_actions_t actions_;
};

// Returns 0 or the error.
int Start(const std::string& commandLine, ProcessInformation& started) {
    std::vector<std::string> words = SplitWords(commandLine);
    if (words.empty()) {
        return ENOENT;
    }
    std::string path;
    if (const int error = FindProgram(words.front(), path)) {
        return error;
    }
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    SpawnSettings settings;
    if (const int error = settings.Prepare()) {
        return error;
    }

    auto child = std::make_unique<Child>();
    const int spawnError = ::posix_spawn(&child->process, path.c_str(), settings.Actions(), settings.Attributes(),
                                         arguments.data(), environ);
    if (spawnError != 0) {
        return spawnError;
    }
    const pid_t process = child->process;
    ProcessState state;
    const int error = ReadState(process, state);
    if (error != 0 && !IsGoneError(error)) {
        // Without its start time it could not be terminated through its handle.
        SendSignal(process, SIGKILL);
        while (::waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
        }
        return error;
    }
    if (error == 0) {
        child->startTime = state.startTime;
        AddChild(std::move(child));
        WaitForName(process);
    }
    started.process = MakeProcessHandle(process, state.startTime);
    started.thread = started.process;
    started.processId = static_cast<std::uint32_t>(process);
    started.threadId = started.processId;
    return 0;
}

// Ending

// Waits until a process has ended, at most for endTimeout. It may still be in the system's table.
void WaitForEnd(const Descriptor& process) {
    const auto deadline = std::chrono::steady_clock::now() + endTimeout;
    for (;;) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
        if (left <= 0) {
            return;
        }
        pollfd ended = {process.Get(), POLLIN, 0};
        if (::poll(&ended, 1, static_cast<int>(left)) >= 0 || errno != EINTR) {
            return;
        }
    }
}

// Reads the state of a process. Returns 0 or the error; ESRCH also for a process that has ended.
int ReadRunning(pid_t process, ProcessState& state) {
    const int error = ReadState(process, state);
    return IsGoneError(error) || (error == 0 && state.ended) ? ESRCH : error;
}

// Returns 0 when the descriptor refers to the handle's process, not to a later one with the same id, else the error.
int CheckAlive(SystemHandle handle, const Descriptor& process) {
    if (!process.IsOpen()) {
        return errno;
    }
    ProcessState state;
    if (const int error = ReadRunning(static_cast<pid_t>(ProcessIdOf(handle)), state)) {
        return error;
    }
    return Matches(handle, state) ? 0 : ESRCH;
}

// Returns 0 or the error.
int End(SystemHandle handle) {
    const std::uint32_t processId = ProcessIdOf(handle);
    if (!IsSignallable(processId)) {
        return EINVAL;
    }
    // Opened before the check, so that no other process can take over the id in between.
    const Descriptor process(::pidfd_open(static_cast<pid_t>(processId), 0));
    if (const int error = CheckAlive(handle, process)) {
        return error;
    }
    if (const int error = SendSignalThrough(process.Get(), static_cast<pid_t>(processId), SIGKILL)) {
        return error;
    }
    WaitForEnd(process);
    ReapChildren();
    return 0;
}

}  // namespace

int FindProgram(const std::string& name, std::string& path) {
    if (name.find('/') != std::string::npos) {
        path = name;
        return name.front() == '/' ? CheckExecutable(path) : ENOENT;
    }
    int result = ENOENT;
    for (const std::string& folder : SearchedFolders()) {
        path = folder + "/" + name;
        const int error = CheckExecutable(path);
        if (error == 0) {
            return 0;
        }
        if (error == EACCES) {
            result = EACCES;  // more informative than ENOENT
        }
    }
    return result;
}

std::uint32_t CurrentProcessId() {
    return static_cast<std::uint32_t>(::getpid());
}

bool StartProcess(const std::string& commandLine, std::uint32_t, std::uint32_t, ProcessInformation& started) {
    ReapChildren();
    const int error = Start(commandLine, started);
    return error == 0 || Failed(error);
}

bool TerminateProcess(SystemHandle process, std::uint32_t) {
    ReapChildren();
    const int error = End(process);
    return error == 0 || Failed(error);
}

SystemHandle OpenProcess(std::uint32_t access, bool, std::uint32_t processId) {
    if (!IsSignallable(processId)) {
        Failed(EINVAL);
        return 0;
    }
    const pid_t process = static_cast<pid_t>(processId);
    ProcessState state;
    int error = ReadRunning(process, state);
    if (error == 0 && (access & accessTerminate) != 0) {
        error = CheckMaySignal(process);
    }
    if (error != 0) {
        Failed(error);
        return 0;
    }
    return MakeProcessHandle(process, state.startTime);
}

std::vector<ProcessEntry> ListProcesses() {
    ReapChildren();
    std::vector<ProcessEntry> entries;
    if (const int error = ReadProcesses(entries)) {
        Failed(error);
        return {};
    }
    return entries;
}

}  // namespace platform
