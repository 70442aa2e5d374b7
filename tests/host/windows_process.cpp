#include <windows.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cwchar>
#include <system_error>

#include "tests/host/process.h"
#include "tools/host/system.h"

namespace host_test {
namespace {

constexpr DWORD pipeSize = 65536;
constexpr DWORD shortWait = 20;

void Require(bool condition, const char* what) {
    if (!condition) {
        throw std::system_error(static_cast<int>(::GetLastError()), std::system_category(), what);
    }
}

std::wstring ToWide(const std::string& text) {
    const int size = static_cast<int>(text.size());
    std::wstring wide(static_cast<std::size_t>(::MultiByteToWideChar(CP_UTF8, 0, text.data(), size, nullptr, 0)),
                      L'\0');
    ::MultiByteToWideChar(CP_UTF8, 0, text.data(), size, wide.data(), static_cast<int>(wide.size()));
    return wide;
}

std::string TextOf(DWORD error) {
    std::array<char, 512> text{};
    ::FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0, text.data(),
                     static_cast<DWORD>(text.size()), nullptr);
    std::string line = text.data();
    line.erase(line.find_last_not_of(".\r\n ") + 1);
    return line;
}

std::string NewPipeName(const char* ending) {
    static std::atomic<int> count{0};
    return "\\\\.\\pipe\\plate_host_test_" + std::to_string(::GetCurrentProcessId()) + "_" + std::to_string(++count) +
           ending;
}

/// The test's end of a pipe to a process, in which reads and writes go on beside the test.
class PipeEnd {
  public:
    PipeEnd() = default;
    PipeEnd(const PipeEnd&) = delete;
    PipeEnd& operator=(const PipeEnd&) = delete;
    ~PipeEnd() { Close(); }

