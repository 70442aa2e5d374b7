/// The engine's two functions, and servers to call them with.
#pragma once

#include <gmock/gmock.h>

#include <array>
#include <chrono>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "engine/engine_records.h"
#include "reference/server/service.h"
#include "reference/transport/messages.h"
#include "tests/reference/engine/scripted_reader.h"
#include "tests/support/environment.h"
#include "tests/support/runtime_folder.h"
#include "tests/support/wait_until.h"

namespace reading_engine_test {

using namespace std::chrono_literals;

/// The most time that a call may take, on a loaded machine.
inline constexpr auto maxCallTime = 2000ms + 1500ms;

inline const test_support::RuntimeFolder runtimeFolder;

/// Sets a server name of this program's own, so that its servers and clients do not meet those of other processes. The
/// engine reads it once for each thread.
inline void UseOwnServerName() {
    static const bool isSet = [] {
        std::random_device random;
        test_support::SetEnvironment("VEXLANE_READING_SOCKET",
                                     "test-" + std::to_string(random()) + "-" + std::to_string(random()));
        return true;
    }();
    static_cast<void>(isSet);
}

/// A service on a thread of this process.
class RunningService {
  public:
    explicit RunningService(reading_service::Settings settings = {},
                            reading_service::ReaderFactory factory = scripted_reader::Make)
        : service_(std::move(settings), std::move(factory)), thread_([this] { end_ = service_.Run(); }) {}
    ~RunningService() { Stop(); }
    RunningService(const RunningService&) = delete;
    RunningService& operator=(const RunningService&) = delete;

    void Stop() {
        service_.Stop();
        Join();
    }
    reading_service::End Join() {
        if (thread_.joinable()) {
            thread_.join();
        }
        return end_;
    }

  private:
    reading_service::Service service_;
    reading_service::End end_ = reading_service::End::Stopped;
    std::thread thread_;
};

/// A picture of random pixels with optional row padding. Its first two bytes hold a command for the scripted reader.
class TestPicture {
  public:
    TestPicture(std::uint32_t width, std::uint32_t height, std::uint32_t gap = 0, unsigned seed = 1) {
        image = {width, height, 3, width * 3 + gap, nullptr};
        pixels.resize(std::size_t{image.rowStride} * height);
        std::minstd_rand random(seed);
        for (std::uint8_t& byte : pixels) {
            byte = static_cast<std::uint8_t>(random() >> 8);
        }
        image.pixels = pixels.data();
        SetCommand(scripted_reader::Describe);
    }

    void SetCommand(scripted_reader::Command command, std::uint8_t argument = 0) {
        pixels[0] = command;
        pixels[1] = argument;
    }

    plate_reading::Picture ForReader() const {
        return {pixels.data(), static_cast<int>(image.width), static_cast<int>(image.height), image.rowStride};
    }

    IMG image = {};
    std::vector<std::uint8_t> pixels;
};

/// The engine's results for an image, in records that were not zero before.
struct Recognition {
    explicit Recognition(IMG* image, tagRECT* region = nullptr) {
        std::memset(static_cast<void*>(plates), 0xAA, sizeof plates);
        count = Recognize2(nullptr, image, region, plates, 0);
    }

    RPLATE plates[engineRecordCount + 1];
    int count = 0;
};

inline std::vector<int> CornersOf(const RPLATE& plate) {
    std::vector<int> numbers;
    for (const EngineCorner& corner : {plate.corner1, plate.corner2, plate.corner3, plate.corner4}) {
        numbers.insert(numbers.end(), {corner.x, corner.y});
    }
    return numbers;
}

/// A record with that reading and zeros elsewhere.
inline RPLATE RecordOf(const plate_reading::Reading& reading) {
    RPLATE plate = {};
    std::memcpy(plate.text, reading.text.data(), reading.text.size());
    SetConfidenceSum(plate, reading.confidence * static_cast<double>(reading.text.size()));
    if (!reading.country.empty()) {
        SetCountryCode(plate, reading.country);
    }
    plate.corner1 = {reading.corners[0].x, reading.corners[0].y};
    plate.corner2 = {reading.corners[1].x, reading.corners[1].y};
    plate.corner3 = {reading.corners[2].x, reading.corners[2].y};
    plate.corner4 = {reading.corners[3].x, reading.corners[3].y};
    return plate;
}

/// Succeeds if the engine returned these readings and wrote to no record after them.
inline testing::AssertionResult ReturnsReadings(const Recognition& recognition,
                                                const std::vector<plate_reading::Reading>& wanted) {
    if (recognition.count != static_cast<int>(wanted.size())) {
        return testing::AssertionFailure() << recognition.count << " records, not " << wanted.size();
    }
    for (std::size_t index = 0; index < wanted.size(); ++index) {
        const RPLATE record = RecordOf(wanted[index]);
        const RPLATE& plate = recognition.plates[index];
        if (std::memcmp(&plate, &record, sizeof record) != 0) {
            return testing::AssertionFailure()
                   << "record " << index << " is " << std::string(plate.text, sizeof plate.text) << " of "
                   << ConfidenceSumOf(plate) << " at " << testing::PrintToString(CornersOf(plate)) << ", not "
                   << wanted[index].text << " of " << ConfidenceSumOf(record) << " at "
                   << testing::PrintToString(CornersOf(record));
        }
    }
    const auto* const bytes = reinterpret_cast<const unsigned char*>(&recognition.plates[wanted.size()]);
    for (const unsigned char* byte = bytes;
         byte != reinterpret_cast<const unsigned char*>(std::end(recognition.plates)); ++byte) {
        if (*byte != 0xAA) {
            return testing::AssertionFailure() << "the engine wrote after the last record";
        }
    }
    return testing::AssertionSuccess();
}

template <class Action>
std::chrono::milliseconds TimeOf(Action action) {
    const auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
}

class ReadingEngine : public testing::Test {
  protected:
    ReadingEngine() { UseOwnServerName(); }
};

/// Connects and disconnects: the server cleans up ended connections when it accepts a new one.
inline void ConnectOnce() {
    transport::Connection::Open(transport::ServerName());
}

/// A client that sends a greeting and then nothing.
struct GreetingClient {
    GreetingClient() : connection(transport::Connection::Open(transport::ServerName())) {
        const transport::Deadline deadline = transport::Clock::now() + 10s;
        std::array<std::uint8_t, transport::maxMessageBytes> bytes = {};
        if (connection) {
            // Fails if the server was busy and has closed the connection.
            connection->Send(transport::Encode({1, transport::Greeting()}), deadline);
            response = transport::Decode(std::span(bytes).first(connection->Receive(bytes, deadline)));
        }
    }

    std::optional<transport::Connection> connection;
    std::optional<transport::Message> response;
};

/// The message that a server at its connection limit sends.
inline transport::Message BusyMessage() {
    return {0, transport::Busy()};
}

/// Runs an action on a new thread, which has its own engine client.
template <class Action>
void RunOnNewThread(Action action) {
    std::thread(action).join();
}

}  // namespace reading_engine_test
