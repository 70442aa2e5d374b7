#include "tools/server/session.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <utility>
#include <variant>

#include "tools/reading/reading_stream.h"
#include "tools/wire/messages.h"

namespace reading_service {

namespace {

wire::Reading AsSent(const plate_reading::Reading& reading) {
    wire::Reading sent;
    sent.text = reading.text;
    sent.confidence = std::isnan(reading.confidence) ? 0.0 : std::clamp(reading.confidence, 0.0, 100.0);
    for (std::size_t corner = 0; corner < sent.corners.size(); ++corner) {
        sent.corners[corner] = {reading.corners[corner].x, reading.corners[corner].y};
    }
    return sent;
}

// The first ones, since they are the surest.
wire::Readings AsSent(const std::vector<plate_reading::Reading>& readings) {
    wire::Readings sent;
    for (const plate_reading::Reading& reading : readings) {
        if (sent.readings.size() == wire::mostReadings) {
            break;
        }
        wire::Readings one = {{AsSent(reading)}};
        if (wire::IsSound(one)) {
            sent.readings.push_back(std::move(one.readings.front()));
        } else {
            Complain("a reading of " + std::to_string(reading.text.size()) + " characters cannot be sent");
        }
    }
    return sent;
}

class Session {
  public:
    Session(wire::Connection& peer, ReaderPool& pool, int confirmations, std::atomic<wire::Deadline>& requestTime)
        : connection(peer), readers(pool), stream(confirmations), lastRequest(requestTime) {}

    void Serve() {
        if (!Greet()) {
            return;
        }
        while (const std::optional<wire::Message> request = Next(wire::noDeadline)) {
            lastRequest = wire::Clock::now();
            const std::optional<wire::Contents> answer =
                std::visit([this](const auto& contents) { return Answer(contents); }, request->contents);
            if (!answer || !Send({request->number, *answer})) {
                return;
            }
        }
    }

  private:
    bool Greet() {
        const std::optional<wire::Message> message = Next(wire::Clock::now() + longestGreeting);
        const auto* const greeting = message ? std::get_if<wire::Greeting>(&message->contents) : nullptr;
        return greeting != nullptr && Send({message->number, wire::GreetingAnswer()}) &&
               greeting->version == wire::protocolVersion;
    }

    std::optional<wire::Message> Next(wire::Deadline deadline) {
        std::optional<wire::PeerMemory> brought;
        if (!connection.Receive(received, wire::largestMessageBytes, brought, wire::largestPictureBytes, deadline)) {
            return std::nullopt;
        }
        std::optional<wire::Message> message = wire::Decode(received);
        if (!message) {
            return std::nullopt;
        }
        const auto* const frame = std::get_if<wire::Frame>(&message->contents);
        if (brought.has_value() != (frame != nullptr && frame->bringsMemory)) {
            return std::nullopt;
        }
        if (brought) {
            memory = std::move(brought);
        }
        return message;
    }

    bool Send(const wire::Message& message) {
        return connection.Send(wire::Encode(message), nullptr, wire::Clock::now() + longestAnswering);
    }

    std::optional<wire::Contents> Answer(const wire::Range& range) {
        widths = plate_reading::WidthRange{range.minimum, range.maximum};
        return wire::RangeTaken();
    }

    std::optional<wire::Contents> Answer(const wire::Frame& frame) {
        const std::uint64_t size = wire::PictureBytes(frame.width, frame.height);
        if (!memory || memory->Bytes().size() < size) {
            return std::nullopt;
        }
        // Behind the deadline nobody waits for the answer any more.
        const std::optional<ReaderPool::Loan> loan = readers.Take(wire::Clock::now() + wire::longestFrame);
        if (!loan || !connection.PeerIsThere()) {
            return wire::Readings();
        }
        plate_reading::Picture picture;
        picture.pixels = memory->Bytes().data();
        picture.width = static_cast<int>(frame.width);
        picture.height = static_cast<int>(frame.height);
        picture.stride = std::size_t{frame.width} * wire::bytesPerPixel;
        std::optional<plate_reading::Region> region;
        if (frame.region) {
            region = {frame.region->left, frame.region->top, frame.region->right, frame.region->bottom};
        }
        try {
            return AsSent(stream.Follow(picture, region, loan->Reader().Read(picture, region, widths)));
        } catch (const std::exception& error) {
            Complain(std::string("a frame cannot be read: ") + error.what());
        } catch (...) {
            Complain("a frame cannot be read");
        }
        return wire::Readings();
    }

    // Whatever a client does not say.
    template <class Contents>
    std::optional<wire::Contents> Answer(const Contents&) {
        return std::nullopt;
    }

    wire::Connection& connection;
    ReaderPool& readers;
    plate_reading::ReadingStream stream;  // a thread of the host's handles one camera at a time
    std::atomic<wire::Deadline>& lastRequest;
    std::optional<wire::PeerMemory> memory;
    std::optional<plate_reading::WidthRange> widths;
    std::vector<std::uint8_t> received;
};

}  // namespace

void ServeClient(wire::Connection& connection, ReaderPool& readers, int confirmations,
                 std::atomic<wire::Deadline>& lastRequest) {
    Session(connection, readers, confirmations, lastRequest).Serve();
}

}  // namespace reading_service
