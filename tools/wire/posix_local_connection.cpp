// Sockets of whole messages in Linux's abstract namespace, where a name goes with its socket, and memory files without
// a name.

#include <errno.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <thread>
#include <utility>

#include "tools/wire/local_connection.h"

namespace wire {

namespace {

constexpr std::size_t longestSuffix = 64;
constexpr int waitingConnections = 256;
constexpr std::chrono::milliseconds resourcePause{20};
// Descriptors that one message can bring, so that they are all seen and closed; the system itself closes any others.
constexpr std::size_t roomForDescriptors = 8;
constexpr int wantedSeals = F_SEAL_SHRINK | F_SEAL_GROW;

int Descriptor(Handle handle) {
    return static_cast<int>(handle);
}

void Close(Handle& handle) {
    if (handle >= 0) {
        ::close(Descriptor(handle));
        handle = -1;
    }
}

/// A descriptor until somebody takes it.
class Owned {
  public:
    explicit Owned(int opened) : handle(opened) {}
    Owned(Owned&& other) noexcept : handle(other.Take()) {}
    Owned& operator=(Owned&&) = delete;
    ~Owned() { Close(handle); }

    int Get() const { return Descriptor(handle); }
    Handle Take() { return std::exchange(handle, -1); }
    void Reset(int opened) {
        Close(handle);
        handle = opened;
    }

