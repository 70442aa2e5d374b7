// A program that listens under the recognition server's name, responds to every message with garbage, and exits after
// 30 seconds without a connection.

#include <random>
#include <thread>
#include <vector>

#include "reference/transport/local_connection.h"
#include "reference/transport/messages.h"

int main() {
    using namespace std::chrono_literals;
    std::optional<transport::Listener> listener;
    while (!(listener = transport::Listener::Open(transport::ServerName()))) {
        std::this_thread::sleep_for(1ms);
    }
    std::minstd_rand random(5);
    std::vector<std::uint8_t> room(transport::maxPacketBytes);
    while (std::optional<transport::Connection> connection = listener->Accept(transport::Clock::now() + 30s)) {
        while (connection->Receive(room, transport::Clock::now() + 1s) != 0) {
            std::vector<std::uint8_t> bytes(1 + random() % 400);
            for (std::uint8_t& byte : bytes) {
                byte = static_cast<std::uint8_t>(random() >> 8);
            }
            if (!connection->Send(bytes, transport::Clock::now() + 1s)) {
                break;
            }
        }
    }
    return 0;
}
