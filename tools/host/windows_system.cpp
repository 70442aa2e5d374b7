#include <fcntl.h>
#include <io.h>
#include <windows.h>
// Requires windows.h.
#include <shellapi.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <system_error>

#include "sdk/module.h"
#include "tools/host/failure.h"
#include "tools/host/system.h"

namespace plate_host {
namespace {

std::wstring ToWide(std::string_view text) {
    const int size = static_cast<int>(text.size());
    std::wstring wide(static_cast<std::size_t>(::MultiByteToWideChar(CP_UTF8, 0, text.data(), size, nullptr, 0)),
                      L'\0');
    ::MultiByteToWideChar(CP_UTF8, 0, text.data(), size, wide.data(), static_cast<int>(wide.size()));
    return wide;
}

std::string ToUtf8(std::wstring_view wide) {
    const int size = static_cast<int>(wide.size());
    std::string text(
        static_cast<std::size_t>(::WideCharToMultiByte(CP_UTF8, 0, wide.data(), size, nullptr, 0, nullptr, nullptr)),
        '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, wide.data(), size, text.data(), static_cast<int>(text.size()), nullptr, nullptr);
    return text;
}

// The system's message, without its full stop and line end.
std::string SystemText(DWORD error) {
    wchar_t* allocated = nullptr;
    const DWORD size =
        ::FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                         nullptr, error, 0, reinterpret_cast<wchar_t*>(&allocated), 0, nullptr);
    std::string text = ToUtf8(std::wstring_view(allocated, size));
    ::LocalFree(allocated);
    text.erase(text.find_last_not_of(" \r\n.") + 1);
    return text.empty() ? "system error " + std::to_string(error) : text;
}

// Adds the prefix that allows long names, if the name needs it.
std::wstring LongName(const std::wstring& name) {
    constexpr std::size_t maxPlainLength = MAX_PATH - 12;  // the name of a folder must leave room for that of a file
    std::wstring full(::GetFullPathNameW(name.c_str(), 0, nullptr, nullptr), L'\0');
    full.resize(::GetFullPathNameW(name.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr));
    if (full.size() <= maxPlainLength || full.starts_with(L"\\\\?\\") || full.starts_with(L"\\\\.\\")) {
        return name;
    }
    return full.starts_with(L"\\\\") ? L"\\\\?\\UNC" + full.substr(1) : L"\\\\?\\" + full;
}

std::atomic<int> interruption{0};

// Set after the interruption is recorded, for a read that ends earlier.
HANDLE interruptionEvent = nullptr;

/// The thread that may be blocked in a read, and a way to cancel that read. Any thread.
class BlockingRead {
  public:
    /// Marks the calling thread as reading, until Leave. Returns false on a request to stop.
    bool Enter() {
        const std::lock_guard lock(mutex_);
        if (interruption.load() != 0) {
            return false;
        }
        thread_ = ::OpenThread(THREAD_TERMINATE, FALSE, ::GetCurrentThreadId());
        return true;
    }

    void Leave() {
        const std::lock_guard lock(mutex_);
        if (thread_ != nullptr) {
            ::CloseHandle(thread_);
        }
        thread_ = nullptr;
    }

    /// REQUIRES: the interruption has been recorded.
    void Cancel() {
        // A thread that has entered and not yet begun to read cannot be cancelled, so this repeats until it has left.
        while (TryToCancel()) {
            ::Sleep(1);
        }
    }

  private:
    bool TryToCancel() {
        const std::lock_guard lock(mutex_);
        if (thread_ == nullptr) {
            return false;
        }
        ::CancelSynchronousIo(thread_);
        return true;
    }

