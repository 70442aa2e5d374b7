// A program that listens under the recognition server's name and answers garbage to everything, until nobody has been
// there for a while.

#include <random>
#include <thread>
#include <vector>

#include "tools/wire/local_connection.h"
#include "tools/wire/messages.h"

int main() {
    using namespace std::chrono_literals;
    std::optional<wire::Listener> listener;
    while (!(listener = wire::Listener::Open(wire::ServerName()))) {
        std::this_thread::sleep_for(1ms);
    }
    std::minstd_rand random(5);
    std::vector<std::uint8_t> bytes;
    while (std::optional<wire::Connection> connection = listener->Accept(wire::Clock::now() + 30s)) {
        std::optional<wire::PeerMemory> memory;
        while (connection->Receive(bytes, wire::largestMessageBytes, memory, wire::largestPictureBytes,
                                   wire::Clock::now() + 1s)) {
            bytes.resize(1 + random() % 400);
            for (std::uint8_t& byte : bytes) {
                byte = static_cast<std::uint8_t>(random() >> 8);
            }
            if (!connection->Send(bytes, nullptr, wire::Clock::now() + 1s)) {
                break;
            }
        }
    }
    return 0;
}
