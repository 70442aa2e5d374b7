// The server: when it starts and exits, which client gets a reader, and what it does when a reader fails.

#include "reference/server/service.h"

#include <algorithm>
#include <atomic>
#include <deque>
#include <future>
#include <mutex>
#include <stdexcept>

#include "reference/engine/client.h"
#include "reference/transport/messages.h"
#include "tests/reference/engine/engine_fixture.h"

namespace {

using namespace reading_engine_test;
using engine_client::Client;
using plate_reading::Picture;
using plate_reading::Reading;
using plate_reading::Region;
using plate_reading::WidthRange;
using reading_service::End;
using reading_service::Settings;
using testing::ElementsAre;
using transport::Connection;

/// Holds frames in the reader until the test releases them.
class Gate {
  public:
    void Pass(int frame) {
        std::unique_lock lock(mutex_);
        arrived_.push_back(frame);
        changed_.notify_all();
        changed_.wait(lock, [this] { return open_ > 0; });
        --open_;
    }
    void Open(int frames) {
        const std::lock_guard lock(mutex_);
        open_ += frames;
        changed_.notify_all();
    }
    std::vector<int> Arrived() {
        const std::lock_guard lock(mutex_);
        return arrived_;
    }
    bool WaitForArrivals(std::size_t count) {
        return WaitUntil([&] { return Arrived().size() >= count; });
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<int> arrived_;
    int open_ = 0;
};

class GatedReader final : public plate_reading::FrameReader {
  public:
    explicit GatedReader(Gate& gate) : gate_(gate) {}
    std::vector<Reading> Read(const Picture& picture, const plate_reading::Search&) override {
        gate_.Pass(picture.pixels[1]);
        return {scripted_reader::Numbered(picture.pixels[1])};
    }

  private:
    Gate& gate_;
};

reading_service::ReaderFactory Gated(Gate& gate) {
    return [&gate] { return std::make_unique<GatedReader>(gate); };
}

Settings With(void (*change)(Settings&)) {
    Settings settings;
    change(settings);
    return settings;
}

class ReadingService : public ReadingEngine {
  protected:
    /// Sends the frame of that number from a new thread; the future holds the number of readings.
    std::future<int> Send(int number, bool* isRight = nullptr) {
        return std::async(std::launch::async, [number, isRight] {
            Client client;
            EXPECT_TRUE(client.SetRange(1, 2));
            TestPicture picture(4, 4);
            picture.pixels[1] = static_cast<std::uint8_t>(number);
            RPLATE plates[engineRecordCount] = {};
            const int count = client.Recognise(&picture.image, nullptr, plates);
            if (isRight != nullptr) {
                *isRight = count == 1 && std::string(plates[0].text) == scripted_reader::Numbered(number).text;
            }
            return count;
        });
    }