    std::mutex mutex_;
    HANDLE thread_ = nullptr;  // guarded by mutex
};

BlockingRead blockingRead;

struct TerminalMode {
    HANDLE terminal = nullptr;
    DWORD mode = 0;
};

TerminalMode changedTerminal;

void RestoreTerminal() {
    if (changedTerminal.terminal != nullptr) {
        ::SetConsoleMode(changedTerminal.terminal, changedTerminal.mode);
    }
}

// Called on a separate thread.
BOOL WINAPI OnControl(DWORD control) {
    const bool isFromKeyboard = control == CTRL_C_EVENT || control == CTRL_BREAK_EVENT;
    const int signal = isFromKeyboard ? SIGINT : SIGTERM;
    int none = 0;
    if (!interruption.compare_exchange_strong(none, signal)) {
        RestoreTerminal();
        ::TerminateProcess(::GetCurrentProcess(), static_cast<UINT>(128 + signal));
    }
    ::SetEvent(interruptionEvent);
    blockingRead.Cancel();
    if (!isFromKeyboard) {
        // The console or the session closes, and the process ends when this returns. Waiting lets the run end first, if
        // the system leaves it enough time.
        ::Sleep(INFINITE);
    }
    return TRUE;
}

bool IsOpen(HANDLE handle) {
    if (handle == nullptr || handle == INVALID_HANDLE_VALUE) {
        return false;
    }
    ::SetLastError(ERROR_SUCCESS);
    return ::GetFileType(handle) != FILE_TYPE_UNKNOWN || ::GetLastError() == ERROR_SUCCESS;
}

// A file that is opened later must not get the handle of a standard stream.
void RequireStandardStream(DWORD which) {
    if (!IsOpen(::GetStdHandle(which))) {
        const DWORD access = which == STD_INPUT_HANDLE ? GENERIC_READ : GENERIC_WRITE;
        const HANDLE nullDevice =
            ::CreateFileW(L"NUL", access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
        if (nullDevice == INVALID_HANDLE_VALUE) {
            throw Failure("cannot open a standard stream: " + SystemText(::GetLastError()));
        }
        ::SetStdHandle(which, nullDevice);
    }
}

void MakeBinary(std::FILE* stream) {
    if (const int descriptor = ::_fileno(stream); descriptor >= 0) {
        ::_setmode(descriptor, _O_BINARY);
    }
}

WriteResult Failed(DWORD error) {
    const bool readerHasClosed =
        error == ERROR_BROKEN_PIPE || error == ERROR_NO_DATA || error == ERROR_PIPE_NOT_CONNECTED;
    return {.isWritten = false, .error = readerHasClosed ? std::string() : SystemText(error)};
}

// A console takes characters; it would interpret bytes in its current code page.
WriteResult WriteToConsole(HANDLE console, std::string_view text) {
    constexpr std::size_t maxPartLength = 8192;
    const std::wstring wide = ToWide(text);
    std::wstring_view rest = wide;
    while (!rest.empty()) {
        std::size_t size = std::min(rest.size(), maxPartLength);
        if (size > 1 && size < rest.size() && IS_HIGH_SURROGATE(rest[size - 1])) {
            --size;
        }
        DWORD written = 0;
        if (::WriteConsoleW(console, rest.data(), static_cast<DWORD>(size), &written, nullptr) == FALSE) {
            return Failed(::GetLastError());
        }
        rest.remove_prefix(written);
    }
    return {};
}

WriteResult WriteToFile(HANDLE file, std::string_view text) {
    while (!text.empty()) {
        DWORD written = 0;
        if (::WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr) == FALSE) {
            return Failed(::GetLastError());
        }
        if (written == 0) {
            ::Sleep(1);  // a full pipe in non-blocking mode
        }
        text.remove_prefix(written);
    }
    return {};
}

class HandleSource final : public ByteSource {
  public:
    HandleSource(HANDLE handle, bool owned) : handle_(handle), owned_(owned), type_(::GetFileType(handle)) {}
    HandleSource(const HandleSource&) = delete;
    HandleSource& operator=(const HandleSource&) = delete;
    ~HandleSource() override {
        if (owned_) {
            ::CloseHandle(handle_);
        }
    }

