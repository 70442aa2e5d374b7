// Pipes of whole messages, and sections without a name. All of them vanish with the last process that has them open.

#include <windows.h>
// clang-format off: these need the one above
#include <psapi.h>
#include <sddl.h>
#include <winternl.h>
// clang-format on

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <system_error>
#include <utility>

#include "reference/transport/local_connection.h"
#include "reference/transport/windows_names.h"

namespace transport {

namespace {

constexpr std::size_t longestName = 100;
constexpr std::size_t waitingInstances = 16;
constexpr DWORD bufferBytes = 1 << 16;
constexpr DWORD resourcePauseMilliseconds = 20;
constexpr DWORD longestCancelMilliseconds = 1000;  // it takes none; a host must not hang if it does

// What stands before each message in the pipe: the sender's own handle of the memory that the message brings, or 0. The
// receiver makes its own handle of it, so that nobody's number is ever closed in another process.
struct Envelope {
    std::uint64_t memory = 0;
    std::uint64_t memoryBytes = 0;
};
static_assert(sizeof(Envelope) == 16);

/// A handle until somebody takes it.
class Owned {
  public:
    Owned() = default;
    explicit Owned(HANDLE opened) : handle(opened == INVALID_HANDLE_VALUE ? nullptr : opened) {}
    Owned(Owned&& other) noexcept : handle(other.Take()) {}
    Owned& operator=(Owned&& other) noexcept {
        std::swap(handle, other.handle);
        return *this;
    }
    ~Owned() {
        if (handle != nullptr) {
            CloseHandle(handle);
        }
    }

    explicit operator bool() const { return handle != nullptr; }
    HANDLE Get() const { return handle; }
    HANDLE Take() { return std::exchange(handle, nullptr); }
    void Close() { Owned closed(Take()); }

  private:
    HANDLE handle = nullptr;
};

[[noreturn]] void Throw(const char* what, DWORD error = GetLastError()) {
    throw std::system_error(static_cast<int>(error), std::system_category(), what);
}

bool IsName(const std::string& name) {
    return !name.empty() && name.size() <= longestName && name.find('\\') == std::string::npos;
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
        Throw("an event cannot be made");
    }
    return event;
}

// Of one wait; what is left behind it is waited for again.
DWORD MillisecondsUntil(Deadline deadline) {
    if (deadline == noDeadline) {
        return INFINITE;
    }
    const Deadline now = Clock::now();
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(std::max(deadline, now) - now).count();
    return static_cast<DWORD>(std::min<std::int64_t>(left, INFINITE - 1));
}

// Users

/// What lets in nobody but this user.
class OwnUserAlone {
  public:
    OwnUserAlone() {
        const std::string user = ThisUser();
        const std::string text = "O:" + user + "D:P(A;;GA;;;" + user + ")";
        if (ConvertStringSecurityDescriptorToSecurityDescriptorA(text.c_str(), SDDL_REVISION_1,
                                                                 &attributes.lpSecurityDescriptor, nullptr) == FALSE) {
            Throw("access cannot be limited");
        }
    }
    ~OwnUserAlone() { LocalFree(attributes.lpSecurityDescriptor); }
    OwnUserAlone(const OwnUserAlone&) = delete;
    OwnUserAlone& operator=(const OwnUserAlone&) = delete;

    SECURITY_ATTRIBUTES* Get() { return &attributes; }