    bool AcceptsRange() {
        Client client;
        return client.SetRange(1, 2);
    }
};

// Start and exit

TEST_F(ReadingService, ListensBeforeAReaderExists) {
    std::promise<void> goOn;
    std::shared_future<void> wait = goOn.get_future().share();
    RunningService service({}, [wait] {
        wait.wait();
        return scripted_reader::Make();
    });
    EXPECT_TRUE(AcceptsRange());
    auto frame = Send(0);
    EXPECT_NE(frame.wait_for(50ms), std::future_status::ready);
    goOn.set_value();
    EXPECT_EQ(frame.get(), 2);
}

TEST_F(ReadingService, ExitsAfterTheIdleTimeWithoutConnections) {
    EXPECT_THAT(TimeOf([] {
                    RunningService service(With([](Settings& settings) { settings.idleTimeout = 300ms; }));
                    EXPECT_EQ(service.Join(), End::Idle);
                }),
                testing::AllOf(testing::Ge(290ms), testing::Lt(5s)));
    EXPECT_FALSE(Connection::Open(transport::ServerName()));
}

TEST_F(ReadingService, IdleTimeStartsWhenTheLastConnectionEnds) {
    RunningService service(With([](Settings& settings) { settings.idleTimeout = 300ms; }));
    {
        Client client;
        ASSERT_TRUE(client.SetRange(1, 2));
        std::this_thread::sleep_for(700ms);
        EXPECT_TRUE(Connection::Open(transport::ServerName())) << "the server exited while a client was connected";
    }
    EXPECT_THAT(TimeOf([&] { EXPECT_EQ(service.Join(), End::Idle); }),
                testing::AllOf(testing::Ge(250ms), testing::Lt(5s)));
}

TEST_F(ReadingService, StopEndsAllConnections) {
    RunningService service;
    Client client;
    ASSERT_TRUE(client.SetRange(1, 2));
    std::optional<Connection> silent = Connection::Open(transport::ServerName());
    EXPECT_LT(TimeOf([&] { service.Stop(); }), 2s);
    EXPECT_EQ(service.Join(), End::Stopped);
    EXPECT_FALSE(Connection::Open(transport::ServerName()));
    EXPECT_FALSE(silent->IsPeerConnected());
}

TEST_F(ReadingService, StopBeforeRunEndsAtOnce) {
    reading_service::Service service({}, scripted_reader::Make);
    service.Stop();
    EXPECT_EQ(service.Run(), End::Stopped);
}

TEST_F(ReadingService, ExitsWhenAnotherServerKeepsTheName) {
    const auto listener = transport::Listener::Open(transport::ServerName());
    EXPECT_THAT(TimeOf([] {
                    RunningService service(With([](Settings& settings) { settings.nameTimeout = 200ms; }));
                    EXPECT_EQ(service.Join(), End::NameTaken);
                }),
                testing::AllOf(testing::Ge(190ms), testing::Lt(5s)));
}

TEST_F(ReadingService, WaitsForTheNameOfAnExitingServer) {
    auto listener = transport::Listener::Open(transport::ServerName());
    RunningService service(With([](Settings& settings) { settings.nameTimeout = 30s; }));
    std::this_thread::sleep_for(100ms);
    listener.reset();
    EXPECT_TRUE(AcceptsRange());
}

TEST_F(ReadingService, CanBeStoppedWhileItWaitsForTheName) {
    const auto listener = transport::Listener::Open(transport::ServerName());
    RunningService service(With([](Settings& settings) { settings.nameTimeout = 1h; }));
    EXPECT_LT(TimeOf([&] { service.Stop(); }), 2s);
    EXPECT_EQ(service.Join(), End::Stopped);
}

TEST_F(ReadingService, ClientWaitsForAStartingServer) {
    Client client;
    auto taken = std::async(std::launch::async, [&] { return client.SetRange(1, 2); });
    std::this_thread::sleep_for(1s);
    RunningService service;
    EXPECT_TRUE(taken.get());
}

TEST_F(ReadingService, RestartedServerReceivesTheRangeAgain) {
    Client client;
    TestPicture picture(4, 4);
    RPLATE plates[engineRecordCount] = {};
    auto service = std::make_unique<RunningService>();
    ASSERT_TRUE(client.SetRange(17, 18));
    service.reset();
    EXPECT_EQ(client.Recognise(&picture.image, nullptr, plates), 0);
    service = std::make_unique<RunningService>();
    // Each frame makes one attempt to connect.
    ASSERT_TRUE(WaitUntil([&] { return client.Recognise(&picture.image, nullptr, plates) == 2; }));
    EXPECT_EQ(plates[1].corner1.x, 17);
    EXPECT_EQ(plates[1].corner1.y, 18);
}

// Connections

/// Returns the number of readings that a client receives for a picture with two.
int ReadingsFor(Client& client) {
    TestPicture picture(4, 4);
    RPLATE plates[engineRecordCount] = {};
    return client.Recognise(&picture.image, nullptr, plates);
}

// A client beyond the limit once took the server for hung, and its library then ended the server for all clients.
TEST_F(ReadingService, ClientsBeyondTheLimitReceiveBusy) {
    RunningService service(With([](Settings& settings) { settings.maxConnections = 3; }));
    std::vector<Client> clients(3);
    for (Client& client : clients) {
        ASSERT_TRUE(client.SetRange(1, 2));
    }
    for (int round = 0; round < 20; ++round) {
        EXPECT_EQ(GreetingClient().response, BusyMessage());
    }
    Client waiting;
    EXPECT_THAT(TimeOf([&] { EXPECT_TRUE(waiting.SetRange(17, 18)); }),
                testing::AllOf(testing::Ge(50ms), testing::Lt(maxCallTime)));
    EXPECT_LT(TimeOf([&] { EXPECT_EQ(ReadingsFor(waiting), 0); }), 1s);
    for (Client& client : clients) {
        EXPECT_TRUE(client.SetRange(1, 2));
        EXPECT_EQ(ReadingsFor(client), 2);
    }
    clients.pop_back();
    // The range that it could not send before is sent when it connects.
    TestPicture picture(4, 4);
    RPLATE plates[engineRecordCount] = {};
    ASSERT_TRUE(WaitUntil([&] { return waiting.Recognise(&picture.image, nullptr, plates) == 2; }))
        << "the place of a disconnected client was not reused";
    EXPECT_EQ(plates[1].corner1.x, 17);
}

/// A connection takes many times as long under Wine.
#ifdef _WIN32
constexpr std::size_t places = 32;
constexpr std::size_t others = 8;
#else
constexpr std::size_t places = 256;
constexpr std::size_t others = 44;
#endif

TEST_F(ReadingService, ServesWaitingClientsWhenConnectionsEnd) {
    RunningService service(With([](Settings& settings) { settings.maxConnections = places; }));
    std::deque<Client> clients(places + others);
    const auto forEach = [&clients](std::size_t first, std::size_t last, auto action) {
        std::vector<std::thread> threads;
        for (std::size_t index = first; index < last; ++index) {
            threads.emplace_back([&action, &client = clients[index]] { action(client); });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    };
    for (std::size_t index = 0; index < places; ++index) {
        ASSERT_TRUE(clients[index].SetRange(1, 2)) << index;
    }
    std::atomic<std::size_t> taken = 0;
    std::atomic<std::size_t> served = 0;
    const auto play = [&](Client& client) {
        taken += client.SetRange(1, 2) ? 1 : 0;
        served += ReadingsFor(client) == 2 ? 1 : 0;
    };
    forEach(places, clients.size(), play);
    EXPECT_EQ(taken, others) << "a busy server was treated as hung";
    EXPECT_EQ(served, 0u);
    for (std::size_t index = 0; index < places; ++index) {
        play(clients[index]);
    }
    EXPECT_EQ(taken, clients.size());
    EXPECT_EQ(served, places);
    for (std::size_t gone = 0; gone < others; ++gone) {
        clients.pop_front();
    }
    served = 0;
    forEach(places - others, places, [&](Client& client) {
        served += WaitUntil([&] { return client.SetRange(1, 2) && ReadingsFor(client) == 2; }) ? 1 : 0;
    });
    EXPECT_EQ(served, others);
}

TEST_F(ReadingService, SurvivesManySilentConnections) {
    RunningService service(With([](Settings& settings) { settings.maxConnections = 8; }));
    Client client;
    ASSERT_TRUE(client.SetRange(1, 2));
    {
        std::vector<Connection> silent;
        while (silent.size() < 100) {
            if (std::optional<Connection> next = Connection::Open(transport::ServerName())) {
                silent.push_back(std::move(*next));
            }
        }
        EXPECT_TRUE(client.SetRange(1, 2));
        EXPECT_EQ(ReadingsFor(client), 2);
        EXPECT_TRUE(WaitUntil([&silent] {
            return std::ranges::count_if(silent, [](const Connection& one) { return one.IsPeerConnected(); }) <= 7;
        })) << "the server keeps connections beyond its limit";
    }
    EXPECT_TRUE(WaitUntil([] {
        Client second;
        return second.SetRange(1, 2) && ReadingsFor(second) == 2;
    }));
}

// Readers

TEST_F(ReadingService, MakesReadersOnDemandUpToTheLimit) {
    Gate gate;
    std::atomic<int> made = 0;
    RunningService service(With([](Settings& settings) { settings.readers = 2; }), [&] {
        ++made;
        return std::make_unique<GatedReader>(gate);
    });
    gate.Open(3);
    for (int number = 0; number < 3; ++number) {
        EXPECT_EQ(Send(number).get(), 1);
    }
    EXPECT_EQ(made, 1);
    std::vector<std::future<int>> frames;
    for (int number = 0; number < 5; ++number) {
        frames.push_back(Send(number));
    }
    ASSERT_TRUE(gate.WaitForArrivals(5));
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(gate.Arrived().size(), 5u) << "more frames at once than readers";
    gate.Open(5);
    for (auto& frame : frames) {
        EXPECT_EQ(frame.get(), 1);
    }
    EXPECT_EQ(made, 2);
}

TEST_F(ReadingService, AcceptsARangeAtOnceWhileAllReadersAreBusy) {
    Gate gate;
    RunningService service(With([](Settings& settings) { settings.readers = 1; }), Gated(gate));
    auto busy = Send(0);
    ASSERT_TRUE(gate.WaitForArrivals(1));
    auto waiting = Send(1);
    EXPECT_LT(TimeOf([&] { EXPECT_TRUE(AcceptsRange()); }), 1s);
    gate.Open(2);
    EXPECT_EQ(busy.get(), 1);
    EXPECT_EQ(waiting.get(), 1);
}

TEST(ReaderPool, LendsReadersInRequestOrder) {
    reading_service::ReaderPool pool(1, scripted_reader::Make);
    auto first = std::make_optional(pool.Take(transport::noDeadline));
    ASSERT_TRUE(first->has_value());
    std::mutex mutex;
    std::vector<int> order;
    std::vector<std::thread> threads;
    for (int number = 0; number < 5; ++number) {
        threads.emplace_back([&, number] {
            const auto loan = pool.Take(transport::Clock::now() + 1min);
            const std::lock_guard lock(mutex);
            order.push_back(number);
        });
        ASSERT_TRUE(WaitUntil([&] { return pool.Waiting() == threads.size(); }));
    }
    first.reset();
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(order, ElementsAre(0, 1, 2, 3, 4));
}

TEST(ReaderPool, TakeFailsAtTheDeadlineAndAfterStop) {
    reading_service::ReaderPool pool(1, scripted_reader::Make);
    {
        const auto lent = pool.Take(transport::noDeadline);
        ASSERT_TRUE(lent);
        EXPECT_THAT(TimeOf([&] { EXPECT_FALSE(pool.Take(transport::Clock::now() + 50ms)); }),
                    testing::AllOf(testing::Ge(50ms), testing::Lt(5s)));
        auto waiting = std::async(std::launch::async, [&] { return pool.Take(transport::noDeadline).has_value(); });
        EXPECT_NE(waiting.wait_for(20ms), std::future_status::ready);
        pool.Stop();
        EXPECT_FALSE(waiting.get());
    }
    EXPECT_FALSE(pool.Take(transport::noDeadline));
}

TEST_F(ReadingService, SkipsFramesOfDisconnectedClients) {
    Gate gate;
    RunningService service(With([](Settings& settings) { settings.readers = 1; }), Gated(gate));
    auto busy = Send(1);
    ASSERT_TRUE(gate.WaitForArrivals(1));
    {
        // It sends everything and does not wait for a response.
        auto hasty = Connection::Open(transport::ServerName());
        std::vector<std::uint8_t> pixels(4 * 4 * 3);
        pixels[1] = 2;
        ASSERT_TRUE(hasty && hasty->Send(transport::Encode({1, transport::Greeting()}), transport::noDeadline) &&
                    hasty->Send(transport::Encode({2, transport::Frame{4, 4, {}}}), transport::noDeadline) &&
                    hasty->Send(pixels, transport::noDeadline));
    }
    auto later = Send(3);
    EXPECT_NE(later.wait_for(50ms), std::future_status::ready);
    gate.Open(1);
    EXPECT_EQ(busy.get(), 1);
    ASSERT_TRUE(gate.WaitForArrivals(2));
    gate.Open(1);
    EXPECT_EQ(later.get(), 1);
    EXPECT_THAT(gate.Arrived(), ElementsAre(1, 3)) << "a frame of a disconnected client was read";
}

TEST_F(ReadingService, DropsAFrameThatGetsNoReaderInTime) {
    Gate gate;
    RunningService service(With([](Settings& settings) { settings.readers = 1; }), Gated(gate));
    auto busy = Send(1);
    ASSERT_TRUE(gate.WaitForArrivals(1));
    auto waiting = Send(2);
    EXPECT_EQ(busy.get(), 0);
    EXPECT_EQ(waiting.get(), 0);
    gate.Open(1);
    bool isRight = false;
    auto later = Send(3, &isRight);
    ASSERT_TRUE(gate.WaitForArrivals(2));
    gate.Open(1);
    EXPECT_EQ(later.get(), 1);
    EXPECT_TRUE(isRight);
    EXPECT_THAT(gate.Arrived(), ElementsAre(1, 3));
}

TEST_F(ReadingService, ReturnsNoReadingsWhileReadersCannotBeMade) {
    std::atomic<bool> fails = true;
    std::atomic<int> attempts = 0;
    RunningService service({}, [&]() -> std::unique_ptr<plate_reading::FrameReader> {
        ++attempts;
        if (fails) {
            throw std::runtime_error("no reader in this test");
        }
        return scripted_reader::Make();
    });
    EXPECT_TRUE(AcceptsRange());
    EXPECT_LT(TimeOf([&] { EXPECT_EQ(Send(0).get(), 0); }), 1500ms);
    for (int frame = 0; frame < 20; ++frame) {
        EXPECT_EQ(Send(0).get(), 0);
    }
    EXPECT_LT(attempts, 10) << "one attempt for every frame";
    fails = false;
    EXPECT_TRUE(WaitUntil([&] { return Send(0).get() == 2; }));
}

TEST_F(ReadingService, StopsWhileReadersCannotBeMade) {
    RunningService service({}, []() -> std::unique_ptr<plate_reading::FrameReader> {
        throw std::runtime_error("no reader in this test");
    });
    EXPECT_TRUE(AcceptsRange());
    EXPECT_LT(TimeOf([&] { service.Stop(); }), 1500ms);
}

// Clients that send no requests

TEST_F(ReadingService, ReplacesASilentClientWhenTheLimitIsReached) {
    RunningService service(With([](Settings& settings) {
        settings.maxConnections = 1;
        settings.silenceTimeout = 20ms;
    }));
    std::optional<GreetingClient> silent;
    ASSERT_TRUE(WaitUntil([&] {
        silent.emplace();
        return silent->response && silent->response != BusyMessage();
    }));
    EXPECT_TRUE(WaitUntil([&] { return Send(0).get() == 2; }));
}

TEST_F(ReadingService, KeepsASilentClientBelowTheLimit) {
    RunningService service(With([](Settings& settings) {
        settings.maxConnections = 2;
        settings.silenceTimeout = 0ms;
    }));
    Client paused;
    ASSERT_TRUE(paused.SetRange(1, 2));
    EXPECT_EQ(Send(0).get(), 2);
    TestPicture picture(4, 4);
    RPLATE plates[engineRecordCount] = {};
    EXPECT_EQ(paused.Recognise(&picture.image, nullptr, plates), 2);
}

// Late responses

TEST_F(ReadingService, LateResponseIsNotUsedForALaterFrame) {
    RunningService service;
    Client client;
    ASSERT_TRUE(client.SetRange(1, 2));
    TestPicture slow(40, 40, 0, 1);
    slow.SetCommand(scripted_reader::Sleep, 230);
    RPLATE plates[engineRecordCount] = {};
    EXPECT_THAT(TimeOf([&] { EXPECT_EQ(client.Recognise(&slow.image, nullptr, plates), 0); }),
                testing::AllOf(testing::Ge(1950ms), testing::Lt(maxCallTime)));
    // The late response arrives while these requests are sent.
    const auto end = transport::Clock::now() + 600ms;
    for (unsigned seed = 2; transport::Clock::now() < end; ++seed) {
        TestPicture quick(30, 20, 0, seed);
        ASSERT_TRUE(client.SetRange(1, 2));
        std::memset(static_cast<void*>(plates), 0, sizeof plates);
        ASSERT_EQ(client.Recognise(&quick.image, nullptr, plates), 2);
        const auto wanted = scripted_reader::DescriptionOf(quick.ForReader(), std::nullopt, WidthRange{1, 2});
        ASSERT_EQ(std::string(plates[0].text), wanted[0].text);
    }
}

}  // namespace
