// Message pipes, in which each message is a packet. A pipe disappears when the last process closes it.

#include <windows.h>
// clang-format off: these need the one above
#include <sddl.h>
#include <winternl.h>
// clang-format on

#include <algorithm>
#include <array>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>

#include "reference/transport/local_connection.h"
#include "reference/transport/windows_names.h"

namespace transport {

namespace {

constexpr std::size_t maxNameLength = 100;
constexpr std::size_t pendingInstances = 16;
constexpr DWORD replyBufferBytes = 1 << 16;
constexpr std::chrono::milliseconds resourceRetryInterval{20};

struct Closer {
    void operator()(HANDLE opened) const { CloseHandle(opened); }
};
using Owned = std::unique_ptr<void, Closer>;

[[noreturn]] void Throw(const char* what, DWORD error = GetLastError()) {
    throw std::system_error(static_cast<int>(error), std::system_category(), what);
}

bool IsName(const std::string& name) {
    return !name.empty() && name.size() <= maxNameLength && name.find('\\') == std::string::npos;
}

Owned OwnedPipe(HANDLE opened) {
    return Owned(opened == INVALID_HANDLE_VALUE ? nullptr : opened);
}

bool IsLackOfResources(DWORD error) {
    constexpr std::array<DWORD, 6> errors = {ERROR_TOO_MANY_OPEN_FILES, ERROR_NOT_ENOUGH_MEMORY,
                                             ERROR_OUTOFMEMORY,         ERROR_NO_SYSTEM_RESOURCES,
                                             ERROR_COMMITMENT_LIMIT,    ERROR_NOT_ENOUGH_QUOTA};
    return std::find(errors.begin(), errors.end(), error) != errors.end();
}

Owned MakeEvent() {
    Owned event(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    if (!event) {
        Throw("cannot create an event");
    }
    return event;
}

bool IsSet(const Owned& event) {
    return WaitForSingleObject(event.get(), 0) == WAIT_OBJECT_0;
}

// Returns WAIT_TIMEOUT at the deadline, else WAIT_OBJECT_0 plus the index of an event that is set.
DWORD WaitForAny(std::span<const HANDLE> events, Deadline deadline) {
    for (;;) {
        const DWORD result = WaitForMultipleObjects(static_cast<DWORD>(events.size()), events.data(), FALSE,
                                                    static_cast<DWORD>(MillisecondsUntil(deadline)));
        if (result != WAIT_TIMEOUT || Clock::now() >= deadline) {
            return result;
        }
    }
}

/// Grants access only to this user.
struct ThisUserOnly : SECURITY_ATTRIBUTES {
    ThisUserOnly() : SECURITY_ATTRIBUTES{sizeof(SECURITY_ATTRIBUTES), nullptr, FALSE} {
        const std::string user = ThisUser();
        const std::string text = "O:" + user + "D:P(A;;GA;;;" + user + ")";
        if (ConvertStringSecurityDescriptorToSecurityDescriptorA(text.c_str(), SDDL_REVISION_1, &lpSecurityDescriptor,
                                                                 nullptr) == FALSE) {
            Throw("cannot restrict access to this user");
        }
    }
    ~ThisUserOnly() { LocalFree(lpSecurityDescriptor); }
    ThisUserOnly(const ThisUserOnly&) = delete;
    ThisUserOnly& operator=(const ThisUserOnly&) = delete;
};

bool IsProcessOfThisUser(DWORD process) {
    const Owned opened(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process));
    return opened && UserOf(opened.get()) == ThisUser();
}

/// A pipe that waits for a client.
struct Instance {
    Owned pipe;
    Owned connected = MakeEvent();
    OVERLAPPED operation = {};

    // Closes the pipe if a client has already connected and disconnected.
    void StartConnecting() {
        operation = {};
        operation.hEvent = connected.get();
        if (ConnectNamedPipe(pipe.get(), &operation) != FALSE || GetLastError() == ERROR_PIPE_CONNECTED) {
            SetEvent(connected.get());
        } else if (GetLastError() != ERROR_IO_PENDING) {
            pipe.reset();
        }
    }

    // Waits for the cancellation, because the system writes to `operation` until then.
    void Close() {
        if (pipe && CancelIoEx(pipe.get(), &operation) != FALSE) {
            WaitForSingleObject(connected.get(), INFINITE);
        }
        pipe.reset();
    }
};

}  // namespace

// Connection

struct Connection::System {
    explicit System(Owned connected) : pipe(std::move(connected)) {}

