#include <windows.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cwchar>
#include <system_error>

#include "tests/support/child_process.h"

namespace test_support {

namespace {

constexpr DWORD pipeSize = 65536;

void Require(bool condition, const char* what) {
    if (!condition) {
        throw std::system_error(static_cast<int>(::GetLastError()), std::system_category(), what);
    }
}

std::wstring ToWide(const std::string& text) {
    return std::filesystem::path(std::u8string(text.begin(), text.end())).wstring();
}

template <class Function>
Function FindInSystem(const wchar_t* library, const char* name) {
    return reinterpret_cast<Function>(reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(library), name)));
}

struct CloseHandleOf {
    void operator()(HANDLE handle) const { ::CloseHandle(handle); }
};
using Handle = std::unique_ptr<void, CloseHandleOf>;

Handle OpenInheritable(const std::wstring& name, DWORD access, DWORD share) {
    SECURITY_ATTRIBUTES inheritable = {sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    const HANDLE file = ::CreateFileW(name.c_str(), access, share, &inheritable, OPEN_EXISTING, 0, nullptr);
    Require(file != INVALID_HANDLE_VALUE, "inheritable file");
    return Handle(file);
}

/// The test's end of a pipe to a process, with at most one asynchronous read or write.
class PipeEnd {
  public:
    PipeEnd() = default;
    PipeEnd(const PipeEnd&) = delete;
    PipeEnd& operator=(const PipeEnd&) = delete;
    ~PipeEnd() { Close(); }

    /// Returns the other end, which the process inherits.
    Handle Open(DWORD ownAccess, DWORD othersAccess) {
        static std::atomic<int> count{0};
        const std::wstring name =
            L"\\\\.\\pipe\\vexlane-child-" + std::to_wstring(::GetCurrentProcessId()) + L'-' + std::to_wstring(++count);
        pipe_ = ::CreateNamedPipeW(name.c_str(), ownAccess | FILE_FLAG_OVERLAPPED | FILE_FLAG_FIRST_PIPE_INSTANCE,
                                   PIPE_TYPE_BYTE | PIPE_WAIT, 1, pipeSize, pipeSize, 0, nullptr);
        Require(pipe_ != INVALID_HANDLE_VALUE, "pipe");
        return OpenInheritable(name, othersAccess, 0);
    }

    void Close() {
        if (isBusy_) {
            DWORD count = 0;
            ::CancelIoEx(pipe_, &operation_);
            ::GetOverlappedResult(pipe_, &operation_, &count, TRUE);
            isBusy_ = false;
        }
        if (IsOpen()) {
            ::CloseHandle(pipe_);
            pipe_ = INVALID_HANDLE_VALUE;
        }
    }

    bool IsOpen() const { return pipe_ != INVALID_HANDLE_VALUE; }
    HANDLE Get() const { return pipe_; }

    /// Appends what has been read; returns whether there was anything. Closes at the stream's end.
    bool Read(std::string& text) {
        if (IsOpen() && !isBusy_) {
            Begin(::ReadFile(pipe_, buffer_.data(), pipeSize, nullptr, &operation_));
        }
        const DWORD count = Collect();
        text.append(buffer_.data(), count);
        return count > 0;
    }

    /// Removes what has been written; returns whether there was anything. Closes when the other end is closed.
    bool Write(std::string& bytes) {
        if (IsOpen() && !isBusy_ && !bytes.empty()) {
            const auto size = static_cast<DWORD>(bytes.copy(buffer_.data(), buffer_.size()));
            Begin(::WriteFile(pipe_, buffer_.data(), size, nullptr, &operation_));
        }
        const DWORD count = Collect();
        bytes.erase(0, count);
        return count > 0;
    }

  private:
    void Begin(BOOL isDone) {
        isBusy_ = isDone != FALSE || ::GetLastError() == ERROR_IO_PENDING;
        if (!isBusy_) {
            Close();
        }
    }

    DWORD Collect() {
        DWORD count = 0;
        if (isBusy_ && ::GetOverlappedResult(pipe_, &operation_, &count, FALSE) == FALSE) {
            if (::GetLastError() != ERROR_IO_INCOMPLETE) {
                Close();
            }
            return 0;
        }
        isBusy_ = false;
        return count;
    }

    HANDLE pipe_ = INVALID_HANDLE_VALUE;
    OVERLAPPED operation_ = {};
    std::array<char, pipeSize> buffer_{};
    bool isBusy_ = false;
};

/// A pseudo-terminal in which a process is started.
class Terminal {
  public:
    Terminal() = default;
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;
    ~Terminal() { Close(); }

    /// Only newer systems have it.
    static auto FindCreate() {
        return FindInSystem<HRESULT(WINAPI*)(COORD, HANDLE, HANDLE, DWORD, void**)>(L"kernel32.dll",
                                                                                    "CreatePseudoConsole");
    }

    /// The terminal writes what it shows to `output`. Returns the attribute list for the start of a process.
    LPPROC_THREAD_ATTRIBUTE_LIST Open(HANDLE output) {
        constexpr DWORD_PTR pseudoConsole = 0x20016;
        const Handle keyboardEnd = keyboard_.Open(PIPE_ACCESS_OUTBOUND, GENERIC_READ);
        const HRESULT result = FindCreate()({120, 60}, keyboardEnd.get(), output, 0, &console_);
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

    /// Afterwards what it has shown can be read to the end.
    void Close() {
        if (console_ != nullptr) {
            FindInSystem<void(WINAPI*)(void*)>(L"kernel32.dll", "ClosePseudoConsole")(console_);
            console_ = nullptr;
        }
    }

  private:
    PipeEnd keyboard_;
    void* console_ = nullptr;
    std::vector<char> attributes_;
};

// As the system's own parser splits it: backslashes are special only before a quotation mark.
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

}  // namespace

std::vector<StopRequest> StopRequests() {
    return {{"CtrlC", CTRL_C_EVENT, SIGINT, true},
            {"CtrlBreak", CTRL_BREAK_EVENT, SIGINT, true},
            {"Close", CTRL_CLOSE_EVENT, SIGTERM, false}};
}

bool SystemHasTerminals() {
    return Terminal::FindCreate() != nullptr;
}

std::vector<std::string> ChildProcess::OwnVariables() {
    std::vector<std::string> variables;
    wchar_t* const block = ::GetEnvironmentStringsW();
    for (const wchar_t* variable = block; *variable != L'\0'; variable += std::wcslen(variable) + 1) {
        const std::u8string text = std::filesystem::path(variable).u8string();
        variables.emplace_back(text.begin(), text.end());
    }
    ::FreeEnvironmentStringsW(block);
    return variables;
}

struct ChildProcess::System {
    Handle process;
    Terminal terminal;
    PipeEnd input;
    PipeEnd output;
    PipeEnd errors;
};

ChildProcess::ChildProcess(const Start& start) : system_(std::make_unique<System>()) {
    Handle input;
    Handle output;
    Handle errors;
    if (!start.streamsAreInherited) {
        input = system_->input.Open(PIPE_ACCESS_OUTBOUND, GENERIC_READ);
        output = system_->output.Open(PIPE_ACCESS_INBOUND, GENERIC_WRITE);
        errors = system_->errors.Open(PIPE_ACCESS_INBOUND, GENERIC_WRITE);
    }
    if (start.outputIsUnwritable) {
        output = OpenInheritable(start.program.wstring(), GENERIC_READ, FILE_SHARE_READ);
    }
    if (start.outputIsMissing) {
        output.reset();
    }
    STARTUPINFOEXW startup = {};
    startup.StartupInfo.cb = sizeof(startup.StartupInfo);
    if (!start.streamsAreInherited) {
        startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
    }
    startup.StartupInfo.hStdInput = input.get();
    startup.StartupInfo.hStdOutput = output.get();
    startup.StartupInfo.hStdError = errors.get();
    std::filesystem::path program = start.program;
    std::wstring line;
    DWORD flags = CREATE_UNICODE_ENVIRONMENT;
    if (start.errorsToTerminal) {
        // Only a process in the terminal can open it, so a helper does.
        startup.StartupInfo.cb = sizeof(startup);
        startup.lpAttributeList = system_->terminal.Open(errors.get());
        flags |= EXTENDED_STARTUPINFO_PRESENT;
        program = TEST_TERMINAL_HELPER;
        AppendWord(line, program.wstring());
    }
    AppendWord(line, start.program.wstring());
    for (const std::string& argument : start.arguments) {
        AppendWord(line, ToWide(argument));
    }
    std::wstring environment;
    for (const std::string& variable : OwnVariablesWith(start.environment)) {
        environment += ToWide(variable) + L'\0';
    }
    PROCESS_INFORMATION information = {};
    const BOOL isStarted =
        ::CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, start.streamsAreInherited ? FALSE : TRUE,
                         flags, environment.data(), nullptr, &startup.StartupInfo, &information);
    Require(isStarted != FALSE, start.program.string().c_str());
    ::CloseHandle(information.hThread);
    system_->process.reset(information.hProcess);
    id_ = static_cast<std::int32_t>(information.dwProcessId);
}

