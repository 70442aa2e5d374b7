#include "tests/support/windows_debugger.h"

#include <array>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <type_traits>

namespace test_support {

namespace {

constexpr DWORD longestSilenceMilliseconds = 60'000;
constexpr DWORD viewerBufferSize = 4096;

using WaitForEvent = BOOL(WINAPI*)(DEBUG_EVENT*, DWORD);

// Only the newer of the two, where available, receives wide texts.
WaitForEvent FindWaitForEvent() {
    const HMODULE system = GetModuleHandleA("kernel32.dll");
    void* const newer = reinterpret_cast<void*>(GetProcAddress(system, "WaitForDebugEventEx"));
    return newer != nullptr ? reinterpret_cast<WaitForEvent>(newer) : &WaitForDebugEvent;
}

struct CloseHandleOf {
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using Handle = std::unique_ptr<std::remove_pointer_t<HANDLE>, CloseHandleOf>;

// The length in the event has 16 bits, so the text is read up to its NUL.
template <class Character>
std::basic_string<Character> ReadText(HANDLE process, const void* address) {
    std::basic_string<Character> text;
    const auto* from = static_cast<const Character*>(address);
    for (;;) {
        // Reads up to the end of a page: the next one may not be mapped.
        constexpr std::size_t pageSize = 4096;
        const std::size_t left = pageSize - reinterpret_cast<std::uintptr_t>(from) % pageSize;
        std::vector<Character> page(std::max<std::size_t>(left / sizeof(Character), 1));
        SIZE_T read = 0;
        if (ReadProcessMemory(process, from, page.data(), page.size() * sizeof(Character), &read) == FALSE) {
            throw std::runtime_error("the text of a debug event cannot be read");
        }
        for (const Character character : page) {
            if (character == Character{}) {
                return text;
            }
            text.push_back(character);
        }
        from += page.size();
    }
}

}  // namespace

std::vector<std::string> DebuggedRun::NarrowTexts() const {
    std::vector<std::string> narrow;
    for (const DebugText& text : texts) {
        narrow.push_back(text.isWide ? "a wide text" : text.narrow);
    }
    return narrow;
}

DebuggedRun RunUnderDebugger(const std::string& commandLine) {
    STARTUPINFOA startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION started = {};
    std::string writable = commandLine;
    if (CreateProcessA(nullptr, writable.data(), nullptr, nullptr, FALSE, DEBUG_ONLY_THIS_PROCESS, nullptr, nullptr,
                       &startup, &started) == FALSE) {
        throw std::runtime_error("cannot be started: " + commandLine);
    }
    const Handle process(started.hProcess);
    const Handle thread(started.hThread);
    const WaitForEvent waitForEvent = FindWaitForEvent();

    DebuggedRun run;
    DEBUG_EVENT event = {};
    while (!run.hasEnded && waitForEvent(&event, longestSilenceMilliseconds) != FALSE) {
        DWORD continuation = DBG_CONTINUE;
        switch (event.dwDebugEventCode) {
            case OUTPUT_DEBUG_STRING_EVENT: {
                const OUTPUT_DEBUG_STRING_INFO& string = event.u.DebugString;
                DebugText text;
                text.isWide = string.fUnicode != 0;
                if (text.isWide) {
                    text.wide = ReadText<wchar_t>(process.get(), string.lpDebugStringData);
                } else {
                    text.narrow = ReadText<char>(process.get(), string.lpDebugStringData);
                }
                run.texts.push_back(std::move(text));
                break;
            }
            case CREATE_PROCESS_DEBUG_EVENT:
                Handle(event.u.CreateProcessInfo.hFile);
                break;
            case LOAD_DLL_DEBUG_EVENT:
                Handle(event.u.LoadDll.hFile);
                break;
            case EXCEPTION_DEBUG_EVENT:
                // The system raises one of these at the start.
                if (event.u.Exception.ExceptionRecord.ExceptionCode != DWORD{EXCEPTION_BREAKPOINT}) {
                    continuation = DBG_EXCEPTION_NOT_HANDLED;
                }
                break;
            case EXIT_PROCESS_DEBUG_EVENT:
                run.hasEnded = true;
                run.exitCode = event.u.ExitProcess.dwExitCode;
                break;
            default:
                break;
        }
        ContinueDebugEvent(event.dwProcessId, event.dwThreadId, continuation);
    }
    if (!run.hasEnded) {
        TerminateProcess(process.get(), 1);
    }
    return run;
}

DebugOutputViewer::DebugOutputViewer() {
    mapping_ = CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, viewerBufferSize, "DBWIN_BUFFER");
    if (mapping_ == nullptr || GetLastError() == ERROR_ALREADY_EXISTS) {
        return;
    }
    bufferReady_ = CreateEventA(nullptr, FALSE, FALSE, "DBWIN_BUFFER_READY");
    dataReady_ = CreateEventA(nullptr, FALSE, FALSE, "DBWIN_DATA_READY");
    ending_ = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    buffer_ = static_cast<const char*>(MapViewOfFile(mapping_, FILE_MAP_READ, 0, 0, 0));
    if (buffer_ == nullptr) {
        throw std::runtime_error("the buffer of the debug output cannot be mapped");
    }
    receiver_ = std::thread([this] { Receive(); });
}

DebugOutputViewer::~DebugOutputViewer() {
    if (receiver_.joinable()) {
        SetEvent(ending_);
        receiver_.join();
        UnmapViewOfFile(buffer_);
    }
    for (const HANDLE handle : {mapping_, bufferReady_, dataReady_, ending_}) {
        if (handle != nullptr) {
            CloseHandle(handle);
        }
    }
}

std::vector<std::string> DebugOutputViewer::Pieces() const {
    const std::lock_guard lock(mutex_);
    return pieces_;
}

void DebugOutputViewer::Receive() {
    SetEvent(bufferReady_);
    const std::array<HANDLE, 2> handles{dataReady_, ending_};
    while (WaitForMultipleObjects(2, handles.data(), FALSE, INFINITE) == WAIT_OBJECT_0) {
        DWORD writer = 0;
        std::memcpy(&writer, buffer_, sizeof(writer));
        const char* const text = buffer_ + sizeof(writer);
        if (writer == GetCurrentProcessId()) {
            const std::lock_guard lock(mutex_);
            pieces_.emplace_back(text, strnlen(text, viewerBufferSize - sizeof(writer)));
        }
        SetEvent(bufferReady_);
    }
}

}  // namespace test_support
