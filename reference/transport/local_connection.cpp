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
    constexpr std::size_t longestSuffix = 64;
    std::string name = "reading";
    const char* const suffix = std::getenv("VEXLANE_READING_SOCKET");
    if (suffix != nullptr && *suffix != '\0') {
        name += '-';
        name.append(suffix, ::strnlen(suffix, longestSuffix));
        // Both are separators in paths of files or of system objects.
        std::replace_if(
            name.begin(), name.end(), [](char letter) { return letter == '/' || letter == '\\'; }, '_');
    }
    return name;
}

bool Connection::ReceiveAll(std::vector<std::uint8_t>& bytes, std::size_t size, Deadline deadline) {
    std::size_t received = 0;
    do {
        const std::size_t room = std::min(size - received, largestPiece);
        if (bytes.size() < received + room) {
            bytes.resize(std::min(size, std::max(2 * received, received + room)));
        }
        const std::size_t piece = Receive(std::span(bytes).subspan(received, room), deadline);
        if (piece == 0) {
            return false;
        }
        received += piece;
    } while (received < size && Clock::now() < deadline);
    return received == size;
}

}  // namespace transport