    // Reads or writes with `start`; cancels that at the deadline and on Shutdown. Returns 0 on failure.
    template <class Start, class Bytes>
    std::size_t Transfer(Start* start, Bytes* bytes, std::size_t size, Deadline deadline) {
        const std::lock_guard lock(mutex);
        if (IsSet(ended)) {
            return 0;
        }
        OVERLAPPED operation = {};
        operation.hEvent = done.get();
        if (start(pipe.get(), bytes, static_cast<DWORD>(size), nullptr, &operation) == FALSE) {
            if (GetLastError() == ERROR_IO_PENDING) {
                const std::array<HANDLE, 2> events = {done.get(), ended.get()};
                if (WaitForAny(events, deadline) != WAIT_OBJECT_0) {
                    CancelIoEx(pipe.get(), &operation);
                }
            } else if (GetLastError() != ERROR_MORE_DATA) {
                return 0;
            }
        }
        // An operation that completed before the cancellation counts. A pipe's operation is cancelled at once.
        DWORD transferred = 0;
        if (GetOverlappedResult(pipe.get(), &operation, &transferred, TRUE) != FALSE) {
            return transferred;
        }
        if (GetLastError() == ERROR_MORE_DATA) {
            // The rest of a packet that is too long would be received as the next one.
            SetEvent(ended.get());
        }
        return 0;
    }

    const Owned ended = MakeEvent();
    const Owned done = MakeEvent();
    std::mutex mutex;  // guards the pipe
    Owned pipe;
};

std::optional<Connection> Connection::Open(const std::string& name) {
    const std::string path = IsName(name) ? PublishedPipePath(name) : std::string();
    if (path.empty()) {
        return std::nullopt;
    }
    // The server may identify this user, but not impersonate it.
    Owned pipe =
        OwnedPipe(CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                              FILE_FLAG_OVERLAPPED | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr));
    if (!pipe && IsLackOfResources(GetLastError())) {
        Throw("cannot open the pipe");
    }
    // The owner is checked too, because it decides which other processes may serve the pipe.
    DWORD mode = PIPE_READMODE_MESSAGE;
    ULONG process = 0;
    if (!pipe || OwnerOf(pipe.get()) != ThisUser() ||
        SetNamedPipeHandleState(pipe.get(), &mode, nullptr, nullptr) == FALSE ||
        GetNamedPipeServerProcessId(pipe.get(), &process) == FALSE || !IsProcessOfThisUser(process)) {
        return std::nullopt;
    }
    return Connection(std::make_shared<System>(std::move(pipe)));
}

bool Connection::Send(std::span<const std::uint8_t> bytes, Deadline deadline) {
    do {
        const auto packet = bytes.first(std::min(bytes.size(), maxPacketBytes));
        if (system_->Transfer(WriteFile, packet.data(), packet.size(), deadline) != packet.size()) {
            return false;
        }
        bytes = bytes.subspan(packet.size());
    } while (!bytes.empty() && Clock::now() < deadline);
    return bytes.empty();
}

std::size_t Connection::Receive(std::span<std::uint8_t> buffer, Deadline deadline) {
    return system_->Transfer(ReadFile, buffer.data(), buffer.size(), deadline);
}

bool Connection::IsPeerConnected() const {
    const std::lock_guard lock(system_->mutex);
    IO_STATUS_BLOCK status = {};
    struct {
        ULONG namedPipeType, namedPipeConfiguration, maximumInstances, currentInstances, inboundQuota,
            readDataAvailable, outboundQuota, writeQuotaAvailable, namedPipeState, namedPipeEnd;
    } pipeInformation = {};
    constexpr ULONG connectedState = 3;
    constexpr auto pipeLocalInformation = static_cast<FILE_INFORMATION_CLASS>(24);
    return system_->pipe &&
           NtQueryInformationFile(system_->pipe.get(), &status, &pipeInformation, sizeof pipeInformation,
                                  pipeLocalInformation) >= 0 &&
           pipeInformation.namedPipeState == connectedState;
}

void Connection::Shutdown() {
    SetEvent(system_->ended.get());
    const std::lock_guard lock(system_->mutex);
    system_->pipe.reset();
}

// Listener

