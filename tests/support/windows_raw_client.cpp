#include <windows.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <stdexcept>
#include <thread>

#include "reference/transport/windows_names.h"
#include "tests/support/comes_true.h"
#include "tests/support/raw_client.h"

namespace test_support {

namespace {

constexpr DWORD longestWaitMilliseconds = 60'000;

// As reference/transport puts it before each message: the sender's handle of memory or 0, and the size that it tells.
constexpr std::size_t envelopeBytes = 16;

// Of what is wrong for another reason.
constexpr DWORD size = 5000;

std::map<Piece, std::uint64_t>& ToldSizes() {
    static std::map<Piece, std::uint64_t> sizes;
    return sizes;
}

OwnPiece Told(HANDLE handle, std::uint64_t told) {
    if (handle == nullptr || handle == INVALID_HANDLE_VALUE) {
        throw std::runtime_error("nothing for the test to bring along");
    }
    const auto piece = reinterpret_cast<Piece>(handle);
    ToldSizes()[piece] = told;
    return OwnPiece(piece);
}

HANDLE MakeSection(HANDLE file, DWORD protection, DWORD bytes) {
    return CreateFileMappingW(file, nullptr, protection, 0, bytes, nullptr);
}

HANDLE OpenOwnProgram() {
    wchar_t program[MAX_PATH];
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    return CreateFileW(program, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
}

HANDLE AsHandle(Piece piece) {
    return reinterpret_cast<HANDLE>(piece);
}

// Waits for what was started on a connection; false when it has failed, or is not done in all the time there is.
bool Finish(HANDLE pipe, BOOL started, OVERLAPPED& operation, DWORD& bytes) {
    if (started == FALSE && GetLastError() != ERROR_IO_PENDING) {
        return false;
    }
    if (WaitForSingleObject(operation.hEvent, longestWaitMilliseconds) != WAIT_OBJECT_0) {
        CancelIo(pipe);
    }
    return GetOverlappedResult(pipe, &operation, &bytes, TRUE) != FALSE;
}

}  // namespace

RawClient::RawClient(const std::string& name) {
    const std::string path = transport::PublishedPipePath(name);
    HANDLE opened = INVALID_HANDLE_VALUE;
    // All instances can be in use for a moment.
    ComesTrue([&] {
        opened = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                             FILE_FLAG_OVERLAPPED, nullptr);
        return opened != INVALID_HANDLE_VALUE || GetLastError() != ERROR_PIPE_BUSY;
    });
    DWORD mode = PIPE_READMODE_MESSAGE;
    if (opened == INVALID_HANDLE_VALUE || SetNamedPipeHandleState(opened, &mode, nullptr, nullptr) == FALSE) {
        throw std::runtime_error("nobody listens under " + name);
    }
    connection_ = reinterpret_cast<Piece>(opened);
}

RawClient::~RawClient() {
    CloseHandle(AsHandle(connection_));
}

bool RawClient::Send(std::span<const std::uint8_t> message, const std::vector<Piece>& pieces) {
    std::vector<std::uint8_t> bytes(pieces.empty() ? envelopeBytes : 0);
    for (const Piece piece : pieces) {
        const std::uint64_t envelope[] = {static_cast<std::uint64_t>(piece), ToldSizes()[piece]};
        static_assert(sizeof envelope == envelopeBytes);
        const auto* const start = reinterpret_cast<const std::uint8_t*>(envelope);
        bytes.insert(bytes.end(), start, start + envelopeBytes);
    }
    bytes.insert(bytes.end(), message.begin(), message.end());
    OVERLAPPED operation = {};
    operation.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    DWORD written = 0;
    const BOOL started =
        WriteFile(AsHandle(connection_), bytes.data(), static_cast<DWORD>(bytes.size()), nullptr, &operation);
    const bool isSent = Finish(AsHandle(connection_), started, operation, written);
    CloseHandle(operation.hEvent);
    return isSent;
}

std::vector<std::uint8_t> RawClient::Receive() {
    std::vector<std::uint8_t> message(4096);
    OVERLAPPED operation = {};
    operation.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    DWORD read = 0;
    const BOOL started =
        ReadFile(AsHandle(connection_), message.data(), static_cast<DWORD>(message.size()), nullptr, &operation);
    const bool isRead = Finish(AsHandle(connection_), started, operation, read);
    CloseHandle(operation.hEvent);
    if (!isRead || read < envelopeBytes) {
        return {};
    }
    return {message.begin() + envelopeBytes, message.begin() + static_cast<std::ptrdiff_t>(read)};
}

bool RawClient::IsDropped() {
    // What it still has to say comes first.
    while (!Receive().empty()) {
    }
    DWORD available = 0;
    return PeekNamedPipe(AsHandle(connection_), nullptr, 0, nullptr, &available, nullptr) == FALSE;
}

OwnPiece::~OwnPiece() {
    if (piece_ != -1 && ToldSizes().erase(piece_) != 0) {
        CloseHandle(AsHandle(piece_));
    }
}

OwnPiece MakeMemory(std::int64_t bytes) {
    return Told(MakeSection(INVALID_HANDLE_VALUE, PAGE_READWRITE, static_cast<DWORD>(bytes)),
                static_cast<std::uint64_t>(bytes));
}

std::vector<WrongPiece> MakeWrongPieces() {
    std::vector<WrongPiece> made;
    const auto add = [&made](const char* what, HANDLE handle, std::uint64_t told = size) {
        made.push_back({what, Told(handle, told)});
    };
    const auto addMemory = [&](const char* what, std::uint64_t told, DWORD options = 0) {
        add(what, MakeSection(INVALID_HANDLE_VALUE, PAGE_READWRITE | options, size), told);
    };
    addMemory("memory that is only reserved", size, SEC_RESERVE);
    addMemory("less memory than told", 2 * 4096 + 1);
    addMemory("memory of no size", 0);
    addMemory("memory of a huge size", std::uint64_t{1} << 40);
    addMemory("memory of the hugest size", UINT64_MAX);
    const HANDLE program = OpenOwnProgram();
    add("a file's memory", MakeSection(program, PAGE_READONLY, 0));
    add("a program's memory", MakeSection(program, PAGE_READONLY | SEC_IMAGE, 0));
    add("a file", program);
    add("an event", CreateEventW(nullptr, TRUE, FALSE, nullptr));
    add("a process", OpenProcess(PROCESS_ALL_ACCESS, FALSE, GetCurrentProcessId()));
    // Numbers that stand for the process and the thread themselves, and one that stands for nothing.
    for (const Piece number : {Piece{-1}, Piece{-2}, Piece{0x7FFF0}}) {
        made.push_back({"no handle", OwnPiece(number)});
    }
    return made;
}

}  // namespace test_support
