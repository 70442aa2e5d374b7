// What is the same on every system: the server's name, and who holds memory and connections.

#include "reference/transport/local_connection.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace transport {

namespace {

constexpr std::size_t longestSuffix = 64;

}  // namespace

std::string ServerName() {
    std::string name = "reading";
    const char* const suffix = std::getenv("VEXLANE_READING_SOCKET");
    if (suffix != nullptr && *suffix != '\0') {
        name += '-';
        name.append(suffix, ::strnlen(suffix, longestSuffix));
        // What separates folders, of files or of other things, has no place in a name.
        std::replace_if(
            name.begin(), name.end(), [](char letter) { return letter == '/' || letter == '\\'; }, '_');
    }
    return name;
}

SharedMemory::SharedMemory(SharedMemory&& other) noexcept
    : data(std::exchange(other.data, nullptr)),
      size(std::exchange(other.size, 0)),
      handle(std::exchange(other.handle, -1)) {}

SharedMemory& SharedMemory::operator=(SharedMemory&& other) noexcept {
    std::swap(data, other.data);
    std::swap(size, other.size);
    std::swap(handle, other.handle);
    return *this;
}

PeerMemory::PeerMemory(PeerMemory&& other) noexcept
    : data(std::exchange(other.data, nullptr)), size(std::exchange(other.size, 0)) {}

PeerMemory& PeerMemory::operator=(PeerMemory&& other) noexcept {
    std::swap(data, other.data);
    std::swap(size, other.size);
    return *this;
}

Connection::Connection(Connection&& other) noexcept : handle(std::exchange(other.handle, -1)) {}

Connection& Connection::operator=(Connection&& other) noexcept {
    std::swap(handle, other.handle);
    return *this;
}

Listener::Listener(Listener&& other) noexcept : handle(std::exchange(other.handle, -1)) {}

Listener& Listener::operator=(Listener&& other) noexcept {
    std::swap(handle, other.handle);
    return *this;
}

}  // namespace transport
