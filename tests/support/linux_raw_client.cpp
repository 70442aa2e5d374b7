#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "reference/transport/linux_folders.h"
#include "tests/support/raw_client.h"

namespace test_support {

namespace {

constexpr int longestWaitMilliseconds = 60'000;

int Descriptor(Piece piece) {
    return static_cast<int>(piece);
}

int MemoryFile(std::int64_t size, int seals, bool canBeSealed = true) {
    const int file = ::memfd_create("test", MFD_CLOEXEC | (canBeSealed ? MFD_ALLOW_SEALING : 0));
    if (file < 0 || ::ftruncate(file, size) != 0 || (seals != 0 && ::fcntl(file, F_ADD_SEALS, seals) != 0)) {
        throw std::runtime_error("no memory for the test");
    }
    return file;
}

bool IsReadable(int socket) {
    pollfd polled = {socket, POLLIN, 0};
    return ::poll(&polled, 1, longestWaitMilliseconds) == 1;
}

}  // namespace

RawClient::RawClient(const std::string& name) : connection_(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
    const bool isConnected = transport::VisitFolders([&](int folder) {
        const auto address = transport::SocketAddress::Of(folder, name);
        return address && ::connect(Descriptor(connection_), address->Get(), address->Size()) == 0;
    });
    if (!isConnected) {
        ::close(Descriptor(connection_));
        throw std::runtime_error("nobody listens under " + name);
    }
}

RawClient::~RawClient() {
    ::close(Descriptor(connection_));
}

bool RawClient::Send(std::span<const std::uint8_t> message, const std::vector<Piece>& pieces) {
    const std::vector<int> files(pieces.begin(), pieces.end());
    iovec bytes = {const_cast<std::uint8_t*>(message.data()), message.size()};
    msghdr header = {};
    header.msg_iov = &bytes;
    header.msg_iovlen = 1;
    std::vector<char> control(CMSG_SPACE(files.size() * sizeof(int)));
    if (!files.empty()) {
        cmsghdr part = {};
        part.cmsg_level = SOL_SOCKET;
        part.cmsg_type = SCM_RIGHTS;
        part.cmsg_len = CMSG_LEN(files.size() * sizeof(int));
        std::memcpy(control.data(), &part, sizeof part);
        std::memcpy(control.data() + CMSG_LEN(0), files.data(), files.size() * sizeof(int));
        header.msg_control = control.data();
        header.msg_controllen = control.size();
    }
    return ::sendmsg(Descriptor(connection_), &header, MSG_NOSIGNAL) >= 0;
}

std::vector<std::uint8_t> RawClient::Receive() {
    std::vector<std::uint8_t> message(4096);
    const ssize_t size =
        IsReadable(Descriptor(connection_)) ? ::recv(Descriptor(connection_), message.data(), message.size(), 0) : 0;
    message.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    return message;
}

bool RawClient::IsDropped() {
    // What it still has to say comes first.
    std::uint8_t bytes[4096];
    while (IsReadable(Descriptor(connection_))) {
        if (::recv(Descriptor(connection_), bytes, sizeof bytes, 0) <= 0) {
            return true;
        }
    }
    return false;
}

OwnPiece::~OwnPiece() {
    if (piece_ >= 0) {
        ::close(Descriptor(piece_));
    }
}

OwnPiece MakeMemory(std::int64_t size) {
    return OwnPiece(MemoryFile(size, F_SEAL_SHRINK | F_SEAL_GROW));
}

std::vector<WrongPiece> MakeWrongPieces() {
    constexpr std::int64_t size = 5000;
    constexpr int fixedSize = F_SEAL_SHRINK | F_SEAL_GROW;
    int pipe[2] = {};
    if (::pipe2(pipe, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe for the test");
    }
    ::close(pipe[1]);
    std::vector<WrongPiece> made;
    const auto add = [&made](const char* what, int file) { made.push_back({what, OwnPiece(file)}); };
    add("unsealed memory", MemoryFile(size, 0));
    add("memory that can shrink", MemoryFile(size, F_SEAL_GROW));
    add("memory that can grow", MemoryFile(size, F_SEAL_SHRINK));
    add("memory that cannot be sealed", MemoryFile(size, 0, false));
    add("empty memory", MemoryFile(0, fixedSize));
    add("huge memory", MemoryFile(std::int64_t{1} << 40, fixedSize));
    add("a device", ::open("/dev/zero", O_RDWR | O_CLOEXEC));
    add("a file", ::open("/proc/self/exe", O_RDONLY | O_CLOEXEC));
    add("a folder", ::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    add("a pipe", pipe[0]);
    add("a socket", ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    return made;
}

}  // namespace test_support
