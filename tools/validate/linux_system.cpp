#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "platform/linux/send_signal.h"

#include "tools/validate/library.h"
#include "tools/validate/system.h"

namespace validate {

namespace {

namespace fs = std::filesystem;

fs::path registry;

fs::path DebugKey() {
    return registry / "HKEY_LOCAL_MACHINE" / "SOFTWARE" / "Tellumark" / "KORA" / "DEBUG";
}

std::string ReadFile(const fs::path& file, std::size_t from) {
    std::ifstream stream(file, std::ios::binary);
    stream.seekg(static_cast<std::streamoff>(from));
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

}  // namespace

void* LoadLibraryFile(const fs::path& file) {
    void* const loaded = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (loaded == nullptr) {
        throw std::runtime_error(dlerror());
    }
    return loaded;
}

void UnloadLibrary(void* library) {
    dlclose(library);
}

void* FindFunction(void* library, const char* name) {
    return dlsym(library, name);
}

bool IsLoaded(const fs::path& file) {
    return ReadFile("/proc/self/maps", 0).find('/' + file.filename().string()) != std::string::npos;
}

void SetEnvironment(const char* name, const std::string& value) {
    if (value.empty()) {
        unsetenv(name);
    } else {
        setenv(name, value.c_str(), 1);
    }
}

void BeginPrivateRegistry(const fs::path& folder) {
    registry = folder;
    SetEnvironment("VEXLANE_REGISTRY", folder.string());
}

void EndPrivateRegistry() {
    SetEnvironment("VEXLANE_REGISTRY", "");
}

void WriteDebugLevel(const std::string& text) {
    fs::create_directories(DebugKey());
    std::ofstream(DebugKey() / "DebugLevel", std::ios::binary) << text;
}

bool HasEmptyDebugKey() {
    return fs::is_directory(DebugKey()) && fs::is_empty(DebugKey());
}

std::vector<std::string> ExportedNames(const fs::path& file) {
    const std::string bytes = ReadFile(file, 0);
    const auto at = [&bytes]<class Record>(std::size_t offset, Record record) {
        if (offset > bytes.size() || bytes.size() - offset < sizeof record) {
            throw std::runtime_error("the library is not a complete ELF file");
        }
        std::memcpy(&record, bytes.data() + offset, sizeof record);
        return record;
    };
    const Elf64_Ehdr header = at(0, Elf64_Ehdr{});
    const auto section = [&](std::size_t number) {
        return at(header.e_shoff + number * sizeof(Elf64_Shdr), Elf64_Shdr{});
    };
    std::vector<std::string> names;
    for (std::size_t number = 0; number < header.e_shnum; ++number) {
        const Elf64_Shdr table = section(number);
        if (table.sh_type != SHT_DYNSYM) {
            continue;
        }
        const Elf64_Shdr texts = section(table.sh_link);
        for (std::size_t entry = 0; entry < table.sh_size / sizeof(Elf64_Sym); ++entry) {
            const Elf64_Sym symbol = at(table.sh_offset + entry * sizeof(Elf64_Sym), Elf64_Sym{});
            const std::size_t name = texts.sh_offset + symbol.st_name;
            if (symbol.st_shndx != SHN_UNDEF && symbol.st_shndx != SHN_ABS &&
                ELF64_ST_BIND(symbol.st_info) != STB_LOCAL && name < bytes.size()) {
                names.emplace_back(bytes.c_str() + name);
            }
        }
    }
    return names;
}

int ThreadCount() {
    return static_cast<int>(std::distance(fs::directory_iterator("/proc/self/task"), fs::directory_iterator()));
}

std::string PathText(const fs::path& path) {
    return path.string();
}

ProcessEnd RunProgram(const fs::path& program, const std::vector<std::string>& arguments,
                      std::chrono::milliseconds limit, const fs::path& errors, const std::function<bool()>& mustStop) {
    std::vector<char*> words;
    const std::string name = program.string();
    words.push_back(const_cast<char*>(name.c_str()));
    for (const std::string& argument : arguments) {
        words.push_back(const_cast<char*>(argument.c_str()));
    }
    words.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, errors.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0666);
    pid_t process = 0;
    const int error = posix_spawn(&process, name.c_str(), &actions, nullptr, words.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::runtime_error("cannot start \"" + name + "\": " + std::generic_category().message(error));
    }
    ProcessEnd end;
    const auto start = std::chrono::steady_clock::now();
    int status = 0;
    for (;;) {
        const pid_t ended = waitpid(process, &status, WNOHANG);
        if (ended == process || (ended < 0 && errno != EINTR)) {
            break;
        }
        end.isTimedOut = std::chrono::steady_clock::now() - start > limit;
        if (end.isTimedOut || mustStop()) {
            platform::SendSignal(process, SIGKILL);
            waitpid(process, &status, 0);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    if (WIFSIGNALED(status)) {
        end.crash = "signal " + std::to_string(WTERMSIG(status));
    }
    end.status = WEXITSTATUS(status);
    return end;
}

void PrepareCaseProcess() {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
}

// Debug output goes to standard error, which is redirected to a file without a name, so that none is left behind by a
// process that crashes.

void CatchDebugOutput(void*) {}

DebugLines::DebugLines() : before_(dup(STDERR_FILENO)) {
    std::string name = (std::filesystem::temp_directory_path() / "vexlane-stderr-XXXXXX").string();
    const int caught = mkstemp(name.data());
    if (caught < 0) {
        throw std::runtime_error("cannot create a file in the folder for temporary files");
    }
    unlink(name.c_str());
    dup2(caught, STDERR_FILENO);
    close(caught);
    // Each write goes to the end, regardless of the read position.
    fcntl(STDERR_FILENO, F_SETFL, O_APPEND);
}

DebugLines::~DebugLines() {
    dup2(before_, STDERR_FILENO);
    close(before_);
}

std::string DebugLines::Text(std::size_t from) const {
    return ReadFile("/proc/self/fd/2", from);
}

}  // namespace validate
