// Clients that say what no engine says: each loses its connection, the server goes on serving the others, and nothing
// of theirs stays open.

#include <random>

#include "reference/transport/messages.h"
#include "tests/reference/engine/engine_fixture.h"
#include "tests/support/descriptors.h"
#include "tests/support/raw_client.h"

namespace {

using namespace reading_engine_test;
using namespace transport;
using test_support::MakeMemory;
using test_support::MakeWrongPieces;
using test_support::OwnPiece;
using test_support::Piece;
using test_support::RawClient;
using transport::Range;
using Bytes = std::vector<std::uint8_t>;

class Nonsense : public ReadingEngine {
  protected:
    Nonsense() { EXPECT_TRUE(ServesWell()); }

    /// Over a connection that lasts from test to test.
    static bool ServesWell() {
        TestPicture picture(33, 22);
        return SetPlateRange(3, 4) &&
               Answers(Recognition(&picture.image),
                       scripted_reader::DescriptionOf(picture.AsRead(), std::nullopt, plate_reading::WidthRange{3, 4}));
    }

    struct GreetedRaw : RawClient {
        GreetedRaw() : RawClient(ServerName()) {
            EXPECT_TRUE(Send(Encode({1, Greeting()})));
            EXPECT_EQ(Receive(), Encode({1, GreetingAnswer()}));
        }
    };

    /// A frame of that size with memory of another one.
    static void ExpectDropped(std::uint32_t width, std::uint32_t height, const std::vector<Piece>& pieces,
                              bool bringsMemory = true) {
        GreetedRaw client;
        client.Send(Encode({2, Frame{width, height, bringsMemory, std::nullopt}}), pieces);
        EXPECT_TRUE(client.IsDropped());
    }