  private:
    SECURITY_ATTRIBUTES attributes = {sizeof(SECURITY_ATTRIBUTES), nullptr, FALSE};
};

// Nothing for another user's process. What it may not be asked for, as memory by a process of fewer rights, it is not.
Owned OpenPeer(DWORD process) {
    constexpr DWORD toKnow = PROCESS_QUERY_LIMITED_INFORMATION;
    constexpr DWORD toTakeMemory = PROCESS_DUP_HANDLE;
    for (const DWORD rights : {toKnow | toTakeMemory, toKnow}) {
        Owned opened(OpenProcess(rights, FALSE, process));
        if (opened && UserOf(opened.Get()) == ThisUser()) {
            return opened;
        }
    }
    return Owned();
}

// Memory

// A query that fails for any other reason says nothing: there may be a file whose end somebody else can move.
bool IsOfNoFile(void* mapped) {
    char file[MAX_PATH];
    SetLastError(ERROR_SUCCESS);
    return GetMappedFileNameA(GetCurrentProcess(), mapped, file, sizeof file) == 0 &&
           GetLastError() == ERROR_FILE_INVALID;
}

// Nothing for what is no memory, is smaller than told, or whose reading could fault: a file, and what is only reserved.
std::optional<std::span<const std::uint8_t>> MapForReading(HANDLE section, std::uint64_t size, std::uint64_t most) {
    if (size == 0 || size > most) {
        return std::nullopt;
    }
    void* const mapped = MapViewOfFile(section, FILE_MAP_READ, 0, 0, size);
    if (mapped == nullptr) {
        return std::nullopt;
    }
    MEMORY_BASIC_INFORMATION pages = {};
    const bool isMemory = VirtualQuery(mapped, &pages, sizeof pages) != 0 && pages.State == MEM_COMMIT &&
                          pages.Type == MEM_MAPPED && pages.RegionSize >= size && IsOfNoFile(mapped);
    if (!isMemory) {
        UnmapViewOfFile(mapped);
        return std::nullopt;
    }
    return std::span(static_cast<const std::uint8_t*>(mapped), static_cast<std::size_t>(size));
}

// One side of a connection

class PipeEnd {
  public:
    PipeEnd(Owned opened, Owned peerProcess)
        : pipe(std::move(opened)), peer(std::move(peerProcess)), ended(MakeEvent()) {}

    bool Write(std::span<const std::uint8_t> bytes, Deadline deadline) {
        const std::lock_guard lock(use);
        if (!IsOpen()) {
            return false;
        }
        transfer->bytes.assign(bytes.begin(), bytes.end());
        DWORD written = 0;
        return Carry(WriteFile, deadline, written) && written == bytes.size();
    }

    /// One message of at most as many bytes as there is room for, which it is cut to.
    bool Read(std::vector<std::uint8_t>& bytes, Deadline deadline) {
        const std::lock_guard lock(use);
        if (!IsOpen()) {
            return false;
        }
        transfer->bytes.resize(bytes.size());
        DWORD read = 0;
        if (!Carry(ReadFile, deadline, read)) {
            return false;
        }
        bytes.assign(transfer->bytes.begin(), transfer->bytes.begin() + read);
        return true;
    }

    /// The peer's memory, by the peer's own handle of it.
    Owned TakeHandle(std::uint64_t number) const {
        HANDLE taken = nullptr;
        const auto value = reinterpret_cast<HANDLE>(static_cast<std::uintptr_t>(number));
        DuplicateHandle(peer.Get(), value, GetCurrentProcess(), &taken, FILE_MAP_READ, FALSE, 0);
        return Owned(taken);
    }

    bool IsConnected() {
        const std::lock_guard lock(use);
        IO_STATUS_BLOCK status = {};
        struct {
            ULONG namedPipeType, namedPipeConfiguration, maximumInstances, currentInstances, inboundQuota,
                readDataAvailable, outboundQuota, writeQuotaAvailable, namedPipeState, namedPipeEnd;
        } pipeInformation = {};
        constexpr ULONG connectedState = 3;
        constexpr auto pipeLocalInformation = static_cast<FILE_INFORMATION_CLASS>(24);
        return pipe &&
               NtQueryInformationFile(pipe.Get(), &status, &pipeInformation, sizeof pipeInformation,
                                      pipeLocalInformation) >= 0 &&
               pipeInformation.namedPipeState == connectedState;
    }

    /// Any thread.
    void End() {
        SetEvent(ended.Get());
        const std::lock_guard lock(use);
        pipe.Close();
    }

  private:
    // What the system reads from or writes to until it has said that it is done.
    struct Transfer {
        OVERLAPPED operation = {};
        std::vector<std::uint8_t> bytes;
        const Owned done = MakeEvent();
    };

    // REQUIRES: use.
    bool IsOpen() const { return pipe && transfer && WaitForSingleObject(ended.Get(), 0) != WAIT_OBJECT_0; }

