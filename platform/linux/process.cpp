#include "platform/process.h"

#include <dirent.h>
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
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "platform/last_error.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/send_signal.h"

namespace platform {

namespace {

static_assert(sizeof(SystemHandle) == 8);

constexpr std::size_t commLength = 15;  // what the system keeps of a process's name
constexpr std::string_view deletedSuffix = " (deleted)";
constexpr std::chrono::seconds longestStart{1};
constexpr std::chrono::seconds longestEnd{1};
constexpr std::uint32_t accessTerminate = 1;

bool Failed(int error) {
    SetLastError(static_cast<std::uint32_t>(error));
    return false;
}

// Reading /proc

// True for what reading answers about a process that does not exist any more.
bool MeansGone(int error) {
    return error == ENOENT || error == ESRCH;
}

// True for what reading answers about somebody else's process.
bool MeansForbidden(int error) {
    return error == EACCES || error == EPERM;
}

std::string ProcessFolder(pid_t process) {
    return "/proc/" + std::to_string(process);
}

// Reads a file's beginning, at most `limit` bytes; 0 or the error.
int ReadBeginning(const std::string& path, std::size_t limit, std::string& text) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.IsOpen()) {
        return errno;
    }
    text.resize(limit);
    std::size_t size = 0;
    while (size < limit) {
        const ssize_t count = ::read(file.Get(), text.data() + size, limit - size);
        if (count == 0) {
            break;
        }
        if (count > 0) {
            size += static_cast<std::size_t>(count);
        } else if (errno != EINTR) {
            return errno;
        }
    }
    text.resize(size);
    return 0;
}

struct ProcessState {
    std::string comm;  // the name, cut to commLength bytes
    std::uint64_t startTime = 0;
    bool ended = false;        // a zombie
    bool leaderEnded = false;  // the first thread has ended, others go on
};

// 0 or the error.
int ReadState(pid_t process, ProcessState& state) {
    std::string text;
    if (const int error = ReadBeginning(ProcessFolder(process) + "/stat", 4096, text)) {
        return error;
    }
    // The name may hold blanks and parentheses of its own.
    const std::size_t open = text.find('(');
    const std::size_t close = text.rfind(')');
    if (open == std::string::npos || close == std::string::npos || close < open) {
        return EPROTO;
    }
    state.comm = text.substr(open + 1, close - open - 1);
    char letter = 0;
    long threadCount = 0;
    unsigned long long startTime = 0;
    const int read = std::sscanf(text.c_str() + close + 1,
                                 " %c %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %ld %*s %llu",
                                 &letter, &threadCount, &startTime);
    if (read != 3) {
        return EPROTO;
    }
    const bool zombie = letter == 'Z' || letter == 'X' || letter == 'x';
    state.startTime = startTime;
    state.ended = zombie && threadCount <= 1;
    state.leaderEnded = zombie && threadCount > 1;
    return 0;
}

std::string_view WithoutFolders(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

// 0 or the error.
int ReadLink(const std::string& path, std::string& target) {
    target.resize(PATH_MAX);
    const ssize_t size = ::readlink(path.c_str(), target.data(), target.size());
    if (size < 0) {
        return errno;
    }
    target.resize(static_cast<std::size_t>(size));
    return 0;
}

// The full name of a program whose name begins with `comm`: that of the executable, or, when an interpreter runs it,
// one of the first two arguments. 0 or the error.
int ReadName(const std::string& folder, std::string_view comm, std::string& name) {
    std::string executable;
    const int executableError = ReadLink(folder + "/exe", executable);
    if (MeansForbidden(executableError)) {
        executable.clear();  // a program that may be run but not read; the arguments tell, too
    } else if (executableError != 0) {
        return executableError;
    }
    if (executable.ends_with(deletedSuffix)) {
        executable.resize(executable.size() - deletedSuffix.size());
    }
    std::string arguments;
    if (const int error = ReadBeginning(folder + "/cmdline", 2 * (PATH_MAX + 1), arguments)) {
        return error;
    }
    const std::string_view text(arguments);
    const std::string_view first = text.substr(0, text.find('\0'));
    std::string_view second;
    if (first.size() < text.size()) {
        second = text.substr(first.size() + 1);
        second = second.substr(0, second.find('\0'));
    }
    name = executable.empty() ? comm : WithoutFolders(executable);
    for (const std::string_view path : {std::string_view(executable), first, second}) {
        const std::string_view candidate = WithoutFolders(path);
        if (!candidate.empty() && candidate.substr(0, commLength) == comm) {
            name = candidate;
            break;
        }
    }
    return 0;
}

struct FolderCloser {
    void operator()(DIR* folder) const { ::closedir(folder); }
};
using Folder = std::unique_ptr<DIR, FolderCloser>;

// Opens a folder of /proc; null with errno set on failure.
Folder OpenFolder(const std::string& path) {
    return Folder(::opendir(path.c_str()));
}

// The next entry whose name is a number; 0 at the end and on failure, which sets errno, else cleared.
pid_t NextNumber(const Folder& folder) {
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(folder.get());
        if (entry == nullptr) {
            return 0;
        }
        const std::string_view name = entry->d_name;
        pid_t number = 0;
        const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
        if (error == std::errc() && end == name.data() + name.size() && number > 0) {
            return number;
        }
    }
}