    RunningService service;
};

TEST_F(Nonsense, ThatIsNoGreetingEndsTheConnection) {
    for (const Bytes& message : {Bytes{1}, Bytes(16, 0), Bytes(32, 255), Bytes(5000, 1), Encode({1, Range{1, 2}}),
                                 Encode({1, RangeTaken()}), Encode({1, GreetingAnswer()}),
                                 Encode({1, Frame{1, 1, false, std::nullopt}}), Encode({1, Readings()}), Bytes()}) {
        RawClient client(ServerName());
        client.Send(message);
        EXPECT_TRUE(client.IsDropped());
    }
    EXPECT_TRUE(ServesWell());
}

TEST_F(Nonsense, OfAnotherVersionIsToldOursAndEnded) {
    RawClient client(ServerName());
    client.Send(Encode({4, Greeting{protocolVersion + 1}}));
    EXPECT_EQ(client.Receive(), Encode({4, GreetingAnswer()}));
    EXPECT_TRUE(client.IsDropped());
    EXPECT_TRUE(ServesWell());
}

TEST_F(Nonsense, BehindTheGreetingEndsTheConnection) {
    Bytes spoiltFrame = Encode({1, Frame{10, 10, false, Region{0, 0, 10, 10}}});
    spoiltFrame[40] = 11;  // the region's right
    for (const Bytes& message :
         {Bytes{1}, Bytes(16, 0), Bytes(32, 255), Bytes(5000, 1), Encode({1, Greeting()}),
          Encode({1, GreetingAnswer()}), Encode({1, RangeTaken()}), Encode({1, Readings()}), spoiltFrame, Bytes()}) {
        GreetedRaw client;
        client.Send(message);
        EXPECT_TRUE(client.IsDropped());
    }
    EXPECT_TRUE(ServesWell());
}

TEST_F(Nonsense, AboutMemoryEndsTheConnection) {
    const OwnPiece exact = MakeMemory(30 * 20 * 3);
    {
        // The control: this one is served.
        GreetedRaw client;
        client.Send(Encode({2, Frame{30, 20, true, std::nullopt}}), {exact});
        const auto answer = Decode(client.Receive());
        EXPECT_TRUE(answer && std::holds_alternative<Readings>(answer->contents));
        // Once more in the same memory, and then in more than there is.
        client.Send(Encode({3, Frame{20, 30, false, std::nullopt}}));
        EXPECT_TRUE(Decode(client.Receive()));
        client.Send(Encode({4, Frame{30, 21, false, std::nullopt}}));
        EXPECT_TRUE(client.IsDropped());
    }
    ExpectDropped(30, 20, {}, true);        // promised and not brought
    ExpectDropped(30, 20, {}, false);       // neither now nor before
    ExpectDropped(30, 20, {exact}, false);  // brought and not promised
    ExpectDropped(30, 20, {exact, exact});
    ExpectDropped(30, 20, std::vector<Piece>(20, exact));
    ExpectDropped(31, 20, {exact});
    ExpectDropped(16384, 5461, {exact});
    const OwnPiece shorter = MakeMemory(30 * 20 * 3 - 1);
    ExpectDropped(30, 20, {shorter});
    for (const test_support::WrongPiece& wrong : MakeWrongPieces()) {
        ExpectDropped(30, 20, {wrong.piece});
    }
    GreetedRaw client;
    client.Send(Encode({2, Range{1, 2}}), {exact});  // memory beside what needs none
    EXPECT_TRUE(client.IsDropped());
    EXPECT_TRUE(ServesWell());
}

TEST_F(Nonsense, OfSizesThatWouldWrapEndsTheConnection) {
    const OwnPiece some = MakeMemory(3);
    for (const std::uint32_t side : {0u, 16385u, 0x55555556u, 0x80000000u, 0xFFFFFFFFu}) {
        for (const bool both : {false, true}) {
            Bytes message = Encode({2, Frame{1, 1, true, std::nullopt}});
            for (unsigned byte = 0; byte < 4; ++byte) {
                message[16 + byte] = static_cast<std::uint8_t>(side >> (8 * byte));
                message[20 + byte] = both ? message[16 + byte] : message[20 + byte];
            }
            GreetedRaw client;
            client.Send(message, {some});
            EXPECT_TRUE(client.IsDropped()) << side;
        }
    }
    EXPECT_TRUE(ServesWell());
}

// Every message is one that may be, with changes; sometimes memory and other things come along.
TEST_F(Nonsense, OfRandomKindsHarmsNobodyElse) {
    std::mt19937 random(20240131);
    const auto below = [&random](unsigned limit) { return static_cast<unsigned>(random() % limit); };
    const OwnPiece exact = MakeMemory(30 * 20 * 3);
    const std::vector<test_support::WrongPiece> wrong = MakeWrongPieces();
    const std::vector<Bytes> corpus = {Encode({1, Greeting()}),
                                       Encode({1, Range{1, 2}}),
                                       Encode({1, Frame{30, 20, true, std::nullopt}}),
                                       Encode({1, Frame{30, 20, true, Region{1, 1, 2, 2}}}),
                                       Encode({1, Frame{20, 10, false, std::nullopt}}),
                                       Encode({1, Readings()})};
    for (int round = 0; round < 400; ++round) {
        RawClient client(ServerName());
        if (below(10) != 0) {
            client.Send(corpus[0]);
        }
        for (unsigned messages = below(6); messages > 0; --messages) {
            Bytes message = corpus[below(static_cast<unsigned>(corpus.size()))];
            for (unsigned changes = below(3); changes > 0; --changes) {
                message[below(static_cast<unsigned>(message.size()))] = static_cast<std::uint8_t>(random());
            }
            std::vector<Piece> pieces;
            if (below(2) == 0) {
                const Piece piece = below(5) < 3 ? exact : wrong[below(static_cast<unsigned>(wrong.size()))].piece;
                pieces.assign(1 + below(4) / 3 * below(12), piece);
            }
            if (!client.Send(message, pieces)) {
                break;
            }
        }
    }
    EXPECT_TRUE(ServesWell());
}

TEST_F(Nonsense, LeavesNoDescriptorAndNoMemoryOpen) {
    const OwnPiece exact = MakeMemory(30 * 20 * 3);
    ExpectDropped(31, 20, {exact});
    VisitServer();
    const std::size_t descriptors = test_support::OpenDescriptors().size();
    for (int round = 0; round < 20; ++round) {
        ExpectDropped(30, 20, std::vector<Piece>(static_cast<std::size_t>(round), exact), false);
        ExpectDropped(31, 20, {exact});
        GreetedRaw client;
        client.Send(Encode({2, Frame{30, 20, true, std::nullopt}}), {exact});
        EXPECT_FALSE(client.Receive().empty());
    }
    EXPECT_TRUE(ComesTrue([&] {
        VisitServer();
        return test_support::OpenDescriptors().size() <= descriptors + test_support::keptByLocks;
    }));
}

}  // namespace