    std::size_t Read(void* buffer, std::size_t size) override {
        // A console refuses larger reads.
        const std::size_t maxSize = type_ == FILE_TYPE_CHAR ? 1u << 13 : 1u << 20;
        const auto chunk = static_cast<DWORD>(std::min(size, maxSize));
        while (blockingRead.Enter()) {
            DWORD count = 0;
            ::SetLastError(ERROR_SUCCESS);
            const bool isRead = ::ReadFile(handle_, buffer, chunk, &count, nullptr) != FALSE;
            const DWORD code = ::GetLastError();
            blockingRead.Leave();
            if (count > 0) {
                return count;
            }
            if (code == ERROR_OPERATION_ABORTED && WaitForInterruption()) {
                return 0;
            }
            if (!isRead) {
                if (code != ERROR_BROKEN_PIPE && code != ERROR_HANDLE_EOF) {
                    error_ = SystemText(code);
                }
                return 0;
            }
            // A write of zero bytes into a pipe also ends a read without bytes; it is not the end of the pipe.
            if (type_ != FILE_TYPE_PIPE || ::PeekNamedPipe(handle_, nullptr, 0, nullptr, nullptr, nullptr) == FALSE) {
                return 0;
            }
        }
        return 0;
    }

    std::string Error() const override { return error_; }

    std::optional<std::uint64_t> Size() const override {
        LARGE_INTEGER size = {};
        if (type_ != FILE_TYPE_DISK || ::GetFileSizeEx(handle_, &size) == FALSE) {
            return std::nullopt;
        }
        return static_cast<std::uint64_t>(size.QuadPart);
    }

  private:
    // A console ends its read at Ctrl+C before it reports the request to stop.
    static bool WaitForInterruption() {
        constexpr DWORD maxWaitMs = 1000;
        return ::WaitForSingleObject(interruptionEvent, maxWaitMs) == WAIT_OBJECT_0;
    }

    const HANDLE handle_;
    const bool owned_;
    const DWORD type_;
    std::string error_;
};

}  // namespace

void PrepareProcess() {
    for (const DWORD which : {STD_INPUT_HANDLE, STD_OUTPUT_HANDLE, STD_ERROR_HANDLE}) {
        RequireStandardStream(which);
    }
    // The library may write to the C streams: its output must be as untranslated and unbuffered as that of the host.
    for (std::FILE* const stream : {stdin, stdout, stderr}) {
        MakeBinary(stream);
    }
    std::setvbuf(stderr, nullptr, _IONBF, 0);
    if (interruptionEvent == nullptr) {
        interruptionEvent = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    }
    if (interruptionEvent == nullptr || ::SetConsoleCtrlHandler(OnControl, TRUE) == FALSE) {
        throw Failure("cannot handle requests to stop: " + SystemText(::GetLastError()));
    }
    // Set only for this thread: the programs that the library starts would inherit the mode of the process.
    ::SetThreadErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, nullptr);
}

// The arguments of main have lost the characters that are not in the system's code page.
std::vector<std::string> CommandLine(int, const char* const*) {
    int count = 0;
    wchar_t** const wideWords = ::CommandLineToArgvW(::GetCommandLineW(), &count);
    if (wideWords == nullptr) {
        throw Failure("cannot read the command line: " + SystemText(::GetLastError()));
    }
    std::vector<std::string> words;
    for (int index = 1; index < count; ++index) {
        words.push_back(ToUtf8(wideWords[index]));
    }
    ::LocalFree(wideWords);
    return words;
}

int Interruption() {
    return interruption.load();
}

// The console, the user's session or the system closes.
bool MustEndQuickly() {
    return Interruption() == SIGTERM;
}

bool ErrorsGoToTerminal() {
    const HANDLE terminal = ::GetStdHandle(STD_ERROR_HANDLE);
    DWORD mode = 0;
    if (::GetConsoleMode(terminal, &mode) == FALSE) {
        return false;
    }
    constexpr DWORD wanted = ENABLE_PROCESSED_OUTPUT | ENABLE_VIRTUAL_TERMINAL_PROCESSING;
    if ((mode & wanted) == wanted) {
        return true;
    }
    if (::SetConsoleMode(terminal, mode | wanted) == FALSE) {
        return false;  // an old console, which prints control sequences as text
    }
    changedTerminal = {terminal, mode};
    std::atexit(RestoreTerminal);
    return true;
}