    /// Answers the other end, which a process inherits.
    HANDLE Open(bool isForReading) {
        const std::wstring name = ToWide(NewPipeName(""));
        const DWORD access = isForReading ? PIPE_ACCESS_INBOUND : PIPE_ACCESS_OUTBOUND;
        pipe_ = ::CreateNamedPipeW(name.c_str(), access | FILE_FLAG_OVERLAPPED | FILE_FLAG_FIRST_PIPE_INSTANCE,
                                   PIPE_TYPE_BYTE | PIPE_WAIT, 1, pipeSize, pipeSize, 0, nullptr);
        Require(pipe_ != INVALID_HANDLE_VALUE, "pipe");
        SECURITY_ATTRIBUTES inheritable = {sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
        const HANDLE other = ::CreateFileW(name.c_str(), isForReading ? GENERIC_WRITE : GENERIC_READ, 0, &inheritable,
                                           OPEN_EXISTING, 0, nullptr);
        Require(other != INVALID_HANDLE_VALUE, "pipe's other end");
        operation_.hEvent = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
        return other;
    }

    void Close() {
        if (pipe_ == INVALID_HANDLE_VALUE) {
            return;
        }
        if (isBusy_) {
            DWORD count = 0;
            ::CancelIoEx(pipe_, &operation_);
            ::GetOverlappedResult(pipe_, &operation_, &count, TRUE);
        }
        ::CloseHandle(pipe_);
        ::CloseHandle(operation_.hEvent);
        pipe_ = INVALID_HANDLE_VALUE;
        isBusy_ = false;
    }

    bool IsOpen() const { return pipe_ != INVALID_HANDLE_VALUE; }
    bool IsBusy() const { return isBusy_; }
    HANDLE Event() const { return operation_.hEvent; }
    HANDLE Get() const { return pipe_; }

    /// Begins to read when nothing goes on; closes at the stream's end.
    void BeginRead() {
        if (IsOpen() && !isBusy_) {
            Begin(::ReadFile(pipe_, buffer_.data(), static_cast<DWORD>(buffer_.size()), nullptr, &operation_));
        }
    }

    /// Begins to write the first part of the bytes when nothing goes on.
    void BeginWrite(const std::string& bytes) {
        if (IsOpen() && !isBusy_ && !bytes.empty()) {
            const std::size_t size = std::min(bytes.size(), buffer_.size());
            std::copy_n(bytes.begin(), size, buffer_.begin());
            Begin(::WriteFile(pipe_, buffer_.data(), static_cast<DWORD>(size), nullptr, &operation_));
        }
    }

    /// The number of bytes that have been read or written since the beginning; closes when there cannot be any more.
    std::size_t Collect() {
        DWORD count = 0;
        if (!isBusy_) {
            return 0;
        }
        if (::GetOverlappedResult(pipe_, &operation_, &count, FALSE) == FALSE) {
            if (::GetLastError() != ERROR_IO_INCOMPLETE) {
                isBusy_ = false;
                Close();
            }
            return 0;
        }
        isBusy_ = false;
        return count;
    }

    const char* Data() const { return buffer_.data(); }

  private:
    void Begin(BOOL isDone) {
        isBusy_ = isDone != FALSE || ::GetLastError() == ERROR_IO_PENDING;
        if (!isBusy_) {
            Close();
        }
    }

    HANDLE pipe_ = INVALID_HANDLE_VALUE;
    OVERLAPPED operation_ = {};
    std::array<char, pipeSize> buffer_{};
    bool isBusy_ = false;
};

// As the system's own parser takes it apart: backslashes count before a quotation mark alone.
void AppendWord(std::wstring& line, const std::wstring& word) {
    line += line.empty() ? L"\"" : L" \"";
    std::size_t backslashes = 0;
    for (const wchar_t character : word) {
        if (character == L'"') {
            line.append(backslashes + 1, L'\\');
        }
        backslashes = character == L'\\' ? backslashes + 1 : 0;
        line += character;
    }
    line.append(backslashes, L'\\');
    line += L'"';
}

std::wstring EnvironmentWith(const std::vector<std::pair<std::string, std::optional<std::string>>>& changes) {
    std::wstring block;
    wchar_t* const variables = ::GetEnvironmentStringsW();
    for (const wchar_t* variable = variables; *variable != L'\0'; variable += std::wcslen(variable) + 1) {
        const std::wstring text = variable;
        const bool isChanged = std::any_of(changes.begin(), changes.end(), [&text](const auto& change) {
            return text.starts_with(ToWide(change.first) + L"=");
        });
        if (!isChanged) {
            block += text + L'\0';
        }
    }
    ::FreeEnvironmentStringsW(variables);
    for (const auto& [name, value] : changes) {
        if (value) {
            block += ToWide(name) + L"=" + ToWide(*value) + L'\0';
        }
    }
    return block + L'\0';
}

/// Newer systems have these alone.
struct TerminalFunctions {
    HRESULT(WINAPI* create)(COORD, HANDLE, HANDLE, DWORD, void**) = Find<decltype(create)>("CreatePseudoConsole");
    void(WINAPI* close)(void*) = Find<decltype(close)>("ClosePseudoConsole");

  private:
    template <class Function>
    static Function Find(const char* name) {
        const FARPROC found = ::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), name);
        return reinterpret_cast<Function>(reinterpret_cast<void*>(found));
    }
};

/// A pseudo-terminal for a process to be started in.
class Terminal {
  public:
    Terminal() = default;
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;
    ~Terminal() { Close(); }

    /// What the terminal shows goes to `output`. The answer is what the start of a process takes.
    LPPROC_THREAD_ATTRIBUTE_LIST Open(HANDLE output) {
        constexpr DWORD_PTR pseudoConsole = 0x20016;
        const HANDLE keyboardEnd = keyboard_.Open(false);
        const HRESULT result = functions_.create({120, 60}, keyboardEnd, output, 0, &console_);
        ::CloseHandle(keyboardEnd);
        ::SetLastError(static_cast<DWORD>(result));
        Require(result == S_OK, "terminal");
        SIZE_T size = 0;
        ::InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
        attributes_.resize(size);
        const auto list = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(attributes_.data());
        Require(::InitializeProcThreadAttributeList(list, 1, 0, &size) != FALSE, "attributes");
        Require(
            ::UpdateProcThreadAttribute(list, 0, pseudoConsole, console_, sizeof(console_), nullptr, nullptr) != FALSE,
            "terminal of a process");
        return list;
    }

    /// What it has shown can be read from then on to its end.
    void Close() {
        if (console_ != nullptr) {
            functions_.close(console_);
            console_ = nullptr;
        }
    }