struct Listener::System {
    /// Publishes a pipe for the server of that name, which `nameLock` reserves. Throws std::system_error.
    System(std::string serverName, Owned nameLock) : name(std::move(serverName)), lock(std::move(nameLock)) {
        instances[0].pipe = MakePipe(FILE_FLAG_FIRST_PIPE_INSTANCE);
        if (!instances[0].pipe) {
            Throw("cannot create the server's pipe");
        }
        // Nothing after this may fail, because the system writes to the pending operations.
        PublishPipePath(name, path);
        instances[0].StartConnecting();
        Refill();
    }

    ~System() { End(); }

    /// Returns the next connected pipe; null at the deadline and after End.
    Owned Next(Deadline deadline) {
        const std::lock_guard guard(mutex);
        while (!IsSet(ended)) {
            const Deadline pause = Refill() ? noDeadline : Clock::now() + resourceRetryInterval;
            // The instance that was connected last is checked last, so that no client waits for ever.
            std::array<HANDLE, 1 + pendingInstances> events = {ended.get()};
            for (std::size_t place = 0; place < pendingInstances; ++place) {
                events[1 + place] = instances[(first + place) % pendingInstances].connected.get();
            }
            const DWORD found = WaitForAny(events, std::min(deadline, pause)) - WAIT_OBJECT_0;
            if (found >= 1 && found <= pendingInstances) {
                first = (first + found) % pendingInstances;
                Instance& instance = instances[(first + pendingInstances - 1) % pendingInstances];
                ResetEvent(instance.connected.get());
                Owned pipe = std::move(instance.pipe);
                Refill();
                return pipe;
            }
            if (Clock::now() >= deadline) {
                break;
            }
        }
        return nullptr;
    }

    /// Any thread.
    void End() {
        SetEvent(ended.get());
        const std::lock_guard guard(mutex);
        WithdrawPipePath(name, path);
        for (Instance& instance : instances) {
            instance.Close();
        }
        lock.reset();
    }

    Owned MakePipe(DWORD flags) {
        return OwnedPipe(CreateNamedPipeA(path.c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED | flags,
                                          PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_REJECT_REMOTE_CLIENTS,
                                          PIPE_UNLIMITED_INSTANCES, replyBufferBytes, maxPacketBytes, 0, &access));
    }

    // Returns false when not all pipes can be created. REQUIRES: mutex, or no access by other threads.
    bool Refill() {
        for (Instance& instance : instances) {
            if (!instance.pipe && (instance.pipe = MakePipe(0))) {
                instance.StartConnecting();
            }
        }
        return std::ranges::all_of(instances, [](const Instance& instance) { return instance.pipe != nullptr; });
    }

    const std::string name;
    const std::string path = NewPipePath();
    const Owned ended = MakeEvent();
    ThisUserOnly access;
    std::mutex mutex;  // guards all below
    Owned lock;        // null after End, and when another user has the mutex
    std::array<Instance, pendingInstances> instances;
    std::size_t first = 0;
};

std::optional<Listener> Listener::Open(const std::string& name) {
    if (!IsName(name)) {
        Throw("invalid name for a server", ERROR_INVALID_NAME);
    }
    ThisUserOnly access;
    Owned lock(CreateMutexA(&access, FALSE, MutexName(name).c_str()));
    const DWORD mutexError = GetLastError();
    const bool isTaken = lock ? mutexError == ERROR_ALREADY_EXISTS : mutexError == ERROR_ACCESS_DENIED;
    if (!lock && !isTaken) {
        Throw("cannot create the server's mutex", mutexError);
    }
    if (isTaken) {
        // Another user's mutex must not prevent listening. The pipe then shows whether this user's server is running.
        const bool isOwn = lock && OwnerOf(lock.get()) == ThisUser();
        if (isOwn || Connection::Open(name)) {
            return std::nullopt;
        }
        lock.reset();
    }
    return Listener(std::make_shared<System>(name, std::move(lock)));
}

// Sends no refusal: handles do not run out before memory does, and then nothing can be sent.
std::optional<Connection> Listener::Accept(Deadline deadline, std::span<const std::uint8_t>) {
    while (Owned pipe = system_->Next(deadline)) {
        ULONG process = 0;
        if (GetNamedPipeClientProcessId(pipe.get(), &process) != FALSE && IsProcessOfThisUser(process)) {
            try {
                return Connection(std::make_shared<Connection::System>(std::move(pipe)));
            } catch (const std::exception&) {
                // There are no resources for this client; there may be for the next.
                std::this_thread::sleep_for(resourceRetryInterval);
            }
        }
    }
    return std::nullopt;
}

void Listener::Shutdown() {
    system_->End();
}

}  // namespace transport