    // Starts what reads or writes and sees it done, or takes it back at the deadline or at the end. REQUIRES: use, and
    // that it is open.
    template <class Start>
    bool Carry(Start* start, Deadline deadline, DWORD& bytes) {
        transfer->operation = {};
        transfer->operation.hEvent = transfer->done.Get();
        if (start(pipe.Get(), transfer->bytes.data(), static_cast<DWORD>(transfer->bytes.size()), nullptr,
                  &transfer->operation) == FALSE) {
            if (GetLastError() != ERROR_IO_PENDING) {
                EndIfCut();
                return false;
            }
            if (!IsDoneBy(deadline)) {
                CancelIoEx(pipe.Get(), &transfer->operation);
                if (WaitForSingleObject(transfer->done.Get(), longestCancelMilliseconds) != WAIT_OBJECT_0) {
                    // The system may still write there, so it stays for ever.
                    static_cast<void>(transfer.release());
                    return false;
                }
            }
        }
        // What was done after all, before it could be taken back, counts.
        if (GetOverlappedResult(pipe.Get(), &transfer->operation, &bytes, FALSE) == FALSE) {
            EndIfCut();
            return false;
        }
        return true;
    }

    // What is left of a message that is too long would pass for the next one.
    void EndIfCut() {
        if (GetLastError() == ERROR_MORE_DATA) {
            SetEvent(ended.Get());
        }
    }

    bool IsDoneBy(Deadline deadline) const {
        const std::array<HANDLE, 2> awaited = {transfer->done.Get(), ended.Get()};
        for (;;) {
            const DWORD result =
                WaitForMultipleObjects(awaited.size(), awaited.data(), FALSE, MillisecondsUntil(deadline));
            if (result != WAIT_TIMEOUT || Clock::now() >= deadline) {
                return result == WAIT_OBJECT_0;
            }
        }
    }

    std::mutex use;
    Owned pipe;
    const Owned peer;
    const Owned ended;
    std::unique_ptr<Transfer> transfer = std::make_unique<Transfer>();  // null once the system has kept one
};

// Those who wait for connections

class Instances {
  public:
    /// Publishes a pipe for the server of that name, which `nameLock` keeps for it. Throws std::system_error.
    Instances(std::string serverName, Owned nameLock)
        : name(std::move(serverName)), lock(std::move(nameLock)), ended(MakeEvent()) {
        for (std::unique_ptr<Instance>& instance : instances) {
            instance = std::make_unique<Instance>();
        }
        instances[0]->pipe = MakePipe(FILE_FLAG_FIRST_PIPE_INSTANCE);
        if (!instances[0]->pipe) {
            Throw("nobody can be listened to");
        }
        // Nothing after this can fail: the system writes into what is awaited.
        PublishPipePath(name, path);
        instances[0]->Await();
        Refill();
    }

    ~Instances() { End(); }

    /// The next one that is connected; nothing at the deadline and behind End.
    Owned Next(Deadline deadline) {
        const std::lock_guard inUse(use);
        for (;;) {
            if (WaitForSingleObject(ended.Get(), 0) == WAIT_OBJECT_0) {
                return Owned();
            }
            const bool areAllThere = Refill();
            std::array<HANDLE, 1 + waitingInstances> awaited = {ended.Get()};
            std::array<std::size_t, 1 + waitingInstances> places = {};
            DWORD count = 1;
            for (std::size_t place = 0; place < instances.size(); ++place) {
                if (instances[place]->pipe) {
                    places[count] = place;
                    awaited[count++] = instances[place]->connected.Get();
                }
            }
            const DWORD longest = areAllThere ? INFINITE : resourcePauseMilliseconds;
            const DWORD result =
                WaitForMultipleObjects(count, awaited.data(), FALSE, std::min(MillisecondsUntil(deadline), longest));
            if (result == WAIT_TIMEOUT && Clock::now() >= deadline) {
                return Owned();
            }
            if (result > WAIT_OBJECT_0 && result < WAIT_OBJECT_0 + count) {
                const auto connected = instances.begin() + static_cast<std::ptrdiff_t>(places[result - WAIT_OBJECT_0]);
                Owned pipe((*connected)->pipe.Take());
                // Its successor is the last to be looked at, so that no client waits for ever.
                std::rotate(connected, connected + 1, instances.end());
                Refill();
                return pipe;
            }
        }
    }