  private:
    const TerminalFunctions functions_;
    PipeEnd keyboard_;
    void* console_ = nullptr;
    std::vector<char> attributes_;
};

}  // namespace

std::vector<StopRequest> StopRequests() {
    return {{"CtrlC", CTRL_C_EVENT, SIGINT, true},
            {"CtrlBreak", CTRL_BREAK_EVENT, SIGINT, true},
            {"Close", CTRL_CLOSE_EVENT, SIGTERM, false}};
}

bool SystemHasTerminals() {
    return TerminalFunctions().create != nullptr;
}

struct HostProcess::System {
    HANDLE process = nullptr;
    Terminal terminal;
    PipeEnd input;
    PipeEnd output;
    PipeEnd errors;
};

HostProcess::HostProcess(const Start& start) : system_(std::make_unique<System>()) {
    STARTUPINFOEXW startup = {};
    startup.StartupInfo.cb = sizeof(startup);
    startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
    HANDLE& input = startup.StartupInfo.hStdInput;
    HANDLE& standardOutput = startup.StartupInfo.hStdOutput;
    HANDLE& standardErrors = startup.StartupInfo.hStdError;
    input = system_->input.Open(false);
    standardOutput = system_->output.Open(true);
    standardErrors = system_->errors.Open(true);
    if (start.outputIsUnwritable) {
        // A handle for reading alone.
        ::CloseHandle(standardOutput);
        SECURITY_ATTRIBUTES inheritable = {sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
        standardOutput = ::CreateFileW(ToWide(start.program).c_str(), GENERIC_READ, FILE_SHARE_READ, &inheritable,
                                       OPEN_EXISTING, 0, nullptr);
        Require(standardOutput != INVALID_HANDLE_VALUE, "unwritable output");
    }
    if (start.outputIsMissing) {
        ::CloseHandle(standardOutput);
        standardOutput = nullptr;
    }
    std::string program = start.program;
    std::wstring line;
    DWORD flags = CREATE_UNICODE_ENVIRONMENT;
    if (start.errorsToTerminal) {
        // The terminal can be opened in a process that has it, and so by a helper.
        startup.lpAttributeList = system_->terminal.Open(standardErrors);
        flags |= EXTENDED_STARTUPINFO_PRESENT;
        program = HOST_TEST_TERMINAL_HELPER;
        AppendWord(line, ToWide(program));
    } else {
        startup.StartupInfo.cb = sizeof(startup.StartupInfo);
    }
    AppendWord(line, ToWide(start.program));
    for (const std::string& argument : start.arguments) {
        AppendWord(line, ToWide(argument));
    }
    std::wstring environment = EnvironmentWith(start.environment);
    PROCESS_INFORMATION information = {};
    const BOOL isStarted = ::CreateProcessW(ToWide(program).c_str(), line.data(), nullptr, nullptr, TRUE, flags,
                                            environment.data(), nullptr, &startup.StartupInfo, &information);
    const DWORD error = ::GetLastError();
    for (const HANDLE handle : {input, standardOutput, standardErrors}) {
        if (handle != nullptr) {
            ::CloseHandle(handle);
        }
    }
    ::SetLastError(error);
    Require(isStarted != FALSE, "start");
    ::CloseHandle(information.hThread);
    system_->process = information.hProcess;
}

HostProcess::~HostProcess() {
    if (system_->process != nullptr) {
        ::TerminateProcess(system_->process, 1);
        ::WaitForSingleObject(system_->process, INFINITE);
        ::CloseHandle(system_->process);
    }
}

void HostProcess::PumpOnce() {
    system_->output.BeginRead();
    system_->errors.BeginRead();
    system_->input.BeginWrite(pendingInput_);
    std::array<HANDLE, 3> waits{};
    DWORD count = 0;
    for (const PipeEnd* const pipe : {&system_->output, &system_->errors, &system_->input}) {
        if (pipe->IsBusy()) {
            waits[count++] = pipe->Event();
        }
    }
    if (count == 0) {
        ::Sleep(1);
    } else {
        ::WaitForMultipleObjects(count, waits.data(), FALSE, shortWait);
    }
    output_.append(system_->output.Data(), system_->output.Collect());
    errors_.append(system_->errors.Data(), system_->errors.Collect());
    pendingInput_.erase(0, system_->input.Collect());
    if (!system_->input.IsOpen()) {
        pendingInput_.clear();  // the process reads no further
    }
}

void HostProcess::CloseInput() {
    system_->input.Close();
}

void HostProcess::CloseOutput() {
    system_->output.Close();
}

bool HostProcess::StreamsHaveEnded() const {
    return !system_->output.IsOpen() && !system_->errors.IsOpen();
}

void HostProcess::WaitUntilInputIsRead() {
    Require(::FlushFileBuffers(system_->input.Get()) != FALSE, "reading of the input");
}

// The way that a request comes, whoever makes it: on a thread of the process that begins in the system's own routine.
// It needs no console, of which the test would be asked to stop as well.
void HostProcess::Stop(const StopRequest& request) const {
    const FARPROC routine = ::GetProcAddress(::GetModuleHandleW(L"kernelbase.dll"), "CtrlRoutine");
    Require(routine != nullptr, "CtrlRoutine");
    const HANDLE thread = ::CreateRemoteThread(
        system_->process, nullptr, 0, reinterpret_cast<LPTHREAD_START_ROUTINE>(reinterpret_cast<void*>(routine)),
        reinterpret_cast<void*>(static_cast<std::uintptr_t>(request.systemsNumber)), 0, nullptr);
    Require(thread != nullptr, "request to stop");
    ::CloseHandle(thread);
}

bool HostProcess::HasEnded(Finished& finished) {
    if (::WaitForSingleObject(system_->process, 0) != WAIT_OBJECT_0) {
        return false;
    }
    DWORD status = 0;
    ::GetExitCodeProcess(system_->process, &status);
    finished.status = static_cast<int>(status);
    system_->terminal.Close();
    return true;
}

struct NamedPipe::System {
    HANDLE pipe = INVALID_HANDLE_VALUE;
};

NamedPipe::NamedPipe() : system_(std::make_unique<System>()), path_(NewPipeName(".y4m")) {
    system_->pipe = ::CreateNamedPipeW(ToWide(path_).c_str(), PIPE_ACCESS_OUTBOUND | FILE_FLAG_FIRST_PIPE_INSTANCE,
                                       PIPE_TYPE_BYTE | PIPE_WAIT, 1, pipeSize, pipeSize, 0, nullptr);
    Require(system_->pipe != INVALID_HANDLE_VALUE, "named pipe");
}

NamedPipe::~NamedPipe() {
    if (system_->pipe != INVALID_HANDLE_VALUE) {
        ::CloseHandle(system_->pipe);
    }
}

void NamedPipe::Write(const std::string& bytes) {
    const bool isConnected =
        ::ConnectNamedPipe(system_->pipe, nullptr) != FALSE || ::GetLastError() == ERROR_PIPE_CONNECTED;
    Require(isConnected, "named pipe's reader");
    DWORD count = 0;
    // A write of nothing is no end.
    Require(::WriteFile(system_->pipe, bytes.data(), 0, &count, nullptr) != FALSE, "named pipe");
    Require(::WriteFile(system_->pipe, bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr) != FALSE,
            "named pipe");
    ::FlushFileBuffers(system_->pipe);
    ::CloseHandle(system_->pipe);
    system_->pipe = INVALID_HANDLE_VALUE;
}

void RemoveFile(const std::string& path) {
    ::DeleteFileW(plate_host::ToOpenPath(path).c_str());
}

std::string SystemText::NoSuchFile() {
    return TextOf(ERROR_FILE_NOT_FOUND);
}

std::string SystemText::Folder() {
    return "it is a folder";
}

std::string SystemText::UnwritableOutput() {
    return TextOf(ERROR_ACCESS_DENIED);
}

std::string SystemText::NoLibrary(const std::string&) {
    return "it is no library for 64-bit Windows";
}

std::string SystemText::ShortLibrary(const std::string& path) {
    return NoLibrary(path);
}

std::string SystemText::LibraryWithoutEngine() {
    return "a library that it needs is missing";
}

}  // namespace host_test