WriteResult WriteStandard(StandardStream stream, std::string_view text) {
    const HANDLE handle = ::GetStdHandle(stream == StandardStream::Output ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
    DWORD mode = 0;
    return ::GetConsoleMode(handle, &mode) != FALSE ? WriteToConsole(handle, text) : WriteToFile(handle, text);
}

void AddToSearchPath(const std::filesystem::path& folder) {
    std::wstring path(::GetEnvironmentVariableW(L"PATH", nullptr, 0), L'\0');
    path.resize(::GetEnvironmentVariableW(L"PATH", path.data(), static_cast<DWORD>(path.size())));
    ::SetEnvironmentVariableW(L"PATH", (path.empty() ? folder.native() : path + L";" + folder.native()).c_str());
}

const char* SystemName() {
    return "windows";
}

const char* LibraryFileName() {
    return "vexlane.dll";
}

const char* EngineFileName() {
    return "Recon64.dll";
}

std::filesystem::path ProgramFile() {
    constexpr std::size_t maxLength = 32768;
    for (std::wstring name(MAX_PATH, L'\0'); name.size() <= maxLength; name.resize(2 * name.size())) {
        const DWORD size = ::GetModuleFileNameW(nullptr, name.data(), static_cast<DWORD>(name.size()));
        if (size < name.size()) {
            return name.substr(0, size);
        }
    }
    return {};
}

std::filesystem::path ToPath(std::string_view text) {
    return ToWide(text);
}

std::string ToText(const std::filesystem::path& path) {
    return ToUtf8(path.native());
}

std::filesystem::path ToOpenPath(std::string_view text) {
    return LongName(ToWide(text));
}

bool IsRegularFile(const std::string& path) {
    const std::wstring name = LongName(ToWide(path));
    if (name.starts_with(L"\\\\.\\")) {
        return false;  // a device or a pipe, which loses the bytes that are read
    }
    const DWORD attributes = ::GetFileAttributesW(name.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

std::string LoadErrorText(const std::system_error& error) {
    const auto code = static_cast<DWORD>(error.code().value());
    switch (code) {
        case ERROR_MOD_NOT_FOUND:
            return "a library that it needs is missing";
        case ERROR_PROC_NOT_FOUND:
            return "a library that it needs, such as the engine, lacks a function";
        case ERROR_BAD_EXE_FORMAT:
            return "it is not a library for 64-bit Windows";
        default:
            return SystemText(code);
    }
}

// Windows binds imports to the loaded library with that name, regardless of its folder.
void* LoadedEngine() {
    return ::GetModuleHandleA(EngineFileName());
}

// The library opens the 32-bit view of the registry, which has a separate key under HKEY_LOCAL_MACHINE. If neither key
// exists, it creates the key in the 64-bit view.
std::string DebugLevelPlace(platform::RegistryHive hive) {
    const std::string key = OKM8::DebugLevelValue::Key;
    if (hive == platform::RegistryHive::CurrentUser) {
        return "HKEY_CURRENT_USER\\" + key;
    }
    const std::size_t vendor = key.find('\\');
    return "HKEY_LOCAL_MACHINE\\" + key.substr(0, vendor) + "\\WOW6432Node" + key.substr(vendor);
}

std::vector<std::string> DebugLevelPlaces() {
    using platform::RegistryHive;
    return {DebugLevelPlace(RegistryHive::LocalMachine) + " (only for administrators)",
            DebugLevelPlace(RegistryHive::CurrentUser),
            std::string("HKEY_LOCAL_MACHINE\\") + OKM8::DebugLevelValue::Key +
                " (created if the others do not exist, only for administrators)",
            "the value is a string (REG_SZ) in the first of these keys that can be opened"};
}

std::unique_ptr<ByteSource> OpenByteSource(const std::string& path) {
    if (path == "-") {
        return std::make_unique<HandleSource>(::GetStdHandle(STD_INPUT_HANDLE), false);
    }
    const std::wstring name = LongName(ToWide(path));
    const HANDLE handle =
        ::CreateFileW(name.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                      OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        const DWORD error = ::GetLastError();
        const DWORD attributes = ::GetFileAttributesW(name.c_str());
        const bool isFolder = attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        throw Failure("cannot open \"" + path + "\": " + (isFolder ? "it is a folder" : SystemText(error)));
    }
    return std::make_unique<HandleSource>(handle, true);
}

}  // namespace plate_host
