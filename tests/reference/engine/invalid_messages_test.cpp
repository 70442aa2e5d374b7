// Invalid messages: each closes the connection it came from; the server goes on serving the others and leaks nothing.

#include <random>

#include "reference/transport/messages.h"
#include "tests/reference/engine/engine_fixture.h"
#include "tests/support/descriptors.h"

namespace {

using namespace reading_engine_test;
using namespace transport;
using transport::Range;
using Bytes = std::vector<std::uint8_t>;

/// Sends any bytes, valid or not.
class RawClient {
  public:
    RawClient() {
        EXPECT_TRUE(WaitUntil([this] { return (connection_ = Connection::Open(ServerName())).has_value(); }));
    }

    bool Send(std::span<const std::uint8_t> bytes) { return connection_->Send(bytes, Clock::now() + 1min); }

    /// Returns the next message, or nothing if none arrives within a minute or the server has closed the connection.
    Bytes Receive() {
        Bytes bytes(maxMessageBytes);
        bytes.resize(connection_->Receive(bytes, Clock::now() + 1min));
        return bytes;
    }

    bool IsDropped() {
        // Messages that the server sent before it closed the connection come first.
        while (!Receive().empty()) {
        }
        return !connection_->IsPeerConnected();
    }

  private:
    std::optional<Connection> connection_;
};

struct GreetedClient : RawClient {
    GreetedClient() {
        EXPECT_TRUE(Send(Encode({1, Greeting()})));
        EXPECT_EQ(Receive(), Encode({1, GreetingReply()}));
    }
};

const Bytes frame = Encode({2, Frame{30, 20, {}}});
constexpr std::size_t frameBytes = 30 * 20 * 3;

class InvalidMessages : public ReadingEngine {
  protected:
    InvalidMessages() { EXPECT_TRUE(ServesCorrectly()); }

    /// Uses a connection that stays open from test to test.
    static bool ServesCorrectly() {
        TestPicture picture(33, 22);
        return SetPlateRange(3, 4) && ReturnsReadings(Recognition(&picture.image),
                                                      scripted_reader::DescriptionOf(picture.ForReader(), std::nullopt,
                                                                                     plate_reading::WidthRange{3, 4}));
    }

