// The part that is the same on every system.

#include "reference/transport/local_connection.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace transport {

int MillisecondsUntil(Deadline deadline) {
    if (deadline == noDeadline) {
        return -1;
    }
    const Deadline now = Clock::now();
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(std::max(deadline, now) - now).count();
    return static_cast<int>(std::min<std::int64_t>(left, INT_MAX));
}

std::string ServerName() {
    constexpr std::size_t maxSuffixLength = 64;
    std::string name = "reading";
    const char* const suffix = std::getenv("VEXLANE_READING_SOCKET");
    if (suffix != nullptr && *suffix != '\0') {
        name += '-';
        name.append(suffix, ::strnlen(suffix, maxSuffixLength));
        // Both are separators in paths of files or of system objects.
        std::replace_if(
            name.begin(), name.end(), [](char letter) { return letter == '/' || letter == '\\'; }, '_');
    }
    return name;
}

bool Connection::ReceiveAll(std::vector<std::uint8_t>& bytes, std::size_t size, Deadline deadline) {
    std::size_t received = 0;
    do {
        const std::size_t space = std::min(size - received, maxPacketBytes);
        if (bytes.size() < received + space) {
            bytes.resize(std::min(size, std::max(2 * received, received + space)));
        }
        const std::size_t packet = Receive(std::span(bytes).subspan(received, space), deadline);
        if (packet == 0) {
            return false;
        }
        received += packet;
    } while (received < size && Clock::now() < deadline);
    return received == size;
}

}  // namespace transport