  private:
    Handle handle;
};

[[noreturn]] void Throw(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// Waits until a descriptor is ready, has failed or is at its end; false at the deadline.
bool WaitFor(int descriptor, short events, Deadline deadline, short* seen = nullptr) {
    for (;;) {
        int timeout = -1;
        if (deadline != noDeadline) {
            const Deadline now = Clock::now();
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(std::max(deadline, now) - now).count();
            timeout = static_cast<int>(std::min<std::int64_t>(left, INT_MAX));
        }
        pollfd polled = {descriptor, events, 0};
        const int count = ::poll(&polled, 1, timeout);
        if (count > 0) {
            if (seen != nullptr) {
                *seen = polled.revents;
            }
            return true;
        }
        if (count < 0 && errno != EINTR) {
            return false;
        }
        if (count == 0 && Clock::now() >= deadline) {
            return false;
        }
    }
}

struct Address {
    sockaddr_un address = {};
    socklen_t size = 0;

    const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&address); }
};

// The first byte, NUL, stands for the namespace without files.
std::optional<Address> MakeAddress(const std::string& name) {
    Address made;
    if (name.empty() || name.size() > sizeof made.address.sun_path - 1) {
        return std::nullopt;
    }
    made.address.sun_family = AF_UNIX;
    std::copy(name.begin(), name.end(), made.address.sun_path + 1);
    made.size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    return made;
}

// Throws std::system_error.
Owned OpenSocket() {
    Owned socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (socket.Get() < 0) {
        Throw("no socket");
    }
    return socket;
}

bool PeerIsThisUser(int socket) {
    ucred peer = {};
    socklen_t size = sizeof peer;
    return ::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == ::geteuid();
}

bool IsLackOfResources(int error) {
    return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

/// A socket that listens, and a descriptor in reserve.
class ListeningSocket {
  public:
    explicit ListeningSocket(Owned listening) : socket(std::move(listening)) { KeepReserve(); }

    int Get() const { return socket.Get(); }

    /// The next client, which must be waiting; none is -1, and errno says why.
    Owned Accept() {
        Owned accepted(::accept4(Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (accepted.Get() >= 0) {
            KeepReserve();
        }
        return accepted;
    }

    /// Sends one waiting client `message` and closes it, with the descriptor in reserve. False when there is none in
    /// reserve either.
    bool Refuse(std::span<const std::uint8_t> message) {
        reserve.Reset(-1);
        Owned refused(::accept4(Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        const bool isThere = refused.Get() >= 0;
        if (isThere && !message.empty() && PeerIsThisUser(refused.Get())) {
            ::send(refused.Get(), message.data(), message.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        }
        refused.Reset(-1);
        KeepReserve();
        return isThere;
    }

  private:
    void KeepReserve() {
        if (reserve.Get() < 0) {
            reserve.Reset(::fcntl(Get(), F_DUPFD_CLOEXEC, 0));
        }
    }

    const Owned socket;
    Owned reserve{-1};
};

ListeningSocket& ListeningOf(Handle handle) {
    return *reinterpret_cast<ListeningSocket*>(handle);
}

// Nothing for a file that is no memory, or whose size can change or is not to be taken.
std::optional<std::span<const std::uint8_t>> MapForReading(int file, std::uint64_t most) {
    const int seals = ::fcntl(file, F_GET_SEALS);
    if (seals < 0 || (seals & wantedSeals) != wantedSeals) {
        return std::nullopt;
    }
    // Large pages may be refused when they are first read.
    struct statfs system = {};
    if (::fstatfs(file, &system) != 0 || system.f_type != TMPFS_MAGIC) {
        return std::nullopt;
    }
    struct stat status = {};
    if (::fstat(file, &status) != 0 || status.st_size <= 0 || static_cast<std::uint64_t>(status.st_size) > most) {
        return std::nullopt;
    }
    const auto size = static_cast<std::size_t>(status.st_size);
    void* const mapped = ::mmap(nullptr, size, PROT_READ, MAP_SHARED, file, 0);
    if (mapped == MAP_FAILED) {
        return std::nullopt;
    }
    return std::span(static_cast<const std::uint8_t*>(mapped), size);
}

union ControlBuffer {
    cmsghdr alignment;
    std::array<char, CMSG_SPACE(roomForDescriptors * sizeof(int))> bytes;
};

/// The descriptors of a received message; closes them.
class ReceivedDescriptors {
  public:
    explicit ReceivedDescriptors(msghdr& message) {
        for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part)) {
            if (part->cmsg_level == SOL_SOCKET && part->cmsg_type == SCM_RIGHTS) {
                const std::size_t bytes = part->cmsg_len - CMSG_LEN(0);
                for (std::size_t at = 0; at + sizeof(int) <= bytes && count < descriptors.size(); at += sizeof(int)) {
                    std::memcpy(&descriptors[count++], CMSG_DATA(part) + at, sizeof(int));
                }
            }
        }
    }
    ~ReceivedDescriptors() {
        for (std::size_t index = 0; index < count; ++index) {
            ::close(descriptors[index]);
        }
    }
    ReceivedDescriptors(const ReceivedDescriptors&) = delete;
    ReceivedDescriptors& operator=(const ReceivedDescriptors&) = delete;

    std::size_t Count() const { return count; }
    int First() const { return descriptors[0]; }

  private:
    std::array<int, roomForDescriptors> descriptors = {};
    std::size_t count = 0;
};

}  // namespace

std::string ServerName() {
    std::string name = "vexlane-reading-" + std::to_string(::geteuid());
    const char* const suffix = std::getenv("VEXLANE_READING_SOCKET");
    if (suffix != nullptr && *suffix != '\0') {
        name += '-';
        name.append(suffix, ::strnlen(suffix, longestSuffix));
    }
    return name;
}

// Memory

SharedMemory::SharedMemory(std::size_t wantedSize) : size(wantedSize) {
    Owned file(::memfd_create("vexlane-frame", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (file.Get() < 0) {
        Throw("memory for a frame cannot be made");
    }
    // The size is final before anybody else sees the memory.
    if (::ftruncate(file.Get(), static_cast<off_t>(size)) != 0 ||
        ::fcntl(file.Get(), F_ADD_SEALS, wantedSeals | F_SEAL_SEAL) != 0) {
        Throw("memory for a frame cannot be given its size");
    }
    void* const mapped = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file.Get(), 0);
    if (mapped == MAP_FAILED) {
        Throw("memory for a frame cannot be mapped");
    }
    data = static_cast<std::uint8_t*>(mapped);
    handle = file.Take();
}

SharedMemory::~SharedMemory() {
    if (data != nullptr) {
        ::munmap(data, size);
    }
    Close(handle);
}

PeerMemory::~PeerMemory() {
    if (data != nullptr) {
        ::munmap(const_cast<std::uint8_t*>(data), size);
    }
}

// Connection

std::optional<Connection> Connection::Open(const std::string& name) {
    const std::optional<Address> address = MakeAddress(name);
    if (!address) {
        return std::nullopt;
    }
    Owned socket = OpenSocket();
    if (::connect(socket.Get(), address->Get(), address->size) != 0 || !PeerIsThisUser(socket.Get())) {
        return std::nullopt;
    }
    return Connection(socket.Take());
}

Connection::~Connection() {
    Close(handle);
}

bool Connection::Send(std::span<const std::uint8_t> message, const SharedMemory* memory, Deadline deadline) {
    iovec bytes = {const_cast<std::uint8_t*>(message.data()), message.size()};
    ControlBuffer control = {};
    msghdr header = {};
    header.msg_iov = &bytes;
    header.msg_iovlen = 1;
    if (memory != nullptr) {
        const int file = Descriptor(memory->handle);
        header.msg_control = control.bytes.data();
        header.msg_controllen = CMSG_SPACE(sizeof file);
        cmsghdr* const part = CMSG_FIRSTHDR(&header);
        part->cmsg_level = SOL_SOCKET;
        part->cmsg_type = SCM_RIGHTS;
        part->cmsg_len = CMSG_LEN(sizeof file);
        std::memcpy(CMSG_DATA(part), &file, sizeof file);
    }
    for (;;) {
        const ssize_t sent = ::sendmsg(Descriptor(handle), &header, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent >= 0) {
            return static_cast<std::size_t>(sent) == message.size();
        }
        if (errno == EAGAIN) {
            if (!WaitFor(Descriptor(handle), POLLOUT, deadline)) {
                return false;
            }
        } else if (errno != EINTR) {
            return false;
        }
    }
}

bool Connection::Receive(std::vector<std::uint8_t>& message, std::size_t longest, std::optional<PeerMemory>& memory,
                         std::uint64_t mostMemory, Deadline deadline) {
    memory.reset();
    message.resize(longest);
    iovec bytes = {message.data(), message.size()};
    for (;;) {
        ControlBuffer control = {};
        msghdr header = {};
        header.msg_iov = &bytes;
        header.msg_iovlen = 1;
        header.msg_control = control.bytes.data();
        header.msg_controllen = control.bytes.size();
        const ssize_t received = ::recvmsg(Descriptor(handle), &header, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
        if (received < 0 && errno == EAGAIN) {
            if (!WaitFor(Descriptor(handle), POLLIN, deadline)) {
                return false;
            }
            continue;
        }
        // A peer that has gone without taking what it was sent is told of first, once; what it has sent comes after.
        if (received < 0 && (errno == EINTR || errno == ECONNRESET)) {
            continue;
        }
        if (received < 0) {
            return false;
        }
        const ReceivedDescriptors descriptors(header);
        // An empty message looks like the end, and is none that anybody sends.
        if (received == 0 || (header.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) != 0 || descriptors.Count() > 1) {
            return false;
        }
        if (descriptors.Count() == 1) {
            const auto mapped = MapForReading(descriptors.First(), mostMemory);
            if (!mapped) {
                return false;
            }
            memory = PeerMemory(mapped->data(), mapped->size());
        }
        message.resize(static_cast<std::size_t>(received));
        return true;
    }
}

bool Connection::PeerIsThere() const {
    pollfd polled = {Descriptor(handle), POLLRDHUP, 0};
    return ::poll(&polled, 1, 0) == 0;
}

void Connection::Shutdown() {
    ::shutdown(Descriptor(handle), SHUT_RDWR);
}

// Listener

std::optional<Listener> Listener::Open(const std::string& name) {
    const std::optional<Address> address = MakeAddress(name);
    if (!address) {
        throw std::system_error(ENAMETOOLONG, std::generic_category(), name);
    }
    Owned socket = OpenSocket();
    if (::bind(socket.Get(), address->Get(), address->size) != 0) {
        if (errno == EADDRINUSE) {
            return std::nullopt;
        }
        Throw("the name cannot be taken");
    }
    if (::listen(socket.Get(), waitingConnections) != 0) {
        Throw("nobody can be listened to");
    }
    return Listener(reinterpret_cast<Handle>(new ListeningSocket(std::move(socket))));
}

Listener::~Listener() {
    if (handle != -1) {
        delete &ListeningOf(handle);
    }
}

std::optional<Connection> Listener::Accept(Deadline deadline, std::span<const std::uint8_t> refusal) {
    ListeningSocket& listening = ListeningOf(handle);
    for (;;) {
        short seen = 0;
        if (!WaitFor(listening.Get(), POLLIN, deadline, &seen) || (seen & (POLLHUP | POLLERR | POLLNVAL)) != 0) {
            return std::nullopt;
        }
        Owned socket = listening.Accept();
        if (socket.Get() >= 0) {
            if (PeerIsThisUser(socket.Get())) {
                return Connection(socket.Take());
            }
        } else if (IsLackOfResources(errno)) {
            if (!listening.Refuse(refusal)) {
                // The client goes on waiting until something has been given back.
                std::this_thread::sleep_for(resourcePause);
            }
            if (Clock::now() >= deadline) {
                return std::nullopt;
            }
        }
    }
}

void Listener::Shutdown() {
    ::shutdown(ListeningOf(handle).Get(), SHUT_RDWR);
}

}  // namespace wire