    RunningService service;
};

TEST_F(InvalidMessages, FirstMessageMustBeAGreeting) {
    for (const Bytes& message :
         {Bytes{1}, Bytes(16, 0), Bytes(32, 255), Bytes(5000, 1), Encode({1, Range{1, 2}}),
          Encode({1, RangeAccepted()}), Encode({1, GreetingReply()}), frame, Encode({1, Readings()}), Bytes()}) {
        RawClient client;
        client.Send(message);
        EXPECT_TRUE(client.IsDropped());
    }
    EXPECT_TRUE(ServesCorrectly());
}

TEST_F(InvalidMessages, GreetingOfAnotherVersionReturnsOursAndCloses) {
    RawClient client;
    client.Send(Encode({4, Greeting{.version = protocolVersion + 1}}));
    EXPECT_EQ(client.Receive(), Encode({4, GreetingReply()}));
    EXPECT_TRUE(client.IsDropped());
    EXPECT_TRUE(ServesCorrectly());
}

TEST_F(InvalidMessages, InvalidMessageAfterTheGreetingCloses) {
    Bytes invalidFrame = Encode({1, Frame{10, 10, Region{0, 0, 10, 10}}});
    invalidFrame[32] = 11;  // the region's right
    for (const Bytes& message :
         {Bytes{1}, Bytes(16, 0), Bytes(32, 255), Bytes(5000, 1), Encode({1, Greeting()}), Encode({1, GreetingReply()}),
          Encode({1, RangeAccepted()}), Encode({1, Readings()}), invalidFrame, Bytes()}) {
        GreetedClient client;
        client.Send(message);
        EXPECT_TRUE(client.IsDropped());
    }
    EXPECT_TRUE(ServesCorrectly());
}

TEST_F(InvalidMessages, WrongNumberOfPixelsCloses) {
    const std::vector<std::vector<Bytes>> wrong = {
        {Bytes(frameBytes + 1)},                  // more
        {Bytes(frameBytes), Bytes(1)},            // more, in a separate piece
        {Bytes(frameBytes - 1), frame},           // fewer, then a message that is too long to complete them
        {Bytes()},                                // none
        {Bytes(frameBytes - 1), Bytes()},         // fewer, then an empty piece
        {Bytes(frameBytes), Bytes(frameBytes)}};  // twice
    for (const std::vector<Bytes>& pieces : wrong) {
        GreetedClient client;
        client.Send(frame);
        for (const Bytes& piece : pieces) {
            client.Send(piece);
        }
        EXPECT_LT(TimeOf([&] { EXPECT_TRUE(client.IsDropped()); }), 1500ms) << pieces.size();
    }
    // The control, in many pieces.
    GreetedClient client;
    client.Send(frame);
    for (std::size_t piece = 0; piece < 30; ++piece) {
        client.Send(Bytes(frameBytes / 30));
    }
    const auto response = Decode(client.Receive());
    EXPECT_TRUE(response && std::holds_alternative<Readings>(response->contents));
    EXPECT_TRUE(ServesCorrectly());
}

TEST_F(InvalidMessages, IncompleteFrameClosesAfterATimeout) {
    GreetedClient none;
    GreetedClient some;
    GreetedClient large;
    const auto sent = Clock::now();
    none.Send(frame);
    some.Send(frame);
    some.Send(Bytes(frameBytes - 1));
    large.Send(Encode({2, Frame{16384, 5461, {}}}));
    large.Send(Bytes(3 << 20));
    EXPECT_TRUE(ServesCorrectly()) << "other clients are blocked";
    for (GreetedClient* const client : {&none, &some, &large}) {
        EXPECT_TRUE(client->IsDropped());
        EXPECT_GE(Clock::now() - sent, 1900ms);
        EXPECT_LT(Clock::now() - sent, maxCallTime);
    }
    EXPECT_TRUE(ServesCorrectly());
}

TEST_F(InvalidMessages, FrameSizeThatWouldOverflowCloses) {
    for (const std::uint32_t side : {0u, 16385u, 0x55555556u, 0x80000000u, 0xFFFFFFFFu}) {
        for (const bool both : {false, true}) {
            Bytes message = Encode({2, Frame{1, 1, {}}});
            for (unsigned byte = 0; byte < 4; ++byte) {
                message[16 + byte] = static_cast<std::uint8_t>(side >> (8 * byte));
                message[20 + byte] = both ? message[16 + byte] : message[20 + byte];
            }
            GreetedClient client;
            client.Send(message);
            EXPECT_LT(TimeOf([&] { EXPECT_TRUE(client.IsDropped()); }), 1500ms) << side;
        }
    }
    EXPECT_TRUE(ServesCorrectly());
}

// Each message is a valid one with random changes, with or without pixels after it.
TEST_F(InvalidMessages, RandomMessagesDoNotAffectOtherClients) {
    std::mt19937 random(20240131);
    const auto below = [&random](unsigned limit) { return static_cast<unsigned>(random() % limit); };
    const std::vector<Bytes> corpus = {
        Encode({1, Greeting()}), Encode({1, Range{1, 2}}), frame, Encode({1, Frame{30, 20, Region{1, 1, 2, 2}}}),
        Bytes(frameBytes),       Encode({1, Readings()})};
    for (int round = 0; round < 400; ++round) {
        RawClient client;
        if (below(10) != 0) {
            client.Send(corpus[0]);
        }
        for (unsigned messages = below(6); messages > 0; --messages) {
            Bytes message = corpus[below(static_cast<unsigned>(corpus.size()))];
            for (unsigned changes = below(3); changes > 0; --changes) {
                message[below(static_cast<unsigned>(message.size()))] = static_cast<std::uint8_t>(random());
            }
            if (!client.Send(message) || (below(2) == 0 && !client.Send(Bytes(frameBytes)))) {
                break;
            }
        }
    }
    EXPECT_TRUE(ServesCorrectly());
}

TEST_F(InvalidMessages, LeavesNoDescriptorOpen) {
    ConnectOnce();
    const std::size_t descriptors = test_support::OpenDescriptors().size();
    for (int round = 0; round < 20; ++round) {
        GreetedClient client;
        client.Send(frame);
        client.Send(Bytes(frameBytes + static_cast<std::size_t>(round % 2)));
        EXPECT_EQ(client.Receive().empty(), round % 2 != 0);
    }
    EXPECT_TRUE(WaitUntil([&] {
        ConnectOnce();
        return test_support::OpenDescriptors().size() <= descriptors + test_support::keptByLocks;
    }));
}

}  // namespace
