// Sockets of whole messages in folders that only the user can enter, and memory files without a name.

#include <errno.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <memory>
#include <system_error>
#include <thread>
#include <utility>

#include "reference/transport/linux_descriptor.h"
#include "reference/transport/linux_folders.h"
#include "reference/transport/local_connection.h"

namespace transport {

namespace {

constexpr int waitingConnections = 256;
constexpr std::chrono::milliseconds resourcePause{20};
// Descriptors that one message can bring, so that they are all seen and closed; the system itself closes any others.
constexpr std::size_t roomForDescriptors = 8;
constexpr int wantedSeals = F_SEAL_SHRINK | F_SEAL_GROW;

int Descriptor(Handle handle) {
    return static_cast<int>(handle);
}

[[noreturn]] void Throw(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// Waits until one of the descriptors is ready, has failed or is at its end; false at the deadline.
bool WaitForAny(std::span<pollfd> polled, Deadline deadline) {
    for (;;) {
        int timeout = -1;
        if (deadline != noDeadline) {
            const Deadline now = Clock::now();
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(std::max(deadline, now) - now).count();
            timeout = static_cast<int>(std::min<std::int64_t>(left, INT_MAX));
        }
        const int count = ::poll(polled.data(), polled.size(), timeout);
        if (count > 0) {
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

bool WaitFor(int descriptor, short events, Deadline deadline) {
    pollfd polled = {descriptor, events, 0};
    return WaitForAny({&polled, 1}, deadline);
}

// Throws std::system_error.
Owned OpenSocket() {
    Owned socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket.IsOpen()) {
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

// Where nobody can be connected to, a server that was killed has left the socket.
bool IsListeningAt(const SocketAddress& address) {
    const Owned probe = OpenSocket();
    return ::connect(probe.Get(), address.Get(), address.Size()) == 0 || errno == EAGAIN;
}

/// What keeps a name in a folder for one process: a lock on a file beside the socket, which goes with the process.
class NameLock {
  public:
    /// Nothing when another one has it. Throws std::system_error.
    static std::optional<NameLock> Take(int folder, const std::string& name) {
        const std::string fileName = '.' + name;
        for (;;) {
            Owned file(
                ::openat(folder, fileName.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
            if (!file.IsOpen()) {
                Throw("no lock for the socket's name");
            }
            if (::flock(file.Get(), LOCK_EX | LOCK_NB) != 0) {
                return std::nullopt;
            }
            // The one who had it may have removed the file since it was opened here.
            struct stat held = {};
            struct stat named = {};
            if (::fstat(file.Get(), &held) == 0 &&
                ::fstatat(folder, fileName.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 && held.st_ino == named.st_ino &&
                held.st_dev == named.st_dev) {
                return NameLock(folder, fileName, std::move(file));
            }
        }
    }

    NameLock(NameLock&&) noexcept = default;
    NameLock& operator=(NameLock&&) = delete;
    ~NameLock() {
        if (file.IsOpen()) {
            ::unlinkat(folder, fileName.c_str(), 0);
        }
    }

  private:
    NameLock(int itsFolder, std::string itsName, Owned locked)
        : folder(itsFolder), fileName(std::move(itsName)), file(std::move(locked)) {}

    int folder;
    std::string fileName;
    Owned file;
};

/// A socket that listens under a name in one folder, and a descriptor in reserve. The name goes with it.
class ListeningSocket {
  public:
    /// Null when another process listens there. Throws std::system_error.
    static std::unique_ptr<ListeningSocket> Open(Owned folder, const std::string& name) {
        const std::optional<SocketAddress> address = SocketAddress::Of(folder.Get(), name);
        if (!address) {
            throw std::system_error(EINVAL, std::generic_category(), "no name for a socket: " + name);
        }
        std::optional<NameLock> lock = NameLock::Take(folder.Get(), name);
        // The lock's file alone does not tell: somebody may clear up in the folder.
        if (!lock || IsListeningAt(*address)) {
            return nullptr;
        }
        Owned socket = OpenSocket();
        ::unlinkat(folder.Get(), name.c_str(), 0);
        if (::bind(socket.Get(), address->Get(), address->Size()) != 0) {
            Throw("the socket's name cannot be taken");
        }
        std::unique_ptr<ListeningSocket> made(
            new ListeningSocket(std::move(folder), name, std::move(*lock), std::move(socket)));
        if (::listen(made->Get(), waitingConnections) != 0) {
            Throw("nobody can be listened to");
        }
        return made;
    }

    ~ListeningSocket() { ::unlinkat(folder.Get(), name.c_str(), 0); }
    ListeningSocket(const ListeningSocket&) = delete;
    ListeningSocket& operator=(const ListeningSocket&) = delete;

    int Get() const { return socket.Get(); }

    /// The next client, which must be waiting; where there is none, errno says why.
    Owned Accept() {
        Owned accepted(::accept4(Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (accepted.IsOpen()) {
            KeepReserve();
        }
        return accepted;
    }

    /// Sends one waiting client `message` and closes it, with the descriptor in reserve. False when there is none in
    /// reserve either.
    bool Refuse(std::span<const std::uint8_t> message) {
        reserve.Close();
        Owned refused(::accept4(Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        const bool isThere = refused.IsOpen();
        if (isThere && !message.empty() && PeerIsThisUser(refused.Get())) {
            ::send(refused.Get(), message.data(), message.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        }
        refused.Close();
        KeepReserve();
        return isThere;
    }

  private:
    ListeningSocket(Owned itsFolder, std::string itsName, NameLock itsLock, Owned bound)
        : folder(std::move(itsFolder)), name(std::move(itsName)), lock(std::move(itsLock)), socket(std::move(bound)) {
        KeepReserve();
    }

    void KeepReserve() {
        if (!reserve.IsOpen()) {
            reserve = Owned(::fcntl(Get(), F_DUPFD_CLOEXEC, 0));
        }
    }

    const Owned folder;
    const std::string name;
    const NameLock lock;
    const Owned socket;
    Owned reserve;
};

/// One for each folder.
using ListeningSockets = std::vector<std::unique_ptr<ListeningSocket>>;

ListeningSockets& SocketsOf(Handle handle) {
    return *reinterpret_cast<ListeningSockets*>(handle);
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

// Memory

SharedMemory::SharedMemory(std::size_t wantedSize) : size(wantedSize) {
    Owned file(::memfd_create("vexlane-frame", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!file.IsOpen()) {
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
        ::close(Descriptor(handle));
    }
}

PeerMemory::~PeerMemory() {
    if (data != nullptr) {
        ::munmap(const_cast<std::uint8_t*>(data), size);
    }
}

// Connection

std::optional<Connection> Connection::Open(const std::string& name) {
    std::optional<Connection> made;
    VisitFolders([&](int folder) {
        if (const std::optional<SocketAddress> address = SocketAddress::Of(folder, name)) {
            Owned socket = OpenSocket();
            if (::connect(socket.Get(), address->Get(), address->Size()) == 0 && PeerIsThisUser(socket.Get())) {
                made = Connection(socket.Take());
            }
        }
        return made.has_value();
    });
    return made;
}

Connection::~Connection() {
    if (handle >= 0) {
        ::close(Descriptor(handle));
    }
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
    auto sockets = std::make_unique<ListeningSockets>();
    std::optional<std::system_error> failure;
    for (Owned& folder : MakeFolders()) {
        try {
            std::unique_ptr<ListeningSocket> socket = ListeningSocket::Open(std::move(folder), name);
            if (!socket) {
                return std::nullopt;
            }
            sockets->push_back(std::move(socket));
        } catch (const std::system_error& error) {
            failure = error;
        }
    }
    if (sockets->empty()) {
        throw std::system_error(*failure);
    }
    return Listener(reinterpret_cast<Handle>(sockets.release()));
}

Listener::~Listener() {
    if (handle != -1) {
        delete &SocketsOf(handle);
    }
}

std::optional<Connection> Listener::Accept(Deadline deadline, std::span<const std::uint8_t> refusal) {
    ListeningSockets& sockets = SocketsOf(handle);
    std::vector<pollfd> polled;
    for (const auto& socket : sockets) {
        polled.push_back({socket->Get(), POLLIN, 0});
    }
    while (WaitForAny(polled, deadline)) {
        for (std::size_t index = 0; index < sockets.size(); ++index) {
            const short seen = polled[index].revents;
            if ((seen & (POLLHUP | POLLERR | POLLNVAL)) != 0) {
                return std::nullopt;
            }
            if (seen == 0) {
                continue;
            }
            Owned accepted = sockets[index]->Accept();
            if (accepted.IsOpen()) {
                if (PeerIsThisUser(accepted.Get())) {
                    return Connection(accepted.Take());
                }
            } else if (IsLackOfResources(errno)) {
                if (!sockets[index]->Refuse(refusal)) {
                    // The client goes on waiting until something has been given back.
                    std::this_thread::sleep_for(resourcePause);
                }
                if (Clock::now() >= deadline) {
                    return std::nullopt;
                }
            }
        }
    }
    return std::nullopt;
}

void Listener::Shutdown() {
    for (const auto& socket : SocketsOf(handle)) {
        ::shutdown(socket->Get(), SHUT_RDWR);
    }
}

}  // namespace transport