// The same through any thread that still runs, for a process whose first thread has ended: the system shows neither
// executable nor arguments through that one. 0 or the error.
int ReadNameThroughThreads(const std::string& folder, std::string_view comm, std::string& name) {
    const Folder threads = OpenFolder(folder + "/task");
    if (!threads) {
        return errno;
    }
    while (const pid_t thread = NextNumber(threads)) {
        const int error = ReadName(folder + "/task/" + std::to_string(thread), comm, name);
        if (!MeansGone(error)) {
            return error;
        }
    }
    return errno != 0 ? errno : ESRCH;
}

// Handles

constexpr SystemHandle MakeProcessHandle(pid_t process, std::uint64_t startTime) {
    return static_cast<SystemHandle>(startTime) << 32 | static_cast<std::uint32_t>(process);
}

constexpr std::uint32_t ProcessIdOf(SystemHandle handle) {
    return static_cast<std::uint32_t>(handle);
}

// False for no process, for a group of them and for the system's own.
constexpr bool IsOneThatEnds(std::uint32_t processId) {
    return processId >= static_cast<std::uint32_t>(lowestSignalledProcess) && processId <= INT_MAX;
}

constexpr bool Matches(SystemHandle handle, const ProcessState& state) {
    return static_cast<std::uint32_t>(handle >> 32) == static_cast<std::uint32_t>(state.startTime);
}

// Our children. Each is waited for by its own id once it has ended, and no other process ever is: the rest belongs to
// the host.

struct Child {
    pid_t process = 0;
    std::uint64_t startTime = 0;
    Child* following = nullptr;
};

constinit Child* children = nullptr;
constinit std::mutex childrenMutex;  // guards the list above

// False for one that has ended; it has been waited for, here or by somebody else.
bool IsStillOurs(const Child& child) {
    ProcessState state;
    const int error = ReadState(child.process, state);
    if (MeansGone(error)) {
        return false;
    }
    if (error != 0) {
        return true;  // nothing is known; a later look will tell
    }
    if (state.startTime != child.startTime) {
        return false;  // the host waited for it, and the number went to another process
    }
    return ::waitpid(child.process, nullptr, WNOHANG) == 0;
}

void ReapChildren() {
    const std::lock_guard lock(childrenMutex);
    Child** link = &children;
    while (Child* child = *link) {
        if (IsStillOurs(*child)) {
            link = &child->following;
        } else {
            *link = child->following;
            delete child;
        }
    }
}

void Remember(std::unique_ptr<Child> child) {
    const std::lock_guard lock(childrenMutex);
    child->following = children;
    children = child.release();
}

// Starting

// The words of a command line: blanks part them, and quotation marks keep blanks inside one.
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

// 0 for a file that may be executed, else the error.
int CheckExecutable(const std::string& path) {
    struct stat status = {};
    if (::stat(path.c_str(), &status) != 0) {
        return errno;
    }
    return S_ISREG(status.st_mode) && ::access(path.c_str(), X_OK) == 0 ? 0 : EACCES;
}

// The running program's own folder, then those of PATH. Never the current folder: whoever may write there could place a
// program that a host with more rights would run. An empty element of PATH, which means the current folder, and every
// other relative one are left out.
std::vector<std::string> SearchedFolders() {
    std::vector<std::string> folders;
    const auto add = [&folders](std::string_view folder) {
        if (folder.starts_with('/')) {
            folders.emplace_back(folder);
        }
    };
    std::string own;
    if (ReadLink("/proc/self/exe", own) == 0) {
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

// 0 or the error.
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
            result = EACCES;  // says more than that it stands nowhere else
        }
    }
    return result;
}

