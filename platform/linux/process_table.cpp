#include "platform/linux/process_table.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <unistd.h>

#include <charconv>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/linux/descriptor.h"
#include "platform/linux/send_signal.h"

namespace platform {

namespace {

constexpr std::size_t commLength = 15;  // the system truncates the name to this
constexpr std::string_view deletedSuffix = " (deleted)";
constexpr std::chrono::seconds startTimeout{1};

// True for the errors of reading the entry of another user's process.
bool IsAccessError(int error) {
    return error == EACCES || error == EPERM;
}

std::string ProcessFolder(pid_t process) {
    return "/proc/" + std::to_string(process);
}

// Reads a file's beginning, at most `limit` bytes. Returns 0 or the error.
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

std::string_view WithoutFolders(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

// Gets the full name of a program whose name begins with `comm`: that of the executable, or, when an interpreter runs
// it, one of the first two arguments. Returns 0 or the error.
int ReadName(const std::string& folder, std::string_view comm, std::string& name) {
    std::string executable;
    const int executableError = ReadProgram(folder, executable);
    if (IsAccessError(executableError)) {
        executable.clear();  // the program is executable but not readable; the arguments suffice
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

// Opens a folder of /proc. Returns null, with errno set, on failure.
Folder OpenFolder(const std::string& path) {
    return Folder(::opendir(path.c_str()));
}

// Returns the next entry whose name is a number; 0 at the end, with errno 0, and on failure, with errno set.
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

// Calls ReadName for a running thread of a process whose first thread has ended, because the system does not show the
// executable and the arguments of that thread. Returns 0 or the error.
int ReadNameThroughThreads(const std::string& folder, std::string_view comm, std::string& name) {
    const Folder threads = OpenFolder(folder + "/task");
    if (!threads) {
        return errno;
    }
    while (const pid_t thread = NextNumber(threads)) {
        const int error = ReadName(folder + "/task/" + std::to_string(thread), comm, name);
        if (!IsGoneError(error)) {
            return error;
        }
    }
    return errno != 0 ? errno : ESRCH;
}

// True for errors that would hide running processes if they were ignored.
bool IsShortageError(int error) {
    return error == EMFILE || error == ENFILE || error == ENOMEM;
}

// Returns 0 or the error. Adds nothing for a process that has ended, cannot be read or is another user's.
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
    return IsShortageError(error) ? error : 0;
}

}  // namespace

bool IsGoneError(int error) {
    return error == ENOENT || error == ESRCH;
}

int ReadState(pid_t process, ProcessState& state) {
    std::string text;
    if (const int error = ReadBeginning(ProcessFolder(process) + "/stat", 4096, text)) {
        return error;
    }
    // The name may contain blanks and parentheses.
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

int ReadProgram(const std::string& folder, std::string& program) {
    const std::string link = folder + "/exe";
    program.resize(PATH_MAX);
    const ssize_t size = ::readlink(link.c_str(), program.data(), program.size());
    if (size < 0) {
        return errno;
    }
    program.resize(static_cast<std::size_t>(size));
    return 0;
}

void WaitForName(pid_t child) {
    const auto deadline = std::chrono::steady_clock::now() + startTimeout;
    for (;;) {
        // The system sets the arguments last when it executes a program.
        std::string arguments;
        ProcessState state;
        if (ReadBeginning(ProcessFolder(child) + "/cmdline", 1, arguments) != 0 || !arguments.empty() ||
            ReadState(child, state) != 0 || state.ended || std::chrono::steady_clock::now() > deadline) {
            return;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
}

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

}  // namespace platform