    /// Any thread.
    void End() {
        SetEvent(ended.Get());
        const std::lock_guard inUse(use);
        WithdrawPipePath(name, path);
        for (std::unique_ptr<Instance>& instance : instances) {
            if (instance && !instance->Close()) {
                static_cast<void>(instance.release());  // the system may still write there
            }
        }
        lock.Close();
    }

  private:
    struct Instance {
        Owned pipe;
        Owned connected = MakeEvent();
        OVERLAPPED operation = {};

        // A client that has come and gone before it was awaited leaves nothing to await.
        void Await() {
            ResetEvent(connected.Get());
            operation = {};
            operation.hEvent = connected.Get();
            if (ConnectNamedPipe(pipe.Get(), &operation) != FALSE || GetLastError() == ERROR_PIPE_CONNECTED) {
                SetEvent(connected.Get());
            } else if (GetLastError() != ERROR_IO_PENDING) {
                pipe.Close();
            }
        }

        /// False when it cannot be taken back.
        bool Close() {
            const bool isOver = !pipe || CancelIoEx(pipe.Get(), &operation) == FALSE ||
                                WaitForSingleObject(connected.Get(), longestCancelMilliseconds) == WAIT_OBJECT_0;
            pipe.Close();
            return isOver;
        }
    };

    Owned MakePipe(DWORD flags) {
        return Owned(CreateNamedPipeA(path.c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED | flags,
                                      PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_REJECT_REMOTE_CLIENTS,
                                      PIPE_UNLIMITED_INSTANCES, bufferBytes, bufferBytes, 0, access.Get()));
    }

    // False when there is no room for all of them. REQUIRES: use, or nobody else.
    bool Refill() {
        bool areAllThere = true;
        for (const std::unique_ptr<Instance>& instance : instances) {
            if (!instance->pipe) {
                instance->pipe = MakePipe(0);
                if (instance->pipe) {
                    instance->Await();
                }
                areAllThere = areAllThere && instance->pipe;
            }
        }
        return areAllThere;
    }

    const std::string name;
    const std::string path = NewPipePath();
    OwnUserAlone access;
    std::mutex use;
    Owned lock;  // while it listens, unless another user has the mutex
    const Owned ended;
    std::array<std::unique_ptr<Instance>, waitingInstances> instances;
};

template <class Kept>
Handle AsHandle(std::unique_ptr<Kept> kept) {
    return reinterpret_cast<Handle>(kept.release());
}

PipeEnd& EndOf(Handle handle) {
    return *reinterpret_cast<PipeEnd*>(handle);
}

Instances& InstancesOf(Handle handle) {
    return *reinterpret_cast<Instances*>(handle);
}

}  // namespace

// Memory

SharedMemory::SharedMemory(std::size_t wantedSize) : size(wantedSize) {
    const std::uint64_t wide = wantedSize;
    Owned section(CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, static_cast<DWORD>(wide >> 32),
                                     static_cast<DWORD>(wide), nullptr));
    if (!section) {
        Throw("memory for a frame cannot be made");
    }
    void* const mapped = MapViewOfFile(section.Get(), FILE_MAP_WRITE, 0, 0, size);
    if (mapped == nullptr) {
        Throw("memory for a frame cannot be mapped");
    }
    data = static_cast<std::uint8_t*>(mapped);
    handle = reinterpret_cast<Handle>(section.Take());
}

SharedMemory::~SharedMemory() {
    if (data != nullptr) {
        UnmapViewOfFile(data);
        CloseHandle(reinterpret_cast<HANDLE>(handle));
    }
}

PeerMemory::~PeerMemory() {
    if (data != nullptr) {
        UnmapViewOfFile(data);
    }
}

// Connection

std::optional<Connection> Connection::Open(const std::string& name) {
    const std::string path = IsName(name) ? PublishedPipePath(name) : std::string();
    if (path.empty()) {
        return std::nullopt;
    }
    // Whoever listens may learn who this is, and not act in its name.
    Owned pipe(CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                           FILE_FLAG_OVERLAPPED | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr));
    if (!pipe && IsLackOfResources(GetLastError())) {
        Throw("no pipe");
    }
    // The owner of the pipe says who may be connected to beside the server's process.
    DWORD mode = PIPE_READMODE_MESSAGE;
    ULONG process = 0;
    if (!pipe || OwnerOf(pipe.Get()) != ThisUser() ||
        SetNamedPipeHandleState(pipe.Get(), &mode, nullptr, nullptr) == FALSE ||
        GetNamedPipeServerProcessId(pipe.Get(), &process) == FALSE) {
        return std::nullopt;
    }
    Owned peer = OpenPeer(process);
    if (!peer) {
        return std::nullopt;
    }
    return Connection(AsHandle(std::make_unique<PipeEnd>(std::move(pipe), std::move(peer))));
}

