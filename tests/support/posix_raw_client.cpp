#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "tests/support/raw_client.h"

namespace test_support {

namespace {

constexpr int longestWaitMilliseconds = 60'000;

bool IsReadable(int socket) {
    pollfd polled = {socket, POLLIN, 0};
    return ::poll(&polled, 1, longestWaitMilliseconds) == 1;
}

}  // namespace

const int fixedSize = F_SEAL_SHRINK | F_SEAL_GROW;

RawClient::RawClient(const std::string& name) : socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::copy(name.begin(), name.end(), address.sun_path + 1);
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), size) != 0) {
        ::close(socket);
        throw std::runtime_error("nobody listens under " + name);
    }
}

RawClient::~RawClient() {
    ::close(socket);
}

bool RawClient::Send(std::span<const std::uint8_t> message, const std::vector<int>& files) {
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
    return ::sendmsg(socket, &header, MSG_NOSIGNAL) >= 0;
}

std::vector<std::uint8_t> RawClient::Receive() {
    std::vector<std::uint8_t> message(4096);
    const ssize_t size = IsReadable(socket) ? ::recv(socket, message.data(), message.size(), 0) : 0;
    message.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    return message;
}

bool RawClient::IsDropped() {
    // What it still has to say comes first.
    std::uint8_t bytes[4096];
    while (IsReadable(socket)) {
        if (::recv(socket, bytes, sizeof bytes, 0) <= 0) {
            return true;
        }
    }
    return false;
}

int MemoryFile(std::int64_t size, int seals, bool canBeSealed) {
    const int file = ::memfd_create("test", MFD_CLOEXEC | (canBeSealed ? MFD_ALLOW_SEALING : 0));
    if (file < 0 || ::ftruncate(file, size) != 0 || (seals != 0 && ::fcntl(file, F_ADD_SEALS, seals) != 0)) {
        throw std::runtime_error("no memory for the test");
    }
    return file;
}

}  // namespace test_support
