// Misbehaving servers, each with its own clients.

#include <atomic>
#include <functional>
#include <mutex>
#include <random>

#include "reference/engine/client.h"
#include "tests/reference/engine/engine_fixture.h"

namespace {

using namespace reading_engine_test;
using engine_client::Client;
using transport::Clock;
using transport::Connection;
using transport::Contents;
using transport::Message;
using Bytes = std::vector<std::uint8_t>;

/// What a server does with one client. The connection is closed when it returns.
using Behaviour = std::function<void(Connection&)>;

/// Applies one behaviour to every client until it is destroyed.
class FakeServer {
  public:
    explicit FakeServer(Behaviour behaviour) : behaviour_(std::move(behaviour)), accepting_([this] { Accept(); }) {}
    ~FakeServer() {
        listener_->Shutdown();
        accepting_.join();
        {
            const std::lock_guard lock(mutex_);
            for (const auto& connection : connections_) {
                connection->Shutdown();
            }
        }
        for (std::thread& thread : threads_) {
            thread.join();
        }
    }
    FakeServer(const FakeServer&) = delete;
    FakeServer& operator=(const FakeServer&) = delete;

    const std::string name =
        "vexlane-test-" + std::to_string(std::random_device()()) + "-" + std::to_string(std::random_device()());

  private:
    void Accept() {
        while (std::optional<Connection> connection = listener_->Accept(transport::noDeadline)) {
            auto kept = std::make_shared<Connection>(std::move(*connection));
            const std::lock_guard lock(mutex_);
            connections_.push_back(kept);
            threads_.emplace_back([this, kept] {
                behaviour_(*kept);
                kept->Shutdown();
            });
        }
    }