Connection::~Connection() {
    if (handle != -1) {
        delete &EndOf(handle);
    }
}

bool Connection::Send(std::span<const std::uint8_t> message, const SharedMemory* memory, Deadline deadline) {
    Envelope envelope;
    if (memory != nullptr) {
        envelope = {static_cast<std::uint64_t>(memory->handle), memory->size};
    }
    const auto* const start = reinterpret_cast<const std::uint8_t*>(&envelope);
    std::vector<std::uint8_t> bytes(start, start + sizeof envelope);
    bytes.insert(bytes.end(), message.begin(), message.end());
    return EndOf(handle).Write(bytes, deadline);
}

bool Connection::Receive(std::vector<std::uint8_t>& message, std::size_t longest, std::optional<PeerMemory>& memory,
                         std::uint64_t mostMemory, Deadline deadline) {
    memory.reset();
    message.resize(sizeof(Envelope) + longest);
    // An empty message is none that anybody sends.
    if (!EndOf(handle).Read(message, deadline) || message.size() <= sizeof(Envelope)) {
        return false;
    }
    Envelope envelope;
    std::memcpy(&envelope, message.data(), sizeof envelope);
    message.erase(message.begin(), message.begin() + sizeof envelope);
    if (envelope.memory != 0) {
        const Owned section = EndOf(handle).TakeHandle(envelope.memory);
        const auto mapped = section ? MapForReading(section.Get(), envelope.memoryBytes, mostMemory) : std::nullopt;
        if (!mapped) {
            return false;
        }
        memory = PeerMemory(mapped->data(), mapped->size());
    }
    return true;
}

bool Connection::PeerIsThere() const {
    return EndOf(handle).IsConnected();
}

void Connection::Shutdown() {
    EndOf(handle).End();
}

// Listener

std::optional<Listener> Listener::Open(const std::string& name) {
    if (!IsName(name)) {
        Throw("no name for a server", ERROR_INVALID_NAME);
    }
    OwnUserAlone access;
    Owned lock(CreateMutexA(access.Get(), FALSE, MutexName(name).c_str()));
    const DWORD mutexError = GetLastError();
    const bool isTaken = lock ? mutexError == ERROR_ALREADY_EXISTS : mutexError == ERROR_ACCESS_DENIED;
    if (!lock && !isTaken) {
        Throw("the name cannot be taken", mutexError);
    }
    if (isTaken) {
        // Another user's mutex keeps nobody from listening. What this user's server would have locked is then told by
        // its pipe.
        const bool isOwn = lock && OwnerOf(lock.Get()) == ThisUser();
        if (isOwn || Connection::Open(name)) {
            return std::nullopt;
        }
        lock.Close();
    }
    return Listener(AsHandle(std::make_unique<Instances>(name, std::move(lock))));
}

Listener::~Listener() {
    if (handle != -1) {
        delete &InstancesOf(handle);
    }
}

// Handles do not run out before memory does, and then a client cannot be sent anything either.
std::optional<Connection> Listener::Accept(Deadline deadline, std::span<const std::uint8_t>) {
    while (Owned pipe = InstancesOf(handle).Next(deadline)) {
        ULONG process = 0;
        if (GetNamedPipeClientProcessId(pipe.Get(), &process) != FALSE) {
            if (Owned peer = OpenPeer(process)) {
                try {
                    return Connection(AsHandle(std::make_unique<PipeEnd>(std::move(pipe), std::move(peer))));
                } catch (const std::exception&) {
                    // For this one nothing is left; there may be for the next.
                    Sleep(resourcePauseMilliseconds);
                }
            }
        }
    }
    return std::nullopt;
}

void Listener::Shutdown() {
    InstancesOf(handle).End();
}

}  // namespace transport
