// Packet sockets in folders that only the user can enter.

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <system_error>
#include <thread>

#include "reference/transport/linux_folders.h"
#include "reference/transport/local_connection.h"

namespace transport {

namespace {

constexpr int listenBacklog = 256;
constexpr std::chrono::milliseconds resourceRetryInterval{20};
// Small enough that the kernel need not reclaim memory for it and that the peer reads one while the next is sent.
constexpr std::size_t maxSentBytes = 1 << 16;

[[noreturn]] void Throw(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// Waits until one of the descriptors is ready, has failed or is closed; returns false at the deadline.
bool WaitForAny(std::span<pollfd> polled, Deadline deadline) {
    for (;;) {
        const int count = ::poll(polled.data(), polled.size(), MillisecondsUntil(deadline));
        if (count > 0) {
            return true;
        }
        if ((count < 0 && errno != EINTR) || (count == 0 && Clock::now() >= deadline)) {
            return false;
        }
    }
}

// Sends or receives as soon as that is possible without blocking. Returns a negative number at the deadline.
template <class Transfer>
ssize_t TransferWhenReady(const Owned& socket, short event, Deadline deadline, Transfer transfer) {
    pollfd polled = {socket.Get(), event, 0};
    for (;;) {
        const ssize_t done = transfer();
        // If the peer has closed before it received everything, the first recv fails; later ones return what it sent.
        if (done < 0 && (errno == EINTR || (errno == ECONNRESET && event == POLLIN))) {
            continue;
        }
        if (done >= 0 || errno != EAGAIN || !WaitForAny({&polled, 1}, deadline)) {
            return done;
        }
    }
}

// Throws std::system_error.
Owned OpenSocket() {
    Owned socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket.IsOpen()) {
        Throw("cannot create a socket");
    }
    return socket;
}

bool PeerIsThisUser(const Owned& socket) {
    ucred peer = {};
    socklen_t size = sizeof peer;
    return ::getsockopt(socket.Get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == ::geteuid();
}

bool IsLackOfResources(int error) {
    return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

Owned AcceptFrom(int socket) {
    return Owned(::accept4(socket, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
}

bool IsConnected(const Owned& socket, const SocketAddress& address) {
    return ::connect(socket.Get(), address.Get(), address.Size()) == 0;
}

/// A socket that listens under a name in one folder. A lock on a file beside the socket reserves the name for one
/// process; the system releases it when the process ends. The destructor removes both files.
class ListeningSocket {
  public:
    ListeningSocket(Owned folder, std::string name) : folder_(std::move(folder)), name_(std::move(name)) {}
    ListeningSocket(ListeningSocket&&) noexcept = default;
    ListeningSocket& operator=(ListeningSocket&&) = delete;
    ~ListeningSocket() {
        Unlink(socket_, name_);
        Unlink(lock_, LockName());
    }

    int Get() const { return socket_.Get(); }

    /// Returns false when another process listens there. Throws std::system_error. Call once.
    bool Listen() {
        const std::optional<SocketAddress> address = SocketAddress::Of(folder_.Get(), name_);
        if (!address) {
            throw std::system_error(EINVAL, std::generic_category(), "invalid name for a socket: " + name_);
        }
        // The lock is not enough: its file may have been deleted in a clean-up of the folder.
        if (!TakeLock() || IsListeningAt(*address)) {
            return false;
        }
        Owned socket = OpenSocket();
        // A server that was killed leaves its socket behind.
        ::unlinkat(folder_.Get(), name_.c_str(), 0);
        if (::bind(socket.Get(), address->Get(), address->Size()) != 0) {
            Throw("cannot bind the socket");
        }
        socket_ = std::move(socket);
        if (::listen(Get(), listenBacklog) != 0) {
            Throw("cannot listen on the socket");
        }
        return true;
    }

  private:
    std::string LockName() const { return '.' + name_; }

    bool TakeLock() {
        for (;;) {
            Owned file(::openat(folder_.Get(), LockName().c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC,
                                S_IRUSR | S_IWUSR));
            if (!file.IsOpen()) {
                Throw("cannot open the socket's lock file");
            }
            if (::flock(file.Get(), LOCK_EX | LOCK_NB) != 0) {
                return false;
            }
            // The previous owner may have removed the file after it was opened here.
            struct stat held = {};
            struct stat named = {};
            if (::fstat(file.Get(), &held) == 0 &&
                ::fstatat(folder_.Get(), LockName().c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
                held.st_ino == named.st_ino && held.st_dev == named.st_dev) {
                lock_ = std::move(file);
                return true;
            }
        }
    }

    static bool IsListeningAt(const SocketAddress& address) {
        return IsConnected(OpenSocket(), address) || errno == EAGAIN;
    }

    void Unlink(const Owned& held, const std::string& name) const {
        if (held.IsOpen()) {
            ::unlinkat(folder_.Get(), name.c_str(), 0);
        }
    }

    Owned folder_;
    std::string name_;
    Owned lock_;
    Owned socket_;
};

}  // namespace

// Connection

struct Connection::System {
    explicit System(Owned connected) : socket(std::move(connected)) {}
    const Owned socket;
};

std::optional<Connection> Connection::Open(const std::string& name) {
    std::optional<Connection> made;
    VisitFolders([&](int folder) {
        if (const std::optional<SocketAddress> address = SocketAddress::Of(folder, name)) {
            Owned socket = OpenSocket();
            if (IsConnected(socket, *address) && PeerIsThisUser(socket)) {
                made = Connection(std::make_shared<System>(std::move(socket)));
            }
        }
        return made.has_value();
    });
    return made;
}

bool Connection::Send(std::span<const std::uint8_t> bytes, Deadline deadline) {
    const Owned& socket = system_->socket;
    do {
        const auto packet = bytes.first(std::min(bytes.size(), maxSentBytes));
        const ssize_t sent = TransferWhenReady(socket, POLLOUT, deadline, [&] {
            return ::send(socket.Get(), packet.data(), packet.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        });
        if (sent < 0) {
            return false;
        }
        bytes = bytes.subspan(packet.size());
    } while (!bytes.empty() && Clock::now() < deadline);
    return bytes.empty();
}

std::size_t Connection::Receive(std::span<std::uint8_t> buffer, Deadline deadline) {
    const Owned& socket = system_->socket;
    // The system closes descriptors that the peer sends along. An empty packet looks like the end.
    const ssize_t received = TransferWhenReady(socket, POLLIN, deadline, [&] {
        return ::recv(socket.Get(), buffer.data(), buffer.size(), MSG_DONTWAIT | MSG_TRUNC);
    });
    const auto size = static_cast<std::size_t>(std::max<ssize_t>(received, 0));
    return size <= buffer.size() ? size : 0;
}

bool Connection::IsPeerConnected() const {
    pollfd polled = {system_->socket.Get(), POLLRDHUP, 0};
    return ::poll(&polled, 1, 0) == 0;
}

void Connection::Shutdown() {
    ::shutdown(system_->socket.Get(), SHUT_RDWR);
}

// Listener

struct Listener::System {
    std::vector<ListeningSocket> sockets;  // one for each folder
    Owned reserve;                         // a descriptor for accepting a client that is refused

    void KeepReserve() {
        if (!reserve.IsOpen()) {
            reserve = Owned(::fcntl(sockets.front().Get(), F_DUPFD_CLOEXEC, 0));
        }
    }
};

std::optional<Listener> Listener::Open(const std::string& name) {
    auto system = std::make_shared<System>();
    std::optional<std::system_error> failure;
    for (Owned& folder : MakeFolders()) {
        try {
            ListeningSocket socket(std::move(folder), name);
            if (!socket.Listen()) {
                return std::nullopt;
            }
            system->sockets.push_back(std::move(socket));
        } catch (const std::system_error& error) {
            failure = error;
        }
    }
    if (system->sockets.empty()) {
        throw std::system_error(*failure);
    }
    return Listener(std::move(system));
}

std::optional<Connection> Listener::Accept(Deadline deadline, std::span<const std::uint8_t> refusal) {
    system_->KeepReserve();
    std::vector<pollfd> polled;
    for (const ListeningSocket& socket : system_->sockets) {
        polled.push_back({socket.Get(), POLLIN, 0});
    }
    while (WaitForAny(polled, deadline)) {
        for (const pollfd& one : polled) {
            if ((one.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0) {
                return std::nullopt;
            }
            if (one.revents == 0) {
                continue;
            }
            Owned client = AcceptFrom(one.fd);
            const bool lacksResources = !client.IsOpen() && IsLackOfResources(errno);
            if (lacksResources) {
                system_->reserve.Close();
                client = AcceptFrom(one.fd);
            }
            if (client.IsOpen() && PeerIsThisUser(client)) {
                Connection accepted(std::make_shared<Connection::System>(std::move(client)));
                if (!lacksResources) {
                    return accepted;
                }
                accepted.Send(refusal, Clock::now());
            } else if (lacksResources && !client.IsOpen()) {
                // The client stays in the queue until a resource is free.
                std::this_thread::sleep_for(resourceRetryInterval);
            }
            client.Close();
            system_->KeepReserve();
            if (lacksResources && Clock::now() >= deadline) {
                return std::nullopt;
            }
        }
    }
    return std::nullopt;
}

void Listener::Shutdown() {
    for (const ListeningSocket& socket : system_->sockets) {
        ::shutdown(socket.Get(), SHUT_RDWR);
    }
}

}  // namespace transport