    const Behaviour behaviour_;
    std::optional<transport::Listener> listener_ = transport::Listener::Open(name);
    std::mutex mutex_;
    std::vector<std::shared_ptr<Connection>> connections_;
    std::vector<std::thread> threads_;
    std::thread accepting_;
};

std::optional<Message> Next(Connection& connection) {
    Bytes bytes(transport::maxMessageBytes);
    bytes.resize(connection.Receive(bytes, transport::noDeadline));
    std::optional<Message> message = transport::Decode(bytes);
    const auto* const frame = message ? std::get_if<transport::Frame>(&message->contents) : nullptr;
    if (frame != nullptr) {
        const std::uint64_t size = transport::PictureBytes(frame->width, frame->height);
        if (!connection.ReceiveAll(bytes, size, transport::noDeadline)) {
            return std::nullopt;
        }
    }
    return message;
}

bool SendBytes(Connection& connection, const Bytes& bytes) {
    return connection.Send(bytes, Clock::now() + 10s);
}

void DiscardRequests(Connection& connection) {
    while (Next(connection)) {
    }
}

// The text identifies the response.
transport::Readings ReadingsOf(const std::string& text) {
    transport::Readings readings = {1, 0, {}};
    text.copy(readings.readings[0].text, transport::maxTextLength);
    return readings;
}

Contents CorrectResponse(const Message& request) {
    if (std::holds_alternative<transport::Greeting>(request.contents)) {
        return transport::GreetingReply();
    }
    if (std::holds_alternative<transport::Range>(request.contents)) {
        return transport::RangeAccepted();
    }
    return ReadingsOf("RIGHT1");
}

/// Responds correctly to requests until one of this kind arrives, and returns that one.
template <class Kind>
std::optional<Message> ServeUpTo(Connection& connection) {
    while (std::optional<Message> request = Next(connection)) {
        if (std::holds_alternative<Kind>(request->contents)) {
            return request;
        }
        if (!SendBytes(connection, transport::Encode({request->number, CorrectResponse(*request)}))) {
            break;
        }
    }
    return std::nullopt;
}

void ServeCorrectly(Connection& connection) {
    while (std::optional<Message> request = Next(connection)) {
        if (!SendBytes(connection, transport::Encode({request->number, CorrectResponse(*request)}))) {
            return;
        }
    }
}

struct Recognized {
    int count = 0;
    std::string text;
    std::chrono::milliseconds time{};
};

Recognized Recognize(Client& client) {
    TestPicture picture(8, 8);
    RPLATE plates[engineRecordCount] = {};
    Recognized recognized;
    recognized.time = TimeOf([&] { recognized.count = client.Recognise(&picture.image, nullptr, plates); });
    recognized.text = plates[0].text;
    return recognized;
}

/// Runs all cases at once, because most of them wait.
template <class Case, class Action>
void ForEachAtOnce(const std::vector<Case>& cases, Action action) {
    std::vector<std::thread> threads;
    for (const Case& one : cases) {
        threads.emplace_back([&one, action] { action(one); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

struct Misbehaviour {
    const char* what;
    Behaviour behaviour;
};

/// Ways in which the response to a request of this kind can be wrong.
template <class Kind>
std::vector<Misbehaviour> Misbehaviours() {
    // Sends something else in place of the response.
    const auto insteadOfResponse = [](auto send) {
        return [send](Connection& connection) {
            if (const std::optional<Message> request = ServeUpTo<Kind>(connection)) {
                send(connection, *request);
                DiscardRequests(connection);
            }
        };
    };
    const auto encoded = [](const Message& request) {
        return transport::Encode({request.number, CorrectResponse(request)});
    };
    return {
        {"silence", insteadOfResponse([](Connection&, const Message&) {})},
        {"disconnect", [](Connection& connection) { ServeUpTo<Kind>(connection); }},
        {"one byte at a time", insteadOfResponse([encoded](Connection& connection, const Message& request) {
             for (const std::uint8_t byte : encoded(request)) {
                 if (!SendBytes(connection, {byte})) {
                     return;
                 }
                 std::this_thread::sleep_for(10ms);
             }
         })},
        {"truncated response", insteadOfResponse([encoded](Connection& connection, const Message& request) {
             Bytes bytes = encoded(request);
             bytes.pop_back();
             SendBytes(connection, bytes);
         })},
        {"one byte too many", insteadOfResponse([encoded](Connection& connection, const Message& request) {
             Bytes bytes = encoded(request);
             bytes.push_back(0);
             SendBytes(connection, bytes);
         })},
        {"far too many bytes",
         insteadOfResponse([](Connection& connection, const Message&) { SendBytes(connection, Bytes(100000, 6)); })},
        {"empty message", insteadOfResponse([](Connection& connection, const Message&) { SendBytes(connection, {}); })},
        {"garbage", insteadOfResponse([](Connection& connection, const Message&) {
             std::minstd_rand random(7);
             for (std::size_t size = 1; size < 300; size += 13) {
                 Bytes bytes(size);
                 for (std::uint8_t& byte : bytes) {
                     byte = static_cast<std::uint8_t>(random() >> 9);
                 }
                 SendBytes(connection, bytes);
             }
         })},
        {"wrong number", insteadOfResponse([](Connection& connection, const Message& request) {
             SendBytes(connection, transport::Encode({request.number - 1, CorrectResponse(request)}));
         })},
        {"echoed request", insteadOfResponse([](Connection& connection, const Message& request) {
             SendBytes(connection, transport::Encode(request));
         })},
        {"wrong kind of response", insteadOfResponse([](Connection& connection, const Message& request) {
             const bool isRange = std::holds_alternative<transport::Range>(request.contents);
             SendBytes(connection, transport::Encode({request.number, isRange ? Contents(ReadingsOf("WRONG1"))
                                                                              : Contents(transport::RangeAccepted())}));
         })},
        {"busy as a response", insteadOfResponse([](Connection& connection, const Message& request) {
             SendBytes(connection, transport::Encode({request.number, transport::Busy()}));
         })},
    };
}

TEST(MisbehavingServer, RangeFailsInTimeWithoutAValidResponse) {
    std::vector<Misbehaviour> all = Misbehaviours<transport::Greeting>();
    for (const Misbehaviour& one : Misbehaviours<transport::Range>()) {
        all.push_back(one);
    }
    all.push_back({"a greeting of another version", [](Connection& connection) {
                       const std::optional<Message> greeting = Next(connection);
                       if (greeting &&
                           SendBytes(connection,
                                     transport::Encode({greeting->number, transport::GreetingReply{{.version = 1}}}))) {
                           ServeCorrectly(connection);
                       }
                   }});
    all.push_back({"busy after the greeting", [](Connection& connection) {
                       if (ServeUpTo<transport::Range>(connection)) {
                           SendBytes(connection, transport::Encode({0, transport::Busy()}));
                       }
                   }});
    ForEachAtOnce(all, [](const Misbehaviour& one) {
        const FakeServer server(one.behaviour);
        Client client(server.name);
        bool isTaken = true;
        const auto time = TimeOf([&] { isTaken = client.SetRange(1, 2); });
        EXPECT_FALSE(isTaken) << one.what;
        EXPECT_GE(time, 1900ms) << one.what << ": the client did not wait";
        EXPECT_LT(time, maxCallTime) << one.what;
        // A frame then makes only one short attempt.
        const Recognized recognized = Recognize(client);
        EXPECT_EQ(recognized.count, 0) << one.what;
        EXPECT_LT(recognized.time, 1s) << one.what;
    });
}

// Each frame costs little time, and the range is not refused, so that the server is not ended for being busy.
TEST(MisbehavingServer, PermanentlyBusyServerCostsOnlyPlates) {
    std::atomic<int> attempts = 0;
    const FakeServer server([&attempts](Connection& connection) {
        ++attempts;
        SendBytes(connection, transport::Encode({0, transport::Busy()}));
    });
    Client client(server.name);
    for (int frame = 0; frame < 5; ++frame) {
        EXPECT_LT(TimeOf([&] { EXPECT_TRUE(client.SetRange(1, 2)); }), maxCallTime);
        EXPECT_EQ(Recognize(client).count, 0);
    }
    EXPECT_LE(attempts, 5 * 3) << "too many attempts to connect";
}

TEST(MisbehavingServer, InvalidFrameResponseAffectsOnlyThatFrame) {
    ForEachAtOnce(Misbehaviours<transport::Frame>(), [](const Misbehaviour& one) {
        // Only the first client is served badly.
        const auto isFirst = std::make_shared<std::atomic<bool>>(true);
        const FakeServer server([&one, isFirst](Connection& connection) {
            if (isFirst->exchange(false)) {
                one.behaviour(connection);
            } else {
                ServeCorrectly(connection);
            }
        });
        Client client(server.name);
        ASSERT_TRUE(client.SetRange(1, 2)) << one.what;
        Recognized recognized = Recognize(client);
        EXPECT_EQ(recognized.count, 0) << one.what;
        EXPECT_LT(recognized.time, maxCallTime) << one.what;
        ASSERT_TRUE(client.SetRange(1, 2)) << one.what;
        recognized = Recognize(client);
        EXPECT_EQ(recognized.count, 1) << one.what;
        EXPECT_EQ(recognized.text, "RIGHT1") << one.what;
    });
}

TEST(MisbehavingServer, UnreadPixelsEndTheFrameAtItsTimeout) {
    const FakeServer server([](Connection& connection) {
        const auto serveOne = [&connection](const Contents& wanted) {
            Bytes bytes(transport::maxMessageBytes);
            bytes.resize(connection.Receive(bytes, transport::noDeadline));
            const std::optional<Message> request = transport::Decode(bytes);
            EXPECT_TRUE(request && request->contents.index() == wanted.index());
            return request && SendBytes(connection, transport::Encode({request->number, CorrectResponse(*request)}));
        };
        if (serveOne(transport::Greeting()) && serveOne(transport::Range())) {
            WaitUntil([&connection] { return !connection.IsPeerConnected(); });
        }
    });
    Client client(server.name);
    ASSERT_TRUE(client.SetRange(1, 2));
    TestPicture picture(1920, 1080);
    RPLATE plates[engineRecordCount] = {};
    EXPECT_THAT(TimeOf([&] { EXPECT_EQ(client.Recognise(&picture.image, nullptr, plates), 0); }),
                testing::AllOf(testing::Ge(1900ms), testing::Lt(maxCallTime)));
}

TEST(MisbehavingServer, SecondResponseIsNotUsedForALaterFrame) {
    std::atomic<bool> isFirst = true;
    const FakeServer server([&isFirst](Connection& connection) {
        const bool sendsTwice = isFirst.exchange(false);
        while (const std::optional<Message> request = ServeUpTo<transport::Frame>(connection)) {
            SendBytes(connection, transport::Encode({request->number, ReadingsOf("FIRST1")}));
            if (sendsTwice) {
                SendBytes(connection, transport::Encode({request->number, ReadingsOf("SECOND2")}));
            }
        }
    });
    Client client(server.name);
    ASSERT_TRUE(client.SetRange(1, 2));
    EXPECT_EQ(Recognize(client).text, "FIRST1");
    EXPECT_EQ(Recognize(client).count, 0) << "the second response was used for the next frame";
    EXPECT_EQ(Recognize(client).text, "FIRST1");
}

TEST(MisbehavingServer, RangeFailsAfterATimeoutWithoutAServer) {
    Client client("vexlane-test-nobody-" + std::to_string(std::random_device()()));
    bool isTaken = true;
    const auto time = TimeOf([&] { isTaken = client.SetRange(1, 2); });
    EXPECT_FALSE(isTaken);
    EXPECT_GE(time, 1900ms);
    EXPECT_LT(time, maxCallTime);
    const Recognized recognized = Recognize(client);
    EXPECT_EQ(recognized.count, 0);
    EXPECT_LT(recognized.time, 1s);
}

TEST(MisbehavingServer, RangeFailsInTimeWhenTheQueueIsFull) {
    // Connections are not accepted, and the queue of waiting ones is full.
    const std::string name = "vexlane-test-full-" + std::to_string(std::random_device()());
    const std::optional<transport::Listener> listener = transport::Listener::Open(name);
    std::vector<Connection> waiting;
    while (std::optional<Connection> connection = Connection::Open(name)) {
        waiting.push_back(std::move(*connection));
        ASSERT_LT(waiting.size(), 5000u);
    }
    Client client(name);
    bool isTaken = true;
    EXPECT_LT(TimeOf([&] { isTaken = client.SetRange(1, 2); }), maxCallTime);
    EXPECT_FALSE(isTaken);
}

}  // namespace