ChildProcess::~ChildProcess() {
    ::TerminateProcess(system_->process.get(), 1);
    ::WaitForSingleObject(system_->process.get(), INFINITE);
}

void ChildProcess::PumpOnce() {
    const bool hasRead = system_->output.Read(finished_.output);
    const bool hasReadErrors = system_->errors.Read(finished_.errors);
    const bool hasWritten = system_->input.Write(pendingInput_);
    if (!hasRead && !hasReadErrors && !hasWritten) {
        ::Sleep(1);
    }
    if (!system_->input.IsOpen()) {
        pendingInput_.clear();  // the process reads no further
    }
}

void ChildProcess::CloseInput() {
    system_->input.Close();
}

void ChildProcess::CloseOutput() {
    system_->output.Close();
}

bool ChildProcess::StreamsHaveEnded() const {
    return !system_->output.IsOpen() && !system_->errors.IsOpen();
}

void ChildProcess::WaitUntilInputIsRead() {
    Require(::FlushFileBuffers(system_->input.Get()) != FALSE, "reading of the input");
}

// The system delivers every request this way: on a new thread of the process that starts in a system routine. This
// needs no console, through which the test would get the request as well.
void ChildProcess::Stop(const StopRequest& request) const {
    const auto routine = FindInSystem<LPTHREAD_START_ROUTINE>(L"kernelbase.dll", "CtrlRoutine");
    Require(routine != nullptr, "CtrlRoutine");
    const Handle thread(
        ::CreateRemoteThread(system_->process.get(), nullptr, 0, routine,
                             reinterpret_cast<void*>(static_cast<std::uintptr_t>(request.systemsNumber)), 0, nullptr));
    Require(thread != nullptr, "request to stop");
}

bool ChildProcess::HasEnded() {
    if (!hasEnded_ && ::WaitForSingleObject(system_->process.get(), 0) == WAIT_OBJECT_0) {
        DWORD status = 0;
        ::GetExitCodeProcess(system_->process.get(), &status);
        finished_.status = static_cast<int>(status);
        system_->terminal.Close();
        hasEnded_ = true;
    }
    return hasEnded_;
}

}  // namespace test_support
