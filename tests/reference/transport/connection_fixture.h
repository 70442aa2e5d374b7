/// Both sides of a connection in this process.
#pragma once

#include <gmock/gmock.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "reference/transport/local_connection.h"
#include "tests/support/descriptors.h"
#include "tests/support/runtime_folder.h"

namespace transport_test {

using namespace std::chrono_literals;
using namespace transport;
using Bytes = std::vector<std::uint8_t>;
using test_support::OpenDescriptors;

inline constexpr std::size_t maxPieceSize = 300;

inline const test_support::RuntimeFolder runtimeFolder;

inline Deadline In(std::chrono::milliseconds time) {
    return Clock::now() + time;
}

inline std::string RandomName() {
    std::random_device random;
    return "vexlane-test-" + std::to_string(random()) + "-" + std::to_string(random());
}

/// Returns the next piece, of at most `maxPieceSize` bytes; empty if there is none.
inline Bytes Next(Connection& connection, Deadline deadline = In(10s)) {
    Bytes piece(maxPieceSize);
    piece.resize(connection.Receive(piece, deadline));
    return piece;
}

class LocalConnection : public testing::Test {
  protected:
    LocalConnection() : client(Connection::Open(name)), server(listener->Accept(In(10s))) {}
    ~LocalConnection() override {
        Disconnect();
        if (mayBeKept == 0) {
            EXPECT_EQ(OpenDescriptors(), before) << "a descriptor was left open";
        } else {
            EXPECT_LE(OpenDescriptors().size(), before.size() + mayBeKept) << "descriptors were left open";
        }
    }

    void Disconnect() {
        client.reset();
        server.reset();
        listener.reset();
    }

    void Reconnect() {
        Disconnect();
        listener = Listener::Open(name);
        client = Connection::Open(name);
        server = listener->Accept(In(10s));
    }

    // After one connection, the system's libraries have opened everything that they open once and keep.
    static std::set<int> DescriptorsAfterAConnection() {
        const std::string own = RandomName();
        {
            std::optional<Listener> first = Listener::Open(own);
            std::thread([&own] { Connection::Open(own); }).join();
            first->Accept(In(10s));
        }
        return OpenDescriptors();
    }

    /// The number of handles that the system's libraries may open once during the test and keep.
    std::size_t mayBeKept = 0;

    const std::set<int> before = DescriptorsAfterAConnection();
    const std::string name = RandomName();
    std::optional<Listener> listener = Listener::Open(name);
    std::optional<Connection> client;
    std::optional<Connection> server;
};

template <class Action>
Clock::duration TimeOf(Action action) {
    const auto start = Clock::now();
    action();
    return Clock::now() - start;
}

}  // namespace transport_test
