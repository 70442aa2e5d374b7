#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <boost/dll/runtime_symbol_info.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <system_error>

#include "platform/linux/registry_folder.h"
#include "sdk/module.h"
#include "tools/host/failure.h"
#include "tools/host/system.h"

namespace plate_host {
namespace {

std::atomic<int> interruption{0};
static_assert(std::atomic<int>::is_always_lock_free, "written by a signal handler");

// Never closed or emptied: after the first byte, every poll returns at once.
std::array<int, 2> wakePipe{-1, -1};

void OnInterruption(int signal) {
    const int savedError = errno;
    int none = 0;
    if (!interruption.compare_exchange_strong(none, signal)) {
        ::_exit(128 + signal);
    }
    const char byte = 0;
    [[maybe_unused]] const ssize_t written = ::write(wakePipe[1], &byte, 1);
    errno = savedError;
}

// Unlike an ignored signal, a handled one is reset to its default in the programs that the library starts.
void OnBrokenPipe(int) {}

void Handle(int signal, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    ::sigemptyset(&action.sa_mask);
    ::sigaction(signal, &action, nullptr);
}

std::string SystemText(int error) {
    return std::generic_category().message(error);
}

class FileDescriptorSource final : public ByteSource {
  public:
    FileDescriptorSource(int descriptor, bool owned) : descriptor_(descriptor), owned_(owned) {}
    FileDescriptorSource(const FileDescriptorSource&) = delete;
    FileDescriptorSource& operator=(const FileDescriptorSource&) = delete;
    ~FileDescriptorSource() override {
        if (owned_) {
            ::close(descriptor_);
        }
    }

    std::size_t Read(void* buffer, std::size_t size) override {
        while (WaitForInput()) {
            const ssize_t count = ::read(descriptor_, buffer, size);
            if (count >= 0) {
                return static_cast<std::size_t>(count);
            }
            if (errno != EINTR && errno != EAGAIN) {
                error_ = SystemText(errno);
                return 0;
            }
        }
        return 0;
    }

    std::string Error() const override { return error_; }

    std::optional<std::uint64_t> Size() const override {
        struct stat status {};
        if (::fstat(descriptor_, &status) != 0 || !S_ISREG(status.st_mode)) {
            return std::nullopt;
        }
        return static_cast<std::uint64_t>(status.st_size);
    }

  private:
    // The only place where reading blocks; a request to stop ends the wait at any time.
    bool WaitForInput() {
        while (Interruption() == 0) {
            std::array<pollfd, 2> waits{{{descriptor_, POLLIN, 0}, {wakePipe[0], POLLIN, 0}}};
            if (::poll(waits.data(), waits.size(), -1) >= 0) {
                return Interruption() == 0;
            }
            if (errno != EINTR) {
                error_ = SystemText(errno);
                return false;
            }
        }
        return false;
    }

    const int descriptor_;
    const bool owned_;
    std::string error_;
};

}  // namespace

void PrepareProcess() {
    // A file that is opened later must not get the descriptor of a standard stream.
    for (int descriptor = 0; descriptor <= 2; ++descriptor) {
        if (::fcntl(descriptor, F_GETFD) == -1) {
            [[maybe_unused]] const int opened = ::open("/dev/null", descriptor == 0 ? O_RDONLY : O_WRONLY);
        }
    }
    if (wakePipe[0] == -1 && ::pipe2(wakePipe.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        throw Failure("cannot create a pipe: " + SystemText(errno));
    }
    Handle(SIGINT, OnInterruption);
    Handle(SIGTERM, OnInterruption);
    Handle(SIGPIPE, OnBrokenPipe);
}

std::vector<std::string> CommandLine(int argumentCount, const char* const* arguments) {
    return {arguments + (argumentCount == 0 ? 0 : 1), arguments + argumentCount};
}

int Interruption() {
    return interruption.load();
}

bool MustEndQuickly() {
    return false;
}

bool ErrorsGoToTerminal() {
    return ::isatty(2) == 1;
}

WriteResult WriteStandard(StandardStream stream, std::string_view text) {
    std::FILE* const file = stream == StandardStream::Output ? stdout : stderr;
    errno = 0;
    WriteResult result;
    result.isWritten = std::fwrite(text.data(), 1, text.size(), file) == text.size() && std::fflush(file) == 0;
    if (!result.isWritten && errno != EPIPE) {
        result.error = SystemText(errno);
    }
    return result;
}

void AddToSearchPath(const std::filesystem::path& folder) {
    const char* const path = std::getenv("PATH");
    std::string extended = path == nullptr ? "" : path;
    if (!extended.empty()) {
        extended += ':';
    }
    extended += folder.native();
    ::setenv("PATH", extended.c_str(), 1);
}

const char* SystemName() {
    return "linux";
}

const char* LibraryFileName() {
    return "libvexlane.so";
}

const char* EngineFileName() {
    return "libRecon64.so";
}

std::filesystem::path ProgramFile() {
    return boost::dll::program_location();
}

std::filesystem::path ToPath(std::string_view text) {
    return std::filesystem::path(text);
}

std::string ToText(const std::filesystem::path& path) {
    return path.string();
}

std::filesystem::path ToOpenPath(std::string_view text) {
    return ToPath(text);
}

bool IsRegularFile(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

std::string LoadErrorText(const std::system_error& error) {
    // Extracts the loader's message from the text around it.
    std::string text = error.what();
    const std::string opening = "(dlerror system message: ";
    const std::size_t begin = text.find(opening);
    const std::size_t end = text.rfind("): ");
    if (begin != std::string::npos && end != std::string::npos && end > begin + opening.size()) {
        text = text.substr(begin + opening.size(), end - begin - opening.size());
    }
    return text;
}

void* LoadedEngine() {
    void* const engine = ::dlopen(EngineFileName(), RTLD_NOW | RTLD_NOLOAD);
    if (engine != nullptr) {
        ::dlclose(engine);
    }
    return engine;
}

std::string DebugLevelPlace(platform::RegistryHive hive) {
    const std::string folder = platform::RegistryFolder(hive, OKM8::DebugLevelValue::Key);
    return folder.empty() ? folder : folder + '/' + OKM8::DebugLevelValue::Name;
}

std::vector<std::string> DebugLevelPlaces() {
    using platform::RegistryHive;
    std::vector<std::string> places;
    for (const RegistryHive hive : {RegistryHive::LocalMachine, RegistryHive::CurrentUser}) {
        if (const std::string place = DebugLevelPlace(hive); !place.empty()) {
            places.push_back(place);
        }
    }
    return places;
}

std::unique_ptr<ByteSource> OpenByteSource(const std::string& path) {
    if (path == "-") {
        return std::make_unique<FileDescriptorSource>(0, false);
    }
    // Opening a pipe must not wait for its writer, because a request to stop would not end that wait.
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor == -1) {
        throw Failure("cannot open \"" + path + "\": " + SystemText(errno));
    }
    return std::make_unique<FileDescriptorSource>(descriptor, true);
}

}  // namespace plate_host