// How a child begins: with our environment and folder, and nothing else of ours.
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

    // 0 or the error.
    int Prepare() {
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        ::posix_spawnattr_setsigmask(&attributes_, &none);
        ::posix_spawnattr_setsigdefault(&attributes_, &all);
        // A session of its own keeps a terminal's interrupt and hang-up away.
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

// Waits until a child bears its own name. It is let go a moment earlier, and a list that is made right then would not
// find a script in it.
void WaitForName(pid_t process) {
    const auto deadline = std::chrono::steady_clock::now() + longestStart;
    for (;;) {
        // The arguments are the last thing that a new program is given.
        std::string arguments;
        ProcessState state;
        if (ReadBeginning(ProcessFolder(process) + "/cmdline", 1, arguments) != 0 || !arguments.empty() ||
            ReadState(process, state) != 0 || state.ended || std::chrono::steady_clock::now() > deadline) {
            return;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
}

// 0 or the error.
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
    if (error != 0 && !MeansGone(error)) {
        // Without its start time it could never be ended through its handle.
        SendSignal(process, SIGKILL);
        while (::waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
        }
        return error;
    }
    if (error == 0) {
        child->startTime = state.startTime;
        Remember(std::move(child));
        WaitForName(process);
    }
    started.process = MakeProcessHandle(process, state.startTime);
    started.thread = started.process;
    started.processId = static_cast<std::uint32_t>(process);
    started.threadId = started.processId;
    return 0;
}

// Ending

// Waits until a process is gone, or only stands in the system's table still, or for as long as is reasonable.
void WaitForEnd(const Descriptor& process) {
    const auto deadline = std::chrono::steady_clock::now() + longestEnd;
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

// A descriptor of the very process that a handle means, not of a later one with the same id. 0 or the error.
int CheckAlive(SystemHandle handle, const Descriptor& process) {
    if (!process.IsOpen()) {
        return errno;
    }
    ProcessState state;
    if (const int error = ReadState(static_cast<pid_t>(ProcessIdOf(handle)), state)) {
        return MeansGone(error) ? ESRCH : error;
    }
    return state.ended || !Matches(handle, state) ? ESRCH : 0;
}

// 0 or the error.
int End(SystemHandle handle) {
    const std::uint32_t processId = ProcessIdOf(handle);
    if (!IsOneThatEnds(processId)) {
        return EINVAL;
    }
    // The descriptor first, then the look at what it stands for: so nothing can take the process's place in between.
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

// Listing

// True for what would hide processes that run, if it were passed over.
bool MeansShortage(int error) {
    return error == EMFILE || error == ENFILE || error == ENOMEM;
}

// 0 or the error. Adds nothing for what has ended, for what cannot be looked at and for somebody else's.
int AddEntry(pid_t process, std::vector<ProcessEntry>& entries) {
    ProcessState state;
    ProcessEntry entry;
    entry.processId = static_cast<std::uint32_t>(process);
    int error = ReadState(process, state);
    if (error == 0) {
        if (state.ended) {
            return 0;
        }
        const std::string folder = ProcessFolder(process);
        error = state.leaderEnded ? ReadNameThroughThreads(folder, state.comm, entry.executableName)
                                  : ReadName(folder, state.comm, entry.executableName);
    }
    if (error == 0 && CheckMaySignal(process) == 0) {
        entries.push_back(std::move(entry));
    }
    return MeansShortage(error) ? error : 0;
}

// 0 or the error.
int ReadProcesses(std::vector<ProcessEntry>& entries) {
    entries.push_back({0, "[System Process]"});
    const Folder folder = OpenFolder("/proc");
    if (!folder) {
        return errno;
    }
    while (const pid_t process = NextNumber(folder)) {
        if (const int error = AddEntry(process, entries)) {
            return error;
        }
    }
    return errno;
}

}  // namespace

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
    if (!IsOneThatEnds(processId)) {
        Failed(EINVAL);
        return 0;
    }
    const pid_t process = static_cast<pid_t>(processId);
    ProcessState state;
    int error = ReadState(process, state);
    if (MeansGone(error) || (error == 0 && state.ended)) {
        error = ESRCH;
    } else if (error == 0 && (access & accessTerminate) != 0) {
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
